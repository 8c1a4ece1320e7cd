#include <algorithm>
#include <array>
#include <cmath>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"

namespace {

struct Choice {
    int value;
    const char* text;
};

constexpr std::array<Choice, 7> baudRates{{{9600, "Baud9600"},
                                           {14400, "Baud14400"},
                                           {19200, "Baud19200"},
                                           {28800, "Baud28800"},
                                           {38400, "Baud38400"},
                                           {57600, "Baud57600"},
                                           {115200, "Baud115200"}}};
constexpr std::array<Choice, 3> parities{{{0, "None"}, {1, "Odd"}, {2, "Even"}}};
constexpr std::array<Choice, 2> stopBitCounts{{{1, "One"}, {2, "Two"}}};

template <std::size_t N>
const char* pick(const std::array<Choice, N>& choices, int value, const char* refusal) {
    for (const Choice& choice : choices)
        if (choice.value == value) return choice.text;
    fail(refusal, DerrBadRequest, "PleoraDetector::SerialConfigure", value);
}

/// Truncates towards zero; a value outside the range of int becomes one that is in no table.
int cutToInteger(double value) {
    constexpr double limit = 2147483647.0;
    return std::isnan(value) ? 0 : static_cast<int>(std::clamp(value, -limit, limit));
}

}  // namespace

void PleoraDetector::SerialConfigure(double baud, int /*dataBits*/, int parity, int stopBits) {
    constexpr const char* here = "PleoraDetector::SerialConfigure";
    constexpr const char* message = "Problem Configuring Detector Serial Interface!";
    const char* const baudText = pick(baudRates, cutToInteger(baud), "Unsupported serial communications baud rate!");
    const char* const parityText = pick(parities, parity, "Unsupported serial communications parity bit setting!");
    const char* const stopText = pick(stopBitCounts, stopBits, "Unsupported serial communications stop bit setting!");
    setEnum(Test::NotFailure, "Uart0BaudRate", baudText, message, here);
    setEnum(Test::NotFailure, "Uart0NumOfStopBits", stopText, message, here);
    setEnum(Test::NotFailure, "Uart0Parity", parityText, message, here);
    expect(Test::NotFailure, pleoraLib->Dev_SetBooleanValue("Uart0Loopback", false), message, here);
}

int PleoraDetector::SerialRead(char* buffer, int capacity) {
    constexpr std::uint32_t timeoutMs = 1000;
    CheckConnected();
    std::uint32_t count = 0;
    expect(Test::NotFailure,
           pleoraLib->IP_Read(reinterpret_cast<std::uint8_t*>(buffer), static_cast<std::uint32_t>(capacity), count,
                              timeoutMs),
           "Problem performing serial read!", "PleoraDetector::SerialRead");
    return static_cast<int>(count);
}

int PleoraDetector::SerialWrite(char* buffer, int size) {
    constexpr const char* here = "PleoraDetector::SerialWrite";
    constexpr const char* message = "Problem performing serial write!";
    CheckConnected();
    expect(Test::NotFailure, pleoraLib->IP_FlushRxBuffer(), message, here);
    std::uint32_t written = 0;
    expect(
        Test::IsOK,
        pleoraLib->IP_Write(reinterpret_cast<const std::uint8_t*>(buffer), static_cast<std::uint32_t>(size), written),
        message, here);
    return 0;
}
