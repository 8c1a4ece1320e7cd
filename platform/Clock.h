#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <stdexcept>

#include "Mutex.h"
#include "export.h"

/// The only door to clocks, sleeping and timed waits.
///
/// All functions here run on the real monotonic clock, or on the virtual clock while a `ScopedVirtualClock`
/// (platform/VirtualClock.h) exists. Any thread may call them; the virtual clock serves programs in which one
/// thread makes all calls.
namespace platform {

/// Time since an arbitrary start, monotonic.
using Time = std::chrono::nanoseconds;

/// The deadline that never comes.
inline constexpr Time never = Time::max();

/// The time of the clock in force: real, fast or virtual.
QRAPI_EXPORT Time now();

/// Blocks for the duration; zero or less yields.
QRAPI_EXPORT void sleepFor(std::chrono::nanoseconds duration);

/// The time of day (UTC), which the system may set back or forth: to name a moment, not to measure. Always the real
/// one.
QRAPI_EXPORT std::chrono::system_clock::time_point timeOfDay();

/// The millisecond tick counter.
QRAPI_EXPORT std::int64_t tickCountMs();

/// The high-resolution counter.
QRAPI_EXPORT std::int64_t performanceCounter();
/// Ticks of the high-resolution counter per second.
QRAPI_EXPORT std::int64_t performanceFrequency();

/// A deadline `timeoutMs` from now; a negative time-out is `never`.
QRAPI_EXPORT Time deadlineAfterMs(std::int64_t timeoutMs);

/// Runs `task` once, at `due` or as soon after as the timer thread gets to it. Tasks run one after the other, in
/// the order of their due times and, where these are equal, of their scheduling. A task must neither block nor
/// throw. A task that outlives what it works on must find that out itself (hold a weak pointer).
QRAPI_EXPORT void schedule(Time due, std::function<void()> task);

/// What an infinite wait throws on the virtual clock when nothing is due that could end it.
class QRAPI_EXPORT VirtualClockHang : public std::logic_error {
public:
    VirtualClockHang();
    ~VirtualClockHang() override;
};

/// A condition variable whose time-outs follow the clock in force.
class QRAPI_EXPORT Condition {
public:
    /// Wakes everybody who waits.
    void notifyAll();

    /// Releases `mutex`, waits for a notification or the deadline and takes `mutex` again. Returns false once the
    /// deadline has passed, else true; wake-ups may be spurious, so the caller tests its condition in a loop.
    bool waitUntil(Mutex& mutex, Time deadline) REQUIRES(mutex);

private:
    std::condition_variable condition;
};

}  // namespace platform
