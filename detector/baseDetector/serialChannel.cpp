#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "InternalUtils/Failure.h"
#include "detector/LogText.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "detector/registers.h"
#include "logging.h"
#include "platform/Clock.h"

namespace {

using ReplyBuffer = std::array<char, serial::replySize>;

// Passed as they are: the %d is part of the texts.
constexpr const char* registerRangeText = "The register you are trying to access is out of range (0-%d)!";
constexpr const char* valueRangeText = "The register value you are trying to write is out of range (0-%d)!";
constexpr const char* sensorRangeText =
    "Invalid sensor number. The sensor number must be between 1-9 for register reads and between 0-9 for register "
    "writes!";
constexpr int highestSensor = 9;

void checkRegister(int reg, const char* function) {
    if (reg < 0 || reg > registers::highest) fail(registerRangeText, DerrBadRequest, function, reg);
}

std::string_view withoutCarriageReturn(std::string_view reply) {
    if (!reply.empty() && reply.back() == serial::carriageReturn) reply.remove_suffix(1);
    return reply;
}

std::string_view withoutLastByte(std::string_view text) {
    return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

}  // namespace

void baseDetector::checkReadTarget(int reg, int sensor) const {
    constexpr const char* here = "baseDetector::ReadRS232Cmd";
    layer(here, [&] {
        checkRegister(reg, here);
        if (sensor < 1 || sensor > highestSensor) fail(sensorRangeText, DerrBadRequest, here, reg);
    });
}

void baseDetector::ReadRS232Cmd(int reg, char* dst, int size, unsigned short sensor) {
    constexpr const char* here = "baseDetector::ReadRS232Cmd";
    layer(here, [&] { CheckConnected(); });
    checkReadTarget(reg, sensor);
    layer(here, [&] {
        const std::string command = serial::formatRead(sensor, reg);
        ReplyBuffer reply{};
        int attempts = 0;
        while (reply.front() != serial::readReplyStart && attempts < serial::readAttempts) {
            SendCommand(command.c_str(), reply.data());
            ++attempts;
        }
        // The fifth send fails, even with a good reply.
        if (attempts >= serial::readAttempts) fail("Problem performing serial read!", DerrTransport, here);
        serial::copyText(dst, static_cast<std::size_t>(std::max(size, 0)), reply.data());
    });
}

void baseDetector::SendRS232Cmd(int reg, int value, int sensor) {
    constexpr const char* here = "baseDetector::SendRS232Cmd";
    layer(here, [&] {
        CheckConnected();
        checkRegister(reg, here);
        if (value < 0 || value > registers::highestValue) fail(valueRangeText, DerrBadRequest, here, reg);
        if (sensor < 0 || sensor > highestSensor) fail(sensorRangeText, DerrBadRequest, here, reg);
        ReplyBuffer reply{};
        SendCommand(serial::formatWrite(sensor, reg, value).c_str(), reply.data());
    });
}

std::string baseDetector::SendCommand(std::string command) {
    constexpr const char* here = "baseDetector::SendCommand";
    return layer(here, [&] {
        if (command.size() > serial::longestStringCommand)
            fail("Command length cannot exceed 22 characters!", DerrBadRequest, here, static_cast<int>(command.size()));
        ReplyBuffer reply{};
        SendCommand(command.c_str(), reply.data());
        return std::string(withoutCarriageReturn(reply.data()));
    });
}

void baseDetector::SendCommand(const char* command, char* reply) {
    constexpr const char* here = "baseDetector::SendCommand";
    layer(here, [&] {
        if (command == nullptr) fail("Problem sending serial command!", DerrBadRequest, here);
        const std::size_t length = strnlen(command, serial::commandSize);
        if (length == serial::commandSize) fail("Problem sending serial command!", DerrBadRequest, here);
        SendCommand(command, length, reply);
    });
}

void baseDetector::SendCommand(const char* command, std::size_t length, char* reply) {
    constexpr const char* here = "baseDetector::SendCommand";
    layer(here, [&] {
        if (command == nullptr || reply == nullptr) fail("Problem sending serial command!", DerrBadRequest, here);
        SendCommandWithoutFlashStatusCheck(command, length, reply,
                                           IsKestrane() ? serial::kestranePollDelayMs : serial::plainPollDelayMs);
        WaitUntilFlashReady(std::string(command, length));
    });
}

void baseDetector::SendCommand1(char* command) {
    layer("baseDetector::SendCommand1", [&] {
        ReplyBuffer reply{};
        SendCommand(command, reply.data());
    });
}

void baseDetector::SendRS232Cmd1(char* command) {
    layer("baseDetector::SendRS232Cmd1", [&] {
        ReplyBuffer reply{};
        SendCommand(command, reply.data());
    });
}

std::string baseDetector::SendCommandWithoutFlashStatusCheck(const std::string& command, int delayMs) {
    return layer("baseDetector::SendCommandWithoutFlashStatusCheck", [&] {
        ReplyBuffer reply{};
        SendCommandWithoutFlashStatusCheck(command.data(), command.size(), reply.data(), delayMs);
        return std::string(reply.data());
    });
}

void baseDetector::SendCommandWithoutFlashStatusCheck(const char* command, std::size_t length, char* reply,
                                                      int delayMs) {
    constexpr const char* here = "baseDetector::SendCommandWithoutFlashStatusCheck";
    layer(here, [&] {
        CheckConnected();
        const CriticalSectionLock lock(serialLock);
        if (!commsOpen) {
            SerialConfigure(serial::baud, serial::dataBits, serial::noParity, serial::stopBits);
            commsOpen = true;
        }
        sentCommand.assign(command, command + length);
        sentCommand.push_back(serial::carriageReturn);
        SerialWrite(sentCommand.data(), static_cast<int>(sentCommand.size()));

        std::string received;
        const std::int64_t start = platform::tickCountMs();
        // Without a delay the first read follows immediately, and each further one after a yield to other threads.
        for (bool first = true; first || platform::tickCountMs() - start < serial::replyTimeoutMs; first = false) {
            if (delayMs > 0 || !first) platform::sleepFor(std::chrono::milliseconds(delayMs));
            std::array<char, serial::replySize> chunk{};
            const int count = SerialRead(chunk.data(), static_cast<int>(chunk.size()));
            if (count < 0) break;
            received.append(chunk.data(), static_cast<std::size_t>(count));
            if (count > 0 && received.back() == serial::carriageReturn) {
                serial::copyText(reply, serial::replySize, received);
                LogSerialCommand(sentCommand, received);
                return;
            }
        }
        commsOpen = false;
        serial::copyText(reply, serial::errorTextSize, "error");
        fail(fmt::format("Problem sending serial command {}", std::string_view(command, length)), DerrSerialCommand,
             here);
    });
}

void baseDetector::WaitUntilFlashReady() {
    if (!IsKestrane()) return;
    const std::int64_t start = platform::tickCountMs();
    int status = 0;
    do {
        if (platform::tickCountMs() - start > serial::flashReadyTimeoutMs)
            fail("Timeout waiting for flash controller after serial command", DerrTransport,
                 "baseDetector::WaitUntilFlashReady");
        ReplyBuffer reply{};
        SendCommandWithoutFlashStatusCheck(serial::flashStatusRead.data(), serial::flashStatusRead.size(), reply.data(),
                                           serial::kestranePollDelayMs);
        status = getatoi(reply.data());
    } while ((status & registers::flashBusyBit) != 0);
}

void baseDetector::WaitUntilFlashReady(const std::string& command) {
    if (IsKestrane())
        WaitUntilFlashReady();
    else if (IsFlashRegisterWrite(command))
        platform::sleepFor(std::chrono::milliseconds(serial::flashWritePauseMs));
}

void baseDetector::openComms() {
    layer("baseDetector::openComms", [&] {
        const CriticalSectionLock lock(serialLock);
        if (commsOpen) return;
        SerialConfigure(serial::baud, serial::dataBits, serial::noParity, serial::stopBits);
        commsOpen = true;
    });
}

int baseDetector::getatoi(const char* reply) {
    constexpr const char* here = "baseDetector::getatoi";
    return layer(here, [&] {
        const std::optional<int> value = serial::parseReadReply(reply == nullptr ? "" : reply);
        if (!value) fail("The response recevied from the detector is invalid!", DerrTransport, here);
        return *value;
    });
}

void baseDetector::LogSerialCommand(const std::vector<char>& sent, const std::string& received) const {
    const std::string_view command = withoutLastByte({sent.data(), sent.size()});
    const std::string_view reply = withoutLastByte(received);
    const bool flashPoll = command == serial::flashStatusRead;
    if (flashPoll && reply == serial::flashIdleReply) return;
    logIfThereIsMemory([&] {
        trace::Text line;
        line.add("SERIAL: ", command, " -> ", reply);
        if (flashPoll) line.add(" [flash status check]");
        trace::logLine(line, spdlog::level::debug);
    });
}
