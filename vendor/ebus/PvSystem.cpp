#include "PvSystem.h"

#include "GigeDevice.h"
#include "PvDeviceInfoGEV.h"
#include "PvNetworkAdapter.h"

namespace {

constexpr std::uint32_t startDetectionTimeoutMs = 500;

}  // namespace

PvDeviceInfo::PvDeviceInfo(const PvString& modelName, const PvString& serialNumber)
    : modelName(modelName), serialNumber(serialNumber) {}
PvDeviceInfo::~PvDeviceInfo() = default;

PvString PvDeviceInfo::GetModelName() const {
    return modelName;
}
PvString PvDeviceInfo::GetSerialNumber() const {
    return serialNumber;
}

PvDeviceInfoGEV::PvDeviceInfoGEV(const PvString& address, const PvString& modelName, const PvString& serialNumber)
    : PvDeviceInfo(modelName, serialNumber), address(address) {}
PvDeviceInfoGEV::~PvDeviceInfoGEV() = default;

PvString PvDeviceInfoGEV::GetIPAddress() const {
    return address;
}

PvInterface::PvInterface(const PvString& name, std::vector<std::unique_ptr<PvDeviceInfo>> devices)
    : name(name), devices(std::move(devices)) {}
PvInterface::~PvInterface() = default;

PvString PvInterface::GetName() const {
    return name;
}

std::uint32_t PvInterface::GetDeviceCount() const {
    return static_cast<std::uint32_t>(devices.size());
}

const PvDeviceInfo* PvInterface::GetDeviceInfo(std::uint32_t index) const {
    return index < devices.size() ? devices[index].get() : nullptr;
}

PvNetworkAdapter::PvNetworkAdapter(const PvString& name, std::vector<std::unique_ptr<PvDeviceInfo>> devices)
    : PvInterface(name, std::move(devices)) {}
PvNetworkAdapter::~PvNetworkAdapter() = default;

PvSystem::PvSystem() : detectionTimeoutMs(startDetectionTimeoutMs) {}
PvSystem::~PvSystem() = default;

void PvSystem::SetDetectionTimeout(std::uint32_t timeoutMs) {
    detectionTimeoutMs = timeoutMs;
}

std::uint32_t PvSystem::GetDetectionTimeout() const {
    return detectionTimeoutMs;
}

PvResult PvSystem::Find() {
    std::vector<std::unique_ptr<PvDeviceInfo>> found;
    for (const ebus::DeviceRecord& record : ebus::discoverDevices())
        found.push_back(std::make_unique<PvDeviceInfoGEV>(record.address.c_str(), record.modelName.c_str(),
                                                          record.serialNumber.c_str()));
    interfaces.clear();
    interfaces.push_back(std::make_unique<PvNetworkAdapter>("simulated detectors", std::move(found)));
    return {};
}

std::uint32_t PvSystem::GetInterfaceCount() const {
    return static_cast<std::uint32_t>(interfaces.size());
}

const PvInterface* PvSystem::GetInterface(std::uint32_t index) const {
    return index < interfaces.size() ? interfaces[index].get() : nullptr;
}

std::uint32_t PvSystem::GetDeviceCount() const {
    std::uint32_t count = 0;
    for (const std::unique_ptr<PvInterface>& each : interfaces) count += each->GetDeviceCount();
    return count;
}

const PvDeviceInfo* PvSystem::GetDeviceInfo(std::uint32_t index) const {
    for (const std::unique_ptr<PvInterface>& each : interfaces) {
        if (index < each->GetDeviceCount()) return each->GetDeviceInfo(index);
        index -= each->GetDeviceCount();
    }
    return nullptr;
}
