#pragma once

#include "simulator/SimulatedDetector.h"

namespace grabber {

/// Whether the detector is at the other end of the cable. Counts an occasion of its unplugging; pulling the plug leaves
/// the board as it is.
inline bool isPlugged(simulator::SimulatedDetector& detector) {
    return !detector.faults().strikes(simulator::Fault::Unplugged);
}

}  // namespace grabber
