#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

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
/// The time of day at which the frame was taken over.
std::string timeOf(const RunFacts& facts, const Frame& frame);

/// Where the frames of a run go, one after the other. Every failure is a `std::runtime_error` that names the file;
/// nothing is left of a file that was not committed. One thread at a time.
class FrameFiles {
public:
    virtual ~FrameFiles() = default;
    virtual void write(const Frame& frame) = 0;
    /// Puts what was written, at least one frame, into place. The last call but `note`.
    virtual void commit() = 0;
    /// After `commit`: what a reader should know besides; may be empty.
    virtual std::string note() const { return {}; }
};

/// One file of the output's format, or files `frame_000001.tif` and so on in an existing directory.
/// @param frames  of the run, at most
std::unique_ptr<FrameFiles> makeFrameFiles(const Destination& output, const RunFacts& facts, int frames);

}  // namespace tool
