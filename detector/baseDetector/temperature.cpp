#include "detector/baseDetector/temperature.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <stdexcept>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/standardFailures.h"
#include "detector/registers.h"
#include "platform/Clock.h"

using registers::firstSensor;

namespace {

struct SensorCount {
    int model;
    int sensors;  ///< sensors that temperatures are reported for
    bool auxiliaryProbe;
};

/// Model 8131 has no entry.
constexpr std::array<SensorCount, 7> SensorCountOfModel{{{5101, 1, false},
                                                         {5204, 1, false},
                                                         {5309, 1, false},
                                                         {6112, 2, true},
                                                         {6213, 2, true},
                                                         {6318, 4, false},
                                                         {7127, 4, true}}};

constexpr float zeroCelsiusInKelvin = 273.15F;
constexpr float seriesResistance = 8250.0F;
constexpr int readingRounds = 100;
constexpr std::chrono::milliseconds readingPause{10};
constexpr const char* auxiliaryProblem = "Problem sending serial command!";

/// The row of a model, or null.
const SensorCount* findSensorCount(int model) {
    for (const SensorCount& row : SensorCountOfModel)
        if (row.model == model) return &row;
    return nullptr;
}

/// The hexadecimal digits after `lead`; empty for a field without the lead or without digits.
std::optional<std::string_view> digitsAfter(std::string_view field, std::string_view lead) {
    if (field.size() <= lead.size() || field.substr(0, lead.size()) != lead) return std::nullopt;
    return field.substr(lead.size());
}

}  // namespace

std::optional<int> parseAuxiliaryReading(std::string_view reply) {
    constexpr int hexadecimal = 16;
    const std::size_t firstComma = reply.find(',');
    if (firstComma == std::string_view::npos) return std::nullopt;
    const std::size_t secondComma = reply.find(',', firstComma + 1);
    if (secondComma == std::string_view::npos || reply.find(',', secondComma + 1) != std::string_view::npos)
        return std::nullopt;
    const auto first = digitsAfter(reply.substr(0, firstComma), "Sx");
    const auto second = digitsAfter(reply.substr(firstComma + 1, secondComma - firstComma - 1), "x");
    const auto third = digitsAfter(reply.substr(secondComma + 1), "x");
    if (!first || !second || !third) return std::nullopt;
    int value = 0;
    const auto [end, error] = std::from_chars(first->data(), first->data() + first->size(), value, hexadecimal);
    if (error != std::errc() || end != first->data() + first->size() || first->front() == '-') return std::nullopt;
    return value;
}

float auxiliaryTemperature(int rawReading) {
    const double voltage = rawReading * 2.5 / ((1 << 12) - 1);
    const double conductance = 1 / (22473.0 / voltage - 6810.0);
    const double resistance = 1 / (conductance - 2.262443438914027e-05);
    if (!(resistance > 0)) return 0.0F;
    return static_cast<float>(1 / (std::log(resistance / 10000.0) / 3988.0 + 0.0033540164346805303) - 273.15);
}

float baseDetector::ConvertTemp(int rawReading, int bits, float referenceResistance, float referenceCelsius, int beta) {
    constexpr int mostBits = 30;
    if (bits < 1 || bits > mostBits)
        fail("The converter must have between 1 and 30 bits!", DerrBadRequest, "baseDetector::ConvertTemp", bits);
    const int fullScale = 2 << (bits - 1);
    const float resistance = seriesResistance / (static_cast<float>(fullScale) / static_cast<float>(rawReading) - 1.0F);
    const float x = std::log(resistance / referenceResistance) / static_cast<float>(beta);
    return 1.0F / (x + 1.0F / (referenceCelsius + zeroCelsiusInKelvin)) - zeroCelsiusInKelvin;
}

float baseDetector::GetDetectorTemp(int sensor) {
    return layer("baseDetector::GetDetectorTemp", [&] {
        CheckConnected();
        return IsKestrane() ? GetKestraneDetectorTemp(sensor) : GetNormalDetectorTemp(sensor);
    });
}

float baseDetector::GetNormalDetectorTemp(int /*sensor*/) {
    constexpr int requestBit = 1;
    constexpr std::chrono::milliseconds conversion{1};
    constexpr float fullScale = 4096.0F;
    constexpr float referenceResistance = 10000.0F;
    constexpr float beta = 3950.0F;
    constexpr float referencePerKelvin = 0.0033540165F;  // of 25 degrees Celsius
    const int request = readWord(registers::temperatureRequest) | requestBit;
    writeAll(registers::temperatureRequest, request);
    platform::sleepFor(conversion);
    const auto rawReading = static_cast<float>(readWord(registers::temperatureReading));
    const float x = std::log(seriesResistance / (fullScale / rawReading - 1.0F) / referenceResistance);
    writeAll(registers::temperatureRequest, request & ~requestBit);
    return 1.0F / (x / beta + referencePerKelvin) - zeroCelsiusInKelvin;
}

float baseDetector::GetKestraneDetectorTemp(int sensor) {
    const SensorCount* const row = findSensorCount(GetCachedModelNumber());
    if (row == nullptr) throw std::out_of_range(standardText::mapKey);
    if (sensor >= 1 && sensor <= row->sensors) return GetSensorTemp();
    if (sensor == row->sensors + 1) return GetAuxilliaryDetectorTemp();
    return 0.0F;
}

float baseDetector::GetSensorTemp() {
    constexpr int requestBit = 1 << 15;
    constexpr int celsiusBits = 0xFF;
    writeAll(registers::temperature, ReadRegister(registers::temperature, firstSensor) | requestBit);
    for (int round = 0; round < readingRounds; ++round) {
        const int value = ReadRegister(registers::temperature, firstSensor);
        if ((value & requestBit) == 0) return static_cast<float>(value & celsiusBits);
        platform::sleepFor(readingPause);
    }
    return 0.0F;
}

float baseDetector::GetAuxilliaryDetectorTemp() {
    constexpr const char* here = "baseDetector::GetAuxilliaryDetectorTemp";
    const SensorCount* const row = findSensorCount(GetCachedModelNumber());
    if (row == nullptr || !row->auxiliaryProbe) return 0.0F;
    if (SendCommand(std::string("M1")) != "X") fail(auxiliaryProblem, DerrSerialCommand, here);
    for (int round = 0; round < readingRounds; ++round) {
        platform::sleepFor(readingPause);
        const std::optional<int> rawReading = parseAuxiliaryReading(SendCommand(std::string("RM8")));
        if (!rawReading) break;
        if (*rawReading != 0) return auxiliaryTemperature(*rawReading);
    }
    fail(auxiliaryProblem, DerrSerialCommand, here);
}
