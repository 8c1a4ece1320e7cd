#pragma once

#include <cstdint>

#include "PvStream.h"
#include "PvString.h"

/// A stream from a GigE Vision device. The destructor closes it.
class QRAPI_EXPORT PvStreamGEV : public PvStream {
public:
    PvStreamGEV();
    ~PvStreamGEV() override;

    /// Makes a receiving port of this host for the device at the address; needs no control of the device.
    PvResult Open(const PvString& address);
    /// Empty and 0 while the stream is closed.
    PvString GetLocalIPAddress() const;
    std::uint16_t GetLocalPort() const;
};
