#pragma once

#include <cstdint>
#include <memory>

#include "PvDevice.h"
#include "PvResult.h"
#include "PvStream.h"

/// Locked means that acquisition runs, and that its parameters had better stay.
enum PvAcquisitionState : std::int32_t { PvAcquisitionStateUnlocked = 0, PvAcquisitionStateLocked = 1 };

/// Starts and stops a device's acquisition. Any thread may call.
class QRAPI_EXPORT PvAcquisitionStateManager {
public:
    PvAcquisitionStateManager(PvDevice* device, PvStream* stream, std::uint32_t source = 0);
    virtual ~PvAcquisitionStateManager();
    PvAcquisitionStateManager(const PvAcquisitionStateManager&) = delete;
    PvAcquisitionStateManager& operator=(const PvAcquisitionStateManager&) = delete;

    PvAcquisitionState GetState() const;
    /// `StateError` if acquisition runs already, or doesn't run.
    PvResult Start();
    PvResult Stop();

private:
    std::shared_ptr<ebus::DeviceConnection> connection;
    std::uint32_t source;
};
