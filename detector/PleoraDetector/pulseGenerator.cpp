#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "platform/Clock.h"

namespace {

struct Wire {
    const char* feature;
    const char* value;
};

constexpr float highestFrequencyHz = 500.0F;
constexpr double granuleSeconds = 5.9999999999999995e-05;  ///< 2000 raw units of 30 ns
constexpr std::int64_t rawDuration = 1000;
constexpr std::int64_t rawDelay = 1000;
constexpr double frequencyTolerance = 0.2;

/// The granularity factor for a frequency: its timer period is (factor + 1) granules. Empty if no 32-bit factor exists.
std::optional<std::int32_t> granularityFactor(float frequencyHz) {
    const auto granules = static_cast<float>(static_cast<double>(1.0F / frequencyHz) / granuleSeconds);
    const float factor = granules - 1.0F;
    constexpr auto limit = static_cast<float>(std::numeric_limits<std::int32_t>::max());
    if (!(frequencyHz > 0.0F) || !(factor < limit)) return std::nullopt;
    return static_cast<std::int32_t>(factor);
}

}  // namespace

void PleoraDetector::EnablePulseGenerator(float frequencyHz) {
    constexpr const char* here = "PleoraDetector::EnablePulseGenerator";
    // Q4 = I0 And I7: the control bit gated by the timer.
    constexpr std::array<Wire, 5> wiring{{{"PLC_Q4_Operator0", "And"},
                                          {"PLC_Q4_Variable1", "PLC_I7"},
                                          {"TimerSelector", "Timer1"},
                                          {"TimerTriggerSource", "Continuous"},
                                          {"TimerTriggerActivation", "FallingEdge"}}};
    layer(here, [&] {
        CheckConnected();
        const StoppableGuard lock(acquisitionLock);
        if (IsLive()) StopAcq();
        softwareTriggerEnabled = false;
        for (const Wire& wire : wiring)
            setEnum(Test::IsOK, wire.feature, wire.value, "Problem enabling pulse generator!", here);
        configurePGFrequency(frequencyHz);
        if (IsLive()) StartAcq();
        pulseGeneratorEnabled = true;
    });
}

void PleoraDetector::configurePGFrequency(float frequencyHz) {
    constexpr const char* here = "PleoraDetector::configurePGFrequency";
    constexpr const char* message = "Unable to set pulse-generator to desired frequency!";
    CheckConnected();
    const std::optional<std::int32_t> factor = granularityFactor(frequencyHz);
    if (frequencyHz > highestFrequencyHz || !factor)
        fail("The frequency you are trying to use is too high!", DerrBadRequest, here);
    const auto set = [&](const char* feature, std::int64_t value) {
        expect(Test::IsOK, pleoraLib->Dev_SetIntegerValue(feature, value), message, here);
    };
    set("TimerGranularityFactor", *factor);
    set("TimerDurationRaw", rawDuration);
    set("TimerDelayRaw", rawDelay);
    double reported = 0.0;
    const PvResult read = pleoraLib->Dev_GetFloatValue("TimerFrequency", reported);
    expect(Test::IsOK, read, message, here);
    const auto asked = static_cast<double>(frequencyHz);
    // Written so that a device that reports no number fails as well.
    if (!(std::fabs(asked - reported) / asked <= frequencyTolerance)) failWith(read, message, here);
}

void PleoraDetector::DisablePulseGenerator() {
    constexpr const char* here = "PleoraDetector::DisablePulseGenerator";
    constexpr const char* message = "Problem disabling pulse generator!";
    constexpr std::chrono::milliseconds lastPulses{50};
    layer(here, [&] {
        CheckConnected();
        const StoppableGuard lock(acquisitionLock);
        if (IsLive()) GoUnLive();
        platform::sleepFor(lastPulses);
        setEnum(Test::IsOK, "PLC_Q4_Operator0", "Or", message, here);
        setEnum(Test::IsOK, "PLC_Q4_Variable1", "Zero", message, here);
        softwareTriggerEnabled = true;
        pulseGeneratorEnabled = false;
    });
}

void PleoraDetector::ToggleGenerator(bool on) {
    CheckConnected();
    expect(Test::IsOK, pleoraLib->Dev_SetBooleanValue("PLC_ctrl0", on), "Problem toggling pulse generator!",
           "PleoraDetector::ToggleGenerator");
}
