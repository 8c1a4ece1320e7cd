#include "LogicController.h"

#include <algorithm>

namespace ebus {
namespace {

/// How far into its period a timer is; also right for a time before its start.
platform::Time phase(const Timer& timer, platform::Time time) {
    const platform::Time rest = (time - timer.startedAt) % timer.period();
    return rest < platform::Time::zero() ? rest + timer.period() : rest;
}

bool combine(Operator op, bool left, bool right) {
    switch (op) {
        case Operator::Or:
            return left || right;
        case Operator::And:
            return left && right;
        case Operator::Xor:
            return left != right;
        case Operator::Nor:
            return !(left || right);
        case Operator::Nand:
            return !(left && right);
        case Operator::Xnor:
            break;
    }
    return left == right;
}

/// The index within a family of signals, or `count` if the signal belongs to another one.
std::size_t indexIn(std::int64_t signalNumber, std::int64_t first, std::size_t count) {
    const std::int64_t index = signalNumber - first;
    return index < 0 || index >= static_cast<std::int64_t>(count) ? count : static_cast<std::size_t>(index);
}

bool levelOf(const Logic& logic, std::int64_t signalNumber, const TimerLevels& timers) {
    if (const std::size_t input = indexIn(signalNumber, signal::input0, inputCount); input < inputCount)
        signalNumber = logic.inputs[input];
    if (const std::size_t bit = indexIn(signalNumber, signal::control0, controlBitCount); bit < controlBitCount)
        return logic.controlBits[bit];
    if (const std::size_t timer = indexIn(signalNumber, signal::timer1, timerCount); timer < timerCount)
        return timers[timer];
    return signalNumber == signal::one;
}

}  // namespace

double Timer::frequencyHz() const {
    const double periodS = std::chrono::duration<double>(period()).count();
    return periodS > 0 ? 1.0 / periodS : 0.0;
}

bool Timer::levelAt(platform::Time time) const {
    return source == TimerSource::Continuous && period() > platform::Time::zero() && phase(*this, time) >= delay();
}

platform::Time Timer::nextChange(platform::Time time) const {
    const bool toggles = source == TimerSource::Continuous && delayRaw > 0 && durationRaw > 0;
    if (!toggles) return platform::never;
    const platform::Time into = phase(*this, time);
    return time - into + (into < delay() ? delay() : period());
}

bool Logic::output(const TimerLevels& levels) const {
    bool result = levelOf(*this, variables[0], levels);
    for (std::size_t i = 0; i < operatorCount; ++i)
        result = combine(operators[i], result, levelOf(*this, variables[i + 1], levels));
    return result;
}

bool Logic::outputAt(platform::Time time) const {
    TimerLevels levels{};
    for (std::size_t i = 0; i < timerCount; ++i) levels[i] = timers[i].levelAt(time);
    return output(levels);
}

bool Logic::listensTo(std::size_t timer) const {
    for (unsigned combination = 0; combination < (1U << timerCount); ++combination) {
        TimerLevels levels{};
        for (std::size_t i = 0; i < timerCount; ++i) levels[i] = ((combination >> i) & 1U) != 0;
        const bool before = output(levels);
        levels[timer] = !levels[timer];
        if (output(levels) != before) return true;
    }
    return false;
}

platform::Time Logic::nextChange(platform::Time time) const {
    platform::Time next = platform::never;
    for (std::size_t i = 0; i < timerCount; ++i)
        if (listensTo(i)) next = std::min(next, timers[i].nextChange(time));
    return next;
}

}  // namespace ebus
