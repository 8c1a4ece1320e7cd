#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sweep/scenarios.h"

namespace sweep {

/// What one run came to.
struct Run {
    std::vector<std::string> violations;
    std::vector<Outcome> outcomes;
    std::map<int, std::vector<CallPoint>> calls;    ///< by thread
    std::map<std::string, std::int64_t> elapsedMs;  ///< longest, by operation
    std::vector<std::string> growth;                ///< what seems to be leaked
};

/// Breaks the library's double on purpose; for the oracle's own test.
using Sabotage = std::function<void(Application&)>;

/// Runs the scenario once, with these faults, and asks the oracle. Where it needs a second thread, time runs fast,
/// otherwise it is virtual.
Run runOnce(const Scenario& scenario, const Road& road, const std::vector<Plan>& faults, const Sabotage& sabotage = {});

/// Which faults a clean run offers, and how long its operations take.
struct Learned {
    std::map<int, std::vector<CallPoint>> calls;
    std::map<std::string, std::int64_t> elapsedMs;
    std::vector<std::string> violations;
    bool onVirtualClock = true;
};
Learned learn(const Scenario& scenario, const Road& road);

/// Adds to the run's violations the operations that took longer than a fault may make them.
void judgeWaits(Run& run, const Learned& clean);

/// How much of the sweep is run.
struct Extent {
    int perCell = 0;  ///< faults of each kind in each operation; 0: every call
    int pairs = 0;    ///< pairs of faults in each scenario on each road
    unsigned seed = 1;
};
std::vector<std::vector<Plan>> plansFor(const Learned& learned, const Extent& extent, unsigned salt);

/// An operation and a kind of fault; how many runs met it.
using Cell = std::pair<std::string, int>;
using Ledger = std::map<Cell, long>;

/// The cells that must not stay empty: what can happen to the calls of a clean run.
void addExpected(Ledger& ledger, const Learned& learned);
void addRun(Ledger& ledger, const Run& run);

std::string nameOf(const Scenario& scenario, const Road& road, const std::vector<Plan>& faults);

}  // namespace sweep
