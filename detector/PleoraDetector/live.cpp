#include <spdlog/spdlog.h>

#include <string>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "detector/attempt.h"
#include "logging.h"
#include "platform/Event.h"

/// Live sequences: going live, the live thread that fills the ring, leaving live.

namespace {

constexpr int retrieveTimeoutMs = 100;
constexpr std::uint32_t noFrameCode = 30;
constexpr const char* liveProblem = "An error occured in the Live thread!";

}  // namespace

void PleoraDetector::GoLiveSeq() {
    layer("PleoraDetector::GoLiveSeq", [&] {
        CheckConnected();
        GoLiveSeq(0, numBuffers - 1, 0);
    });
}

void PleoraDetector::GoLiveSeq(int startBuffer, int stopBuffer, int frameCount) {
    layer("PleoraDetector::GoLiveSeq", [&] {
        CheckConnected();
        const StoppableGuard lock(acquisitionLock);
        baseDetector::GoLiveSeq(startBuffer, stopBuffer, frameCount);
        live = true;
        stopRequested = false;
        try {
            platform::resetEvent(frameCapturedEvent);
            StartAcq();
            StartCallbackThread();
            joinLiveThread();
            liveThread = startThread(
                [this, startBuffer, stopBuffer, frameCount] { LiveThread(startBuffer, stopBuffer, frameCount); });
        } catch (...) {
            rollBackLive();
            throw;
        }
    });
}

void PleoraDetector::rollBackLive() {
    constexpr const char* here = "while a live run was taken back";
    attempt(here, [this] { StopCallbackThread(); });
    attempt(here, [this] { StopAcq(); });
    live = false;
}

void PleoraDetector::joinLiveThread() {
    if (liveThread == nullptr) return;
    liveThread->join();
    liveThread.reset();
}

void PleoraDetector::endLiveThread() {
    stopping = true;  // so that the live thread does not wait for the lock
    callbackLoop->wake();
    stopRequested = true;
    joinLiveThread();
}

void PleoraDetector::GoUnLive() {
    CheckConnected();
    const StoppableGuard lock(acquisitionLock);
    if (!live) return;
    const RaisedFlag stoppingNow(stopping);
    callbackLoop->wake();
    StopCallbackThread();
    stopRequested = true;
    joinLiveThread();
    live = false;
}

std::uint32_t PleoraDetector::LiveThread(int start, int stop, int limit) {
    constexpr const char* here = "PleoraDetector::LiveThread";
    struct Held {
        StoppableLock& lock;
        bool held = false;
        explicit Held(StoppableLock& toHold) : lock(toHold) {}
        /// While `GoUnLive` joins this thread it holds the lock, which then also protects the work here.
        void lockUnless(const std::atomic<bool>& stopping) NO_THREAD_SAFETY_ANALYSIS {
            if (!held) held = lock.lockUnless(stopping);
        }
        ~Held() NO_THREAD_SAFETY_ANALYSIS {
            if (held) lock.unlock();
        }
    } acquisition(acquisitionLock);
    const auto liveFailure = [&](const std::string& text, const char* reason) {
        return QuorinException((text + reason).c_str(), DerrTransport, __LINE__, baseName(__FILE__), here, 0, "");
    };
    try {
        capturedBuffer = stop;
        bool firstFrame = true;
        for (int taken = 0; !stopRequested;) {
            if (limit != 0 && taken >= limit) {
                stopRequested = true;
                getQorLogger()->info("All frames acquired, stopping live thread");
                break;
            }
            if (!takeLiveFrame(start, stop)) continue;
            fieldCount += firstFrame ? 2 : 1;  // the first frame of a run counts double
            firstFrame = false;
            getQorLogger()->info("Acquired frame {}/{} with field count {}, copying to local buffer {}", taken + 1,
                                 limit, fieldCount.load(), capturedBuffer.load());
            if (limit != 0 && taken >= limit - 1) {
                // A thread that the last frame's signal wakes finds the run ended.
                acquisition.lockUnless(stopping);
                if (acquisition.held) live = false;
            }
            getQorLogger()->debug("FRAME_EVENT: Signal frame captured event");
            platform::signalEvent(frameCapturedEvent);
            if (limit != 0) ++taken;
            check(Test::NotFailure, releaseFrame(), "Problem releasing detector buffers!", here);
        }
        acquisition.lockUnless(stopping);
        StopAcq();
        live = false;
    } catch (const QuorinException& failure) {
        liveError = failure;
    } catch (const std::exception& failure) {
        liveError =
            madeOrOutOfMemory([&] { return liveFailure("An error occured in the Live thread: ", failure.what()); });
    } catch (...) {
        liveError = madeOrOutOfMemory([&] { return liveFailure("An unknown error occured in the Live thread.", ""); });
    }
    return 0;
}

bool PleoraDetector::takeLiveFrame(int start, int stop) {
    constexpr const char* here = "PleoraDetector::LiveThread";
    releaseHeldFrame();
    struct Waiting {
        std::atomic<std::uint64_t>& awaited;
        ~Waiting() { awaited = notWaiting; }
    } const waiting{awaitedGeneration};
    std::uint64_t generation = 0;
    {
        const platform::SharedLock gate(ringGate);
        awaitedGeneration = generation = ringGeneration;
    }
    PvResult frameResult;
    const PvResult retrieved =
        pleoraLib->Pipeline_RetrieveNextBuffer(pleoraLib->Buffer_GetBufferPtr(), &frameResult, retrieveTimeoutMs);
    if (!retrieved.IsOK() && retrieved.GetCode() == noFrameCode) return false;
    check(Test::IsOK, retrieved, liveProblem, here);
    frameHeld = true;
    if (!frameResult.IsOK()) releaseHeldFrame();
    check(Test::IsOK, frameResult, liveProblem, here);
    const std::uint8_t* const pixels = pleoraLib->Buffer_GetImagePointer();
    if (pixels == nullptr) fail(liveProblem, DerrTransport, here, 0, noPixelsText);
    const int previous = capturedBuffer;
    const int next = previous >= stop ? start : previous + 1;
    capturedBuffer = next;
    if (!copyIntoRing(next, pixels, generation)) {
        // From before a change of size: release it.
        ++staleFrames;
        capturedBuffer = previous;
        releaseHeldFrame();
        return false;
    }
    return true;
}
