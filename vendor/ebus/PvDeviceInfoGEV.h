#pragma once

#include "PvDeviceInfo.h"

/// What discovery tells about a GigE Vision device.
class QRAPI_EXPORT PvDeviceInfoGEV : public PvDeviceInfo {
public:
    PvDeviceInfoGEV(const PvString& address, const PvString& modelName, const PvString& serialNumber);
    ~PvDeviceInfoGEV() override;

    /// The text that connects to the device.
    PvString GetIPAddress() const;

private:
    PvString address;
};
