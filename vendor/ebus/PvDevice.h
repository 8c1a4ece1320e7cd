#pragma once

#include <memory>

#include "PvGenParameterArray.h"
#include "PvResult.h"
#include "platform/export.h"

namespace ebus {
class DeviceConnection;
}

/// A device as its user sees it. Any thread may call.
class QRAPI_EXPORT PvDevice {
public:
    virtual ~PvDevice();
    PvDevice(const PvDevice&) = delete;
    PvDevice& operator=(const PvDevice&) = delete;

    /// False also once the device has stopped answering.
    bool IsConnected() const;
    /// Stops acquisition, closes the serial bridge and gives up control. `NotConnected` if there is nothing to give up.
    PvResult Disconnect();
    /// Never null; belongs to the device object. Its calls fail while no device is connected.
    PvGenParameterArray* GetParameters();

protected:
    PvDevice();
    std::shared_ptr<ebus::DeviceConnection> connection;

private:
    friend class PvDeviceAdapter;
    friend class PvAcquisitionStateManager;
    PvGenParameterArray parameters;
};
