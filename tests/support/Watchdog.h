#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "platform/Clock.h"

namespace support {

/// A door between threads: closed until somebody opens it, open from then on.
class Gate {
public:
    void open() {
        const platform::MutexLock lock(mutex);
        opened = true;
        changed.notifyAll();
    }

    void pass() { passBefore(platform::never); }

    /// False if the deadline came first.
    bool passBefore(platform::Time deadline) {
        const platform::MutexLock lock(mutex);
        while (!opened)
            if (!changed.waitUntil(mutex, deadline)) return opened;
        return true;
    }

private:
    platform::Mutex mutex;
    platform::Condition changed;
    bool opened GUARDED_BY(mutex) = false;
};

/// Where one thread is held up until another, which knows that it has come, lets it go on.
class Checkpoint {
public:
    void stop() {
        reached.open();
        leave.pass();
    }
    void await() { reached.pass(); }
    void release() { leave.open(); }

private:
    Gate reached;
    Gate leave;
};

/// Waits for a state that no event tells of. A `Watchdog` bounds it.
inline void until(const std::function<bool()>& state) {
    while (!state()) platform::sleepFor(std::chrono::microseconds(300));
}

/// Ends the process with a message if it outlives the limit: a case that hangs fails by name.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit = std::chrono::seconds(60))
        : thread([this, limit] {
              if (over.passBefore(platform::now() + limit)) return;
              const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
              std::fprintf(stderr, "%s.%s hangs: no end after %d s\n", test != nullptr ? test->test_suite_name() : "?",
                           test != nullptr ? test->name() : "?", static_cast<int>(limit.count()));
              std::abort();
          }) {}
    ~Watchdog() {
        over.open();
        thread.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    Gate over;
    std::thread thread;
};

}  // namespace support
