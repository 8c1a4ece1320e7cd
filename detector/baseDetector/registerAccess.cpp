#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "detector/registers.h"

using registers::firstSensor;

int baseDetector::ReadRegister(int reg, int sensor) {
    return layer("baseDetector::ReadRegister", [&] {
        CheckConnected();
        checkReadTarget(reg, sensor);  // before the sensor number is narrowed
        std::array<char, serial::replySize> reply{};
        ReadRS232Cmd(reg, reply.data(), static_cast<int>(reply.size()), static_cast<unsigned short>(sensor));
        return getatoi(reply.data());
    });
}

void baseDetector::WriteRegister(int reg, int value, int sensor) {
    layer("baseDetector::WriteRegister", [&] {
        CheckConnected();
        SendRS232Cmd(reg, value, sensor);
    });
}

std::uint16_t baseDetector::readWord(int reg) {
    return static_cast<std::uint16_t>(ReadRegister(reg, firstSensor) & registers::mask16);
}

int baseDetector::GetModelNumber() {
    constexpr int models = 10000;
    return layer("baseDetector::GetModelNumber", [&] {
        const int model = readWord(registers::modelNumber) % models;
        modelNumber = model;
        return model;
    });
}

int baseDetector::GetCachedModelNumber() {
    const std::optional<int> model = modelNumber.get();
    return model ? *model : GetModelNumber();
}

int baseDetector::GetSerialNumber() {
    return layer("baseDetector::GetSerialNumber", [&] { return int{readWord(registers::serialNumber)}; });
}

int baseDetector::GetFirmwareVersion() {
    return layer("baseDetector::GetFirmwareVersion", [&] {
        const int version = readWord(registers::firmwareVersion);
        firmwareVersion = version;
        return version;
    });
}

void baseDetector::GetFirmwareVersionOld(char* text, int size) {
    constexpr unsigned versionBits = 4;
    constexpr unsigned versionMask = 0xF;
    layer("baseDetector::GetFirmwareVersionOld", [&] {
        const unsigned packed = readWord(registers::modelAndFirmware);
        if (!modelNumber.get()) GetModelNumber();
        if (!firmwareVersion.get()) GetFirmwareVersion();
        const auto model = static_cast<int>(packed >> versionBits);
        const auto version = static_cast<int>(packed & versionMask);
        modelNumber = model;
        firmwareVersion = version;
        serial::copyText(text, static_cast<std::size_t>(std::max(size, 0)), fmt::format("{}:{}", model, version));
    });
}

void baseDetector::GetFirmwareBuild(int& first, int& second, int& third) {
    layer("baseDetector::GetFirmwareBuild", [&] {
        first = readWord(registers::firmwareBuild1);
        second = readWord(registers::firmwareBuild2);
        third = readWord(registers::firmwareBuild3);
    });
}

int baseDetector::GetSensorVersion() {
    return IsKestrane() ? 2 : 1;
}

bool baseDetector::IsKestrane() {
    constexpr int upperByte = 0xFF00;
    if (electronicsFamily < 0) {
        // Without the wait after a command, which itself depends on the answer.
        std::array<char, serial::replySize> reply{};
        SendCommandWithoutFlashStatusCheck(serial::familyRead.data(), serial::familyRead.size(), reply.data(),
                                           serial::plainPollDelayMs);
        electronicsFamily = (getatoi(reply.data()) & ~upperByte) == 1 ? 1 : 0;
    }
    return electronicsFamily == 1;
}

bool baseDetector::getSlowed() {
    struct SlowedDetector {
        int model;
        int firmware;
    };
    constexpr std::array<SlowedDetector, 4> slowedDetectors{{{5309, 3}, {6213, 27}, {7127, 13}, {7127, 27}}};
    return layer("baseDetector::getSlowed", [&] {
        CheckConnected();
        if (slowed) return true;
        const int model = GetCachedModelNumber();
        const std::optional<int> cached = firmwareVersion.get();
        const int firmware = cached ? *cached : GetFirmwareVersion();
        if (model == 5204 || model == 8131) return false;
        bool found = false;
        for (const SlowedDetector& row : slowedDetectors)
            found = found || (row.model == model && row.firmware == firmware);
        slowed = found;
        return found;
    });
}

void baseDetector::SetSlowed(bool value) {
    CheckConnected();
    slowed = value;
}

void baseDetector::UpdateFeaturesFlags() {
    layer("baseDetector::UpdateFeaturesFlags", [&] {
        FeatureWords words{};
        words.word36 = readWord(registers::featureWord36);
        words.word37 = readWord(registers::featureWord37);
        words.word130 = readWord(registers::featureWord130);
        if (words.anySet()) featureBitsSeen = true;
        if (featureBitsSeen) {
            const platform::MutexLock lock(cacheMutex);
            capabilities.apply(words);
        }
        const int model = GetCachedModelNumber();
        if (model == 5204) readsOwnTiming = 1;
        if (model == 6318) {
            const platform::MutexLock lock(cacheMutex);
            capabilities.set(Capability::Bin1x1, 0);
            capabilities.set(Capability::Bin4x4, 0);
            capabilities.set(Capability::Bin2x2Flagged, 0);
            capabilities.set(Capability::Bin2x2, 1);
        }
        if (IsKestrane()) {
            readsOwnTiming = 1;
            const platform::MutexLock lock(cacheMutex);
            capabilities.set(Capability::SliceInterlacing, 1);
            capabilities.set(Capability::Bin4x4Flagged, 1);
        }
    });
}
