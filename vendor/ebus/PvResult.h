#pragma once

#include <cstdint>
#include <string>

#include "PvString.h"
#include "platform/export.h"

/// What a call came to: a code, its name, and a description for people.
class QRAPI_EXPORT PvResult {
public:
    enum Code : std::uint32_t {
        Ok = 0,
        NotConnected = 1,      ///< no device is connected, or no stream open, that could carry the call
        ConnectionLost = 2,    ///< the device no longer answers
        AccessDenied = 3,      ///< somebody else controls the device
        NotFound = 4,          ///< nothing at that address, or no feature or buffer of that name
        Refused = 5,           ///< the device answered that it will not
        InvalidParameter = 6,  ///< an argument that no state makes valid
        OutOfRange = 7,        ///< a feature value outside what the feature takes
        WrongType = 8,         ///< a feature of another type
        ReadOnly = 9,          ///< a feature that can't be written
        StateError = 10,       ///< right call, wrong moment
        NoMemory = 11,         ///< buffers or ports ran out
        BufferTooSmall = 12,   ///< operation result: the frame was larger than its buffer
        FrameIncomplete = 13,  ///< operation result: part of the frame is missing
        NotSupported = 14,     ///< the device has no such port or channel
        Timeout = 30,          ///< nothing came in time
    };

    PvResult();
    /// With the code's own description.
    explicit PvResult(std::uint32_t code);
    PvResult(std::uint32_t code, const std::string& description);
    PvResult(const PvResult& other);
    PvResult& operator=(const PvResult& other);
    ~PvResult();

    bool IsOK() const;
    bool IsFailure() const;
    std::uint32_t GetCode() const;
    PvString GetCodeString() const;
    PvString GetDescription() const;
    /// Codes of the layers below; 0 where these gave none.
    std::uint32_t GetInternalCode() const;
    std::uint32_t GetOSCode() const;

private:
    std::uint32_t code = Ok;
    PvString description;
};
