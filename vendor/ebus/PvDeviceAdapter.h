#pragma once

#include <memory>

#include "PvDevice.h"

/// Lends a device to a serial port.
class QRAPI_EXPORT PvDeviceAdapter {
public:
    explicit PvDeviceAdapter(PvDevice* device);
    virtual ~PvDeviceAdapter();
    PvDeviceAdapter(const PvDeviceAdapter&) = delete;
    PvDeviceAdapter& operator=(const PvDeviceAdapter&) = delete;

private:
    friend class PvDeviceSerialPort;
    std::shared_ptr<ebus::DeviceConnection> connection;
};
