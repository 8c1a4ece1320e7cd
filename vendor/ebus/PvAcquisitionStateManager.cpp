#include "PvAcquisitionStateManager.h"

#include "DeviceConnection.h"

using ebus::GigeDevice;

// The device sends to the destination it was given, so that starting it involves no stream.
PvAcquisitionStateManager::PvAcquisitionStateManager(PvDevice* device, PvStream*, std::uint32_t source)
    : connection(device != nullptr ? device->connection : std::make_shared<ebus::DeviceConnection>()), source(source) {}

PvAcquisitionStateManager::~PvAcquisitionStateManager() = default;

PvAcquisitionState PvAcquisitionStateManager::GetState() const {
    const std::shared_ptr<GigeDevice> channel = connection->channel();
    return channel != nullptr && channel->isAcquiring() ? PvAcquisitionStateLocked : PvAcquisitionStateUnlocked;
}

PvResult PvAcquisitionStateManager::Start() {
    const std::shared_ptr<GigeDevice> channel = connection->channel();
    return channel != nullptr ? channel->startAcquisition(source) : ebus::notConnected("AcquisitionStart");
}

PvResult PvAcquisitionStateManager::Stop() {
    const std::shared_ptr<GigeDevice> channel = connection->channel();
    return channel != nullptr ? channel->stopAcquisition(source) : ebus::notConnected("AcquisitionStop");
}
