#include <chrono>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "platform/Clock.h"

/// Power commands, sent over the serial channel.

namespace {

constexpr const char* powerOn = "WP1";
constexpr const char* powerOff = "WP0";

}  // namespace

void PleoraDetector::PowerSwitch(bool on) {
    layer("PleoraDetector::PowerSwitch", [&] {
        CheckConnected();
        if (IsKestrane())
            PowerSwitchKestrane(on);
        else
            PowerSwitchDefault(on);
        baseDetector::PowerSwitch(on);
    });
}

void PleoraDetector::PowerSwitchDefault(bool on) {
    constexpr std::chrono::milliseconds settle{500};
    sendPlain(on ? powerOn : powerOff);
    platform::sleepFor(settle);
}

void PleoraDetector::PowerSwitchKestrane(bool on) {
    if (on) {
        SendCommandWithoutFlashStatusCheck(powerOn, serial::kestranePollDelayMs);
        sendUntilAnswered("R1124", "Detector was not responsive after power-on.",
                          "PleoraDetector::PowerSwitchKestrane");
    } else {
        WaitUntilFlashReady();  // so that no flash operation is cut off
        SendCommandWithoutFlashStatusCheck(powerOff, serial::kestranePollDelayMs);
    }
}
