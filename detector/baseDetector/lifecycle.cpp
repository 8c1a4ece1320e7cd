#include <fmt/format.h>

#include <array>
#include <cstring>

#include "InternalUtils/Failure.h"
#include "detector/attempt.h"
#include "detector/baseDetector.h"
#include "detector/registers.h"
#include "detector/seams.h"
#include "platform/Clock.h"

baseDetector::baseDetector(QuorinDetector* ownerToName)
    : pleoraLib(makePleoraLib()),
      xclibLib(makeXclib()),
      owner(ownerToName),
      counterFrequency(platform::performanceFrequency()) {}

baseDetector::~baseDetector() {
    attempt("in a destructor", [this] { releaseCallbackThread(); });
}

camLinkDetector::camLinkDetector(int unitNumber, const char* text, QuorinDetector* ownerToName)
    : baseDetector(ownerToName) {
    std::strncpy(boardText.data(), text == nullptr ? "" : text, boardText.size() - 1);
    unit = unitNumber;
    transport = TransportCL;
}

camLinkDetector::~camLinkDetector() = default;

gigEDetector::gigEDetector(const char* text, QuorinDetector* ownerToName)
    : baseDetector(ownerToName), deviceAddress(text == nullptr ? "" : text) {
    transport = TransportGE;
}

gigEDetector::~gigEDetector() = default;

void baseDetector::SetOwner(QuorinDetector* newOwner) {
    owner = newOwner;
}

void baseDetector::OpenBoard() {
    openWith([this](char* text) { OpenBrd(text); }, true);
}

void baseDetector::OpenBoard(int bufferCount) {
    openWith([this, bufferCount](char* text) { OpenBrd(text, bufferCount); }, false);
}

void baseDetector::openWith(const std::function<void(char*)>& openTransport, bool pickTimings) {
    constexpr const char* here = "baseDetector::OpenBoard";
    layer(here, [&] {
        if (connected)
            fail(
                "The connection to the board is already open! Please close the connection before attempting to "
                "re-open!",
                DerrBadRequest, here);
        const RaisedFlag openingNow(opening);

        std::array<char, 50> text{};
        fmt::format_to_n(text.data(), text.size() - 1, "-DM 0x{}", unit);
        openTransport(text.data());
        frameCapturedEvent = CreateDetectorHandle();
        getSlowed();
        UpdateFeaturesFlags();
        // The transport may have read the frame size before the library knew whether the detector has flagged 4x4
        // binning, which looks like no binning until then.
        if (ignored4x4Flag.exchange(false) && QueryBinningMode(Bin4x4Flagged) == 1 && GetBinningMode() == Bin4x4Flagged)
            UpdateInterfaceImageSize();
        if (pickTimings) {
            const int firmware = GetFirmwareVersion();
            detectorTimings = createDetectorTimings(GetCachedModelNumber(), transport, firmware);
        }
        UpdateReadoutTime();
        InitializeExposureTime();
        connected = true;
    });
}

void baseDetector::CloseBoard() {
    constexpr const char* here = "baseDetector::CloseBoard";
    layer(here, [&] {
        if (!connected)
            fail("The connection to the board is not open! Cannot close connection that isn't open!", DerrBadRequest,
                 here);
        CloseBrd();
        commsOpen = false;
        connected = false;
        StopCallbackThread();
        callbackFunction = nullptr;
    });
}

bool baseDetector::IsConnected() const {
    return connected;
}

void baseDetector::CheckConnected() const {
    if (!connected && !opening)
        fail("OpenBoard must be called before doing any detector operations.", DerrTransport,
             "baseDetector::CheckConnected");
}

DetectorInterface baseDetector::GetTransportMethod() {
    CheckConnected();
    return transport;
}

void baseDetector::EnablePulseGenerator() {
    CheckConnected();
    const auto readoutSeconds = static_cast<float>(static_cast<double>(readoutTime.load()) * 0.001);
    EnablePulseGenerator(2.0F / readoutSeconds);
}

void baseDetector::ForceReconfiguration() {
    WriteRegister(registers::control, ReadRegister(registers::control, registers::firstSensor), registers::allSensors);
}
