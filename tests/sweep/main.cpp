#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <spdlog/spdlog.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include "logging.h"
#include "platform/DataFolder.h"
#include "platform/FastClock.h"
#include "sweep/Sweep.h"
#include "sweep/oracle.h"

/// The sweep as a program: every scenario on every road, in processes of its own, and the ledger of what was met.

namespace {

using sweep::Road;
using sweep::Scenario;

constexpr int clockSpeed = 10;
constexpr int hangSeconds = 60;

struct Options {
    sweep::Extent extent;
    std::string scenario;
    std::string road;
    std::vector<int> replay;  ///< thread, call, kind, again and again
    int jobs = 2;
    int slices = 4;
    bool quiet = false;
};

/// A share of the runs of one scenario on one road.
struct Unit {
    const Scenario* scenario;
    Road road;
    int slice;
    unsigned salt;
};

// Of the process that runs a unit: what it is at, for the message that ends it.
std::array<char, 512> current{};
std::atomic<long> begun{0};
int reportTo = STDOUT_FILENO;

void say(const std::string& line) {
    const std::string text = line + "\n";
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = write(reportTo, text.data() + sent, text.size() - sent);
        if (count <= 0) return;
        sent += static_cast<std::size_t>(count);
    }
}

void dieWith(const char* what) {
    const auto put = [](const char* text) { return write(reportTo, text, std::strlen(text)) >= 0; };
    if (put("V ") && put(current.data()) && put(": ") && put(what)) put("\n");
    _exit(1);
}

void onSignal(int signal) {
    dieWith(signal == SIGSEGV ? "the process crashed" : "the process was aborted");
}

void watchForHangs() {
    std::thread([] {
        for (long seen = -1;;) {
            for (int second = 0; second < hangSeconds; ++second) {
                std::this_thread::sleep_for(std::chrono::seconds(1));
                if (begun != seen) second = 0;
                seen = begun;
            }
            dieWith("hangs: no end after a minute");
        }
    }).detach();
}

std::string replayOf(const Unit& unit, const std::vector<sweep::Plan>& faults) {
    std::ostringstream text;
    text << "qrapi_sweep --scenario '" << unit.scenario->name << "' --road '" << unit.road.name() << "' --replay";
    for (const sweep::Plan& plan : faults)
        text << ' ' << plan.thread << ' ' << plan.number << ' ' << static_cast<int>(plan.kind);
    return text.str();
}

void runPlan(const Unit& unit, const std::vector<sweep::Plan>& faults, const sweep::Learned& learned,
             sweep::Ledger& ledger, const std::vector<int>& told = {}) {
    const std::string name = sweep::nameOf(*unit.scenario, unit.road, faults);
    std::snprintf(current.data(), current.size(), "%s [%s]", name.c_str(), replayOf(unit, faults).c_str());
    ++begun;
    sweep::Run run = sweep::runOnce(*unit.scenario, unit.road, faults);
    // What is made once and kept, at whatever fault comes first, is no leak: that would grow again.
    if (!run.growth.empty()) run.growth = sweep::runOnce(*unit.scenario, unit.road, faults).growth;
    run.violations.insert(run.violations.end(), run.growth.begin(), run.growth.end());
    sweep::judgeWaits(run, learned);
    if (!told.empty()) {
        for (const sweep::Outcome& outcome : run.outcomes) {
            say("T " + std::to_string(outcome.elapsedMs) + " ms  " + outcome.operation + "  " +
                (outcome.failure ? outcome.failure->what() : ""));
            for (const sweep::Strike& strike : outcome.strikes) say("T            " + sweep::describe(strike));
        }
    }
    for (const std::string& violation : run.violations) say("V " + std::string(current.data()) + ": " + violation);
    sweep::addRun(ledger, run);
}

/// In its process: runs the share and writes what came out, a line each.
void runUnit(const Unit& unit, const Options& options) {
    std::signal(SIGSEGV, onSignal);
    std::signal(SIGABRT, onSignal);
    watchForHangs();
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // a large block is a mapping of its own then, and can be counted
    getQorLogger()->set_level(spdlog::level::off);
    std::optional<platform::ScopedFastClock> fast;
    if (unit.scenario->needsThreads(unit.road)) fast.emplace(clockSpeed);

    std::snprintf(current.data(), current.size(), "%s", sweep::nameOf(*unit.scenario, unit.road, {}).c_str());
    const sweep::Learned learned = sweep::learn(*unit.scenario, unit.road);
    for (const std::string& violation : learned.violations)
        say("V " + std::string(current.data()) + " clean: " + violation);
    sweep::Ledger ledger;
    sweep::addExpected(ledger, learned);
    long runs = 0;
    if (!options.replay.empty()) {
        std::vector<sweep::Plan> faults;
        for (std::size_t at = 0; at + 2 < options.replay.size(); at += 3)
            faults.push_back(
                {static_cast<sweep::Kind>(options.replay[at + 2]), options.replay[at], options.replay[at + 1]});
        runPlan(unit, faults, learned, ledger, options.replay);
        ++runs;
    } else {
        const std::vector<std::vector<sweep::Plan>> plans = sweep::plansFor(learned, options.extent, unit.salt);
        for (std::size_t index = 0; index < plans.size(); ++index) {
            if (static_cast<int>(index % static_cast<std::size_t>(options.slices)) != unit.slice) continue;
            runPlan(unit, plans[index], learned, ledger);
            ++runs;
        }
    }
    for (const auto& [cell, count] : ledger)
        say("C " + std::to_string(count) + " " + std::to_string(cell.second) + " " + cell.first);
    for (const std::size_t row : sweep::usedHarmlessRows()) say("H " + std::to_string(row));
    say("R " + std::to_string(runs));
}

struct Total {
    long runs = 0;
    long violations = 0;
    std::map<DetectorInterface, sweep::Ledger> ledgers;

    void take(const Unit& unit, const std::string& line, std::map<std::string, int>& seen) {
        std::istringstream text(line.substr(std::min<std::size_t>(line.size(), 2)));
        if (line[0] == 'V') {
            ++violations;
            // The same thing at many calls: the first few tell it.
            const std::string kind = line.substr(line.find("]: ") == std::string::npos ? 0 : line.find("]: "));
            constexpr int enough = 3;
            if (++seen[kind.substr(0, 100)] <= enough) std::cout << "VIOLATION: " << line.substr(2) << std::endl;
        } else if (line[0] == 'T') {
            std::cout << line.substr(2) << std::endl;
        } else if (line[0] == 'C') {
            long count = 0;
            int kind = 0;
            std::string operation;
            text >> count >> kind >> std::ws;
            std::getline(text, operation);
            ledgers[unit.road.transport][{operation, kind}] += count;
        } else if (line[0] == 'H') {
            std::size_t row = 0;
            text >> row;
            sweep::noteHarmlessRow(row);
        } else if (line[0] == 'R') {
            long count = 0;
            text >> count;
            runs += count;
        }
    }
};

struct Child {
    pid_t process = 0;
    int pipe = -1;
    Unit unit{};
    std::string rest;
    bool finished = false;  ///< told how many runs it made
};

Child start(const Unit& unit, const Options& options) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    Child child{fork(), ends[0], unit, "", false};
    if (child.process == 0) {
        close(ends[0]);
        reportTo = ends[1];
        const int nowhere = open("/dev/null", O_WRONLY);  // the upload prints its progress
        dup2(nowhere, STDOUT_FILENO);
        std::string folder = (std::filesystem::temp_directory_path() / "qrapi-sweep-XXXXXX").string();
        if (mkdtemp(folder.data()) == nullptr) _exit(1);
        {
            const platform::ScopedDataFolder substitute(folder);
            runUnit(unit, options);
        }
        std::filesystem::remove_all(folder);
        _exit(0);
    }
    close(ends[1]);
    return child;
}

void drain(Child& child, Total& total, std::map<std::string, int>& seen) {
    std::array<char, 65536> chunk{};
    const ssize_t count = read(child.pipe, chunk.data(), chunk.size());
    if (count <= 0) {
        close(child.pipe);
        child.pipe = -1;
        waitpid(child.process, nullptr, 0);
        if (!child.finished) {
            ++total.violations;
            std::cout << "VIOLATION: " << child.unit.scenario->name << " on " << child.unit.road.name()
                      << " did not end" << std::endl;
        }
        return;
    }
    child.rest.append(chunk.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = child.rest.find('\n')) != std::string::npos; child.rest.erase(0, end + 1)) {
        const std::string line = child.rest.substr(0, end);
        if (line.rfind("R ", 0) == 0) child.finished = true;
        total.take(child.unit, line, seen);
    }
}

std::vector<Unit> unitsFor(const Options& options) {
    std::vector<Unit> units;
    unsigned salt = 0;
    for (const Scenario& scenario : sweep::scenarios()) {
        for (const Road& road : sweep::roads) {
            ++salt;
            if (!options.scenario.empty() && options.scenario != scenario.name) continue;
            if (!options.road.empty() && options.road != road.name()) continue;
            for (int slice = 0; slice < (options.replay.empty() ? options.slices : 1); ++slice)
                units.push_back({&scenario, road, slice, salt});
        }
    }
    return units;
}

Total runAll(const Options& options) {
    Total total;
    std::map<std::string, int> seen;
    std::vector<Unit> waiting = unitsFor(options);
    std::vector<Child> running;
    const std::size_t all = waiting.size();
    while (!waiting.empty() || !running.empty()) {
        while (!waiting.empty() && static_cast<int>(running.size()) < options.jobs) {
            running.push_back(start(waiting.front(), options));
            waiting.erase(waiting.begin());
        }
        std::vector<pollfd> ends;
        for (const Child& child : running) ends.push_back({child.pipe, POLLIN, 0});
        poll(ends.data(), ends.size(), -1);
        for (std::size_t index = 0; index < ends.size(); ++index)
            if (ends[index].revents != 0) drain(running[index], total, seen);
        const auto over = std::remove_if(running.begin(), running.end(), [&](const Child& child) {
            if (child.pipe < 0 && !options.quiet)
                std::cerr << "\r" << all - waiting.size() - running.size() + 1 << "/" << all << " " << std::flush;
            return child.pipe < 0;
        });
        running.erase(over, running.end());
    }
    return total;
}

/// The ledger as a table; how many cells are empty.
int print(DetectorInterface transport, const sweep::Ledger& ledger) {
    int empty = 0;
    std::map<std::string, std::map<int, long>> rows;
    for (const auto& [cell, count] : ledger) rows[cell.first][cell.second] = count;
    std::printf("\n%-32s", transport == TransportGE ? "GigE Vision" : "Camera Link");
    for (int kind = 0; kind < sweep::kindCount; ++kind) std::printf(" %16s", nameOf(static_cast<sweep::Kind>(kind)));
    std::printf("\n");
    for (const auto& [operation, counts] : rows) {
        std::printf("%-32s", operation.c_str());
        for (int kind = 0; kind < sweep::kindCount; ++kind) {
            const auto found = counts.find(kind);
            if (found == counts.end())
                std::printf(" %16s", "-");
            else if (found->second == 0)
                std::printf(" %16s", "EMPTY");
            else
                std::printf(" %16ld", found->second);
            if (found != counts.end() && found->second == 0) ++empty;
        }
        std::printf("\n");
    }
    return empty;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    bool list = false;
    CLI::App app("Makes every vendor call of every scenario go wrong in every way, and looks at what comes of it.");
    app.add_option("--sample", options.extent.perCell, "faults per operation and kind in each scenario; 0: all");
    app.add_option("--pairs", options.extent.pairs, "pairs of faults per scenario and road")->take_last();
    app.add_option("--seed", options.extent.seed, "of the sample and the pairs");
    app.add_option("--scenario", options.scenario, "only this one");
    app.add_option("--road", options.road, "only this one");
    app.add_option("--replay", options.replay, "thread, call and kind of each fault of one run");
    app.add_option("--jobs", options.jobs, "processes at a time");
    app.add_flag("--quiet", options.quiet, "no progress");
    app.add_flag("--list", list, "lists scenarios and roads");
    CLI11_PARSE(app, argc, argv);
    if (list) {
        for (const Scenario& scenario : sweep::scenarios()) std::cout << scenario.name << "\n";
        for (const Road& road : sweep::roads) std::cout << road.name() << "\n";
        return 0;
    }
    const Total total = runAll(options);
    const bool whole = options.scenario.empty() && options.road.empty();
    long violations = total.violations;
    for (const auto& [transport, ledger] : total.ledgers) violations += print(transport, ledger);
    if (whole && options.extent.perCell == 0) {
        for (const std::string& row : sweep::unusedHarmlessRows()) {
            std::cout << "VIOLATION: no run needs the harmless row " << row << "\n";
            ++violations;
        }
    }
    std::printf(
        "\n- : none of the operation's vendor calls can go wrong in this way\nseed %u\n%ld runs, %ld violations\n",
        options.extent.seed, total.runs, violations);
    return violations == 0 && total.runs > 0 ? 0 : 1;
}
