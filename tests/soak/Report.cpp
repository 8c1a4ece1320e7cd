#include "soak/Report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace soak {
namespace {

constexpr std::uint64_t violationsPrinted = 3;
constexpr int knownCodes[] = {DerrBadRequest, DerrTransport,    DerrExposure,  DerrSerialCommand,
                              DerrFile,       DerrGrabberSetup, DerrResources, DerrAcquisition,
                              DerrBinning,    DerrWrapped,      DerrCallback};

}  // namespace

void Report::beginEpisode(std::uint64_t number, const std::string& description) {
    episode = number;
    violationsOfEpisode = 0;
    const platform::MutexLock lock(mutex);
    described = description;
    journal.clear();
}

std::string Report::replay() const {
    return "replay: ./dev soak --seed " + std::to_string(seed) + " --episode " + std::to_string(episode);
}

std::string Report::lastCalls() const {
    const platform::MutexLock lock(mutex);
    std::string text = "  episode: " + described + "\n";
    for (const std::string& line : journal) text += "    " + line + "\n";
    return text;
}

void Report::violation(const std::string& what) {
    ++violations;
    if (violationsOfEpisode++ >= violationsPrinted) return;
    std::fprintf(stderr, "VIOLATION: %s\n%s  %s\n", what.c_str(), lastCalls().c_str(), replay().c_str());
}

void Report::note(const std::string& what, const Outcome& outcome, const std::string& foreign) {
    {
        const platform::MutexLock lock(mutex);
        const std::string end = foreign.empty() ? outcome.text : foreign;
        journal.push_back(what + (end.empty() ? "" : " -> " + end.substr(0, end.find("; in "))));
        if (journal.size() > callsKept) journal.pop_front();
    }
    if (!foreign.empty()) violation("an exception of another type left " + what + ": " + foreign);
    if (outcome.returned()) return;
    const bool known = std::find(std::begin(knownCodes), std::end(knownCodes), outcome.code) != std::end(knownCodes);
    if (!known) violation(what + " failed with a code of no meaning: " + std::to_string(outcome.code));
    if (outcome.text.empty() || outcome.text.front() == ' ') violation(what + " failed without a message");
}

void Report::writeLastCalls(int file) const {
    // The process hangs: whoever holds the lock may never give it back.
    std::string text = "  the last calls are being written by another thread\n";
    if (mutex.try_lock()) {
        mutex.unlock();
        text = lastCalls();
    }
    text += "  " + replay() + "\n";
    if (write(file, text.data(), text.size()) < 0) return;
}

}  // namespace soak
