#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "PvDeviceInfo.h"
#include "PvString.h"
#include "platform/export.h"

/// A way out of this host, with the devices that were found behind it.
class QRAPI_EXPORT PvInterface {
public:
    virtual ~PvInterface();
    PvInterface(const PvInterface&) = delete;
    PvInterface& operator=(const PvInterface&) = delete;

    PvString GetName() const;
    std::uint32_t GetDeviceCount() const;
    /// Null for an index that there isn't; belongs to the interface.
    const PvDeviceInfo* GetDeviceInfo(std::uint32_t index) const;

protected:
    PvInterface(const PvString& name, std::vector<std::unique_ptr<PvDeviceInfo>> devices);

private:
    PvString name;
    std::vector<std::unique_ptr<PvDeviceInfo>> devices;
};
