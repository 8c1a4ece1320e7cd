#pragma once

#include "PvString.h"
#include "platform/export.h"

/// What discovery tells about a device.
class QRAPI_EXPORT PvDeviceInfo {
public:
    virtual ~PvDeviceInfo();
    PvDeviceInfo(const PvDeviceInfo&) = delete;
    PvDeviceInfo& operator=(const PvDeviceInfo&) = delete;

    PvString GetModelName() const;
    PvString GetSerialNumber() const;

protected:
    PvDeviceInfo(const PvString& modelName, const PvString& serialNumber);

private:
    PvString modelName;
    PvString serialNumber;
};
