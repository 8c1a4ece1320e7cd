#include <qrapi/QuorinDetector.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "tools/FrameFiles.h"
#include "tools/FrameQueue.h"
#include "tools/Interrupt.h"
#include "tools/RingReader.h"
#include "tools/commands.h"
#include "tools/framePixels.h"
#include "tools/run.h"

namespace tool {
namespace {

constexpr int fewestBuffers = 2;  // one to read while the other fills
constexpr int pollMs = 200;       ///< how late an interrupt may be noticed
constexpr int lookMs = 20;        ///< how late the arrival of frames may be noticed while the disk holds things up

std::int64_t frameBytesOf(const QuorinDetector& detector) {
    return std::int64_t{detector.GetBufferXdim()} * detector.GetBufferYdim() * std::int64_t{sizeof(std::uint16_t)};
}

/// A ring for the whole run if the memory for it is fair, so that slow writing loses nothing.
int wantedBuffers(int frameCount, std::int64_t ringBytes, std::int64_t frameBytes) {
    const std::int64_t affordable = std::max<std::int64_t>(ringBytes / frameBytes, fewestBuffers);
    return static_cast<int>(std::min<std::int64_t>(frameCount, affordable));
}

double megabytesPerSecond(double bytes, std::chrono::nanoseconds time) {
    constexpr double bytesOfMegabyte = 1e6;
    return time.count() > 0 ? bytes / bytesOfMegabyte / seconds(time) : 0.0;
}

/// Redraws one line of a terminal; does nothing without one.
class ProgressBar {
public:
    ProgressBar(std::ostream* barTerminal, int allFrames) : terminal(barTerminal), all(allFrames) {}
    ~ProgressBar() { end(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void draw(int done) {
        constexpr int width = 40;
        if (terminal == nullptr) return;
        const auto filled = static_cast<std::size_t>(std::int64_t{done} * width / all);
        *terminal << "\r[" << std::string(filled, '#') << std::string(width - filled, '.') << "] " << done << " of "
                  << all << std::flush;
        isDrawn = true;
    }

    void end() {
        if (isDrawn) *terminal << std::endl;
        isDrawn = false;
    }

private:
    std::ostream* const terminal;
    const int all;
    bool isDrawn = false;
};

/// One limited live run into files. With callbacks the frames are read on the library's thread, otherwise on the one
/// that called; a thread of the queue's writes them. What the disk can't take yet waits in the queue, then in the ring.
class Recording {
public:
    Recording(const LiveRequest& liveRequest, std::ostream* progressTerminal)
        : request(liveRequest),
          simulated(simulatedBehind(request.preparation.detector)),
          bar(progressTerminal, request.count),
          detector(makeDetector(request.preparation.detector)) {}

    int run(Output& output) {
        const Interrupt interrupt;
        prepare();
        tellShortest(detector, request.preparation, output);
        begin();
        if (request.callback)
            waitForCallbacks(interrupt);
        else
            waitForFrames(interrupt);
        detector.GoUnLive();
        const std::uint64_t exposed = simulated ? simulated->ledger().exposed - exposedBefore : 0;
        readWhatIsThere();
        detector.CheckForLiveError();
        detector.CloseBoard();
        bool framesWereLost = false;
        {
            const platform::MutexLock lock(mutex);
            bar.end();
            if (failure) std::rethrow_exception(failure);
            queue->finish();
            if (queue->account().written > 0) files->commit();
            printSummary(exposed, output);
            framesWereLost = reader->skipped() > 0;
            if (framesWereLost) printLoss(output.errors());
        }
        output.facts["interrupted"] = interrupt.isRequested();
        if (interrupt.isRequested()) output.text() << "interrupted\n";
        if (framesWereLost) return exitFramesLost;
        return interrupt.isRequested() ? exitInterrupted : exitSuccess;
    }

private:
    void prepare() {
        openWithSettings(detector, request.preparation);
        const int wanted = wantedBuffers(request.count, request.ringBytes, frameBytesOf(detector));
        // A frame grabber's ring is what its memory holds; asking for more would only fail.
        if (detector.GetTransportMethod() == TransportGE && wanted > detector.GetNumBuffers()) {
            detector.CloseBoard();
            detector.OpenBoard(wanted);  // the settings are in the detector
        }
        // Set up before the run, since doing it in a run pauses it; the pulses come once the run is live.
        if (request.preparation.pulseHz) detector.EnablePulseGenerator(*request.preparation.pulseHz);
        timeoutMs = frameTimeoutMs(detector, request.preparation);
    }

    void begin() {
        if (request.callback) {
            detector.SetCallbackData(this);
            detector.SetCallback([](int /*fieldCount*/, int /*buffer*/, QuorinDetector* from) {
                static_cast<Recording*>(from->GetCallbackData())->readWhatIsThere();
            });
        }
        ringBuffers = std::min(request.count, detector.GetNumBuffers());
        facts = beginRun(detector);
        {
            const platform::MutexLock lock(mutex);
            files = request.makeFiles(request.output, facts, request.count);
            const std::int64_t queued = request.queueBytes / static_cast<std::int64_t>(facts.frameBytes());
            queue.emplace(*files, facts.pixels(), static_cast<std::size_t>(queued));
            reader.emplace(ringBuffers, request.count, detector.GetFieldCount() + fieldsOfFirstFrame(detector));
        }
        if (simulated) exposedBefore = simulated->ledger().exposed;
        detector.GoLiveSeq(0, ringBuffers - 1, request.count);
        if (request.preparation.pulseHz) detector.ToggleGenerator(true);
    }

    /// Waits by the frames' signals. One signal may stand for several frames.
    void waitForFrames(const Interrupt& interrupt) {
        platform::Time deadline = platform::deadlineAfterMs(timeoutMs);
        while (!isFinished() && !interrupt.isRequested()) {
            bool frameCame = false;
            try {
                detector.WaitImage(pollMs);
                frameCame = true;
            } catch (const QuorinException& missing) {
                const bool timedOut = missing.GetTransportError() == waitTimedOut;
                if (!timedOut || platform::now() > deadline) throw;
            }
            readWhatIsThere();  // as long as the disk takes
            if (frameCame) deadline = platform::deadlineAfterMs(timeoutMs);
        }
    }

    /// Several frames may lead to one callback: each reads all that is there.
    void waitForCallbacks(const Interrupt& interrupt) {
        platform::Time deadline = platform::deadlineAfterMs(timeoutMs);
        int seen = detector.GetFieldCount();
        while (!isFinished() && !interrupt.isRequested()) {
            {
                const platform::MutexLock lock(wakeMutex);
                if (!wasRead) wake.waitUntil(wakeMutex, platform::deadlineAfterMs(pollMs));
                wasRead = false;
            }
            detector.CheckForLiveError();
            detector.CheckForCallbackError();
            const int now = detector.GetFieldCount();
            if (now != seen) deadline = platform::deadlineAfterMs(timeoutMs);
            seen = now;
            // All frames are there, but the last callback may have begun before the last of them.
            if (!detector.IsLive()) return;
            if (platform::now() > deadline)
                throw std::runtime_error("no frame came within " + std::to_string(timeoutMs) + " ms");
        }
    }

    bool isFinished() const {
        const platform::MutexLock lock(mutex);
        return reader->isFinished() || failure || queue->hasFailed();
    }

    /// On the callback thread or on the one that called. Keeps a failure, since one that left a callback would arrive
    /// as another type.
    void readWhatIsThere() {
        {
            const platform::MutexLock lock(mutex);
            if (failure) return;
            try {
                readAll();
            } catch (...) {
                failure = std::current_exception();
            }
        }
        const platform::MutexLock lock(wakeMutex);
        wasRead = true;
        wake.notifyAll();
    }

    void readAll() REQUIRES(mutex) {
        // The lambdas run under the lock of this function; the analysis doesn't follow them.
        FrameQueue& target = *queue;
        const auto fieldCount = [this] {
            const int count = detector.GetFieldCount();
            if (count != newestFieldCount) newestArrived = platform::now();
            newestFieldCount = count;
            return count;
        };
        std::chrono::nanoseconds takenOver{};
        const auto read = [&](const RingReader::Frame& frame) {
            detector.ReadBuffer(frame.buffer, image, 0);
            takenOver = platform::now() - facts.startedAt;
        };
        const auto keep = [&](const RingReader::Frame& frame) {
            while (!target.waitForRoom(platform::deadlineAfterMs(lookMs))) fieldCount();
            target.put({frame.number, frame.fieldCount, frame.buffer, takenOver, pixelsOf(image, facts)});
            bar.draw(frame.number + 1);
        };
        reader->readAll(fieldCount, read, keep);
    }

    void printSummary(std::uint64_t exposed, Output& output) REQUIRES(mutex) {
        const int delivered = reader->delivered();
        const double rate = delivered / seconds(newestArrived - facts.startedAt);
        const bool written = queue->account().written > 0;
        const std::string note = written ? files->note() : "";
        std::ostringstream line;  // its own stream, so that the caller's keeps its format
        if (simulated) line << exposed << " frames exposed, ";
        line << delivered << " delivered, " << reader->skipped() << " skipped";
        if (delivered > 0) line << ", " << std::fixed << std::setprecision(1) << rate << " frames/s";
        if (written && !output.isQuiet) {
            line << "; wrote " << request.output.path;
            if (!note.empty()) line << ", " << note;
        }
        output.text() << line.str() << "\n";
        Json& told = output.facts;
        told["exposed"] = simulated ? Json(exposed) : Json(nullptr);
        told["delivered"] = delivered;
        told["skipped"] = reader->skipped();
        told["rate_hz"] = delivered > 0 ? Json(rate) : Json(nullptr);
        told["output"] = written ? Json(request.output.path) : Json(nullptr);
        if (!note.empty()) told["note"] = note;
    }

    void printLoss(std::ostream& err) REQUIRES(mutex) {
        const FrameQueue::Account account = queue->account();
        const auto frameBytes = static_cast<double>(facts.frameBytes());
        std::ostringstream line;
        line << "lost " << reader->skipped() << " of " << reader->delivered() << " frames: the ring of " << ringBuffers
             << " buffers overran before they were read, ";
        if (account.wasFull)
            line << std::fixed << std::setprecision(1) << "because the disk wrote "
                 << megabytesPerSecond(account.written * frameBytes, account.spent) << " MB/s while "
                 << megabytesPerSecond(reader->delivered() * frameBytes, newestArrived - facts.startedAt)
                 << " MB/s came (the slowest frame took " << seconds(account.longest) << " s to write)";
        else
            line << "though the disk kept up: this machine was too slow";
        err << line.str() << "\n";
    }

    static constexpr int waitTimedOut = 258;  ///< the transport error of a wait that no frame ended

    const LiveRequest& request;
    const std::shared_ptr<simulator::SimulatedDetector> simulated;
    RunFacts facts;
    int timeoutMs = 0;
    int ringBuffers = 0;
    std::uint64_t exposedBefore = 0;

    mutable platform::Mutex mutex;  ///< held while frames are read and put into the queue
    std::unique_ptr<FrameFiles> files GUARDED_BY(mutex);
    std::optional<FrameQueue> queue GUARDED_BY(mutex);
    std::optional<RingReader> reader GUARDED_BY(mutex);
    std::exception_ptr failure GUARDED_BY(mutex);
    // What the reading of frames touches, always under `mutex`.
    ProgressBar bar;
    QorImage image;
    int newestFieldCount = 0;
    platform::Time newestArrived{};

    platform::Mutex wakeMutex;
    platform::Condition wake;
    bool wasRead GUARDED_BY(wakeMutex) = false;

    QuorinDetector detector;  ///< the last member: its callbacks end before anything that they use
};

}  // namespace

int live(const LiveRequest& request, Output& output) {
    return Recording(request, output.terminal()).run(output);
}

}  // namespace tool
