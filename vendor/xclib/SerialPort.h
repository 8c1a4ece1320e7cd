#pragma once

#include <atomic>
#include <memory>

#include "simulator/SimulatedDetector.h"

namespace grabber {

/// The arguments of `pxe_serialConfigure` behind the unit map.
struct SerialSettings {
    int port;
    double baud;
    int dataBits;
    int parity;    ///< 0 none, 1 odd, 2 even
    int stopBits;  ///< 1 or 2
};

/// The board's serial port; results as in xcliball.h. Any thread may call.
class SerialPort {
public:
    explicit SerialPort(std::shared_ptr<simulator::SimulatedDetector> detector);

    int configure(const SerialSettings& settings);
    int read(int port, char* buffer, int size);
    int write(int port, const char* buffer, int size);

private:
    int check(int port, const char* buffer, int size) const;

    const std::shared_ptr<simulator::SimulatedDetector> detector;
    std::atomic<bool> configured{false};
};

}  // namespace grabber
