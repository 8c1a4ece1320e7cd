#include <spdlog/spdlog.h>

#include <array>
#include <string>

#include "InternalUtils/Failure.h"
#include "InternalUtils/InternalUtils.h"
#include "detector/EpixDetector.h"
#include "logging.h"

/// Capture into the grabber's buffers, and copies from and to them.

namespace {

/// Serialises `ReadBuffer` and `WriteBuffer` of all Camera Link detectors.
CriticalSection bufferSection;

constexpr int snapWaiter = 1;
constexpr int wholeFrame = -1;
constexpr const char* moveProblem = "Error in writing to buffer!";

std::array<char, 5> grey{"Grey"};  // the grabber library takes its texts without const

}  // namespace

void EpixDetector::Snap(int buffer, int timeoutMs) {
    constexpr const char* here = "EpixDetector::Snap";
    CheckConnected();
    try {
        expectZero(xclibLib->goSnap(xcState, unitMap, static_cast<long>(buffer) + 1), "Problem Snapping Image!", here,
                   DerrAcquisition);
        SoftwareTrigger();
        WaitImage(timeoutMs, snapWaiter);
    } catch (const QuorinException& failure) {
        const char* const faultText = GetErrorMessage();
        if (*faultText == 0) throw QuorinException(failure, here);
        fail(failure.what(), failure.GetCode(), here, failure.GetTransportError(), faultText);
    }
}

void EpixDetector::GoLiveSeq() {
    CheckConnected();
    GoLiveSeq(0, numBuffers - 1, 0);
}

void EpixDetector::GoLiveSeq(int startBuffer, int stopBuffer, int frameCount) {
    constexpr const char* here = "EpixDetector::GoLiveSeq";
    constexpr long increment = 1;
    constexpr int period = 1;
    layer(here, [&] {
        CheckConnected();
        const StoppableGuard lock(acquisitionLock);
        baseDetector::GoLiveSeq(startBuffer, stopBuffer, frameCount);
        expectZero(xclibLib->goLiveSeq(xcState, unitMap, static_cast<long>(startBuffer) + 1,
                                       static_cast<long>(stopBuffer) + 1, increment, frameCount, period),
                   "Problem starting live mode!", here);
        try {
            StartCallbackThread();
        } catch (...) {
            // Without the thread no callback would be made for the frames of this run.
            xclibLib->goAbortLive(xcState, unitMap);
            throw;
        }
    });
}

void EpixDetector::GoUnLive() {
    constexpr const char* here = "EpixDetector::GoUnLive";
    layer(here, [&] {
        CheckConnected();
        const StoppableGuard lock(acquisitionLock);
        if (!IsLive()) return;
        StopCallbackThread();
        expectZero(xclibLib->goAbortLive(xcState, unitMap), "Problem exiting live mode!", here);
    });
}

bool EpixDetector::IsLive() {
    CheckConnected();
    const auto ask = [this] { return xclibLib->goneLive(xcState, unitMap) != 0; };
    if (!acquisitionLock.lockUnlessStopped()) return ask();  // a stop holds the lock and waits for this thread
    const StoppableGuard lock(acquisitionLock, std::adopt_lock);
    return ask();
}

int EpixDetector::GetCapturedBuffer() {
    CheckConnected();
    return xclibLib->capturedBuffer(xcState, unitMap) - 1;
}

int EpixDetector::GetFieldCount() {
    CheckConnected();
    return xclibLib->capturedFieldCount(xcState, unitMap);
}

void EpixDetector::CheckForLiveError() {
    CheckConnected();
    std::array<char, 1024> faultText{};
    if (xclibLib->mesgFaultText(xcState, unitMap, faultText.data(), faultText.size()) == 0) return;
    faultText.back() = 0;  // whatever the grabber's library has written
    fail("An error occured in the Live thread!", DerrTransport, "EpixDetector::CheckForLiveError", 0, faultText.data());
}

std::int64_t EpixDetector::frameBytes() {
    constexpr int bytesPerPixel = 2;
    const std::int64_t rows = GetBufferYdim();
    return rows * GetBufferXdim() * bytesPerPixel;
}

void EpixDetector::ReadBuffer(int buffer, void* target) {
    constexpr const char* here = "EpixDetector::ReadBuffer";
    CheckConnected();
    if (target == nullptr) fail("The frame needs a place to go to: the pointer is null!", DerrBadRequest, here);
    const std::int64_t size = frameBytes();
    checkPlane(target, size);
    int moved = 0;
    {
        const CriticalSectionLock section(bufferSection);
        moved = xclibLib->readuchar(xcState, unitMap, static_cast<long>(buffer) + 1, 0, 0, wholeFrame, wholeFrame,
                                    static_cast<unsigned char*>(target), static_cast<std::size_t>(size), grey.data());
    }
    if (moved != size) failWith(moved, moveProblem, here);
}

void EpixDetector::WriteBuffer(int buffer, const void* source, int size) {
    constexpr const char* here = "EpixDetector::WriteBuffer";
    CheckConnected();
    if (source == nullptr) fail("There is no frame to write: the pointer is null!", DerrBadRequest, here);
    if (buffer < 0 || buffer >= numBuffers) fail(bufferRangeText, DerrResources, here);
    if (size != frameBytes())
        fail("Size of input buffer must match size of current image buffer!", DerrBadRequest, here);
    // The grabber library takes the pixels without const and doesn't change them.
    auto* const pixels = const_cast<unsigned char*>(static_cast<const unsigned char*>(source));
    int moved = 0;
    {
        const CriticalSectionLock section(bufferSection);
        moved = xclibLib->writeuchar(xcState, unitMap, static_cast<long>(buffer) + 1, 0, 0, wholeFrame, wholeFrame,
                                     pixels, static_cast<std::size_t>(size), grey.data());
    }
    if (moved != size) failWith(moved, moveProblem, here);
}
