#pragma once

#include <cstdint>

#include "PvDevice.h"
#include "PvString.h"

/// A GigE Vision device. The destructor disconnects.
class QRAPI_EXPORT PvDeviceGEV : public PvDevice {
public:
    PvDeviceGEV();
    ~PvDeviceGEV() override;

    /// Takes exclusive control of the device at the address. `NotFound` tells the addresses there are, `AccessDenied`
    /// means that another object has control, `StateError` that this one is connected.
    PvResult Connect(const PvString& address);
    PvResult NegotiatePacketSize(std::uint32_t channel = 0, std::uint32_t defaultPacketSize = 0);
    /// Where the device sends its frames from now on.
    PvResult SetStreamDestination(const PvString& address, std::uint16_t port, std::uint32_t channel = 0);
};
