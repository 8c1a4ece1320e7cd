#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <sstream>

#include "platform/Clock.h"

/// Makes the tool obey signals however the test was started: a shell's background job ignores SIGINT.
struct DefaultSignals {
    DefaultSignals() {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
    }
};

/// Calls `act` on the virtual clock, within a millisecond of `state` coming true.
inline void actWhen(const std::function<bool()>& state, const std::function<void()>& act) {
    platform::schedule(platform::now() + std::chrono::milliseconds(1), [=] { state() ? act() : actWhen(state, act); });
}

/// A standard error that can be waited for until one line has been flushed into it.
struct FlushedErrors : std::stringbuf {
    bool waitForLine() {
        constexpr std::chrono::seconds longest(30);  // a bound, not a delay
        return flushed.get_future().wait_for(longest) == std::future_status::ready;
    }
    int sync() override { return flushed.set_value(), 0; }
    std::promise<void> flushed;
};
