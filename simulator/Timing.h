#pragma once

#include <cstdint>

#include "components/enumerations.h"
#include "platform/Clock.h"

namespace simulator {

/// What the readout time of a frame depends on.
struct ReadoutConditions {
    int model = 0;
    int firmwareVersion = 0;
    bool kestrane = false;
    bool cameraLink = false;    ///< the readout is paced for that link
    bool legacyTiming = false;  ///< only Kestrane electronics know another one
    bins binning = Bin1x1;
    int rowsRead = 0;  ///< of one sensor, unbinned
};

/// Time to read one frame out, in ms: measured where the configuration was measured, else worked out from the rows.
double readoutTimeMs(const ReadoutConditions& conditions);

/// The content of the readout-time register, a count of 0.002 ms that is never 0.
std::uint16_t readoutTimeCount(double readoutTimeMs);

/// The shortest exposure window that the firmware takes, in ms, until a test sets another.
double firmwareMinimumWindowMs(int model, int firmwareVersion, bool kestrane);

/// Milliseconds as the clock counts them.
platform::Time durationOf(double ms);

/// The exposure window's count of 0.01 ms, and back.
std::uint32_t windowCount(double windowMs);
double windowMs(std::uint32_t count);

}  // namespace simulator
