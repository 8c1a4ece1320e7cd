#pragma once

#include <functional>
#include <string>

/// The lines of the table: what each measures, against what, and how far it may go.
namespace bench {

/// One repetition of a figure. Both sides ran next to each other, so that a disturbance met both.
struct Sample {
    double measured = 0.0;
    double reference = 1.0;  ///< the work that can't be avoided; 1 where nothing stands against it
};

enum class Unit { Seconds, Count, Megabytes };

/// `AtMost`: measured / reference may be as much. `AtLeast`: reference / measured must be as much, for what is told as
/// a share of the bandwidth or rate that the reference reaches.
enum class Limit { AtMost, AtLeast };

struct Figure {
    std::string name;  ///< without spaces
    Limit limit = Limit::AtMost;
    double bound = 0.0;
    bool explains = false;  ///< a line that has no bound and shows why others measure as they do
    Unit unit = Unit::Seconds;
    /// Makes what takes a sample, with all that it needs; it is destroyed behind the last.
    std::function<std::function<Sample()>()> prepare;
    int repetitions = 11;
};

/// Adds a line to the table.
void add(Figure figure);

/// Runs the figures; the arguments are those of the benchmark library. Prints a line for each as soon as it is known:
/// `RATIO <name> <measured> <bound> ok|over`, or `PROOF <name> <measured>` for one without a bound, then the middle
/// half of the repetitions and both sides' medians. Returns how many are over their bound.
int runFigures(int argc, char** argv);

/// Runs both by turns, `chunk` calls at a time, `calls` in all, and tells how long each took.
template <class Work, class Reference>
Sample byTurns(int calls, int chunk, const Work& work, const Reference& reference);

}  // namespace bench

#include "benchmarks/Meters.h"

template <class Work, class Reference>
bench::Sample bench::byTurns(int calls, int chunk, const Work& work, const Reference& reference) {
    std::chrono::nanoseconds spent[2]{};
    const auto run = [chunk](const auto& body) {
        const std::chrono::nanoseconds begin = wallTime();
        for (int call = 0; call < chunk; ++call) body();
        return wallTime() - begin;
    };
    for (int done = 0; done < calls; done += chunk) {
        spent[0] += run(reference);
        spent[1] += run(work);
    }
    return {Seconds(spent[1]).count() / calls, Seconds(spent[0]).count() / calls};
}
