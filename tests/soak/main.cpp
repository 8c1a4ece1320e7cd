#include <spdlog/spdlog.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "logging.h"
#include "platform/Clock.h"
#include "platform/DataFolder.h"
#include "platform/VirtualClock.h"
#include "soak/Application.h"
#include "soak/Workers.h"

/// The campaign: random applications on random detectors, each episode of one seed, until the time is over.

#if defined(QRAPI_THREAD_SANITIZER)
/// A reader that lags a whole ring behind may see a block being overwritten: the one race that is meant to be.
extern "C" QRAPI_EXPORT const char* __tsan_default_suppressions() {  // NOLINT: the sanitizer's name
    return "race:copyFrame\n";
}
/// The handler of an episode that hangs takes memory: the process is at its end then.
extern "C" QRAPI_EXPORT const char* __tsan_default_options() {  // NOLINT: the sanitizer's name
    return "report_signal_unsafe=0";
}
#endif

namespace {

using namespace soak;

constexpr unsigned longestEpisodeSeconds = 60;
constexpr std::uint64_t mostViolations = 5;

struct Options {
    double minutes = 1;
    std::uint64_t seed = 0;
    std::optional<std::uint64_t> episode;  ///< this one alone
};

Options parse(int argc, char** argv) {
    Options options;
    options.seed = static_cast<std::uint64_t>(platform::now().count()) % 1000000007U;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--minutes")
            options.minutes = std::stod(argv[i + 1]);
        else if (name == "--seed")
            options.seed = std::stoull(argv[i + 1]);
        else if (name == "--episode")
            options.episode = std::stoull(argv[i + 1]);
        else
            throw std::invalid_argument(name);
    }
    if (argc % 2 == 0) throw std::invalid_argument(argv[argc - 1]);
    return options;
}

/// What the episodes may not leave behind.
struct Leftovers {
    std::ptrdiff_t threads;
    std::ptrdiff_t files;

    static std::ptrdiff_t entries(const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
    }
    static Leftovers now() { return {entries("/proc/self/task"), entries("/proc/self/fd")}; }
    bool operator==(const Leftovers&) const = default;
};

const Report* watched = nullptr;

/// No thread could do it: the clock may be virtual, and a thread that hangs may hold any lock.
void episodeHangs(int /*signal*/) {
    constexpr char text[] = "VIOLATION: an episode hangs\n";
    if (write(STDERR_FILENO, text, std::strlen(text)) > 0) watched->writeLastCalls(STDERR_FILENO);
    _exit(EXIT_FAILURE);
}

void runApplications(const Plan& plan, Random& random, Report& report) {
    const platform::ScopedVirtualClock clock;
    {
        std::vector<std::unique_ptr<Application>> applications;
        for (int number = 0; number < plan.detectors; ++number)
            applications.push_back(std::make_unique<Application>(plan.mount(number, random), plan, random, report));
        for (int step = 0; step < plan.steps && report.episodeIsClean(); ++step) random.pick(applications)->step();
        for (const auto& application : applications) application->finish();
    }
    simulator::Rack::instance().reset();
}

void runEpisode(std::uint64_t number, Report& report) {
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15;
    Random random(report.seed * spread + number);
    const Plan plan = makePlan(random);
    report.beginEpisode(number, plan.text());
    alarm(longestEpisodeSeconds);
    (plan.threads ? runWorkers : runApplications)(plan, random, report);
    simulator::Rack::instance().reset();
    alarm(0);
}

void checkLeftovers(const Leftovers& before, Report& report) {
    const platform::Time deadline = platform::now() + std::chrono::seconds(5);
    while (!(Leftovers::now() == before) && platform::now() < deadline)
        platform::sleepFor(std::chrono::milliseconds(1));  // a thread that was joined may still be listed
    const Leftovers after = Leftovers::now();
    if (!(after == before))
        report.violation("threads " + std::to_string(before.threads) + " -> " + std::to_string(after.threads) +
                         ", files " + std::to_string(before.files) + " -> " + std::to_string(after.files));
}

bool campaign(const Options& options) {
    constexpr std::size_t lastCalls = 30;
    constexpr std::size_t allCalls = 100000;
    Report report(options.seed, options.episode ? allCalls : lastCalls);
    watched = &report;
    std::signal(SIGALRM, episodeHangs);
    std::printf("seed %llu\n", static_cast<unsigned long long>(report.seed));
    std::fflush(stdout);
    getQorLogger()->set_level(spdlog::level::off);
    platform::schedule(platform::now(), [] {});  // the timer thread stays
    platform::sleepFor(std::chrono::milliseconds(20));

    const Leftovers before = Leftovers::now();
    const auto end = platform::now() + std::chrono::duration_cast<platform::Time>(
                                           std::chrono::duration<double, std::ratio<60>>(options.minutes));
    std::uint64_t episodes = 0;
    for (std::uint64_t number = options.episode.value_or(0); report.violations < mostViolations; ++number) {
        runEpisode(number, report);
        checkLeftovers(before, report);
        ++episodes;
        if (options.episode || platform::now() >= end) break;
    }
    const auto count = [](std::uint64_t number) { return static_cast<unsigned long long>(number); };
    std::printf("%llu episodes, %llu calls, %llu faults fired, %llu violations, seed %llu\n", count(episodes),
                count(report.calls), count(report.faultsFired), count(report.violations), count(report.seed));
    return report.violations == 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = parse(argc, argv);
    } catch (const std::exception&) {
        std::fputs("usage: qrapi_soak [--minutes N] [--seed S] [--episode E]\n", stderr);
        return 2;
    }
    std::string folder = (std::filesystem::temp_directory_path() / "qrapi-soak-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) return EXIT_FAILURE;
    bool clean = false;
    {
        const platform::ScopedDataFolder substitute(folder);
        clean = campaign(options);
    }
    std::filesystem::remove_all(folder);
    return clean ? EXIT_SUCCESS : EXIT_FAILURE;
}
