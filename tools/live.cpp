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
#include "tools/Interrupt.h"
#include "tools/RingReader.h"
#include "tools/commands.h"
#include "tools/run.h"

namespace tool {
namespace {

constexpr std::int64_t largestRingBytes = std::int64_t{1} << 30;
constexpr int fewestBuffers = 2;  // one to read while the other fills
constexpr int pollMs = 200;       ///< how late an interrupt may be noticed

std::int64_t frameBytesOf(const QuorinDetector& detector) {
    return std::int64_t{detector.GetBufferXdim()} * detector.GetBufferYdim() * std::int64_t{sizeof(std::uint16_t)};
}

/// A ring for the whole run if the memory for it is fair, so that slow writing loses nothing.
int wantedBuffers(int frameCount, std::int64_t frameBytes) {
    const std::int64_t affordable = std::max<std::int64_t>(largestRingBytes / frameBytes, fewestBuffers);
    return static_cast<int>(std::min<std::int64_t>(frameCount, affordable));
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

/// One limited live run into files. With callbacks the frames are read and written on the library's thread, otherwise
/// on the one that called.
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
        begin();
        if (request.callback)
            waitForCallbacks(interrupt);
        else
            waitForFrames(interrupt);
        detector.GoUnLive();
        const std::uint64_t exposed = simulated ? simulated->ledger().exposed - exposedBefore : 0;
        writeWhatIsThere();
        detector.CheckForLiveError();
        detector.CloseBoard();
        {
            const platform::MutexLock lock(mutex);
            bar.end();
            if (failure) std::rethrow_exception(failure);
            files->commit();
            printSummary(exposed, output);
        }
        output.facts["interrupted"] = interrupt.isRequested();
        if (!interrupt.isRequested()) return exitSuccess;
        output.text() << "interrupted\n";
        return exitInterrupted;
    }

private:
    void prepare() {
        openWithSettings(detector, request.preparation);
        const int wanted = wantedBuffers(request.count, frameBytesOf(detector));
        // A frame grabber's ring is what its memory holds; asking for more would only fail.
        if (detector.GetTransportMethod() == TransportGE && wanted > detector.GetNumBuffers()) {
            detector.CloseBoard();
            detector.OpenBoard(wanted);  // the settings are in the detector
        }
        // Set up before the run, since doing it in a run pauses it; the pulses come once the run is live.
        if (request.preparation.pulseHz) detector.EnablePulseGenerator(*request.preparation.pulseHz);
        timeoutMs = frameTimeoutMs(detector, request.preparation);
        facts = describeFrames(detector);
        const std::int64_t fileBytes = frameBytesOf(detector) * request.count;
        const platform::MutexLock lock(mutex);
        files = makeFrameFiles(request.output, static_cast<std::uint64_t>(fileBytes));
    }

    void begin() {
        if (request.callback) {
            detector.SetCallbackData(this);
            detector.SetCallback([](int /*fieldCount*/, int /*buffer*/, QuorinDetector* from) {
                static_cast<Recording*>(from->GetCallbackData())->writeWhatIsThere();
            });
        }
        const int buffers = std::min(request.count, detector.GetNumBuffers());
        {
            const platform::MutexLock lock(mutex);
            reader.emplace(buffers, request.count, detector.GetFieldCount() + fieldsOfFirstFrame(detector));
        }
        if (simulated) exposedBefore = simulated->ledger().exposed;
        started = platform::now();
        detector.GoLiveSeq(0, buffers - 1, request.count);
        if (request.preparation.pulseHz) detector.ToggleGenerator(true);
    }

    /// Waits by the frames' signals. One signal may stand for several frames.
    void waitForFrames(const Interrupt& interrupt) {
        platform::Time deadline = platform::deadlineAfterMs(timeoutMs);
        while (!isFinished() && !interrupt.isRequested()) {
            try {
                detector.WaitImage(pollMs);
                deadline = platform::deadlineAfterMs(timeoutMs);
            } catch (const QuorinException& missing) {
                const bool timedOut = missing.GetTransportError() == waitTimedOut;
                if (!timedOut || platform::now() > deadline) throw;
            }
            writeWhatIsThere();
        }
    }

    /// Several frames may lead to one callback: each writes all that is there.
    void waitForCallbacks(const Interrupt& interrupt) {
        platform::Time deadline = platform::deadlineAfterMs(timeoutMs);
        int seen = detector.GetFieldCount();
        while (!isFinished() && !interrupt.isRequested()) {
            {
                const platform::MutexLock lock(wakeMutex);
                if (!written) wake.waitUntil(wakeMutex, platform::deadlineAfterMs(pollMs));
                written = false;
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
        return reader->isFinished() || failure;
    }

    /// On the callback thread or on the one that called. Keeps a failure, since one that left a callback would arrive
    /// as another type.
    void writeWhatIsThere() {
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
        written = true;
        wake.notifyAll();
    }

    void readAll() REQUIRES(mutex) {
        // The lambdas run under the lock of this function; the analysis doesn't follow them.
        FrameFiles& target = *files;
        const auto fieldCount = [this] {
            const int count = detector.GetFieldCount();
            if (count != newestFieldCount) newestArrived = platform::now();
            newestFieldCount = count;
            return count;
        };
        const auto read = [this](const RingReader::Frame& frame) { detector.ReadBuffer(frame.buffer, image, 0); };
        const auto keep = [this, &target](const RingReader::Frame& frame) {
            target.write(frame.number, static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0)),
                         image.GetImageXdim(), image.GetImageYdim(),
                         describeFrame(facts, frame.fieldCount, frame.buffer));
            bar.draw(frame.number + 1);
        };
        reader->readAll(fieldCount, read, keep);
    }

    void printSummary(std::uint64_t exposed, Output& output) REQUIRES(mutex) {
        const int delivered = reader->delivered();
        const std::chrono::duration<double> taken = newestArrived - started;
        std::ostringstream line;  // its own stream, so that the caller's keeps its format
        if (simulated) line << exposed << " frames exposed, ";
        line << delivered << " delivered, " << reader->skipped() << " skipped";
        if (delivered > 0)
            line << ", " << std::fixed << std::setprecision(1) << delivered / taken.count() << " frames/s";
        if (delivered > reader->skipped()) line << "; wrote " << request.output;
        output.text() << line.str() << "\n";
        Json& told = output.facts;
        told["exposed"] = simulated ? Json(exposed) : Json(nullptr);
        told["delivered"] = delivered;
        told["skipped"] = reader->skipped();
        told["rate_hz"] = delivered > 0 ? Json(delivered / taken.count()) : Json(nullptr);
        told["output"] = delivered > reader->skipped() ? Json(request.output) : Json(nullptr);
    }

    static constexpr int waitTimedOut = 258;  ///< the transport error of a wait that no frame ended

    const LiveRequest& request;
    const std::shared_ptr<simulator::SimulatedDetector> simulated;
    nlohmann::ordered_json facts;
    int timeoutMs = 0;
    std::uint64_t exposedBefore = 0;
    platform::Time started{};

    mutable platform::Mutex mutex;  ///< held while frames are read and written
    std::unique_ptr<FrameFiles> files GUARDED_BY(mutex);
    std::optional<RingReader> reader GUARDED_BY(mutex);
    std::exception_ptr failure GUARDED_BY(mutex);
    // What the reading of frames touches, always under `mutex`.
    ProgressBar bar;
    QorImage image;
    int newestFieldCount = 0;
    platform::Time newestArrived{};

    platform::Mutex wakeMutex;
    platform::Condition wake;
    bool written GUARDED_BY(wakeMutex) = false;

    QuorinDetector detector;  ///< the last member: its callbacks end before anything that they use
};

}  // namespace

int live(const LiveRequest& request, Output& output) {
    checkOutputFileOrDirectory(request.output);
    return Recording(request, output.terminal()).run(output);
}

}  // namespace tool
