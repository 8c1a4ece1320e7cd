#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "FeatureStore.h"
#include "platform/Clock.h"

/// The programmable logic of a GigE interface, as functions on values: four timers, eight inputs, and the output
/// Q4 = ((V0 op0 V1) op1 V2) op2 V3.
namespace ebus {

inline constexpr std::size_t inputCount = 8;
inline constexpr std::size_t controlBitCount = 4;
inline constexpr std::size_t variableCount = 4;
inline constexpr std::size_t operatorCount = variableCount - 1;

/// What an input or a variable can be wired to: the first of a family, with the others behind it.
namespace signal {
inline constexpr std::int64_t zero = 0;
inline constexpr std::int64_t one = 1;
inline constexpr std::int64_t control0 = 16;
inline constexpr std::int64_t input0 = 32;
inline constexpr std::int64_t timer1 = 48;
}  // namespace signal

enum class Operator : std::int64_t { Or, And, Xor, Nor, Nand, Xnor };

enum class TimerSource : std::int64_t { Off, Continuous };

/// The unit of a timer's raw delay and duration at granularity factor 0; one more factor, one more unit.
inline constexpr std::chrono::nanoseconds timerTick{30};

/// While its source is `Continuous`, a timer is low for its delay, then high for its duration, over and over.
struct Timer {
    TimerSource source = TimerSource::Off;
    std::int64_t granularityFactor = 0;
    std::int64_t durationRaw = 0;
    std::int64_t delayRaw = 0;
    platform::Time startedAt{0};

    platform::Time delay() const { return timerTick * ((granularityFactor + 1) * delayRaw); }
    platform::Time period() const { return timerTick * ((granularityFactor + 1) * (delayRaw + durationRaw)); }
    double frequencyHz() const;
    bool levelAt(platform::Time time) const;
    /// The first change of level after `time`; `never` for a timer that stands still.
    platform::Time nextChange(platform::Time time) const;
};

using TimerLevels = std::array<bool, timerCount>;

struct Logic {
    std::array<bool, controlBitCount> controlBits{};
    std::array<std::int64_t, inputCount> inputs{};        ///< signals, never of the input family
    std::array<std::int64_t, variableCount> variables{};  ///< signals, never of the timer family
    std::array<Operator, operatorCount> operators{};
    std::array<Timer, timerCount> timers{};

    bool output(const TimerLevels& levels) const;
    bool outputAt(platform::Time time) const;
    /// Whether the output hangs on this timer as the logic and its control bits stand.
    bool listensTo(std::size_t timer) const;
    /// The next change of a timer that the output hangs on; `never` if there is none.
    platform::Time nextChange(platform::Time time) const;
};

}  // namespace ebus
