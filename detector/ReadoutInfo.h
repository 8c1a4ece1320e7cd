#pragma once

#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "enumerations.h"

/// Measured readout times, in ms. All tables are constant; any thread may read them.

/// Readout time and minimum exposure window of the exact combination. Fails with code 4 if it was never measured.
std::pair<float, float> getReadoutData(int model, DetectorInterface transport, bins binning, bool slowed);

namespace qrapi {

/// The timings of one combination of model, transport and firmware.
class DetectorTimings {
public:
    using Key = std::tuple<bool, ReadoutModes, bins>;  ///< legacy timing, readout mode, binning
    using Timings = std::pair<float, float>;           ///< readout time, minimum exposure time (the sum, no window)

    explicit DetectorTimings(std::map<Key, Timings> rows);

    /// Readout time and minimum exposure time of the exact combination. Fails with code 4 if there is none.
    virtual Timings getTimings(bool legacyTiming, ReadoutModes readoutMode, bins binning);

private:
    std::map<Key, Timings> timings;
};

}  // namespace qrapi

/// The timings of model 6213 on Camera Link with firmware 11138; empty for every other detector.
std::unique_ptr<qrapi::DetectorTimings> createDetectorTimings(int model, DetectorInterface transport,
                                                              int firmwareVersion);
