#include <algorithm>
#include <cstring>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "detector/attempt.h"
#include "detector/baseDetector/serialProtocol.h"
#include "platform/Event.h"

namespace {

constexpr int localRingFrames = 20;          ///< until `OpenBoard(int)` asks for another number
constexpr std::uint32_t pipelineDepth = 20;  ///< whatever the size of the local ring
constexpr std::int64_t streamTimeoutMs = 180000;
constexpr std::int64_t pixelFormatMono14 = 0x1100025;
constexpr const char* openProblem = "Problem Opening Connection to Detector!";
constexpr const char* configureProblem = "Problem Configuring Detector!";
constexpr const char* closeProblem = "Problem Closing Connection to Detector!";

}  // namespace

PleoraDetector::PleoraDetector(const char* address, QuorinDetector* ownerToName) : gigEDetector(address, ownerToName) {
    std::strncpy(boardText.data(), deviceAddress.c_str(), boardText.size() - 1);
    numBuffers = localRingFrames;
}

PleoraDetector::~PleoraDetector() {
    constexpr const char* here = "in a destructor";
    // A callback destroys its detector: detach its thread before anything can wait for it.
    if (callbackLoop->onThisThread()) attempt(here, [this] { releaseCallbackThread(); });
    attempt(here, [this] {
        if (connected) PleoraDetector::CloseBrd();
    });
    attempt(here, [this] { releaseCallbackThread(); });
    // Left by a failed open or close. `PleoraLib` destroys the eBUS objects.
    endLiveThread();
    if (handleOpen) platform::closeEvent(frameCapturedEvent);
}

void PleoraDetector::OpenBrd(char* text, int bufferCount) {
    constexpr const char* here = "PleoraDetector::OpenBrd";
    layer(here, [&] {
        if (bufferCount < 1)
            fail("Requested number of buffers is invalid! Number of buffers must be a positive integer value.",
                 DerrBadRequest, here, bufferCount);
        numBuffers = bufferCount;
        OpenBrd(text);
    });
}

void PleoraDetector::OpenBrd(char* /*text*/) {
    layer("PleoraDetector::OpenBrd", [&] {
        if (broughtUp && !connected) releaseConnection();  // left by an open that failed
        try {
            bringUp();
        } catch (const QuorinException&) {
            releaseConnection();
            throw;
        }
    });
}

void PleoraDetector::bringUp() {
    constexpr const char* here = "PleoraDetector::OpenBrd";
    const auto required = [&](const PvResult& result, const char* message, int line = __builtin_LINE()) {
        expect(Test::IsOK, result, message, here, DerrTransport, line, __FILE__);
    };
    pleoraLib->init();
    broughtUp = true;
    required(pleoraLib->Dev_Connect(deviceAddress.c_str()), openProblem);
    required(pleoraLib->Stream_Open(deviceAddress.c_str()), openProblem);
    required(pleoraLib->Dev_NegotiatePacketSize(), configureProblem);
    const std::uint16_t port = pleoraLib->Stream_GetLocalPort();
    const PvString localAddress = pleoraLib->Stream_GetLocalIPAddress();
    required(pleoraLib->Dev_SetStreamDestination(localAddress, port), configureProblem);
    for (const char* timeout : {"RequestTimeout", "FirstPacketTimeout", "InterPacketTimeout"})
        required(pleoraLib->Stream_SetIntegerValue(timeout, streamTimeoutMs), configureProblem);
    SerialConfigure(serial::baud, serial::dataBits, serial::noParity, serial::stopBits);
    required(pleoraLib->Dev_SetEnumValue("PixelFormat", pixelFormatMono14), configureProblem);
    required(pleoraLib->IP_Open(PvDeviceSerial0), "Problem Openning Serial connection to detector!");
    std::int64_t payload = 0;
    required(pleoraLib->Dev_GetIntegerValue("PayloadSize", payload), configureProblem);
    buildRing(payload);
    pleoraLib->Pipeline_SetBufferSize(static_cast<std::uint32_t>(payload));
    required(pleoraLib->Pipeline_SetBufferCount(pipelineDepth), "Problem with setting up the buffer!");
    ConfigurePLC();
    required(pleoraLib->Dev_SetEnumValue("TestImageSelector", PvString("Off")), configureProblem);
    openComms();
    updateImageParams();
    required(pleoraLib->Pipeline_Start(), "Problem starting pipeline!");
}

void PleoraDetector::buildRing(std::int64_t blockBytes) {
    const platform::ExclusiveLock gate(ringGate);
    ++ringGeneration;
    frameSize = pipelineSize = 0;  // nothing may be copied until the sizes are known
    frameBuffers.reset();
    frameBuffers = std::make_shared<RAIIBuffer>(numBuffers, blockBytesFor(blockBytes));
}

void PleoraDetector::releaseConnection() {
    // Results do not matter: `deinit` destroys the eBUS objects in any case.
    attempt("while a connection was released", [this] {
        pleoraLib->IP_Close();
        pleoraLib->Stream_Close();
        pleoraLib->Dev_Disconnect();
    });
    frameHeld = broughtUp = false;  // destroyed with the eBUS objects
    pleoraLib->deinit();
}

void* PleoraDetector::CreateDetectorHandle() {
    CheckConnected();
    if (handleOpen)
        fail("Detector handle is already open. Please close before trying to re-open it!", DerrTransport,
             "PleoraDetector::CreateDetectorHandle");
    frameCapturedEvent = platform::createAutoResetEvent();
    handleOpen = true;
    return frameCapturedEvent;
}

int PleoraDetector::CloseDetectorHandle() {
    CheckConnected();
    if (!handleOpen) fail("Detector handle is not open", DerrTransport, "PleoraDetector::CloseDetectorHandle");
    const int result = platform::closeEvent(frameCapturedEvent);
    handleOpen = false;
    return result;
}

void PleoraDetector::CloseBrd() {
    constexpr const char* here = "PleoraDetector::CloseBrd";
    if (!connected) return;
    const auto closed = [&](const PvResult& result, int line = __builtin_LINE()) {
        expect(Test::NotFailure, result, closeProblem, here, DerrTransport, line, __FILE__);
    };
    const StoppableGuard lock(acquisitionLock);
    if (IsLive()) GoUnLive();
    joinLiveThread();
    // A callback thread whose run has ended may still be in its last callback, which may make this call.
    if (!callbackLoop->onThisThread()) StopCallbackThread();
    if (broughtUp) {
        disableGeneratorForClose();
        if (pleoraLib->IP_IsOpened()) closed(pleoraLib->IP_Close());
        if (pleoraLib->Pipeline_IsStarted()) closed(pleoraLib->Pipeline_Stop());
        if (pleoraLib->Stream_IsOpen()) closed(pleoraLib->Stream_Close());
        if (pleoraLib->Dev_IsConnected()) closed(pleoraLib->Dev_Disconnect());
    }
    commsOpen = false;
    if (handleOpen) CloseDetectorHandle();
    frameHeld = broughtUp = false;  // destroyed with the eBUS objects
    pleoraLib->deinit();
}

/// A device that no longer answers must not keep the board from being closed; the next open restores its wiring.
void PleoraDetector::disableGeneratorForClose() {
    if (!pulseGeneratorEnabled) return;
    try {
        DisablePulseGenerator();
    } catch (const QuorinException&) {
        if (pleoraLib->Dev_IsConnected()) throw;
        logSwallowed("while the pulse generator of a device that is gone was disabled");
        softwareTriggerEnabled = true;
        pulseGeneratorEnabled = false;
    }
}

void PleoraDetector::SetPersistentIPAddress(int first, int second, int third, int fourth) {
    constexpr const char* here = "PleoraDetector::SetPersistentIPAddress";
    constexpr const char* message = "Problem setting persistent IP Address!";
    constexpr int highestByte = 255;
    constexpr unsigned byteBits = 8;
    layer(here, [&] {
        CheckConnected();
        std::int64_t address = 0;
        for (const int byte : {first, second, third, fourth}) {
            if (byte < 0 || byte > highestByte)
                fail("The desired IP Address is invalid! Each byte parameter must be an integer between 0-255!",
                     DerrBadRequest, here);
            address = (address << byteBits) | byte;
        }
        expect(Test::IsOK, pleoraLib->Dev_SetBooleanValue("GevCurrentIPConfigurationPersistentIP", true), message,
               here);
        expect(Test::IsOK, pleoraLib->Dev_SetIntegerValue("GevPersistentIPAddress", address), message, here);
        CloseBrd();
        OpenBrd(boardText.data());
    });
}
