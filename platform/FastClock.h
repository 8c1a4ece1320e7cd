#pragma once

#include "Clock.h"
#include "export.h"

namespace platform {

/// While this object exists, time runs `speed` times as fast as the real clock, so that sleeps and timed waits are
/// shorter. For tests with several threads. One at a time, made and destroyed while no thread sleeps or waits and no
/// task is scheduled; time jumps back at the end.
class QRAPI_EXPORT ScopedFastClock {
public:
    /// Throws std::invalid_argument for a speed below 1.
    explicit ScopedFastClock(int speed);
    ~ScopedFastClock();
    ScopedFastClock(const ScopedFastClock&) = delete;
    ScopedFastClock& operator=(const ScopedFastClock&) = delete;
};

}  // namespace platform
