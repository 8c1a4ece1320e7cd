#include <chrono>

#include "InternalUtils/Failure.h"
#include "detector/EpixDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "platform/Clock.h"

/// Power of panel and Camera Link interface, over the serial channel.

namespace {

constexpr const char* panelOn = "WP1";
constexpr const char* panelOff = "WP0";
constexpr const char* interfaceOn = "WC1";
constexpr const char* interfaceOff = "WC0";

}  // namespace

void EpixDetector::PowerCLInterface(bool on) {
    CheckConnected();
    sendPlain(on ? interfaceOn : interfaceOff);
}

void EpixDetector::PowerSwitch(bool on) {
    layer("EpixDetector::PowerSwitch", [&] {
        CheckConnected();
        if (IsKestrane())
            PowerSwitchKestrane(on);
        else
            PowerSwitchDefault(on);
        baseDetector::PowerSwitch(on);
    });
}

void EpixDetector::PowerSwitchDefault(bool on) {
    using std::chrono::milliseconds;
    constexpr milliseconds panelSettle{500};
    constexpr milliseconds interfaceSettle{200};
    layer("EpixDetector::PowerSwitchDefault", [&] {
        if (on) {
            try {
                sendPlain(panelOn);
            } catch (const QuorinException&) {
                // A panel that is only now getting its power need not answer.
            }
            platform::sleepFor(panelSettle);
            sendPlain(interfaceOn);
        } else {
            sendPlain(interfaceOff);
            platform::sleepFor(interfaceSettle);
            sendPlain(panelOff);
            platform::sleepFor(panelSettle);
        }
    });
}

void EpixDetector::PowerSwitchKestrane(bool on) {
    constexpr const char* here = "EpixDetector::PowerSwitchKestrane";
    const auto send = [this](const char* command) {
        SendCommandWithoutFlashStatusCheck(command, serial::kestranePollDelayMs);
    };
    layer(here, [&] {
        if (on) {
            send(panelOn);
            sendUntilAnswered("R1124", "Detector was not responsive after power-on.", here);
            send(interfaceOn);
        } else {
            WaitUntilFlashReady();  // so that no flash operation is cut off
            send(interfaceOff);
            send(panelOff);
        }
    });
}
