#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "QuorinException.h"
#include "platform/Mutex.h"

namespace soak {

/// How a call of the library ended.
struct Outcome {
    int code = 0;  ///< of its `QuorinException`; 0 if it returned
    int transportError = 0;
    std::string text;

    bool returned() const { return code == 0; }
};

/// What a campaign has seen, and the last calls of the episode that runs. Any thread may call.
class Report {
public:
    /// `callsToKeep` is how many of the last calls a violation is printed with.
    Report(std::uint64_t seedOfCampaign, std::size_t callsToKeep) : seed(seedOfCampaign), callsKept(callsToKeep) {}

    void beginEpisode(std::uint64_t number, const std::string& description);
    /// Prints it with the last calls and the command that replays the episode. Of an episode only the first few.
    void violation(const std::string& what);
    bool episodeIsClean() const { return violationsOfEpisode == 0; }

    /// Makes a call of the library and looks at how it ends: it returns or throws a `QuorinException` that says why.
    template <class Call>
    Outcome call(const std::string& what, Call&& make) {
        ++calls;
        Outcome outcome;
        std::string foreign;
        try {
            make();
        } catch (const QuorinException& failure) {
            outcome = {failure.GetCode(), failure.GetTransportError(), failure.what()};
        } catch (const std::exception& failure) {
            foreign = failure.what();
        } catch (...) {
            foreign = "of no known type";
        }
        note(what, outcome, foreign);
        return outcome;
    }

    /// A line among the calls: what the episode itself does.
    void remark(const std::string& what) { note("-- " + what, {}, ""); }

    /// For the end of the process in a signal handler: what the last calls were.
    void writeLastCalls(int file) const;
    std::string replay() const;

    const std::uint64_t seed;
    std::atomic<std::uint64_t> episode{0};
    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> faultsFired{0};
    std::atomic<std::uint64_t> violations{0};

private:
    void note(const std::string& what, const Outcome& outcome, const std::string& foreign);
    std::string lastCalls() const;

    const std::size_t callsKept;
    std::atomic<std::uint64_t> violationsOfEpisode{0};
    mutable platform::Mutex mutex;
    std::string described GUARDED_BY(mutex);
    std::deque<std::string> journal GUARDED_BY(mutex);
};

}  // namespace soak
