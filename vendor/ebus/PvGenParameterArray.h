#pragma once

#include <cstdint>
#include <memory>

#include "PvResult.h"
#include "PvString.h"
#include "platform/export.h"

namespace ebus {
class FeatureAccess;
}

/// The features of a device or a stream, by name. A failed read leaves the value as it was. Failures: `NotFound` for a
/// name, `WrongType`, `OutOfRange`, `ReadOnly`, `NotConnected`, `ConnectionLost`, `Refused`; the description names the
/// feature and what it takes. Any thread may call.
class QRAPI_EXPORT PvGenParameterArray {
public:
    /// Made by the device or the stream.
    explicit PvGenParameterArray(std::shared_ptr<ebus::FeatureAccess> access);
    ~PvGenParameterArray();
    PvGenParameterArray(const PvGenParameterArray&) = delete;
    PvGenParameterArray& operator=(const PvGenParameterArray&) = delete;

    PvResult SetBooleanValue(const PvString& name, bool value);
    PvResult GetBooleanValue(const PvString& name, bool& value);
    PvResult SetIntegerValue(const PvString& name, std::int64_t value);
    PvResult GetIntegerValue(const PvString& name, std::int64_t& value);
    PvResult SetFloatValue(const PvString& name, double value);
    PvResult GetFloatValue(const PvString& name, double& value);
    PvResult SetEnumValue(const PvString& name, std::int64_t value);
    PvResult SetEnumValue(const PvString& name, const PvString& value);
    PvResult GetEnumValue(const PvString& name, std::int64_t& value);
    PvResult GetEnumValue(const PvString& name, PvString& value);

private:
    std::shared_ptr<ebus::FeatureAccess> access;
};
