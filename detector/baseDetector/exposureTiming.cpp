#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/registers.h"
#include "logging.h"
#include "platform/Clock.h"

using registers::allSensors;
using registers::firstSensor;

namespace {

using std::chrono::milliseconds;

constexpr float countsPerMs = 100.0F;  ///< the exposure window is a count of 0.01 ms
constexpr float readoutUnitMs = 0.002F;
constexpr milliseconds windowDeadline{2000};
constexpr milliseconds windowRetryPause{100};
constexpr milliseconds readoutTimeDeadline{10000};
constexpr float probeWindowMs = 1000.0F;
constexpr int highHalf = 16;

/// The count that registers 11 and 12 hold for a window in ms: the nearest integer, halves away from zero.
std::int64_t windowCount(float windowMs) {
    constexpr float beyondAnyRegister = 1e15F;
    return std::llround(std::clamp(windowMs * countsPerMs, -beyondAnyRegister, beyondAnyRegister));
}

}  // namespace

float baseDetector::AreExposureTimesEqual(float first, float second) const {
    constexpr float longExposureMs = 10000.0F;
    const float tolerance = std::min(first, second) < longExposureMs ? 0.1F : 1.0F;
    return std::fabs(first - second) < tolerance ? 1.0F : 0.0F;
}

float baseDetector::GetExposureWindow() {
    const auto low = static_cast<std::uint32_t>(ReadRegister(registers::windowLow, firstSensor));
    const auto high = static_cast<std::uint32_t>(ReadRegister(registers::windowHigh, firstSensor));
    return static_cast<float>(static_cast<std::int32_t>((high << highHalf) + low)) / countsPerMs;
}

void baseDetector::SetExposureWindow(float window) {
    const std::int64_t count = windowCount(window);
    // Refuse before the first half is written: the detector reads the pair back as a signed 32-bit count.
    if (count < 0 || count > std::numeric_limits<std::int32_t>::max())
        fail("Failed to set exposure window", DerrExposure, "baseDetector::SetExposureWindow");
    WriteRegister(registers::windowLow, static_cast<int>(count & registers::mask16), allSensors);
    WriteRegister(registers::windowHigh, static_cast<int>(count >> highHalf), allSensors);
}

float baseDetector::SetExposureWindowUntil(float window, const std::function<bool(float)>& done) {
    const platform::Time deadline = platform::now() + windowDeadline;
    for (;;) {
        SetExposureWindow(window);
        const float readBack = GetExposureWindow();
        if (done(readBack)) return readBack;
        if (platform::now() > deadline)
            fail("Failed to set exposure window", DerrExposure, "baseDetector::SetExposureWindowUntil");
        platform::sleepFor(windowRetryPause);
    }
}

float baseDetector::GetExposureTime() {
    CheckConnected();
    const float time = GetExposureWindow() + readoutTime;
    exposureTime = time;
    return time;
}

float baseDetector::GetCachedExposureTime() {
    const std::optional<float> cached = exposureTime.get();
    return cached ? *cached : GetExposureTime();
}

void baseDetector::SetExposureTime(float timeMs) {
    constexpr const char* here = "baseDetector::SetExposureTime";
    CheckConnected();
    const float minimum = minimumExposureWindow + readoutTime;
    // Written so that NaN selects the minimum too.
    const float window = (timeMs > minimum ? timeMs : minimum) - readoutTime;
    bool refused = false;
    float taken = 0.0F;
    try {
        taken = SetExposureWindowUntil(window,
                                       [&](float readBack) { return AreExposureTimesEqual(readBack, window) != 0.0F; });
    } catch (const QuorinException&) {
        refused = true;
    }
    if (refused) {
        exposureTime = GetExposureWindow() + GetReadOutTime();
        fail("Failed to set exposure time.", DerrExposure, here);
    }
    exposureTime = taken + readoutTime;
    if (IsKestrane() && PollReadoutTimeRegister() == 0)
        fail("After setting exposure time, readout time remained zero until timeout.", DerrSerialCommand, here);
}

void baseDetector::SetExposureTime2(float timeMs, int lowRegister, int highRegister) {
    CheckConnected();
    const float wanted = timeMs - readoutTime;
    const float window = wanted > minimumExposureWindow ? wanted : minimumExposureWindow.load();
    const float count = window * countsPerMs + 0.5F;
    if (!(count < static_cast<float>(std::numeric_limits<std::int32_t>::max())))
        fail("Failed to set exposure time.", DerrExposure, "baseDetector::SetExposureTime2");
    const auto whole = static_cast<std::uint32_t>(count);
    WriteRegister(lowRegister, static_cast<int>(whole & static_cast<std::uint32_t>(registers::mask16)), allSensors);
    WriteRegister(highRegister, static_cast<int>(whole >> highHalf), allSensors);
}

float baseDetector::GetReadOutTime() {
    CheckConnected();
    return readoutTime;
}

float baseDetector::GetMinimumExposureTime() {
    CheckConnected();
    return minimumExposureWindow + readoutTime;
}

float baseDetector::GetMinimumExposureWindow() {
    return minimumExposureWindow;
}

void baseDetector::InitializeExposureTime() {
    const float minimum = minimumExposureWindow + readoutTime;
    if (minimum > GetCachedExposureTime()) SetExposureTime(minimum);
}

int baseDetector::PollReadoutTimeRegister() {
    const platform::Time deadline = platform::now() + readoutTimeDeadline;
    while (platform::now() < deadline) {
        const int count = ReadRegister(registers::readoutTime, firstSensor);
        if (count != 0) return count;
    }
    return 0;
}

float baseDetector::GetReadoutTimeFromDetector() {
    const float time = static_cast<float>(PollReadoutTimeRegister()) * readoutUnitMs;
    if (time == 0.0F)
        fail("Failed to update readout time, readout time register remained zero until timeout.", DerrSerialCommand,
             "baseDetector::GetReadoutTimeFromDetector");
    return time;
}

float baseDetector::GetReadoutTimeFromLookup() {
    const bins binning = GetCachedBinningMode();
    return getReadoutData(GetCachedModelNumber(), transport, binning, slowed).first;
}

float baseDetector::GetMinimumExposureWindowFromLookup() {
    const bins binning = GetCachedBinningMode();
    return getReadoutData(GetCachedModelNumber(), transport, binning, slowed).second;
}

float baseDetector::GetFirmwareMinimumExposureWindow() {
    const auto equal = [this](float first, float second) { return AreExposureTimesEqual(first, second) != 0.0F; };
    try {
        const float saved = GetExposureWindow();
        SetExposureWindowUntil(probeWindowMs, [&](float readBack) { return equal(readBack, probeWindowMs); });
        // The firmware clamps a request for 0 to its own minimum.
        const float minimum = SetExposureWindowUntil(
            0.0F, [&](float readBack) { return !equal(readBack, probeWindowMs) && readBack < probeWindowMs; });
        // A window that was half written when a call failed can be below what the firmware accepts.
        const float restored = std::max(saved, minimum);
        SetExposureWindowUntil(restored, [&](float readBack) { return equal(readBack, restored); });
        return minimum;
    } catch (const QuorinException&) {
        fail("Failed to get firmware minimum exposure window", DerrExposure,
             "baseDetector::GetFirmwareMinimumExposureWindow");
    }
}

float baseDetector::TransportMinimumExposureWindow() {
    constexpr int decimals = 2;
    return RoundToDecimals(std::max(TransportMinimumExposureTime() - readoutTime, 0.0F), decimals);
}

void baseDetector::UpdateReadoutTime() {
    getQorLogger()->debug("Updating cached readout time and minimum exposure window");
    if (detectorTimings != nullptr) {
        getQorLogger()->debug("Getting readout and minimum exposure time from DetectorTimings");
        const bool legacy = GetCachedLegacyTiming();
        const ReadoutModes mode = GetCachedReadoutMode();
        const auto [readout, minimumTime] = detectorTimings->getTimings(legacy, mode, GetCachedBinningMode());
        readoutTime = readout;
        minimumExposureWindow = std::max(minimumTime - readout, TransportMinimumExposureWindow());
    } else if (readsOwnTiming == 0) {
        getQorLogger()->debug("Getting readout and minimum exposure time from ReadoutInfo lookup");
        readoutTime = GetReadoutTimeFromLookup();
        minimumExposureWindow = GetMinimumExposureWindowFromLookup();
    } else {
        getQorLogger()->debug("Getting readout and minimum exposure time from detector");
        readoutTime = GetReadoutTimeFromDetector();
        const float firmwareMinimum = GetFirmwareMinimumExposureWindow();
        minimumExposureWindow = std::max(firmwareMinimum, TransportMinimumExposureWindow());
    }
    getQorLogger()->debug("Cached new readout time {} ms", readoutTime.load());
    getQorLogger()->debug("Cached new minimum exposure window {} ms", minimumExposureWindow.load());
}
