#pragma once

#include <spdlog/common.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "QuorinDetector.h"
#include "simulator/Rack.h"

class xclib;

namespace bench {

/// A detector that is open, on a simulated one that exposes on a trigger edge alone.
class Board {
public:
    struct Setup {
        DetectorInterface transport = TransportGE;
        std::string profile;
        bins binning = Bin1x1;
        int number = 1;  ///< of boards that are open at once
        int rows = 0;    ///< of the region of interest; 0: the whole panel
    };
    /// Frames of 49 KB, as small as any detector has.
    static Setup smallestFrames() { return {TransportGE, "6112-kestrane", Bin4x4, 1, 128}; }
    static constexpr int ringFrames = 4;

    explicit Board(const Setup& setup);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Puts a simulated detector where the facade for it reaches it.
    static std::shared_ptr<simulator::SimulatedDetector> mount(const Setup& setup);
    static std::unique_ptr<QuorinDetector> makeFacade(const Setup& setup);

    /// What the facade's frame grabber is reached through.
    static std::shared_ptr<xclib>& grabberSeam(QuorinDetector& facade);

    baseDetector& core();
    std::size_t frameBytes() const;
    void* ringBlock(int buffer);  ///< GigE
    void* frameEvent();

    /// Runs `frames` frames into the ring and waits until the run is over.
    void runLive(int frames);
    void awaitEnd();

    const Setup setup;
    const std::shared_ptr<simulator::SimulatedDetector> hardware;
    const std::unique_ptr<QuorinDetector> facade;
};

/// The bytes of one pixel.
inline constexpr std::size_t pixelBytes = 2;

inline const char* transportName(DetectorInterface transport) {
    return transport == TransportGE ? "GigE" : "CL";
}

/// What the library logs, taken down once and written again by the logger alone, without anything being made of it.
class LogLines {
public:
    /// The lines of what `work` does, on all threads; none of them may still run before or behind it.
    template <class Work>
    static LogLines of(const Work& work) {
        LogLines lines;
        const auto stop = lines.take();
        work();
        stop();
        return lines;
    }

    /// The same lines; throws if there aren't as many, so that a line more isn't on both sides of a ratio unseen.
    LogLines expecting(std::size_t number) const;

    void write() const;

    /// The lines of one round of a thread, from the last but one that begins with `start` to the last: those up to the
    /// one that begins with `end`, and those behind it.
    std::pair<LogLines, LogLines> round(const std::string& start, const std::string& end) const;

private:
    struct Line {
        spdlog::level::level_enum level;
        std::size_t thread;
        std::string text;
    };
    std::function<void()> take();

    std::vector<Line> lines;
};

/// No log while this object exists.
class QuietLog {
public:
    QuietLog();
    ~QuietLog();
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

private:
    const spdlog::level::level_enum level;
};

}  // namespace bench
