#include "DeviceConnection.h"

namespace ebus {

PvResult notConnected(const std::string& operation) {
    return PvResult(PvResult::NotConnected, operation + ": no device is connected");
}

PvResult DeviceConnection::connect(const std::string& address) {
    const platform::MutexLock lock(mutex);
    if (current != nullptr && current->isConnected())
        return PvResult(PvResult::StateError, "a device is connected already");
    std::shared_ptr<GigeDevice> device;
    if (const PvResult result = makeDevice(address, device); result.IsFailure()) return result;
    // A channel that was lost may still hold its device's serial bridge or stream; it goes first.
    current.reset();
    const PvResult result = device->connect();
    if (result.IsOK()) current = std::move(device);
    return result;
}

PvResult DeviceConnection::disconnect() {
    const platform::MutexLock lock(mutex);
    if (current == nullptr) return notConnected("Disconnect");
    const PvResult result = current->disconnect();
    // A refusal leaves the connection up; a device that is gone is let go.
    if (result.GetCode() != PvResult::Refused) current.reset();
    return result;
}

void DeviceConnection::drop() {
    disconnect();
    const platform::MutexLock lock(mutex);
    current.reset();
}

std::shared_ptr<GigeDevice> DeviceConnection::channel() const {
    const platform::MutexLock lock(mutex);
    return current;
}

PvResult DeviceConnection::setFeature(std::string_view name, const FeatureValue& value) {
    const std::shared_ptr<GigeDevice> device = channel();
    return device != nullptr ? device->setFeature(name, value) : notConnected("feature \"" + std::string(name) + '"');
}

PvResult DeviceConnection::getFeature(std::string_view name, FeatureType type, FeatureValue& value) {
    const std::shared_ptr<GigeDevice> device = channel();
    return device != nullptr ? device->getFeature(name, type, value)
                             : notConnected("feature \"" + std::string(name) + '"');
}

}  // namespace ebus
