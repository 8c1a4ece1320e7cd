#include <qrapi/QuorinDetector.h>

#include <iomanip>
#include <optional>
#include <ostream>
#include <sstream>

#include "platform/Clock.h"
#include "tools/Interrupt.h"
#include "tools/failure.h"
#include "tools/run.h"
#include "tools/selftestSteps.h"
#include "tools/service.h"

namespace tool {
namespace {

/// Prints the rows as the steps end, and counts them.
class Table {
public:
    explicit Table(Output& target) : output(target) {
        output.facts["steps"] = Json::array();
        print("RESULT", "STEP", "TIME", "DETAIL");
    }

    /// Runs the step and tells how it ended. Answers whether it didn't fail.
    template <class Step>
    bool run(const std::string& name, Step step) {
        const platform::Time start = platform::now();
        try {
            const StepResult result = step();
            if (result.skipped)
                tell("skipped", name, std::nullopt, result.detail, {});
            else
                tell("passed", name, platform::now() - start, result.detail, {});
            return true;
        } catch (const std::exception& failure) {
            tell("failed", name, platform::now() - start, failure.what(), describeFailure(failure));
            return false;
        }
    }

    void skip(const std::string& name, const std::string& reason) { tell("skipped", name, std::nullopt, reason, {}); }

    int failedSteps() const { return failed; }

    void printSummary() {
        output.text() << passed << " passed, " << skipped << " skipped, " << failed << " failed\n";
        output.facts["passed"] = passed;
        output.facts["skipped"] = skipped;
        output.facts["failed"] = failed;
    }

private:
    void tell(const std::string& result, const std::string& name, std::optional<platform::Time> time,
              const std::string& detail, const Json& error) {
        int& count = result == "passed" ? passed : result == "failed" ? failed : skipped;
        ++count;
        const std::chrono::duration<double, std::milli> timeMs = time.value_or(platform::Time{});
        std::ostringstream text;
        text << std::fixed << std::setprecision(1) << timeMs.count() << " ms";
        print(result, name, time ? text.str() : "-", detail);
        Json row{{"step", name}, {"result", result}, {"time_ms", nullptr}, {"detail", detail}};
        if (time) row["time_ms"] = timeMs.count();
        if (!error.is_null()) row["error"] = error;
        output.facts["steps"].push_back(std::move(row));
    }

    void print(const std::string& result, const std::string& name, const std::string& time, const std::string& detail) {
        constexpr int resultColumn = 9;
        constexpr int nameColumn = 38;
        constexpr int timeColumn = 11;
        const Tone tone = result == "failed" ? Tone::Bad : result == "passed" ? Tone::Good : Tone::Muted;
        std::ostringstream rest;
        rest << std::string(resultColumn - result.size(), ' ') << std::left << std::setw(nameColumn) << name
             << std::right << std::setw(timeColumn) << time << (detail.empty() ? "" : "  ") << detail;
        output.text() << output.painted(result, tone) << rest.str() << std::endl;
    }

    Output& output;
    int passed = 0;
    int skipped = 0;
    int failed = 0;
};

/// The steps on an open detector, and behind them what they changed is put back.
void runSteps(QuorinDetector& detector, const Interrupt& interrupt, Table& table) {
    std::optional<SettingsKept> kept;
    table.run("read settings", [&] {
        kept.emplace(detector);
        return StepResult{};
    });
    for (const SelftestStep& step : selftestSteps()) {
        if (interrupt.isRequested())
            table.skip(step.name, "interrupted");
        else if (!kept)
            table.skip(step.name, "the settings could not be read, so they could not be put back");
        else
            table.run(step.name, [&] { return step.run(detector); });
    }
    if (!kept) return;
    table.run("settings as before", [&] {
        kept->putBack(detector);
        return StepResult{};
    });
}

void skipSteps(Table& table) {
    const std::string reason = "the detector is not open";
    for (const SelftestStep& step : selftestSteps()) table.skip(step.name, reason);
}

}  // namespace

int selftest(const Preparation& preparation, Output& output) {
    const Interrupt interrupt;
    Table table(output);
    QuorinDetector detector = makeDetector(preparation.detector);
    std::string remedy;
    const bool isOpen = table.run("open", [&] {
        try {
            detector.OpenBoard();
        } catch (const QuorinException& failure) {
            remedy = remedyFor(failure, preparation.detector);
            throw;
        }
        return StepResult{};
    });
    if (isOpen)
        runSteps(detector, interrupt, table);
    else
        skipSteps(table);
    // Behind a failed open the board may still be open on Camera Link.
    if (detector.IsConnected())
        table.run("close", [&] {
            detector.CloseBoard();
            return StepResult{};
        });
    table.printSummary();
    output.facts["interrupted"] = interrupt.isRequested();
    if (!remedy.empty()) {
        output.text() << "hint: " << remedy << "\n";
        output.facts["hint"] = remedy;
    }
    if (interrupt.isRequested()) return exitInterrupted;
    return table.failedSteps() > 0 ? exitFailedCall : exitSuccess;
}

}  // namespace tool
