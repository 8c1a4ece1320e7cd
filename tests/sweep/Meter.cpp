#include "sweep/Meter.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sweep {
namespace {

struct KindRow {
    const char* name;
    unsigned needs;
    bool onward;
};

// In the order of `Kind`.
constexpr std::array<KindRow, kindCount> kinds{{{"fails once", CanFail, false},
                                                {"fails onward", CanFail, true},
                                                {"std exception", CanThrow, false},
                                                {"foreign object", CanThrow, false},
                                                {"times out", CanTimeOut, false},
                                                {"times out onward", CanTimeOut, true},
                                                {"short data", CanBeShort, false},
                                                {"garbage onward", CanBeGarbage, true},
                                                {"device gone", TouchesDevice, false}}};

const KindRow& rowOf(Kind kind) {
    return kinds.at(static_cast<std::size_t>(kind));
}

thread_local int currentThread = 0;

}  // namespace

const char* nameOf(Kind kind) {
    return rowOf(kind).name;
}

bool applies(Kind kind, unsigned abilities) {
    return (rowOf(kind).needs & abilities) != 0;
}

void Meter::runAs(int thread, const std::function<void()>& body) {
    currentThread = thread;
    body();
}

void Meter::arm(std::vector<Plan> plannedFaults) {
    const platform::MutexLock lock(mutex);
    armed = true;
    gone = false;
    onward.reset();
    plans = std::move(plannedFaults);
    made.clear();
    strikes.clear();
}

void Meter::disarm() {
    const platform::MutexLock lock(mutex);
    armed = false;
    gone = false;
    onward.reset();
}

std::optional<Kind> Meter::enter(const char* name, const std::string& detail, unsigned abilities) {
    if (atEachCall) atEachCall(name);
    std::optional<Kind> struck;
    {
        const platform::MutexLock lock(mutex);
        if (!armed) return std::nullopt;
        std::vector<CallPoint>& mine = made[currentThread];
        mine.push_back({name, detail, currentThread == 0 ? operationName : threadsOfTheLibrary, abilities});
        if (onward && applies(*onward, abilities)) struck = onward;
        for (const Plan& plan : plans) {
            if (plan.thread != currentThread || plan.number != static_cast<int>(mine.size())) continue;
            if (!applies(plan.kind, abilities)) continue;
            struck = plan.kind;
            if (rowOf(plan.kind).onward) onward = plan.kind;
        }
        if (struck == Kind::DeviceGone)
            gone = true;
        else if (struck && *struck != Kind::ShortData && *struck != Kind::GarbageData)
            addStrike(name, detail, *struck);
    }
    if (struck == Kind::DeviceGone) {
        unplug();
        return std::nullopt;  // the stand-in does the rest
    }
    if (struck == Kind::StandardException) throw std::runtime_error(standardText);
    if (struck == Kind::ForeignObject) throw sweep::ForeignObject();
    return struck;
}

void Meter::addStrike(const char* name, const std::string& detail, Kind kind) {
    const Strike strike{
        {name, detail, currentThread == 0 ? operationName : threadsOfTheLibrary, 0}, kind, currentThread};
    const auto isSame = [&](const Strike& each) {
        return each.thread == strike.thread && each.kind == kind && each.call.name == name &&
               each.call.detail == detail && each.call.operation == strike.call.operation;
    };
    if (std::none_of(strikes.begin(), strikes.end(), isSame)) strikes.push_back(strike);
}

void Meter::noteGone(const char* name, const std::string& detail) {
    const platform::MutexLock lock(mutex);
    if (gone) addStrike(name, detail, Kind::DeviceGone);
}

void Meter::noteSpoiled(const char* name, const std::string& detail, Kind kind) {
    const platform::MutexLock lock(mutex);
    addStrike(name, detail, kind);
}

bool Meter::isGone() const {
    const platform::MutexLock lock(mutex);
    return gone;
}

void Meter::setOperation(const std::string& operation) {
    const platform::MutexLock lock(mutex);
    operationName = operation;
}

std::vector<Strike> Meter::takeStrikes() {
    const platform::MutexLock lock(mutex);
    return std::exchange(strikes, {});
}

std::map<int, std::vector<CallPoint>> Meter::calls() const {
    const platform::MutexLock lock(mutex);
    return made;
}

}  // namespace sweep
