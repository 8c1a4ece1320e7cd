#include "sweep/Sweep.h"

#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <random>
#include <set>
#include <thread>

#include "platform/Event.h"
#include "platform/VirtualClock.h"
#include "sweep/oracle.h"

namespace sweep {
namespace {

/// What a fault may add to the time of a call: the waits for a flash memory that stays busy, half a second a look and
/// sixty looks at an erase, and the exchanges around them.
constexpr std::int64_t patienceMs = 35000;

int entriesIn(const char* folder) {
    std::error_code error;
    const std::filesystem::directory_iterator all(folder, error);
    return static_cast<int>(std::distance(begin(all), end(all)));
}

/// What a run must give back.
struct Holdings {
    std::size_t events = platform::openEventCount();
    int files = entriesIn("/proc/self/fd");
    int threads = entriesIn("/proc/self/task");
    std::size_t largeBlocks = mallinfo2().hblks;

    std::vector<std::string> growthSince(const Holdings& before) const {
        std::vector<std::string> growth;
        const auto same = [&](const char* what, auto was, auto is) {
            if (is > was)
                growth.push_back(std::string(what) + " leaked: " + std::to_string(was) + " before, " +
                                 std::to_string(is) + " after");
        };
        same("events", before.events, events);
        same("files", before.files, files);
        same("large memory blocks", before.largeBlocks, largeBlocks);
        same("threads", before.threads, threads);
        return growth;
    }
};

/// A thread that was let go needs a moment to end.
Holdings holdingsAfter(const Holdings& before) {
    constexpr int tries = 500;
    Holdings now;
    for (int round = 0; round < tries && now.threads > before.threads; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // of the real clock: the thread is real
        now = Holdings();
    }
    return now;
}

/// What an application does that was told of a failure: it asks, stops and closes.
void closeDown(Application& app, const Scenario& scenario, const Road& road) {
    if (app.detector == nullptr || scenario.destroysOpen) return;
    QuorinDetector& detector = *app.detector;
    if (detector.IsConnected()) {
        if (scenario.needsThreads(road)) {
            app.attempt("CheckForLiveError", [&] { detector.CheckForLiveError(); });
            app.attempt("CheckForCallbackError", [&] { detector.CheckForCallbackError(); });
        }
        if (app.attempt("GoUnLive", [&] { detector.GoUnLive(); })) app.noteStop();
        if (scenario.needsThreads(road)) {
            app.attempt("CheckForLiveError", [&] { detector.CheckForLiveError(); });
            app.attempt("CheckForCallbackError", [&] { detector.CheckForCallbackError(); });
        }
        app.attempt("CloseBoard", [&] { detector.CloseBoard(); });
    }
}

void live(Application& app, const Scenario& scenario, const Road& road, Meter& meter, const std::vector<Plan>& faults) {
    try {
        if (!scenario.beginsClosed) {
            app.call("OpenBoard", [&] { app.detector->OpenBoard(2); });
            meter.arm(faults);
        }
        scenario.run(app);
    } catch (const Ended&) {
    }
    closeDown(app, scenario, road);
    if (scenario.destroysOpen) app.destroy();
}

}  // namespace

Run runOnce(const Scenario& scenario, const Road& road, const std::vector<Plan>& faults, const Sabotage& sabotage) {
    Run run;
    std::optional<platform::ScopedVirtualClock> clock;
    if (!scenario.needsThreads(road)) clock.emplace();
    simulator::Rack::instance().reset();
    const Holdings before;
    {
        Meter meter;
        if (scenario.beginsClosed) meter.arm(faults);
        Application app(road, meter);
        if (sabotage) sabotage(app);
        live(app, scenario, road, meter, faults);
        if (faults.empty()) run.calls = meter.calls();
        meter.disarm();
        const std::size_t swept = app.outcomes.size();
        if (app.detector == nullptr) app.construct();
        app.proveItWorks(!scenario.needsThreads(road));  // where time costs nothing
        run.outcomes.assign(app.outcomes.begin(), app.outcomes.begin() + static_cast<std::ptrdiff_t>(swept));
        app.destroy();
        run.violations = app.complaints;
        if (app.heldVendorObjects() > 0) run.violations.emplace_back("buffers or events are still held");
        for (const std::string& line : judge(road, run.outcomes)) run.violations.push_back(line);
        const simulator::Ledger ledger = app.hardware->ledger();
        if (ledger.delivered + ledger.lost() != ledger.exposed)
            run.violations.push_back("of " + std::to_string(ledger.exposed) + " exposed frames " +
                                     std::to_string(ledger.delivered) + " were delivered and " +
                                     std::to_string(ledger.lost()) + " lost");
    }
    if (clock && clock->hangs() > 0) run.violations.emplace_back("a wait without end");
    for (const Outcome& outcome : run.outcomes) {
        std::int64_t& longest = run.elapsedMs[outcome.operation];
        longest = std::max(longest, outcome.elapsedMs);
    }
    simulator::Rack::instance().reset();
    // What a clean run learned is large itself.
    if (!faults.empty()) run.growth = holdingsAfter(before).growthSince(before);
    return run;
}

void judgeWaits(Run& run, const Learned& clean) {
    // A machine that has other things to do makes the fast clock look slow.
    const std::int64_t patience = clean.onVirtualClock ? patienceMs : 5 * patienceMs;
    for (const auto& [operation, elapsed] : run.elapsedMs) {
        const auto usual = clean.elapsedMs.find(operation);
        const std::int64_t limit = patience + (usual == clean.elapsedMs.end() ? 0 : usual->second);
        if (elapsed > limit)
            run.violations.push_back(operation + " took " + std::to_string(elapsed) + " ms, its bound is " +
                                     std::to_string(limit));
    }
}

Learned learn(const Scenario& scenario, const Road& road) {
    runOnce(scenario, road, {});  // what is made once and kept
    Run clean = runOnce(scenario, road, {});
    return {std::move(clean.calls), std::move(clean.elapsedMs), std::move(clean.violations),
            !scenario.needsThreads(road)};
}

std::vector<std::vector<Plan>> plansFor(const Learned& learned, const Extent& extent, unsigned salt) {
    std::mt19937 random(extent.seed * 7919U + salt);
    std::vector<Plan> all;
    std::map<Cell, std::vector<Plan>> cells;
    for (const auto& [thread, calls] : learned.calls) {
        for (std::size_t index = 0; index < calls.size(); ++index) {
            for (int kind = 0; kind < kindCount; ++kind) {
                const Plan plan{static_cast<Kind>(kind), thread, static_cast<int>(index) + 1};
                if (!applies(plan.kind, calls[index].abilities)) continue;
                all.push_back(plan);
                cells[{calls[index].operation, kind}].push_back(plan);
            }
        }
    }
    std::vector<std::vector<Plan>> plans;
    if (extent.perCell == 0) {
        for (const Plan& plan : all) plans.push_back({plan});
    } else {
        for (auto& [cell, choices] : cells) {
            std::shuffle(choices.begin(), choices.end(), random);
            for (std::size_t index = 0; index < std::min(choices.size(), static_cast<std::size_t>(extent.perCell));
                 ++index)
                plans.push_back({choices[index]});
        }
    }
    for (int pair = 0; pair < extent.pairs && !all.empty(); ++pair)
        plans.push_back({all[random() % all.size()], all[random() % all.size()]});
    return plans;
}

void addExpected(Ledger& ledger, const Learned& learned) {
    for (const auto& [thread, calls] : learned.calls)
        for (const CallPoint& call : calls)
            for (int kind = 0; kind < kindCount; ++kind)
                if (applies(static_cast<Kind>(kind), call.abilities)) ledger[{call.operation, kind}] += 0;
}

void addRun(Ledger& ledger, const Run& run) {
    std::set<Cell> met;
    for (const Outcome& outcome : run.outcomes)
        for (const Strike& strike : outcome.strikes) met.insert({strike.call.operation, static_cast<int>(strike.kind)});
    for (const Cell& cell : met) ++ledger[cell];
}

std::string nameOf(const Scenario& scenario, const Road& road, const std::vector<Plan>& faults) {
    std::string name = scenario.name + " on " + road.name() + ":";
    for (const Plan& plan : faults)
        name += " call " + std::to_string(plan.number) +
                (plan.thread == 0 ? "" : " of thread " + std::to_string(plan.thread)) + " " + nameOf(plan.kind);
    return name;
}

}  // namespace sweep
