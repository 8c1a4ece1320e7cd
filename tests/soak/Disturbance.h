#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "soak/Plan.h"

namespace soak {

/// Faults of detector and grabber, drawn and set, until they are cleared.
class Disturbance {
public:
    explicit Disturbance(const Station& stationToDisturb) : station(stationToDisturb) {}

    /// Sets one fault more; answers which. On the real clock none that makes a call wait for its ten seconds.
    std::string begin(Random& random, bool realClock = false);
    void end();

    bool inForce() const { return set; }
    /// A call may return and yet have done or read something else.
    bool deceives() const { return deceiving; }
    /// Whether anything has come of it: a call that failed, or a frame.
    void failureSeen() { felt = true; }
    bool wasFelt() const;

private:
    std::string setDetectorFault(Random& random, bool realClock);
    std::string setGrabberFault(Random& random);

    const Station& station;
    // Begun and ended by one thread, looked at and felt by all.
    std::atomic<bool> set{false};
    std::atomic<bool> deceiving{false};
    std::atomic<bool> felt{false};
    std::uint64_t framesTaken = 0;
};

}  // namespace soak
