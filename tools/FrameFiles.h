#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/Clock.h"
#include "tools/OutputFormat.h"

class QuorinDetector;

namespace tool {

/// What is the same for all frames of a run.
struct RunFacts {
    nlohmann::ordered_json detector;  ///< what `describeFrames` tells
    int width = 0;
    int height = 0;
    std::chrono::system_clock::time_point start;  ///< the time of day at which the run began
    platform::Time startedAt{};                   ///< the same moment, monotonic

    std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    std::size_t frameBytes() const { return pixels() * sizeof(std::uint16_t); }
};

/// The facts of a run that begins now.
RunFacts beginRun(const QuorinDetector& detector);

struct Frame {
    int number = 0;  ///< within the run, from 0
    int fieldCount = 0;
    int buffer = 0;
    /// When the tool had copied it out of the ring. Monotonic: no step of the time of day is in it.
    std::chrono::nanoseconds sinceStart{};
    const std::uint16_t* pixels = nullptr;  ///< row after row, of the run's size
};

double seconds(std::chrono::nanoseconds duration);
/// ISO 8601, UTC, with microseconds.
std::string isoTime(std::chrono::system_clock::time_point moment);
/// ISO 8601, in the machine's time zone with its offset from UTC, with milliseconds.
std::string isoLocalTime(std::chrono::system_clock::time_point moment);
/// The time of day at which the frame was taken over.
std::string timeOf(const RunFacts& facts, const Frame& frame);

/// Where the frames of a run go, one after the other. Every failure is a `std::runtime_error` that names the file;
/// nothing is left of a file that was not committed. One thread at a time.
class FrameFiles {
public:
    virtual ~FrameFiles() = default;
    virtual void write(const Frame& frame) = 0;
    /// After a `write` that failed: removes what it left of its frame. `commit` is the only call that may follow; it
    /// keeps the frames before.
    virtual void dropFailed() {}
    /// Puts what was written, at least one frame, into place. The last call but `note`.
    virtual void commit() = 0;
    /// After `commit`: what a reader should know besides; may be empty.
    virtual std::string note() const { return {}; }
};

/// A frame could not be written. The frames before it are in place.
class FramesKept : public std::runtime_error {
public:
    FramesKept(const std::string& text, std::string where, int count)
        : std::runtime_error(text), path(std::move(where)), frames(count) {}

    std::string path;
    int frames;
};

/// One file of the output's format, or files `frame_000001.tif` and so on in an existing directory. A `write` that
/// fails puts the frames before it into place and throws `FramesKept`; no call but the destructor may follow.
///
/// Fails if the frames certainly don't fit on the disk, and calls `output.warn` if they may not.
/// @param frames  of the run, at most
std::unique_ptr<FrameFiles> makeFrameFiles(const Destination& output, const RunFacts& facts, int frames);

}  // namespace tool
