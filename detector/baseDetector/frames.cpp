#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <new>
#include <vector>

#include "InternalUtils/Failure.h"
#include "QorImage.h"
#include "detector/baseDetector.h"
#include "logging.h"
#include "platform/Clock.h"
#include "platform/Event.h"

namespace {

constexpr int publicWaiter = 2;
constexpr double sharedFrameMs = 50.0;  ///< a frame is shared with the other kind of waiter for this long
constexpr double msPerSecond = 1000.0;
constexpr int bytesPerPixel = 2;
constexpr const char* timeoutText = "Image did not arrive within the timeout.";
constexpr const char* wrongDimensionsText = "Dimensions of image are not correct or supported!";

/// Requests the memory of all missing planes in one allocation: with a wrong plane number, planes allocated one by one
/// would use up the machine's memory before a request fails.
void checkRoomForPlanes(const QorImage& image, int plane) {
    if (plane <= image.GetImageDepth()) return;
    const auto missing = static_cast<std::size_t>(plane) + 1 - static_cast<std::size_t>(image.GetImageDepth());
    const auto pixels = static_cast<std::size_t>(image.GetImageXdim()) * static_cast<std::size_t>(image.GetImageYdim());
    try {
        std::vector<unsigned char> room;
        room.reserve(missing * pixels * bytesPerPixel);
        [[maybe_unused]] const unsigned char* volatile const kept = room.data();  // keeps the request in the program
    } catch (const std::exception&) {
        fail(noMemoryText, DerrResources, "baseDetector::ReadBuffer", plane);
    }
}

struct Plane {
    const void* address = nullptr;
    std::int64_t bytes = 0;
};

/// The plane that this thread's `ReadBuffer` fills.
thread_local Plane planeBeingRead;

class ReadingPlane {
public:
    ReadingPlane(const void* address, std::int64_t bytes) { planeBeingRead = {address, bytes}; }
    ~ReadingPlane() { planeBeingRead = {}; }
    ReadingPlane(const ReadingPlane&) = delete;
    ReadingPlane& operator=(const ReadingPlane&) = delete;
};

}  // namespace

void baseDetector::WaitImage(int timeoutMs) {
    layer("baseDetector::WaitImage", [&] { WaitImage(timeoutMs, publicWaiter); });
}

void baseDetector::WaitImage(int timeoutMs, int waiter) {
    constexpr const char* here = "baseDetector::WaitImage";
    layer(here, [&] {
        CheckConnected();
        // A stop that joins the callback thread must not wait for an application thread in an endless wait.
        if (!waitSection.lockUnlessStopped())
            fail(timeoutText, DerrAcquisition, here, static_cast<int>(platform::waitTimedOut));
        const StoppableGuard lock(waitSection, std::adopt_lock);
        const bool otherWaiterGotFrame = frameDelivered && waiter != lastWaiter;
        frameDelivered = false;
        lastWaiter = waiter;
        if (otherWaiterGotFrame) {
            const auto elapsedTicks = static_cast<double>(platform::performanceCounter() - lastFrameTime);
            if (elapsedTicks * msPerSecond / static_cast<double>(counterFrequency) < sharedFrameMs) return;
        }
        const std::uint32_t result = platform::waitForEvent(frameCapturedEvent, static_cast<std::uint32_t>(timeoutMs));
        if (result != platform::waitSignaled) {
            const std::string lastError = GetLastErrorText();  // before another call replaces it
            CheckForLiveError();
            if (result == platform::waitTimedOut)
                fail(timeoutText, DerrAcquisition, here, static_cast<int>(platform::waitTimedOut));
            if (result == platform::waitFailed)
                fail("Error while waiting for image: WAIT_FAILED: " + lastError, DerrAcquisition, here);
            fail(fmt::format("Error while waiting for image: {}", result), DerrAcquisition, here);
        }
        getQorLogger()->debug("FRAME_EVENT: Frame captured event was signaled");
        try {
            CheckForLiveError();
        } catch (const QuorinException& liveError) {
            getQorLogger()->warn("EXCEPTION: WaitImage: frame received, but there was a live error: {}",
                                 liveError.what());
        }
        getQorLogger()->info("WaitImage: frame received with field count {}", GetFieldCount());
        frameDelivered = true;
        lastFrameTime = platform::performanceCounter();
    });
}

void baseDetector::ReadBuffer(int buffer, QorImage& image, int plane) {
    constexpr const char* here = "baseDetector::ReadBuffer";
    constexpr int kestraneElectronics = 2;
    constexpr int otherElectronics = 1;
    layer(here, [&] {
        CheckConnected();
        if (image.GetImageModel() < 0 || image.GetImageBinning() == BinUnknown) {
            const bins imageBinning = GetCachedBinningMode();
            const int imageModel = GetCachedModelNumber();
            image.SetImageParameters(imageBinning, imageModel, GetCachedSliceInterlacing() != 0, 1, false, 0, 0, 0, 0);
        }
        image.SetFloodCorrectedFlag(false);
        image.SetDarkCorrectedFlag(false);
        image.SetDefectCorrectedFlag(false);
        image.SetAveragedFlag(false);
        image.SetFixedFlag(false);
        image.SetLinearizedFlag(false);
        if (plane < 0) fail("The plane number must be 0 or greater!", DerrBadRequest, here, plane);

        const int model = GetCachedModelNumber();
        const bins binning = GetCachedBinningMode();
        const ROIArea region = GetCachedROIArea();
        const bool regionEnabled = GetCachedROIEnabled();
        const SensorDesc desc = GetSensorDesc(model, binning, regionEnabled, region);
        const bool interlaced = GetCachedSliceInterlacing() != 0;
        image.SetSortedFlag(!interlaced && desc.sensorsAcross == 1 && desc.sensorsDown == 1);
        const int width = GetBufferXdim();
        const int height = GetBufferYdim();
        if (image.IsEmpty()) {
            if (model == 8131 || model == 6318)
                image.Build(width, height, 1, PixelU16);
            else
                image.Build(model, binning, 1, PixelU16, IsKestrane() ? kestraneElectronics : otherElectronics,
                            interlaced, regionEnabled, region.GetStartColumn(), region.GetStartRow(), region.GetWidth(),
                            region.GetHeight());
        }
        if (image.GetImageXdim() != width || image.GetImageYdim() != height)
            fail(wrongDimensionsText, DerrBadRequest, here);
        checkRoomForPlanes(image, plane);
        while (image.GetImageDepth() <= plane) image.AddImage();
        void* const target = image.GetDataPointerToPlane(plane);
        const ReadingPlane reading(target, std::int64_t{width} * height * bytesPerPixel);
        ReadBuffer(buffer, target);
    });
}

void baseDetector::checkPlane(const void* target, std::int64_t frameBytes) {
    if (target == planeBeingRead.address && frameBytes > planeBeingRead.bytes)
        fail(wrongDimensionsText, DerrBadRequest, "baseDetector::ReadBuffer");
}

int baseDetector::GetNumBuffers() {
    CheckConnected();
    return numBuffers;
}

void baseDetector::ClearBuffers() {
    layer("baseDetector::ClearBuffers", [&] {
        CheckConnected();
        for (int buffer = 0; buffer < numBuffers; ++buffer) ClearCameraBuffer(buffer);
    });
}

void baseDetector::ClearCameraBuffer(int buffer) {
    constexpr const char* here = "baseDetector::ClearCameraBuffer";
    layer(here, [&] {
        CheckConnected();
        if (buffer < 0 || buffer >= numBuffers) fail(bufferRangeText, DerrBadRequest, here, buffer);
        const std::int64_t rowBytes = bufferXdim();
        const std::int64_t size = rowBytes * bufferYdim();
        std::vector<unsigned char> zeros;
        try {
            zeros.resize(static_cast<std::size_t>(size));
        } catch (const std::exception&) {
            fail(noMemoryText, DerrResources, here);
        }
        WriteBuffer(buffer, zeros.data(), static_cast<int>(size));
    });
}

void baseDetector::GoLiveSeq(int startBuffer, int stopBuffer, int /*frameCount*/) {
    constexpr const char* here = "baseDetector::GoLiveSeq";
    const StoppableGuard lock(acquisitionLock);
    if (IsLive())
        fail("Live thread already active! Please exit live mode before trying to enter again!", DerrBadRequest, here);
    if (stopBuffer < startBuffer)
        fail("The stop parameter cannot be greater than the start parameter!", DerrBadRequest, here);
}

void baseDetector::breakup(std::uint16_t* high, std::uint16_t* low, std::int32_t value) {
    constexpr unsigned halfBits = 16;
    const auto bits = static_cast<std::uint32_t>(value);
    *high = static_cast<std::uint16_t>(bits >> halfBits);
    *low = static_cast<std::uint16_t>(bits);
}

std::uint32_t baseDetector::stitch(std::uint16_t high, std::uint16_t low) {
    constexpr unsigned halfBits = 16;
    return (static_cast<std::uint32_t>(high) << halfBits) | low;
}
