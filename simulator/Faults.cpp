#include "simulator/Faults.h"

namespace simulator {

void Faults::set(Fault fault, When when, std::string_view feature) {
    const platform::MutexLock lock(mutex);
    entries.emplace(fault, Entry{when, 0, std::string(feature)});
    setFaults |= bit(fault);
}

void Faults::clear(Fault fault) {
    const platform::MutexLock lock(mutex);
    entries.erase(fault);
    setFaults &= ~bit(fault);
}

void Faults::clearAll() {
    const platform::MutexLock lock(mutex);
    entries.clear();
    setFaults = 0;
}

void Faults::seed(std::uint32_t value) {
    const platform::MutexLock lock(mutex);
    random.seed(value);
}

std::optional<int> Faults::strikes(Fault fault, std::string_view feature) {
    return strikesWhere(fault, [&](const Entry& entry) {
        return fault != Fault::RefusedFeature || entry.feature.empty() || entry.feature == feature;
    });
}

bool Faults::registerSticks(int reg) {
    return strikesWhere(Fault::StuckRegister, [reg](const Entry& entry) { return entry.when.value == reg; })
        .has_value();
}

template <typename Concerns>
std::optional<int> Faults::strikesWhere(Fault fault, Concerns concerns) {
    if ((setFaults.load() & bit(fault)) == 0) return std::nullopt;
    const platform::MutexLock lock(mutex);
    std::optional<int> struck;
    const auto [first, end] = entries.equal_range(fault);
    for (auto place = first; place != end; ++place) {
        Entry& entry = place->second;
        if (!concerns(entry)) continue;
        ++entry.occasions;
        const When& when = entry.when;
        const bool inRange = when.onward ? entry.occasions >= when.first : entry.occasions == when.first;
        if (!inRange) continue;
        if (when.probability < 1.0 && static_cast<double>(random()) / range >= when.probability) continue;
        if (!struck) struck = when.value;
    }
    return struck;
}

std::uint32_t Faults::chance(std::uint32_t below) {
    const platform::MutexLock lock(mutex);
    return below == 0 ? 0 : static_cast<std::uint32_t>(random()) % below;
}

}  // namespace simulator
