#include "TriggerLine.h"

#include <utility>

#include "link.h"
#include "xcliball.h"

namespace grabber {
namespace {

/// At N = 0: 2 to the power 10 periods of 80 MHz.
constexpr platform::Time smallestCount = std::chrono::nanoseconds(12800);
/// What a cycle takes besides its counts.
constexpr platform::Time cycleOverhead = std::chrono::microseconds(2);

constexpr unsigned mostCounts = 65535;
constexpr unsigned runBit = 1U << 1U;
constexpr unsigned dividePlace = 7;
constexpr unsigned divideBits = 7U << dividePlace;

/// Changes that are late by less are made up one by one, so that no edge is missed; later ones are skipped.
constexpr platform::Time longestCatchUp = std::chrono::milliseconds(100);

}  // namespace

platform::Time Exsync::count() const {
    return smallestCount * (1U << divide);
}

platform::Time Exsync::cycle() const {
    return count() * (exsync + prin) + cycleOverhead;
}

bool Exsync::levelAt(platform::Time time) const {
    return pulses() && time >= startedAt && (time - startedAt) % cycle() < count() * exsync;
}

platform::Time Exsync::nextChange(platform::Time time) const {
    if (!pulses()) return platform::never;
    if (time < startedAt) return startedAt;
    const platform::Time into = (time - startedAt) % cycle();
    return time - into + (into < count() * exsync ? count() * exsync : cycle());
}

TriggerLine::TriggerLine(std::shared_ptr<simulator::SimulatedDetector> detectorBehind)
    : detector(std::move(detectorBehind)) {}

void TriggerLine::select(VideoFormat format) {
    const platform::MutexLock lock(mutex);
    driver = format;
    generator.running = false;
    settle(platform::now());
}

void TriggerLine::release() {
    const platform::MutexLock lock(mutex);
    driver.reset();
    settle(platform::now());
}

int TriggerLine::setControl(int newLevel) {
    if (newLevel != 0 && newLevel != 1) return PXERBADPARAM;
    const platform::MutexLock lock(mutex);
    control = newLevel == 1;
    settle(platform::now());
    return 0;
}

int TriggerLine::setMode(unsigned mode, unsigned princ) {
    if (mode != 0 || (princ & ~(runBit | divideBits)) != 0) return PXERBADPARAM;
    const platform::MutexLock lock(mutex);
    Exsync wanted = generator;
    wanted.running = (princ & runBit) != 0;
    wanted.divide = (princ & divideBits) >> dividePlace;
    change(wanted);
    return 0;
}

int TriggerLine::setCounts(unsigned exsync, unsigned prin) {
    if (exsync == 0 || exsync > mostCounts || prin > mostCounts) return PXERBADPARAM;
    const platform::MutexLock lock(mutex);
    Exsync wanted = generator;
    wanted.exsync = exsync;
    wanted.prin = prin;
    change(wanted);
    return 0;
}

void TriggerLine::change(const Exsync& wanted) {
    const bool same = wanted.running == generator.running && wanted.exsync == generator.exsync &&
                      wanted.prin == generator.prin && wanted.divide == generator.divide;
    if (same) return;
    const platform::Time time = platform::now();
    generator = wanted;
    generator.startedAt = time;
    settle(time);
}

void TriggerLine::settle(platform::Time time) {
    const bool generated = driver == VideoFormat::Pulse;
    const bool wanted = generated ? generator.levelAt(time) : driver == VideoFormat::Standard && control;
    if (wanted != level) {
        level = wanted;
        detector->setTriggerInput(level && isPlugged(*detector));
    }
    const std::uint64_t plan = ++currentPlan;
    const platform::Time due = generated ? generator.nextChange(time) : platform::never;
    if (due == platform::never) return;
    platform::schedule(due, [line = weak_from_this(), plan, due] {
        if (const std::shared_ptr<TriggerLine> alive = line.lock()) alive->runPlannedChange(plan, due);
    });
}

void TriggerLine::runPlannedChange(std::uint64_t plan, platform::Time due) {
    const platform::MutexLock lock(mutex);
    if (plan != currentPlan) return;
    const platform::Time time = platform::now();
    settle(time - due > longestCatchUp ? time : due);
}

}  // namespace grabber
