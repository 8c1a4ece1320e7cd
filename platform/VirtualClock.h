#pragma once

#include <functional>
#include <map>
#include <utility>

#include "Clock.h"
#include "export.h"

namespace platform {

/// While this object exists, only a sleep or a timed wait advances the time: from one due task to the next, running
/// each, until the wait ends or its deadline is reached. One at a time, and one thread makes all calls. Tasks that are
/// pending at the end are dropped.
class QRAPI_EXPORT ScopedVirtualClock {
public:
    ScopedVirtualClock();
    ~ScopedVirtualClock();
    ScopedVirtualClock(const ScopedVirtualClock&) = delete;
    ScopedVirtualClock& operator=(const ScopedVirtualClock&) = delete;

    /// The virtual time.
    Time now() const { return current; }

    /// Advances the time by `duration`, running the tasks that become due.
    void advance(std::chrono::nanoseconds duration) { runUntil(current + duration); }

    /// The number of infinite waits that no due task could end; each threw `VirtualClockHang`.
    int hangs() const { return hangCount; }

    /// @cond the functions of Clock.h call these
    void add(Time due, std::function<void()> task);
    void runUntil(Time target);
    bool step(Time deadline);
    /// @endcond

private:
    Time current{std::chrono::seconds(1000)};
    std::uint64_t added = 0;
    int hangCount = 0;
    std::map<std::pair<Time, std::uint64_t>, std::function<void()>> tasks;
};

}  // namespace platform
