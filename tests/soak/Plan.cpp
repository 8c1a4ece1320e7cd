#include "soak/Plan.h"

#include <algorithm>

namespace soak {
namespace {

constexpr int firstSlot = 20;

/// A frame of the small panels is made and compared in a few milliseconds.
constexpr const char* smallProfiles[] = {"5101", "5101-kestrane", "5101-kestrane"};
constexpr const char* otherProfiles[] = {"6112", "6112-kestrane", "6112-kestrane", "6112-kestrane", "6112-kestrane",
                                         "5309", "6213-kestrane", "7127-slowed",   "8131"};

bool hasTimings(const Plan& plan) {
    return plan.transport == TransportCL || plan.profile.name != "8131";
}

/// Firmware and electronics that no named profile has.
void vary(simulator::Profile& profile, Random& random) {
    if (random.percent(20)) profile.featureWord36 = profile.featureWord37 = profile.featureWord130 = 0;
    if (random.percent(10) && profile.model == 5309) profile.electronicsFamily = 1;
    if (random.percent(10)) profile.electronicsFamily = static_cast<std::uint16_t>(profile.electronicsFamily | 0x200U);
    profile.serialNumber = random.below(65536);
}

}  // namespace

std::string Plan::text() const {
    return std::string(threads ? "threads" : "virtual clock") +
           (transport == TransportGE ? ", GigE " : ", Camera Link ") + profile.name +
           (detectors > 1 ? ", two detectors" : "") + (faults ? ", faults" : "");
}

Station Plan::mount(int number, Random& random) const {
    Station station;
    station.transport = transport;
    station.hardware = simulator::SimulatedDetector::create(profile);
    station.hardware->faults().seed(static_cast<std::uint32_t>(random.below(1 << 30)));
    // What was measured of this model is for the window that its firmware has.
    const bool measured = profile.model == 6213 && transport == TransportCL;
    constexpr float windows[] = {0.0F, 0.5F, 0.5F, 2.25F};
    if (profile.isKestrane() && !measured) {
        station.minimumWindowMs = random.pick(windows);
        station.hardware->setMinimumWindowMs(station.minimumWindowMs);
    }
    if (transport == TransportGE) {
        station.address = "sim:soak" + std::to_string(number);
        simulator::Rack::instance().mount(station.address, station.hardware);
    } else {
        station.slot = firstSlot + number;
        simulator::Rack::instance().mountSlot(station.slot, station.hardware);
    }
    return station;
}

Plan makePlan(Random& random) {
    Plan plan;
    plan.threads = random.percent(5);
    plan.faults = random.percent(50);
    plan.detectors = random.percent(20) ? 2 : 1;
    plan.steps = random.between(10, 70);
    const bool small = plan.threads || random.percent(60);
    do {
        plan.transport = random.percent(50) ? TransportGE : TransportCL;
        plan.profile = *simulator::findProfile(small ? random.pick(smallProfiles) : random.pick(otherProfiles));
    } while (!hasTimings(plan));
    vary(plan.profile, random);
    plan.profile.link = plan.transport == TransportGE ? simulator::Link::GigE : simulator::Link::CameraLink;
    return plan;
}

}  // namespace soak
