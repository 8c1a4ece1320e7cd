#pragma once

#include <memory>
#include <string>

#include "GigeDevice.h"
#include "platform/Mutex.h"

namespace ebus {

/// What a device object and everything that stands on it share: the channel while there is one. Outlives the device
/// object, so that whatever stands on it finds no connection and nothing worse.
class DeviceConnection : public FeatureAccess {
public:
    PvResult connect(const std::string& address);
    PvResult disconnect();
    /// Disconnects whatever the device says to it.
    void drop();

    /// The channel; null before the first connect and after a disconnect.
    std::shared_ptr<GigeDevice> channel() const;

    PvResult setFeature(std::string_view name, const FeatureValue& value) override;
    PvResult getFeature(std::string_view name, FeatureType type, FeatureValue& value) override;

private:
    mutable platform::Mutex mutex;
    std::shared_ptr<GigeDevice> current GUARDED_BY(mutex);
};

/// What to answer when there is no channel that could carry `operation`.
PvResult notConnected(const std::string& operation);

}  // namespace ebus
