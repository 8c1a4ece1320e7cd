#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"

namespace {

constexpr int bytesPerPixel = 2;
constexpr const char* sizeProblem = "Failed to configure Pleora interface: Problem updating image parameters";

}  // namespace

const std::int32_t PleoraDetector::MAX_DATA_RATE;

std::int64_t PleoraDetector::readFeature(const char* feature, const char* message, const char* function) {
    std::int64_t value = 0;
    expect(Test::NotFailure, pleoraLib->Dev_GetIntegerValue(feature, value), message, function);
    return value;
}

void PleoraDetector::updateImageParams() {
    constexpr const char* here = "PleoraDetector::updateImageParams";
    const StoppableGuard lock(acquisitionLock);
    if (IsLive()) StopAcq();
    const bool wasStarted = pleoraLib->Pipeline_IsStarted();
    if (wasStarted) pleoraLib->Pipeline_Stop();

    const int askedWidth = GetBufferXdim();
    expect(Test::NotFailure, pleoraLib->Dev_SetIntegerValue("Width", askedWidth), sizeProblem, here);
    const int askedHeight = GetBufferYdim();
    expect(Test::NotFailure, pleoraLib->Dev_SetIntegerValue("Height", askedHeight), sizeProblem, here);
    // The device may have rounded: from here on its values count.
    const std::int64_t width = readFeature("Width", sizeProblem, here);
    const std::int64_t height = readFeature("Height", sizeProblem, here);
    const std::int64_t payload = readFeature("PayloadSize", sizeProblem, here);
    {
        const platform::ExclusiveLock gate(ringGate);
        ++ringGeneration;
        imageWidth = width;
        imageHeight = height;
        payloadSize = payload;
        frameSize = static_cast<std::int64_t>(askedWidth) * askedHeight * bytesPerPixel;
        frameBuffers->ReAlloc(static_cast<std::int32_t>(payload));
    }
    pleoraLib->Pipeline_SetBufferSize(static_cast<std::uint32_t>(payload));
    if (IsLive()) StartAcq();
    if (wasStarted) pleoraLib->Pipeline_Start();
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
