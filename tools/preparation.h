#pragma once

#include <qrapi/QuorinDetector.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "simulator/SimulatedDetector.h"
#include "tools/DetectorAddress.h"
#include "tools/Output.h"
#include "tools/settings.h"

namespace tool {

/// Which detector a command opens, and what is done to it before the command does its own. A simulated detector lives
/// in the process, so its settings are part of each command line.
struct Preparation {
    DetectorAddress detector;
    std::optional<simulator::Picture> picture;  ///< simulated detectors only
    std::vector<Change> changes;                ///< in this order, then the region, then the exposure time
    std::optional<Region> region;
    std::optional<float> exposureMs;
    std::optional<float> pulseHz;
};

QuorinDetector makeDetector(const DetectorAddress& address);

/// The simulated detector at the address; null for a real one and for an address that nobody knows.
std::shared_ptr<simulator::SimulatedDetector> simulatedBehind(const DetectorAddress& address);

/// Opens the detector and makes all changes but the pulses.
void openWithSettings(QuorinDetector& detector, const Preparation& preparation);

/// Says so if the exposure time that was asked for is below the minimum, which is in force then.
void tellShortest(const QuorinDetector& detector, const Preparation& preparation, Output& output);

/// Lets the pulse generator run if that was asked for. Closing the board ends it.
void startPulses(QuorinDetector& detector, const Preparation& preparation);

/// Both of them.
void openPrepared(QuorinDetector& detector, const Preparation& preparation);

/// What the first frame of a live run adds to the field count; each further one adds 1.
int fieldsOfFirstFrame(const QuorinDetector& detector);

/// How long a frame may take. A detector that runs free ends the frame in progress before the one that counts.
int frameTimeoutMs(const QuorinDetector& detector, const Preparation& preparation);

/// What is known of every frame of a run under the settings in force.
nlohmann::ordered_json describeFrames(const QuorinDetector& detector);

}  // namespace tool
