#pragma once

#include <cstdint>
#include <limits>

#include "platform/Clock.h"

namespace ebus {

/// The time-out that never runs out; also what a caller's -1 becomes.
inline constexpr std::uint32_t infiniteTimeoutMs = std::numeric_limits<std::uint32_t>::max();

inline platform::Time deadlineAfter(std::uint32_t timeoutMs) {
    return timeoutMs == infiniteTimeoutMs ? platform::never : platform::deadlineAfterMs(timeoutMs);
}

}  // namespace ebus
