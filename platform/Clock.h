#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <stdexcept>

#include "Mutex.h"
#include "export.h"

/// Clocks, sleeping and timed waits. Other code reads no clock and sleeps nowhere else.
///
/// All functions here run on the real monotonic clock, or on the virtual clock while a `ScopedVirtualClock`
/// (platform/VirtualClock.h) exists. Any thread may call them; the virtual clock is for programs in which one thread
/// makes all calls.
namespace platform {

/// Time since an arbitrary start, monotonic.
using Time = std::chrono::nanoseconds;

/// No deadline.
inline constexpr Time never = Time::max();

/// The time of the current clock: real, fast or virtual.
QRAPI_EXPORT Time now();

/// Blocks for the duration; for zero or less it only yields.
QRAPI_EXPORT void sleepFor(std::chrono::nanoseconds duration);

/// The time of day (UTC), always the real one. The system may set it: use it for time stamps, not to measure.
QRAPI_EXPORT std::chrono::system_clock::time_point timeOfDay();

/// Milliseconds since an arbitrary start, monotonic.
QRAPI_EXPORT std::int64_t tickCountMs();

/// The high-resolution counter.
QRAPI_EXPORT std::int64_t performanceCounter();
/// Ticks of the high-resolution counter per second.
QRAPI_EXPORT std::int64_t performanceFrequency();

/// The time `timeoutMs` from now; `never` for a negative time-out.
QRAPI_EXPORT Time deadlineAfterMs(std::int64_t timeoutMs);

/// Runs `task` once, at `due` or as soon after as the timer thread gets to it. Tasks run one after the other, in the
/// order of their due times and, where these are equal, of their scheduling. A task must neither block nor throw, and
/// must check that the object it works on still exists (hold a weak pointer).
QRAPI_EXPORT void schedule(Time due, std::function<void()> task);

/// Thrown by an infinite wait on the virtual clock if no task is due that could end it.
class QRAPI_EXPORT VirtualClockHang : public std::logic_error {
public:
    VirtualClockHang();
    ~VirtualClockHang() override;
};

/// A condition variable whose time-outs follow the current clock.
class QRAPI_EXPORT Condition {
public:
    /// Wakes all waiting threads.
    void notifyAll();

    /// Releases `mutex`, waits for a notification or the deadline and acquires `mutex` again. Wake-ups may be spurious:
    /// test the condition in a loop.
    /// @return false once the deadline has passed
    bool waitUntil(Mutex& mutex, Time deadline) REQUIRES(mutex);

private:
    std::condition_variable condition;
};

}  // namespace platform
