#include <iomanip>
#include <ostream>

#include "simulator/Rack.h"
#include "tools/commands.h"
#include "tools/names.h"

namespace tool {
namespace {

constexpr int addressColumn = 26;
constexpr int modelColumn = 8;
constexpr int sizeColumn = 14;
constexpr int electronicsColumn = 13;

void row(std::ostream& out, const std::string& address, const std::string& model, const std::string& size,
         std::string_view electronics, const std::string& firmware) {
    out << std::left << std::setw(addressColumn) << address << std::setw(modelColumn) << model << std::setw(sizeColumn)
        << size << std::setw(electronicsColumn) << electronics << firmware << "\n";
}

}  // namespace

void list(Output& output) {
    std::ostream& out = output.text();
    Json& detectors = output.facts["detectors"] = Json::array();
    row(out, "DETECTOR", "MODEL", "PANEL", "ELECTRONICS", "FIRMWARE");
    simulator::Rack& rack = simulator::Rack::instance();
    const auto print = [&](const std::string& address, const std::shared_ptr<simulator::SimulatedDetector>& detector) {
        if (detector == nullptr) return;
        const simulator::Profile& profile = detector->profile();
        row(out, address, std::to_string(profile.model),
            std::to_string(profile.sensorWidth * profile.sensorsAcross) + " x " +
                std::to_string(profile.sensorHeight * profile.sensorsDown),
            electronicsName(profile.isKestrane()), std::to_string(profile.firmwareVersion));
        detectors.push_back({{"address", address},
                             {"model", profile.model},
                             {"width_pixels", profile.sensorWidth * profile.sensorsAcross},
                             {"height_pixels", profile.sensorHeight * profile.sensorsDown},
                             {"electronics", electronicsName(profile.isKestrane())},
                             {"firmware_version", profile.firmwareVersion}});
    };
    for (const std::string& address : rack.gigeAddresses()) print("ge:" + address, rack.find(address));
    for (const int slot : rack.slots()) print("cl:" + std::to_string(slot), rack.slot(slot));
}

}  // namespace tool
