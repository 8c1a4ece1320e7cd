#pragma once

#include <cstdint>
#include <memory>

#include "PvDeviceAdapter.h"
#include "PvResult.h"

namespace ebus {
class GigeDevice;
}

/// The serial ports of a device.
enum PvDeviceSerial : std::int32_t { PvDeviceSerial0 = 0, PvDeviceSerial1 = 1 };

/// The serial bridge through a device. Any thread may call, though not while another opens or closes.
class QRAPI_EXPORT PvDeviceSerialPort {
public:
    PvDeviceSerialPort();
    virtual ~PvDeviceSerialPort();
    PvDeviceSerialPort(const PvDeviceSerialPort&) = delete;
    PvDeviceSerialPort& operator=(const PvDeviceSerialPort&) = delete;

    PvResult Open(PvDeviceAdapter* adapter, PvDeviceSerial port);
    /// False also once the device has been disconnected.
    bool IsOpened() const;
    PvResult Close();

    /// Takes what has arrived, up to `size` bytes; waits `timeoutMs` for the first, 0 not at all, 0xFFFFFFFF without
    /// end. A silent line is no failure: OK with no bytes.
    PvResult Read(std::uint8_t* bytes, std::uint32_t size, std::uint32_t& bytesRead, std::uint32_t timeoutMs = 0);
    PvResult Write(const std::uint8_t* bytes, std::uint32_t size, std::uint32_t& bytesWritten);
    /// Drops what has arrived and not been read.
    PvResult FlushRxBuffer();

private:
    std::weak_ptr<ebus::GigeDevice> device;
};
