#include "SerialPort.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "link.h"
#include "platform/Clock.h"
#include "xcliball.h"

namespace grabber {
namespace {

constexpr int onlyPort = 0;
constexpr std::array<double, 7> baudRates{9600, 14400, 19200, 28800, 38400, 57600, 115200};
constexpr int mostParity = 2;

// A read without a reply takes time, so that a host that polls without a pause gets on.
constexpr platform::Time patience = std::chrono::microseconds(100);

bool isPossible(const SerialSettings& settings) {
    return settings.port == onlyPort &&
           std::find(baudRates.begin(), baudRates.end(), settings.baud) != baudRates.end() &&
           (settings.dataBits == 7 || settings.dataBits == 8) && settings.parity >= 0 &&
           settings.parity <= mostParity && (settings.stopBits == 1 || settings.stopBits == 2);
}

}  // namespace

SerialPort::SerialPort(std::shared_ptr<simulator::SimulatedDetector> detectorBehind)
    : detector(std::move(detectorBehind)) {}

int SerialPort::configure(const SerialSettings& settings) {
    if (!isPossible(settings)) return PXERBADPARAM;
    detector->serialDropInput();
    configured = true;
    return 0;
}

int SerialPort::check(int port, const char* buffer, int size) const {
    if (port != onlyPort || size < 0 || buffer == nullptr) return PXERBADPARAM;
    return configured ? 0 : PXERIO;
}

int SerialPort::read(int port, char* buffer, int size) {
    if (const int refusal = check(port, buffer, size); refusal < 0) return refusal;
    if (size == 0) return 0;
    if (!isPlugged(*detector)) {
        platform::sleepFor(patience);
        return 0;
    }
    return static_cast<int>(detector->serialRead(buffer, static_cast<std::size_t>(size), platform::now() + patience));
}

int SerialPort::write(int port, const char* buffer, int size) {
    if (const int refusal = check(port, buffer, size); refusal < 0) return refusal;
    // Nobody sees whether the other end listens.
    if (isPlugged(*detector)) detector->serialWrite({buffer, static_cast<std::size_t>(size)});
    return size;
}

}  // namespace grabber
