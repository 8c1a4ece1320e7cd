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
    constexpr std::int32_t refused = -1;  // `RAIIBuffer` reports a size that no block can have as a lack of memory
    return payload > std::numeric_limits<std::int32_t>::max()
               ? refused
               : static_cast<std::int32_t>(std::max<std::int64_t>(payload, refused));
}

void PleoraDetector::readFeature(const char* feature, std::int64_t& value, const char* message, const char* function) {
    expect(Test::NotFailure, pleoraLib->Dev_GetIntegerValue(feature, value), message, function);
}

void PleoraDetector::updateImageParams() {
    constexpr const char* here = "PleoraDetector::updateImageParams";
    const StoppableGuard lock(acquisitionLock);
    if (IsLive()) StopAcq();
    const bool wasStarted = pleoraLib->Pipeline_IsStarted();
    const bool takesNewSize = !wasStarted || pleoraLib->Pipeline_Stop().IsOK();

    const int askedWidth = GetBufferXdim();
    expect(Test::NotFailure, pleoraLib->Dev_SetIntegerValue("Width", askedWidth), sizeProblem, here);
    const int askedHeight = GetBufferYdim();
    expect(Test::NotFailure, pleoraLib->Dev_SetIntegerValue("Height", askedHeight), sizeProblem, here);
    // The device may have rounded: use its values from here on.
    readFeature("Width", imageWidth, sizeProblem, here);
    readFeature("Height", imageHeight, sizeProblem, here);
    std::int64_t payload = currentPayload();
    readFeature("PayloadSize", payload, sizeProblem, here);
    std::uint64_t generation = 0;
    {
        const platform::ExclusiveLock gate(ringGate);
        generation = ++ringGeneration;
        // The pipeline allocates its buffers when it starts: one that cannot be stopped keeps the old ones.
        pipelineSize = takesNewSize ? payload : std::min(pipelineSize, payload);
        payloadSize = payload;
        frameSize = static_cast<std::int64_t>(askedWidth) * askedHeight * bytesPerPixel;
        frameBuffers->ReAlloc(blockBytesFor(payload));
    }
    pleoraLib->Pipeline_SetBufferSize(static_cast<std::uint32_t>(payload));
    waitUntilLiveThreadSees(generation);
    if (IsLive()) StartAcq();
    if (wasStarted) pleoraLib->Pipeline_Start();
}

/// The live thread drops a frame that arrives in a wait that began before the change, since its size is unknown. So no
/// frame may arrive until that thread has begun a new wait.
void PleoraDetector::waitUntilLiveThreadSees(std::uint64_t generation) {
    constexpr std::chrono::milliseconds pause{1};
    constexpr std::chrono::milliseconds patience{1000};  // ten times a wait of the live thread
    const platform::Time deadline = platform::now() + patience;
    while (awaitedGeneration < generation && platform::now() < deadline) platform::sleepFor(pause);
}

void PleoraDetector::PrepareInterfaceForImageSizeChange() {
    const StoppableGuard lock(acquisitionLock);
    if (IsLive()) StopAcq();
}

void PleoraDetector::UpdateInterfaceImageSize() {
    const StoppableGuard lock(acquisitionLock);
    updateImageParams();
    if (IsLive()) StartAcq();
}

int PleoraDetector::bufferXdim() {
    CheckConnected();
    std::int64_t width = 0;
    readFeature("Width", width, "Problem reading buffer width!", "PleoraDetector::bufferXdim");
    return static_cast<int>(width * bytesPerPixel);
}

int PleoraDetector::bufferYdim() {
    CheckConnected();
    std::int64_t height = 0;
    readFeature("Height", height, "Problem reading buffer height!", "PleoraDetector::bufferYdim");
    return static_cast<int>(height);
}

float PleoraDetector::TransportMinimumExposureTime() {
    constexpr unsigned log2BitsPerPixel = 4;
    constexpr float msPerSecond = 1000.0F;
    const int pixels = GetBufferYdim() * GetBufferXdim();
    return static_cast<float>(pixels << log2BitsPerPixel) / static_cast<float>(MAX_DATA_RATE) * msPerSecond;
}
