#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "PvDeviceInfo.h"
#include "PvInterface.h"
#include "PvResult.h"
#include "platform/export.h"

/// Finds devices. What it hands out belongs to it and is valid until the next `Find`. One thread at a time.
class QRAPI_EXPORT PvSystem {
public:
    PvSystem();
    virtual ~PvSystem();
    PvSystem(const PvSystem&) = delete;
    PvSystem& operator=(const PvSystem&) = delete;

    /// How long `Find` gives devices to answer.
    void SetDetectionTimeout(std::uint32_t timeoutMs);
    std::uint32_t GetDetectionTimeout() const;
    /// Looks anew; until then there are no interfaces.
    PvResult Find();

    std::uint32_t GetInterfaceCount() const;
    /// Null for an index that there isn't.
    const PvInterface* GetInterface(std::uint32_t index) const;
    /// Over all interfaces.
    std::uint32_t GetDeviceCount() const;
    const PvDeviceInfo* GetDeviceInfo(std::uint32_t index) const;

private:
    std::uint32_t detectionTimeoutMs;
    std::vector<std::unique_ptr<PvInterface>> interfaces;
};
