#pragma once

#include <memory>
#include <string>

#include "QuorinDetector.h"
#include "simulator/Rack.h"
#include "soak/Random.h"

namespace soak {

/// Where a detector of an episode is reached, and what stands there.
struct Station {
    DetectorInterface transport = TransportGE;
    int slot = 0;
    std::string address;
    std::shared_ptr<simulator::SimulatedDetector> hardware;
    float minimumWindowMs = 0.0F;  ///< the firmware's

    bool isGigE() const { return transport == TransportGE; }
    std::unique_ptr<QuorinDetector> make() const {
        return std::make_unique<QuorinDetector>(transport, slot, address.c_str());
    }
};

/// What the seed of an episode decides before its first call.
struct Plan {
    bool threads = false;  ///< several threads on the real clock; else one on the virtual clock
    bool faults = false;
    int detectors = 1;
    int steps = 40;
    DetectorInterface transport = TransportGE;
    simulator::Profile profile;

    std::string text() const;
    /// Mounts a detector of the profile: the rack's own would keep what an episode before has set.
    Station mount(int number, Random& random) const;
};

Plan makePlan(Random& random);

}  // namespace soak
