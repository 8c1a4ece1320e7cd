#include <array>
#include <chrono>
#include <string>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "platform/Clock.h"

/// The part of a power switch that does not depend on the transport. It follows the transport's part.

namespace {

constexpr const char* here = "baseDetector::PowerSwitch";
constexpr std::chrono::milliseconds settle{2000};

}  // namespace

void baseDetector::SoftReset() {
    layer("baseDetector::SoftReset", [&] {
        PowerSwitch(false);
        PowerSwitch(true);
    });
}

void baseDetector::PowerSwitch(bool on) {
    platform::sleepFor(settle);
    if (on)
        settleAfterPowerOn();
    else
        settleAfterPowerOff();
    platform::sleepFor(settle);
}

void baseDetector::settleAfterPowerOff() {
    if (IsKestrane()) sendUntilAnswered("RV", "Detector was not responsive after switching to low power.", here);
}

void baseDetector::settleAfterPowerOn() {
    if (IsKestrane() && PollReadoutTimeRegister() == 0)
        fail("Detector was not responsive after power-on.", DerrTransport, here);
    WaitUntilFlashReady();
    forgetSettings();
    UpdateInterfaceImageSize();
    UpdateReadoutTime();
    InitializeExposureTime();
}

void baseDetector::forgetSettings() {
    fullWellMode.reset();
    testMode.reset();
    binningMode.reset();
    exposureMode.reset();
    triggerSource.reset();
    exposureTime.reset();
    numOfExposures.reset();
    readoutTime = -1.0F;
    minimumExposureWindow = 0.0F;
    sliceInterlacing = -1;
    cachedROIArea.reset();
    cachedROIEnabled.reset();
}

void baseDetector::sendPlain(const char* command) {
    std::array<char, serial::commandSize> text{};
    serial::copyText(text.data(), text.size(), command);
    SendCommand1(text.data());
}

void baseDetector::sendUntilAnswered(const char* command, const char* message, const char* function) {
    constexpr std::int64_t patienceMs = 5000;
    const std::int64_t start = platform::tickCountMs();
    for (;;) {
        try {
            SendCommand(std::string(command));
            return;
        } catch (const QuorinException&) {
            if (platform::tickCountMs() - start >= patienceMs) break;
        }
    }
    fail(message, DerrTransport, function);
}
