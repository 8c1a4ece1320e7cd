#include "benchmarks/Figures.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench {
namespace {

struct Spread {
    double lower = 0.0;
    double median = 0.0;
    double upper = 0.0;
};

Spread spreadOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto at = [&](double share) {
        return values[static_cast<std::size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
    };
    return {at(0.25), at(0.5), at(0.75)};
}

std::string amount(Unit unit, double value) {
    switch (unit) {
        case Unit::Count:
            return fmt::format("{:.3g}", value);
        case Unit::Megabytes:
            return fmt::format("{:.3g} MB", value);
        case Unit::Seconds:
            break;
    }
    constexpr std::pair<double, const char*> scales[] = {{1.0, "s"}, {1e-3, "ms"}, {1e-6, "us"}};
    for (const auto& [scale, name] : scales)
        if (value >= scale) return fmt::format("{:.3g} {}", value / scale, name);
    return fmt::format("{:.3g} ns", value * 1e9);
}

struct Taken {
    Figure figure;
    std::function<Sample()> take;
    std::vector<double> measured;
    std::vector<double> reference;
    std::vector<double> ratios;
};

double ratioOf(Limit limit, const Sample& sample) {
    return limit == Limit::AtLeast ? sample.reference / sample.measured : sample.measured / sample.reference;
}

/// What is held against the bound.
double decisive(const Taken& taken) {
    if (taken.figure.unit == Unit::Count) return *std::max_element(taken.ratios.begin(), taken.ratios.end());
    return spreadOf(taken.ratios).median;
}

bool holds(const Taken& taken) {
    const Figure& figure = taken.figure;
    const double ratio = decisive(taken);
    return figure.explains || (figure.limit == Limit::AtMost ? ratio <= figure.bound : ratio >= figure.bound);
}

std::vector<std::shared_ptr<Taken>>& table() {
    static std::vector<std::shared_ptr<Taken>> theTable;
    return theTable;
}

void printLine(const Taken& taken) {
    const Figure& figure = taken.figure;
    const Spread ratio = spreadOf(taken.ratios);
    std::string line;
    if (figure.explains)
        line = fmt::format("PROOF {:<42} {:>6.3f} {:<12}", figure.name, decisive(taken), "");
    else
        line = fmt::format("RATIO {:<42} {:>6.3f} {}{:<5} {:<4}", figure.name, decisive(taken),
                           figure.limit == Limit::AtMost ? "<=" : ">=", figure.bound, holds(taken) ? "ok" : "over");
    line += fmt::format("  {:.3f}..{:.3f} of {}: ", ratio.lower, ratio.upper, taken.ratios.size());
    line += amount(figure.unit, spreadOf(taken.measured).median);
    if (figure.unit == Unit::Seconds) line += " against " + amount(figure.unit, spreadOf(taken.reference).median);
    fmt::print("{}\n", line);
    std::fflush(stdout);
}

void takeSample(benchmark::State& state, Taken& taken) {
    if (taken.take == nullptr) taken.take = taken.figure.prepare();
    Sample sample;
    for ([[maybe_unused]] auto each : state) {
        sample = taken.take();
        state.SetIterationTime(taken.figure.unit == Unit::Seconds ? sample.measured : 0.0);
    }
    if (taken.figure.unit == Unit::Seconds && !(sample.measured > 0.0 && sample.reference > 0.0))
        throw std::runtime_error(taken.figure.name + " took no time: it was not measured");
    const double ratio = ratioOf(taken.figure.limit, sample);
    state.counters["measured"] = sample.measured;
    state.counters["reference"] = sample.reference;
    state.counters["ratio"] = ratio;
    state.counters["bound"] = taken.figure.bound;
    taken.measured.push_back(sample.measured);
    taken.reference.push_back(sample.reference);
    taken.ratios.push_back(ratio);
    if (taken.ratios.size() < static_cast<std::size_t>(taken.figure.repetitions)) return;
    taken.take = nullptr;
    printLine(taken);
}

/// The lines are printed as they come; the benchmark library's own report goes to its file.
class Silence : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& /*runs*/) override {}
};

}  // namespace

void add(Figure figure) {
    const auto taken = std::make_shared<Taken>();
    taken->figure = std::move(figure);
    table().push_back(taken);
    benchmark::RegisterBenchmark(taken->figure.name.c_str(),
                                 [taken](benchmark::State& state) { takeSample(state, *taken); })
        ->Iterations(1)
        ->Repetitions(taken->figure.repetitions)
        ->UseManualTime();
}

int runFigures(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) throw std::runtime_error("these arguments aren't known");
    Silence silence;
    if (benchmark::RunSpecifiedBenchmarks(&silence) == 0) throw std::runtime_error("no figure has such a name");
    return static_cast<int>(std::count_if(table().begin(), table().end(),
                                          [](const auto& taken) { return !taken->ratios.empty() && !holds(*taken); }));
}

}  // namespace bench
