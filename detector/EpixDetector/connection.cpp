#include <xcliball.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>

#include "InternalUtils/Failure.h"
#include "detector/EpixDetector.h"
#include "detector/EpixDetector/VideoFormat.h"
#include "detector/attempt.h"
#include "platform/Clock.h"

/// The connection: library state, board, video format, serial port and trigger line.

namespace {

constexpr int bytesPerPixel = 2;
constexpr int serialPort = 0;
constexpr int capturedFieldEvent = 115;
constexpr const char* buffersProblem = "Problem reading number of buffers!";
constexpr const char* memoryProblem =
    "Frame Grabber does not have sufficient amount of memory allocated for the requested number of buffers!";

/// Pixels that the model puts on the link with each clock.
int getTaps(int model) {
    struct Taps {
        int model;
        int count;
    };
    constexpr std::array<Taps, 6> table{{{5101, 2}, {5309, 2}, {6112, 4}, {6213, 4}, {7127, 8}, {8131, 8}}};
    for (const Taps& row : table)
        if (row.model == model) return row.count;
    fail("CameraLink taps for this model are unknown", DerrBadRequest, "`anonymous-namespace'::getTaps");
}

int maskOfUnits(int units) {
    constexpr int most = std::numeric_limits<unsigned>::digits;
    if (units >= most) return -1;
    return static_cast<int>((1U << std::max(units, 0)) - 1);
}

/// The grabber library has no call for a format in memory: the load goes through a function of its service object.
int loadIntoGrabber(pxdstate* state, const void* root) {
    using Load = int (*)(void*, int, int, const void*);
    constexpr std::size_t loadOffset = 996;
    constexpr std::size_t loadAddend = 924;
    constexpr int loadKind = 0x7A00;
    constexpr int noService = -1;
    void* const service = pxe_xclibEscape(state, 0, 0, 0);
    if (service == nullptr) return noService;
    auto* const bytes = static_cast<unsigned char*>(service);
    Load load = nullptr;
    std::memcpy(&load, bytes + loadOffset, sizeof(load));
    const int loaded = load(bytes + loadAddend, 0, loadKind, root);
    return std::min(loaded, pxe_xclibEscaped(state, 0, 0, 0));
}

}  // namespace

EpixDetector::EpixDetector(int unitNumber, const char* text, QuorinDetector* ownerToName)
    : camLinkDetector(unitNumber, text, ownerToName), xcState(xclibLib->XCLIBinstantiate()) {}

EpixDetector::~EpixDetector() {
    constexpr const char* here = "in a destructor";
    // A callback destroys its detector: detach its thread before anything can wait for it.
    if (callbackLoop->onThisThread()) attempt(here, [this] { releaseCallbackThread(); });
    if (connected) {
        const StoppableGuard lock(acquisitionLock);
        tearDown([](const auto& step) { attempt(here, step); });
    }
    attempt(here, [this] { releaseCallbackThread(); });
    attempt(here, [this] { xclibLib->XCLIBuninstantiate(xcState); });
}

void EpixDetector::OpenBrd(char* text, int bufferCount) {
    constexpr const char* here = "EpixDetector::OpenBrd";
    layer(here, [&] {
        if (bufferCount < 1)
            fail("Requested number of buffers is invalid! Number of buffers must be a positive integer value.",
                 DerrBadRequest, here, bufferCount);
        numBuffers = bufferCount;
        buffersFixed = true;
        connect(text);
        const int available = expectCount(xclibLib->imageZdims(xcState, unitMap), buffersProblem, here);
        if (available < bufferCount) failWith(available, memoryProblem, here, DerrResources);
    });
}

void EpixDetector::OpenBrd(char* text) {
    layer("EpixDetector::OpenBrd", [&] {
        buffersFixed = false;
        connect(text);
    });
}

void EpixDetector::connect(const char* text) {
    constexpr const char* here = "EpixDetector::OpenBrd";
    const VideoFormat format(VideoFormat::Variant::Standard);
    if (xcState == nullptr) xcState = xclibLib->XCLIBinstantiate();  // the constructor got none
    expectZero(xclibLib->PIXCIopen(xcState, text, "", ""), "Problem Opening Connection to Detector!", here,
               DerrGrabberSetup);
    connected = true;
    loadFormat(format, here);
    reconfigureFG();
}

void EpixDetector::loadFormat(const VideoFormat& format, const char* function) {
    pxe_goAbortLive(xcState, maskOfUnits(pxe_infoUnits(xcState)));
    const int result = loadIntoGrabber(xcState, format.root());
    if (result < 0) failWith(result, "Problem Loading FMT file!", function);
}

void EpixDetector::reconfigureFG() {
    constexpr const char* here = "EpixDetector::reconfigureFG";
    constexpr int bitsPerByte = 8;
    layer(here, [&] {
        const int taps = getTaps(GetCachedModelNumber());
        expectZero(xclibLib->setPixelFormatGrey(xcState, unitMap, bitsPerByte, 0, 0, taps, 0, 0),
                   "Problem Reconfiguring Frame Grabber Tap Count!", here, DerrGrabberSetup);
        const SensorDesc desc = GetSensorDesc();
        expectZero(
            xclibLib->setVideoResolution(xcState, unitMap, desc.frameWidth * bytesPerPixel, desc.frameHeight, 0, 0),
            "Problem Setting Frame-Grabber Video Resolution!", here, DerrGrabberSetup);
        const int available = expectCount(xclibLib->imageZdims(xcState, unitMap), buffersProblem, here);
        if (!buffersFixed)
            numBuffers = available;
        else if (available < numBuffers)
            failWith(available, memoryProblem, here, DerrResources);
    });
}

void EpixDetector::PrepareInterfaceForImageSizeChange() {
    // Nothing to do: the grabber accepts a new size at any time.
}

void EpixDetector::UpdateInterfaceImageSize() {
    reconfigureFG();
}

template <class RunStep>
void EpixDetector::tearDown(RunStep&& runStep) {
    runStep([this] {
        if (pulseGeneratorEnabled) DisablePulseGenerator();
    });
    runStep([this] {
        if (IsLive()) GoUnLive();
    });
    // After a run that ended without `GoUnLive` the callback thread may still wait for the event, or make this call.
    runStep([this] {
        if (!callbackLoop->onThisThread()) StopCallbackThread();
    });
    commsOpen = false;
    runStep([this] {
        if (handleOpen) CloseDetectorHandle();
    });
    runStep([this] {
        expectZero(xclibLib->PIXCIclose(xcState), "Problem Closing Connection to Detector!", "EpixDetector::CloseBrd");
    });
}

void EpixDetector::CloseBrd() {
    if (!connected) return;
    const StoppableGuard lock(acquisitionLock);
    tearDown([](const auto& step) { step(); });
}

void* EpixDetector::CreateDetectorHandle() {
    constexpr const char* here = "EpixDetector::CreateDetectorHandle";
    if (handleOpen)
        fail("Detector handle is already open. Please close before trying to re-open it!", DerrTransport, here);
    frameCapturedEvent = xclibLib->eventCapturedFieldCreate2(xcState, unitMap, capturedFieldEvent);
    if (frameCapturedEvent == nullptr) failWith(0, "Problem creating handle to detector!", here);
    handleOpen = true;
    return frameCapturedEvent;
}

int EpixDetector::CloseDetectorHandle() {
    if (!handleOpen) fail("Detector handle is not open", DerrTransport, "EpixDetector::CloseDetectorHandle");
    xclibLib->eventCapturedFieldClose(xcState, unitMap, frameCapturedEvent);
    handleOpen = false;
    return 0;
}

void EpixDetector::SerialConfigure(double baud, int dataBits, int parity, int stopBits) {
    expectZero(xclibLib->serialConfigure(xcState, unitMap, serialPort, baud, dataBits, parity, stopBits, 0, 0, 0),
               "Problem Configuring Detector Serial Interface!", "EpixDetector::SerialConfigure");
}

/// Relaxed, since `serialLock` orders the accesses.
void EpixDetector::setReplyPending(bool pending) {
    replyPending.store(pending, std::memory_order_relaxed);
}

int EpixDetector::SerialRead(char* buffer, int capacity) {
    CheckConnected();
    setReplyPending(true);
    const int count = expectCount(xclibLib->serialRead(xcState, unitMap, serialPort, buffer, capacity),
                                  "Problem performing serial read!", "EpixDetector::SerialRead");
    setReplyPending(false);
    return count;
}

/// After a failed read or write a late reply may be on the line: the next command must not take it for its own.
void EpixDetector::discardPendingReply() {
    constexpr int longestReply = 100;
    constexpr int mostReads = 10;  // a line that never stops sending must not block the caller
    if (!replyPending.load(std::memory_order_relaxed)) return;
    setReplyPending(false);
    std::array<char, longestReply> dropped{};
    int count = longestReply;
    for (int reads = 0; reads < mostReads && count > 0; ++reads)
        count = xclibLib->serialRead(xcState, unitMap, serialPort, dropped.data(), longestReply);
    if (count < 0) setReplyPending(true);
}

int EpixDetector::SerialWrite(char* buffer, int size) {
    CheckConnected();
    discardPendingReply();
    setReplyPending(true);  // a write that fails may still have sent the command
    const int count = expectCount(xclibLib->serialWrite(xcState, unitMap, serialPort, buffer, size),
                                  "Problem performing serial write!", "EpixDetector::SerialWrite");
    setReplyPending(false);
    return count;
}

void EpixDetector::SoftwareTrigger() {
    constexpr std::chrono::milliseconds pulseWidth{1};
    CheckConnected();
    const auto setLine = [this](int level) {
        expectZero(xclibLib->setCameraLinkCCOut(xcState, unitMap, level), "Problem Sending Software Trigger!",
                   "EpixDetector::SoftwareTrigger");
    };
    setLine(1);
    platform::sleepFor(pulseWidth);
    setLine(0);
}

int EpixDetector::bufferXdim() {
    CheckConnected();
    return expectCount(xclibLib->imageXdims(xcState, unitMap), "Problem reading buffer width!",
                       "EpixDetector::bufferXdim");
}

int EpixDetector::bufferYdim() {
    CheckConnected();
    return expectCount(xclibLib->imageYdims(xcState, unitMap), "Problem reading buffer height!",
                       "EpixDetector::bufferYdim");
}

float EpixDetector::TransportMinimumExposureTime() {
    return 0.0F;
}
