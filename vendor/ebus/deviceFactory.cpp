#include <array>

#include "GigeDevice.h"
#include "SimulatedGigeDevice.h"

namespace ebus {
namespace {

/// A kind of device, told by how its addresses begin. The first row that fits decides.
struct DeviceKind {
    std::string_view addressPrefix;
    std::shared_ptr<GigeDevice> (*make)(const std::string& address);  ///< null if there is none
    std::vector<DeviceRecord> (*discover)();
};

constexpr std::array<DeviceKind, 1> deviceKinds{
    {{SimulatedGigeDevice::addressPrefix, SimulatedGigeDevice::make, SimulatedGigeDevice::discover}}};

}  // namespace

PvResult makeDevice(const std::string& address, std::shared_ptr<GigeDevice>& device) {
    for (const DeviceKind& kind : deviceKinds)
        if (address.compare(0, kind.addressPrefix.size(), kind.addressPrefix) == 0) {
            device = kind.make(address);
            if (device != nullptr) return {};
            break;
        }
    std::string known;
    for (const DeviceRecord& record : discoverDevices()) known += (known.empty() ? "" : ", ") + record.address;
    return PvResult(PvResult::NotFound, "no device at \"" + address + "\"; there are " + known);
}

std::vector<DeviceRecord> discoverDevices() {
    std::vector<DeviceRecord> all;
    for (const DeviceKind& kind : deviceKinds)
        for (DeviceRecord& record : kind.discover()) all.push_back(std::move(record));
    return all;
}

}  // namespace ebus
