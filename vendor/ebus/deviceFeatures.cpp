#include "deviceFeatures.h"

#include <limits>

namespace ebus {
namespace {

using Entries = EnumEntries;

// The 32-bit format codes of the GigE Vision standard; both formats take two bytes a pixel.
constexpr std::array<EnumEntry, 2> pixelFormats{{{0x1100025, "Mono14"}, {0x1100007, "Mono16"}}};

constexpr EnumEntry entry(TestImage image, std::string_view text) {
    return {static_cast<std::int64_t>(image), text};
}
constexpr std::array<EnumEntry, 3> testImages{{
    entry(TestImage::Off, "Off"),
    entry(TestImage::GreyHorizontalRamp, "GreyHorizontalRamp"),
    entry(TestImage::GreyVerticalRamp, "GreyVerticalRamp"),
}};

constexpr std::array<EnumEntry, 7> baudRates{{
    {9600, "Baud9600"},
    {14400, "Baud14400"},
    {19200, "Baud19200"},
    {28800, "Baud28800"},
    {38400, "Baud38400"},
    {57600, "Baud57600"},
    {115200, "Baud115200"},
}};
constexpr std::array<EnumEntry, 2> stopBits{{{1, "One"}, {2, "Two"}}};
constexpr std::array<EnumEntry, 3> parities{{{0, "None"}, {1, "Odd"}, {2, "Even"}}};

constexpr std::array<EnumEntry, 10> inputSources{{
    {signal::zero, "Zero"},
    {signal::one, "One"},
    {signal::control0, "PLC_ctrl0"},
    {signal::control0 + 1, "PLC_ctrl1"},
    {signal::control0 + 2, "PLC_ctrl2"},
    {signal::control0 + 3, "PLC_ctrl3"},
    {signal::timer1, "Timer1Out"},
    {signal::timer1 + 1, "Timer2Out"},
    {signal::timer1 + 2, "Timer3Out"},
    {signal::timer1 + 3, "Timer4Out"},
}};
constexpr std::array<EnumEntry, 14> variables{{
    {signal::zero, "Zero"},
    {signal::one, "One"},
    {signal::control0, "PLC_ctrl0"},
    {signal::control0 + 1, "PLC_ctrl1"},
    {signal::control0 + 2, "PLC_ctrl2"},
    {signal::control0 + 3, "PLC_ctrl3"},
    {signal::input0, "PLC_I0"},
    {signal::input0 + 1, "PLC_I1"},
    {signal::input0 + 2, "PLC_I2"},
    {signal::input0 + 3, "PLC_I3"},
    {signal::input0 + 4, "PLC_I4"},
    {signal::input0 + 5, "PLC_I5"},
    {signal::input0 + 6, "PLC_I6"},
    {signal::input0 + 7, "PLC_I7"},
}};
constexpr EnumEntry entry(Operator op, std::string_view text) {
    return {static_cast<std::int64_t>(op), text};
}
constexpr std::array<EnumEntry, 6> operators{{
    entry(Operator::Or, "Or"),
    entry(Operator::And, "And"),
    entry(Operator::Xor, "Xor"),
    entry(Operator::Nor, "Nor"),
    entry(Operator::Nand, "Nand"),
    entry(Operator::Xnor, "Xnor"),
}};
constexpr std::array<EnumEntry, timerCount> timers{{{0, "Timer1"}, {1, "Timer2"}, {2, "Timer3"}, {3, "Timer4"}}};
constexpr EnumEntry entry(TimerSource source, std::string_view text) {
    return {static_cast<std::int64_t>(source), text};
}
constexpr std::array<EnumEntry, 2> timerSources{{
    entry(TimerSource::Off, "Off"),
    entry(TimerSource::Continuous, "Continuous"),
}};
constexpr std::array<EnumEntry, 4> timerActivations{
    {{0, "RisingEdge"}, {1, "FallingEdge"}, {2, "LevelHigh"}, {3, "LevelLow"}}};

constexpr std::int64_t largestSide = 65535;
constexpr std::int64_t largestGranularityFactor = 0xFFFFFF;
constexpr std::int64_t largestRawTime = 0xFFFF;
constexpr std::int64_t startRawTime = 1000;

constexpr FeatureRow boolean(std::string_view name) {
    return {name, FeatureType::Boolean};
}
constexpr FeatureRow integer(std::string_view name, std::int64_t minimum, std::int64_t maximum, std::int64_t start,
                             Banks banks = Banks::One) {
    return {name, FeatureType::Integer, Access::ReadWrite, minimum, maximum, start, {}, banks};
}
constexpr FeatureRow enumeration(std::string_view name, Entries entries, std::int64_t start, Banks banks = Banks::One) {
    return {name, FeatureType::Enumeration, Access::ReadWrite, 0, 0, start, entries, banks};
}
constexpr FeatureRow computed(std::string_view name, FeatureType type, Banks banks = Banks::One) {
    return {name, type, Access::ReadOnly, 0, 0, 0, {}, banks};
}
constexpr FeatureRow input(std::string_view name) {
    return enumeration(name, inputSources, signal::zero);
}
constexpr FeatureRow variable(std::string_view name) {
    return enumeration(name, variables, signal::zero);
}
constexpr FeatureRow operation(std::string_view name) {
    return enumeration(name, operators, 0);
}

constexpr std::array<FeatureRow, placeOf(DeviceFeature::Count)> deviceTable{{
    integer("Width", 1, largestSide, 1),
    integer("Height", 1, largestSide, 1),
    computed("PayloadSize", FeatureType::Integer),
    enumeration("PixelFormat", pixelFormats, pixelFormats[0].number),
    enumeration("TestImageSelector", testImages, 0),
    enumeration("Uart0BaudRate", baudRates, 115200),
    enumeration("Uart0NumOfStopBits", stopBits, 1),
    enumeration("Uart0Parity", parities, 0),
    boolean("Uart0Loopback"),
    boolean("GevCurrentIPConfigurationPersistentIP"),
    integer("GevPersistentIPAddress", 0, std::numeric_limits<std::uint32_t>::max(), 0),
    input("PLC_I0"),
    input("PLC_I1"),
    input("PLC_I2"),
    input("PLC_I3"),
    input("PLC_I4"),
    input("PLC_I5"),
    input("PLC_I6"),
    input("PLC_I7"),
    boolean("PLC_ctrl0"),
    boolean("PLC_ctrl1"),
    boolean("PLC_ctrl2"),
    boolean("PLC_ctrl3"),
    variable("PLC_Q4_Variable0"),
    variable("PLC_Q4_Variable1"),
    variable("PLC_Q4_Variable2"),
    variable("PLC_Q4_Variable3"),
    operation("PLC_Q4_Operator0"),
    operation("PLC_Q4_Operator1"),
    operation("PLC_Q4_Operator2"),
    enumeration("TimerSelector", timers, 0),
    enumeration("TimerTriggerSource", timerSources, 0, Banks::PerTimer),
    enumeration("TimerTriggerActivation", timerActivations, 0, Banks::PerTimer),
    integer("TimerGranularityFactor", 0, largestGranularityFactor, 0, Banks::PerTimer),
    integer("TimerDurationRaw", 1, largestRawTime, startRawTime, Banks::PerTimer),
    integer("TimerDelayRaw", 0, largestRawTime, startRawTime, Banks::PerTimer),
    computed("TimerFrequency", FeatureType::Float, Banks::PerTimer),
}};

static_assert(deviceTable[placeOf(DeviceFeature::PlcControl0)].name == "PLC_ctrl0");
static_assert(deviceTable[placeOf(DeviceFeature::PlcQ4Operator0)].name == "PLC_Q4_Operator0");
static_assert(deviceTable[placeOf(DeviceFeature::TimerFrequency)].name == "TimerFrequency");

}  // namespace

FeatureStore makeDeviceFeatures() {
    return {deviceTable.data(), deviceTable.size()};
}

Logic logicOf(const FeatureStore& features) {
    Logic logic;
    for (std::size_t i = 0; i < controlBitCount; ++i)
        logic.controlBits[i] = features.get(placeOf(DeviceFeature::PlcControl0, i)) != 0;
    for (std::size_t i = 0; i < inputCount; ++i) logic.inputs[i] = features.get(placeOf(DeviceFeature::PlcI0, i));
    for (std::size_t i = 0; i < variableCount; ++i)
        logic.variables[i] = features.get(placeOf(DeviceFeature::PlcQ4Variable0, i));
    for (std::size_t i = 0; i < operatorCount; ++i)
        logic.operators[i] = static_cast<Operator>(features.get(placeOf(DeviceFeature::PlcQ4Operator0, i)));
    for (std::size_t i = 0; i < timerCount; ++i) {
        Timer& timer = logic.timers[i];
        timer.source = static_cast<TimerSource>(features.get(placeOf(DeviceFeature::TimerTriggerSource), i));
        timer.granularityFactor = features.get(placeOf(DeviceFeature::TimerGranularityFactor), i);
        timer.durationRaw = features.get(placeOf(DeviceFeature::TimerDurationRaw), i);
        timer.delayRaw = features.get(placeOf(DeviceFeature::TimerDelayRaw), i);
    }
    return logic;
}

}  // namespace ebus
