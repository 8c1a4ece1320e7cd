#include <algorithm>
#include <cmath>
#include <limits>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/registers.h"

/// Gap time, number and times of pre-programmed exposures, slice interlacing and legacy timing.

using registers::firstSensor;

namespace {

constexpr std::size_t preProgrammedTimes = 4;
constexpr std::size_t fewestPreProgrammedTimes = 2;
constexpr float gapCountsPerMs = 10.0F;
constexpr float windowCountsPerMs = 100.0F;

/// Truncates towards zero; clamps to the range of int; NaN becomes 0.
int truncated(float value) {
    constexpr auto limit = static_cast<float>(std::numeric_limits<std::int32_t>::max() - 127);
    return std::isnan(value) ? 0 : static_cast<int>(std::clamp(value, -limit, limit));
}

int lowRegister(std::size_t entry) {
    return registers::preProgrammed + 2 * static_cast<int>(entry);
}
int highRegister(std::size_t entry) {
    return lowRegister(entry) + 1;
}

void checkEntryCount(std::size_t entries) {
    if (entries >= fewestPreProgrammedTimes && entries <= preProgrammedTimes) return;
    fail("Invalid number of exposures. In pre-programmed exposure mode, number of exposures should be between 2 and 4.",
         DerrBadRequest, "baseDetector::SetPreProgrammedExposureTimes",
         static_cast<int>(std::min<std::size_t>(entries, std::numeric_limits<int>::max())));
}

}  // namespace

void baseDetector::SetGapTime(float timeMs) {
    constexpr const char* here = "baseDetector::SetGapTime";
    constexpr int kestraneLimit = 65535;
    constexpr int otherLimit = 16383;
    layer(here, [&] {
        CheckConnected();
        const float gap = timeMs - readoutTime;
        const int count = std::max(truncated(gap * gapCountsPerMs + 0.5F), 0);
        if (std::isnan(gap) || count > (IsKestrane() ? kestraneLimit : otherLimit))
            fail("Gap time must be a positive number and be must be less than 1639ms!", DerrBadRequest, here,
                 truncated(gap));
        writeAll(registers::gapTime, count);
    });
}

float baseDetector::GetGapTime() {
    constexpr const char* here = "baseDetector::GetGapTime";
    return layer(here, [&] {
        CheckConnected();
        const int count = ReadRegister(registers::gapTime, firstSensor);
        if (count < 0) fail("Problem reading exposure time!", DerrTransport, here, count);
        return static_cast<float>(count) / gapCountsPerMs + readoutTime;
    });
}

void baseDetector::SetNumOfExposures(int count) {
    constexpr const char* here = "baseDetector::SetNumOfExposures";
    layer(here, [&] {
        CheckConnected();
        if (count < 1 || count > registers::highestValue)
            fail("Invalid number of exposures! Number of exposures must be an integer value between (1-65535).",
                 DerrBadRequest, here, count);
        writeAll(registers::numOfExposures, count);
        numOfExposures = static_cast<std::uint16_t>(count);
    });
}

unsigned short baseDetector::GetNumOfExposures() {
    return layer("baseDetector::GetNumOfExposures", [&] {
        CheckConnected();
        const std::uint16_t count = readWord(registers::numOfExposures);
        numOfExposures = count;
        return static_cast<unsigned short>(count);
    });
}

void baseDetector::SetPreProgrammedExposureTimes(const std::vector<float>& timesMs) {
    CheckConnected();
    checkEntryCount(timesMs.size());
    const std::optional<std::uint16_t> cached = numOfExposures.get();
    if ((cached ? *cached : GetNumOfExposures()) != timesMs.size()) SetNumOfExposures(static_cast<int>(timesMs.size()));
    std::vector<float> all = timesMs;
    all.resize(preProgrammedTimes, 0.0F);  // added entries become the minimum window
    for (std::size_t entry = 0; entry < all.size(); ++entry)
        SetExposureTime2(all[entry], lowRegister(entry), highRegister(entry));
}

void baseDetector::SetPreProgrammedExposureTimes(const float* timesMs, std::size_t count) {
    CheckConnected();
    const std::size_t entries = timesMs == nullptr ? 0 : count;
    checkEntryCount(entries);  // before the copy: a wrong count may be any number
    SetPreProgrammedExposureTimes(std::vector<float>(timesMs, timesMs + entries));
}

std::vector<float> baseDetector::GetPreProgrammedExposureTimes() {
    constexpr unsigned highHalf = 16;
    return layer("baseDetector::GetPreProgrammedExposureTimes", [&] {
        CheckConnected();
        std::vector<float> times;
        for (std::size_t entry = 0; entry < preProgrammedTimes; ++entry) {
            const std::uint32_t low = readWord(lowRegister(entry));
            const std::uint32_t high = readWord(highRegister(entry));
            const auto count = static_cast<std::int32_t>(low + (high << highHalf));
            times.push_back(static_cast<float>(count) / windowCountsPerMs + readoutTime);
        }
        return times;
    });
}

int baseDetector::GetPreProgrammedExposureTimes(float* timesMs, std::size_t size) {
    constexpr const char* here = "baseDetector::GetPreProgrammedExposureTimes";
    return layer(here, [&] {
        CheckConnected();
        if (timesMs != nullptr) {
            if (size < preProgrammedTimes)
                fail("Cannot get pre-programmed exposure times: target array must be size 4 or greater", DerrBadRequest,
                     here);
            const std::vector<float> times = GetPreProgrammedExposureTimes();
            std::copy(times.begin(), times.end(), timesMs);
        }
        return static_cast<int>(preProgrammedTimes);
    });
}

void baseDetector::SetSliceInterlacing(bool enable) {
    CheckConnected();
    if (capabilityFlag(Capability::SliceInterlacing) == 0) return;
    if (enable) {
        if (GetCachedROIEnabled())
            fail("Cannot enable slice interlacing when ROI is enabled.", DerrBadRequest,
                 "baseDetector::SetSliceInterlacing");
        writeAll(registers::staged, ReadRegister(registers::staged, firstSensor) & registers::interlacingOnMask);
        SetCachedSliceInterlacing(true);
        ForceReconfiguration();
    } else {
        turnInterlacingOff();
    }
}

void baseDetector::turnInterlacingOff() {
    changeBit(registers::staged, registers::interlacingOffBit, true);
    SetCachedSliceInterlacing(false);
    ForceReconfiguration();
}

bool baseDetector::GetSliceInterlacing() {
    return layer("baseDetector::GetSliceInterlacing", [&] {
        CheckConnected();
        const bool enabled = capabilityFlag(Capability::SliceInterlacing) == 0 ||
                             !bitOf(registers::staged, registers::interlacingOffBit);
        SetCachedSliceInterlacing(enabled);
        return enabled;
    });
}

int baseDetector::GetCachedSliceInterlacing() {
    if (sliceInterlacing == -1) GetSliceInterlacing();
    return sliceInterlacing;
}

void baseDetector::SetCachedSliceInterlacing(bool enabled) {
    sliceInterlacing = enabled ? 1 : 0;
}

void baseDetector::SetLegacyTiming(bool enable) {
    CheckConnected();
    if (!IsKestrane()) return;
    if (enable && GetCachedROIEnabled())
        fail("Cannot enable legacy timing when ROI is enabled.", DerrBadRequest, "baseDetector::SetLegacyTiming");
    const float exposure = exposureUnlessAt(minimumExposureWindow + readoutTime);
    const int value = ReadRegister(registers::staged, firstSensor);
    writeAll(registers::staged, enable ? value & registers::legacyTimingOnMask : value | registers::legacyTimingOffBit);
    ForceReconfiguration();
    legacyTiming = enable;
    UpdateReadoutTime();
    SetExposureTime(exposure);
}

bool baseDetector::IsLegacyTimingEnabled() {
    return layer("baseDetector::IsLegacyTimingEnabled", [&] {
        CheckConnected();
        if (!IsKestrane()) return false;
        const bool enabled = !bitOf(registers::staged, registers::legacyTimingOffBit);
        legacyTiming = enabled;
        return enabled;
    });
}

bool baseDetector::GetCachedLegacyTiming() {
    const std::optional<bool> cached = legacyTiming.get();
    return cached ? *cached : IsLegacyTimingEnabled();
}
