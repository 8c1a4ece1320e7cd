#include <array>
#include <chrono>
#include <optional>
#include <string>

#include "InternalUtils/Failure.h"
#include "InternalUtils/InternalUtils.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "maintenance.h"
#include "platform/Clock.h"

/// The replay of a sensor configuration file: one serial command per line.

void baseDetector::LoadSensorConfigFile(const char* fileName) {
    constexpr const char* here = "baseDetector::LoadSensorConfigFile";
    constexpr std::chrono::milliseconds pause{100};
    layer(here, [&] {
        CheckConnected();
        if (fileName == nullptr) fail("Unable to open file!", DerrFile, here);
        RAIIFile file(fileName, false);
        const auto nextByte = [&file](char& byte) { return file.read(&byte, 1) == 1; };
        while (const std::optional<std::string> text = NextConfigLine(nextByte)) {
            const ConfigLine line = ClassifyConfigLine(*text, GetTransportMethod() == TransportGE);
            if (line.kind == ConfigLineKind::Comment || line.kind == ConfigLineKind::Skipped) continue;
            if (line.kind == ConfigLineKind::Refused)
                fail("The command being sent is not recognized as a valid command!", DerrSerialCommand, here);
            if (line.kind == ConfigLineKind::Command) {
                std::array<char, serial::commandSize> command{};
                serial::copyText(command.data(), command.size(), line.command);
                SendRS232Cmd1(command.data());
            }
            platform::sleepFor(pause);
        }
    });
}
