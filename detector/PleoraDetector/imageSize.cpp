#include <algorithm>
#include <chrono>
#include <limits>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "platform/Clock.h"

namespace {

constexpr int bytesPerPixel = 2;
constexpr const char* sizeProblem = "Failed to configure Pleora interface: Problem updating image parameters";

}  // namespace

const std::int32_t PleoraDetector::MAX_DATA_RATE;

std::int32_t PleoraDetector::blockBytesFor(std::int64_t payload) {
    constexpr std::int32_t refused = -1;  // what no block can have is short of memory, and is told as that
    return payload > std::numeric_limits<std::int32_t>::max()
               ? refused
               : static_cast<std::int32_t>(std::max<std::int64_t>(payload, refused));
}

std::int64_t PleoraDetector::readFeature(const char* feature, const char* message, const char* function) {
    std::int64_t value = 0;
    expect(Test::NotFailure, pleoraLib->Dev_GetIntegerValue(feature, value), message, function);
    return value;
}

void PleoraDetector::updateImageParams() {
    constexpr const char* here = "PleoraDetector::updateImageParams";
    const StoppableGuard lock(acquisitionLock);
    if (IsLive()) StopAcq();
    if (pleoraLib->Pipeline_IsStarted()) {
        pipelineStopped = true;
        pleoraLib->Pipeline_Stop();
    }

    const int askedWidth = GetBufferXdim();
    expect(Test::NotFailure, pleoraLib->Dev_SetIntegerValue("Width", askedWidth), sizeProblem, here);
    const int askedHeight = GetBufferYdim();
    expect(Test::NotFailure, pleoraLib->Dev_SetIntegerValue("Height", askedHeight), sizeProblem, here);
    // The device may have rounded: from here on its values count.
    const std::int64_t width = readFeature("Width", sizeProblem, here);
    const std::int64_t height = readFeature("Height", sizeProblem, here);
    const std::int64_t payload = readFeature("PayloadSize", sizeProblem, here);
    std::uint64_t generation = 0;
    {
        const platform::ExclusiveLock gate(ringGate);
        generation = ++ringGeneration;
        imageWidth = width;
        imageHeight = height;
        payloadSize = payload;
        frameSize = static_cast<std::int64_t>(askedWidth) * askedHeight * bytesPerPixel;
        frameBuffers->ReAlloc(blockBytesFor(payload));
    }
    pleoraLib->Pipeline_SetBufferSize(static_cast<std::uint32_t>(payload));
    letLiveThreadSeeNewSize(generation);
    if (IsLive()) StartAcq();
    if (pipelineStopped && pleoraLib->Pipeline_Start().IsOK()) pipelineStopped = false;
}

/// The live thread can't tell of which size a frame is that comes while it waits since before the change, and drops it:
/// so none may come until it has begun a new wait.
void PleoraDetector::letLiveThreadSeeNewSize(std::uint64_t generation) {
    constexpr std::chrono::milliseconds pause{1};
    constexpr std::chrono::milliseconds patience{1000};  // ten times what one wait of the live thread takes
    const platform::Time deadline = platform::now() + patience;
    while (awaitedGeneration < generation && platform::now() < deadline) platform::sleepFor(pause);
}

void PleoraDetector::PrepareInterfaceForImageSizeChange() {
    const StoppableGuard lock(acquisitionLock);
    sizeChangeOpen = true;
    if (IsLive()) StopAcq();
}

void PleoraDetector::UpdateInterfaceImageSize() {
    const StoppableGuard lock(acquisitionLock);
    updateImageParams();
    sizeChangeOpen = false;
    if (IsLive()) StartAcq();
}

void PleoraDetector::catchUpOnImageSize() {
    if (sizeChangeOpen) UpdateInterfaceImageSize();
    startPipelineAgain();
}

/// A start that failed behind a change of size was not reported there: no frame would come, and nobody be told.
void PleoraDetector::startPipelineAgain() {
    if (!pipelineStopped) return;
    const StoppableGuard lock(acquisitionLock);
    if (!pipelineStopped) return;
    if (!pleoraLib->Pipeline_IsStarted())
        expect(Test::IsOK, pleoraLib->Pipeline_Start(), "Problem starting pipeline!",
               "PleoraDetector::startPipelineAgain");
    pipelineStopped = false;
}

int PleoraDetector::bufferXdim() {
    CheckConnected();
    return static_cast<int>(readFeature("Width", "Problem reading buffer width!", "PleoraDetector::bufferXdim") *
                            bytesPerPixel);
}

int PleoraDetector::bufferYdim() {
    CheckConnected();
    return static_cast<int>(readFeature("Height", "Problem reading buffer height!", "PleoraDetector::bufferYdim"));
}

float PleoraDetector::TransportMinimumExposureTime() {
    constexpr unsigned log2BitsPerPixel = 4;
    constexpr float msPerSecond = 1000.0F;
    const int pixels = GetBufferYdim() * GetBufferXdim();
    return static_cast<float>(pixels << log2BitsPerPixel) / static_cast<float>(MAX_DATA_RATE) * msPerSecond;
}
