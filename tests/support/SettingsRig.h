#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"

namespace support {

/// A core with access to what its settings keep.
class SettingsCore : public CoreDouble {
public:
    SettingsCore(int model, int family) {
        present(*this, model, family);
        if (family != 0) {
            readsOwnTiming = 1;
            line.registers[410] = newReadoutCount;
        }
    }

    /// The register that a Kestrane detector tells its readout time in, and what that is in ms.
    static constexpr int newReadoutCount = 6000;
    static constexpr float newReadoutMs = 12.0F;

    using baseDetector::cachedROIEnabled, baseDetector::exposureMode, baseDetector::GetCachedLegacyTiming,
        baseDetector::GetCachedReadoutMode, baseDetector::GetCachedROIArea, baseDetector::legacyTiming,
        baseDetector::numOfExposures, baseDetector::readoutMode, baseDetector::UpdateFeaturesFlags;
};

/// Two detectors on the virtual clock: `plain` takes its times from the tables (5309 on GigE: 37.78 and 32.89 ms),
/// `kestrane` is a 6112 that tells its own and can do everything.
class SettingsTest : public testing::Test {
protected:
    SettingsTest() {
        kestrane.UpdateFeaturesFlags();
        kestrane.line.commands.clear();
    }

    /// What each register was written with last, past the exposure window; every write reaches all sensors.
    static std::map<int, int> written(const SettingsCore& core) {
        std::map<int, int> values;
        for (const std::string& command : core.line.writes()) {
            int sensor = -1;
            int reg = -1;
            int value = -1;
            EXPECT_EQ(std::sscanf(command.c_str(), "W%1d%3d%5d", &sensor, &reg, &value), 3);  // NOLINT: fixed width
            EXPECT_EQ(sensor, 0) << command;
            if (reg != 11 && reg != 12) values[reg] = value;
        }
        return values;
    }

    /// A line that falls silent at a command, and is alive again when the object goes.
    class SilentAt {
    public:
        SilentAt(SettingsCore& coreToCut, std::string commandToDrop) : core(coreToCut) {
            core.line.hook = [drop = std::move(commandToDrop)](const std::string& command) {
                return command.rfind(drop, 0) == 0 ? RegisterScript::silence() : std::vector<std::string>{};
            };
        }
        ~SilentAt() { core.line.hook = nullptr; }
        SilentAt(const SilentAt&) = delete;
        SilentAt& operator=(const SilentAt&) = delete;

    private:
        SettingsCore& core;
    };

    platform::ScopedVirtualClock clock;
    SettingsCore plain{5309, 0};
    SettingsCore kestrane{6112, 1};
};

}  // namespace support
