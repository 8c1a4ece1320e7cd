#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "detector/attempt.h"
#include "logging.h"
#include "platform/Clock.h"
#include "platform/Event.h"

namespace {

/// Serialises `ReadBuffer` and `WriteBuffer` of all GigE detectors.
CriticalSection bufferSection;

constexpr int acquisitionRunning = 1;
constexpr std::size_t longestMessage = 1023;
constexpr const char* snapProblem = "Problem Snapping Image!";
constexpr const char* releaseProblem = "Problem releasing detector buffers!";

/// Every copy into or out of a ring block. A reader that lags behind by a whole ring sees the block being overwritten:
/// the only intended race; the thread sanitizer's suppressions name this function.
[[gnu::noinline]] void copyFrame(void* target, const void* source, std::int64_t bytes) {
    std::memcpy(target, source, static_cast<std::size_t>(bytes));
}

}  // namespace

void PleoraDetector::StartAcq() {
    if (static_cast<int>(pleoraLib->State_GetState()) != acquisitionRunning)
        expect(Test::NotFailure, pleoraLib->State_Start(), "Problem starting acquisition manager!",
               "PleoraDetector::StartAcq");
}

void PleoraDetector::StopAcq() {
    if (static_cast<int>(pleoraLib->State_GetState()) == acquisitionRunning)
        expect(Test::NotFailure, pleoraLib->State_Stop(), "Problem stopping acquisition manager!",
               "PleoraDetector::StopAcq");
}

std::uint64_t PleoraDetector::currentGeneration() {
    const platform::SharedLock gate(ringGate);
    return ringGeneration;
}

std::int64_t PleoraDetector::currentPayload() {
    const platform::SharedLock gate(ringGate);
    return payloadSize;
}

void* PleoraDetector::ringBlock(int buffer, std::int64_t bytes) {
    if (frameBuffers == nullptr) fail(bufferRangeText, DerrResources, "RAIIBuffer::GetBuffer");
    void* const block = frameBuffers->GetBuffer(buffer);
    // Left by a reallocation that ran out of memory.
    if (block == nullptr || static_cast<std::int64_t>(frameBuffers->GetBlockSize(buffer)) < bytes)
        fail(noMemoryText, DerrResources, "RAIIBuffer::GetBuffer");
    return block;
}

bool PleoraDetector::copyIntoRing(int buffer, const std::uint8_t* source, std::uint64_t generation) {
    const platform::SharedLock gate(ringGate);
    if (generation != ringGeneration) return false;
    copyFrame(ringBlock(buffer, payloadSize), source, std::min(payloadSize, pipelineSize));
    return true;
}

// A `Snap` right after the last frame of a run may have released it already.
PvResult PleoraDetector::releaseFrame() {
    PvBuffer* const buffer = pleoraLib->Buffer_GetBuffer();
    return frameHeld.exchange(false) ? pleoraLib->Pipeline_ReleaseBuffer(buffer) : PvResult();
}

void PleoraDetector::releaseHeldFrame() {
    if (frameHeld) attempt("while a frame was given back", [this] { releaseFrame(); });
}

bool PleoraDetector::retrieveInto(int buffer, int timeoutMs) {
    constexpr const char* here = "PleoraDetector::Snap";
    releaseHeldFrame();
    const std::uint64_t generation = currentGeneration();
    expect(Test::IsOK,
           pleoraLib->Pipeline_RetrieveNextBuffer(pleoraLib->Buffer_GetBufferPtr(), &operationResult, timeoutMs),
           snapProblem, here, DerrAcquisition);
    frameHeld = true;
    if (!operationResult.IsOK()) releaseHeldFrame();
    expect(Test::IsOK, operationResult, snapProblem, here, DerrAcquisition);
    getQorLogger()->info("Acquired frame, copying to local buffer {}", buffer);
    const std::uint8_t* const pixels = pleoraLib->Buffer_GetImagePointer();
    if (pixels == nullptr) fail(snapProblem, DerrAcquisition, here, 0, noPixelsText);
    const bool copied = copyIntoRing(buffer, pixels, generation);
    expect(Test::NotFailure, releaseFrame(), releaseProblem, here, DerrAcquisition);
    return copied;
}

void PleoraDetector::Snap(int buffer, int timeoutMs) {
    constexpr const char* here = "PleoraDetector::Snap";
    layer(here, [&] {
        CheckConnected();
        StartAcq();
        SoftwareTrigger();
        const platform::Time deadline = platform::deadlineAfterMs(timeoutMs);
        int remainingMs = timeoutMs;
        while (!retrieveInto(buffer, remainingMs)) {
            // A frame from before a change of size: wait for the next one in the remaining time.
            ++staleFrames;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - platform::now());
            if (timeoutMs > 0) remainingMs = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
        }
        getQorLogger()->debug("FRAME_EVENT: Signal frame captured event");
        platform::signalEvent(frameCapturedEvent);
        ++fieldCount;
        capturedBuffer = buffer;
        StopAcq();
    });
}

bool PleoraDetector::IsLive() {
    CheckConnected();
    if (!acquisitionLock.lockUnlessStopped()) return live;  // a stop holds the lock and waits for this thread
    const StoppableGuard lock(acquisitionLock, std::adopt_lock);
    return live;
}

int PleoraDetector::GetCapturedBuffer() {
    CheckConnected();
    return capturedBuffer;
}

int PleoraDetector::GetFieldCount() {
    CheckConnected();
    return fieldCount;
}

void PleoraDetector::CheckForLiveError() {
    CheckConnected();
    if (const std::optional<QuorinException> error = liveError.get())
        throw QuorinException(error->what(), error->GetCode(), error->GetLineNumber(), error->GetFileName(),
                              "PleoraDetector::CheckForLiveError", error->GetTransportError(),
                              std::string(error->GetTransportMessage()).substr(0, longestMessage).c_str());
}

void PleoraDetector::ReadBuffer(int buffer, void* target) {
    constexpr const char* here = "PleoraDetector::ReadBuffer";
    layer(here, [&] {
        CheckConnected();
        if (target == nullptr) fail("The frame needs a place to go to: the pointer is null!", DerrBadRequest, here);
        const CriticalSectionLock section(bufferSection);
        const platform::SharedLock gate(ringGate);
        if (buffer < 0 || buffer >= numBuffers) fail(bufferRangeText, DerrResources, "RAIIBuffer::GetBuffer", buffer);
        // A device that rounds its width up delivers more than the caller's memory holds. So does one whose binning
        // was changed by register, once a getter has read it: callers allocate what the getters report.
        std::int64_t bytes = std::min(payloadSize, frameSize);
        if (const std::optional<std::int64_t> reported = cachedFrameBytes()) bytes = std::min(bytes, *reported);
        checkPlane(target, bytes);
        copyFrame(target, ringBlock(buffer, bytes), bytes);
    });
}

void PleoraDetector::WriteBuffer(int buffer, const void* source, int size) {
    constexpr const char* here = "PleoraDetector::WriteBuffer";
    layer(here, [&] {
        CheckConnected();
        if (source == nullptr) fail("There is no frame to write: the pointer is null!", DerrBadRequest, here);
        const CriticalSectionLock section(bufferSection);
        if (buffer < 0 || buffer >= numBuffers) fail(bufferRangeText, DerrResources, here, buffer);
        const std::int64_t rowBytes = bufferXdim();
        if (size != rowBytes * bufferYdim())
            fail("Size of input buffer must match size of current image buffer!", DerrBadRequest, here, size);
        const platform::SharedLock gate(ringGate);
        copyFrame(ringBlock(buffer, size), source, size);
    });
}
