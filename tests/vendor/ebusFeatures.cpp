#include <map>
#include <variant>

#include "EbusRig.h"

namespace {

using EbusFeatures = EbusRig;

struct Number {
    std::int64_t number;
};
using Value = std::variant<bool, std::int64_t, double, Number, const char*>;

PvResult set(PvGenParameterArray& features, const char* name, const Value& value) {
    if (const bool* const flag = std::get_if<bool>(&value)) return features.SetBooleanValue(name, *flag);
    if (const std::int64_t* const integer = std::get_if<std::int64_t>(&value))
        return features.SetIntegerValue(name, *integer);
    if (const double* const real = std::get_if<double>(&value)) return features.SetFloatValue(name, *real);
    if (const Number* const entry = std::get_if<Number>(&value)) return features.SetEnumValue(name, entry->number);
    return features.SetEnumValue(name, std::get<const char*>(value));
}

TEST_F(EbusFeatures, AcceptedValuesReadBackFromTheirTimer) {
    user.connect(address);
    PvGenParameterArray& features = user.features();
    const std::map<std::string, std::int64_t> numbers{
        {"Width", 1}, {"Height", 65535}, {"GevPersistentIPAddress", 0xFFFFFFFF}, {"TimerDurationRaw", 1000}};
    const std::map<std::string, const char*> texts{{"PixelFormat", "Mono16"},
                                                   {"Uart0BaudRate", "Baud9600"},
                                                   {"Uart0NumOfStopBits", "Two"},
                                                   {"Uart0Parity", "Even"},
                                                   {"TimerTriggerActivation", "FallingEdge"}};
    for (const auto& [name, value] : numbers) EXPECT_TRUE(features.SetIntegerValue(name.c_str(), value).IsOK()) << name;
    for (const auto& [name, text] : texts) EXPECT_TRUE(features.SetEnumValue(name.c_str(), text).IsOK()) << name;
    features.SetEnumValue("TimerSelector", "Timer2");
    features.SetIntegerValue("TimerDurationRaw", 22);
    features.SetEnumValue("TimerSelector", "Timer1");
    for (const auto& [name, value] : numbers) {
        std::int64_t held = -1;
        EXPECT_TRUE(features.GetIntegerValue(name.c_str(), held).IsOK()) << name;
        EXPECT_EQ(held, value) << name;
    }
    for (const auto& [name, text] : texts) {
        PvString held;
        EXPECT_TRUE(features.GetEnumValue(name.c_str(), held).IsOK()) << name;
        EXPECT_EQ(held, text) << name;
    }
    std::int64_t payload = 0;
    features.GetIntegerValue("PayloadSize", payload);
    EXPECT_EQ(payload, 65535 * 2);
    std::int64_t format = 0;
    EXPECT_TRUE(features.SetEnumValue("PixelFormat", 0x1100025).IsOK());
    EXPECT_TRUE(features.GetEnumValue("PixelFormat", format).IsOK());
    EXPECT_EQ(format, 0x1100025);
}

TEST_F(EbusFeatures, RefusalsNameTheFeatureAndWhatItTakes) {
    user.connect(address);
    struct Case {
        const char* name;
        Value value;
        std::uint32_t code;
        const char* description;
    };
    for (const Case& each : std::initializer_list<Case>{
             {"Wdith", std::int64_t{5}, PvResult::NotFound, "there is no feature \"Wdith\""},
             {"Width", std::int64_t{0}, PvResult::OutOfRange, "feature \"Width\" takes 1 to 65535, not 0"},
             {"Width", std::int64_t{65536}, PvResult::OutOfRange, "feature \"Width\" takes 1 to 65535, not 65536"},
             {"Width", "Off", PvResult::WrongType, "feature \"Width\" is an integer, not an enumeration"},
             {"Width", 5.0, PvResult::WrongType, "feature \"Width\" is an integer, not a floating-point number"},
             {"PLC_ctrl0", std::int64_t{1}, PvResult::WrongType, "feature \"PLC_ctrl0\" is a boolean, not an integer"},
             {"PayloadSize", std::int64_t{9}, PvResult::ReadOnly, "feature \"PayloadSize\" is read only"},
             {"TimerFrequency", 9.0, PvResult::ReadOnly, "feature \"TimerFrequency\" is read only"},
             {"PixelFormat", "Mono8", PvResult::OutOfRange,
              "feature \"PixelFormat\" takes Mono14, Mono16, not \"Mono8\""},
             {"PixelFormat", Number{7}, PvResult::OutOfRange, "feature \"PixelFormat\" takes Mono14, Mono16, not 7"},
             {"Uart0Parity", "", PvResult::OutOfRange, "feature \"Uart0Parity\" takes None, Odd, Even, not \"\""},
         }) {
        const PvResult result = set(user.features(), each.name, each.value);
        EXPECT_EQ(result.GetCode(), each.code) << each.description;
        EXPECT_STREQ(result.GetDescription().GetAscii(), each.description);
    }
    std::int64_t value = 77;
    EXPECT_EQ(user.features().GetIntegerValue("PixelFormat", value).GetCode(), PvResult::WrongType);
    EXPECT_EQ(value, 77) << "a failed read leaves the value alone";
}

TEST_F(EbusFeatures, FeaturesNeedAConnectionAndOutliveIt) {
    EXPECT_EQ(user.features().SetIntegerValue("Width", 10).GetCode(), PvResult::NotConnected);
    user.device.Connect(address);
    user.features().SetIntegerValue("Width", 10);
    ASSERT_TRUE(user.device.Disconnect().IsOK());
    std::int64_t held = 0;
    EXPECT_EQ(user.features().GetIntegerValue("Width", held).GetCode(), PvResult::NotConnected);
    PvDeviceGEV later;
    ASSERT_TRUE(later.Connect(address).IsOK());
    EXPECT_TRUE(later.GetParameters()->GetIntegerValue("Width", held).IsOK());
    EXPECT_EQ(held, 10);
    later.Disconnect();
    user.connect(address);
    detector->faults().set(simulator::Fault::SlowCall, {.value = 40});
    detector->faults().set(simulator::Fault::RefusedFeature, {}, "Height");
    const platform::Time before = clock.now();
    EXPECT_TRUE(user.features().SetIntegerValue("Width", 10).IsOK());
    EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(40));
    EXPECT_EQ(user.features().SetIntegerValue("Height", 10).GetCode(), PvResult::Refused);
    EXPECT_TRUE(user.features().SetIntegerValue("Height", 10).IsOK());
}

}  // namespace
