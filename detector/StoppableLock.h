#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

#include "InternalUtils/Failure.h"
#include "platform/Clock.h"
#include "platform/threadSafety.h"

/// What the callback thread's loop shares with its detector. The thread co-owns it, since a callback may destroy the
/// detector.
struct CallbackLoop {
    std::atomic<bool> running{false};       ///< the thread is meant to run
    std::atomic<bool> abandoned{false};     ///< the detector is gone: nothing of it may be touched
    std::atomic<std::thread::id> thread{};  ///< the thread while it runs

    bool onThisThread() const { return thread.load() == std::this_thread::get_id(); }

    /// Asked on the callback thread: somebody stops it, and may hold a lock while joining it.
    bool stopPending() const { return !running; }
};

/// Takes `mutex` by tries, until it is had or `giveUp` says so.
template <class Mutex>
bool takeUnless(Mutex& mutex, const std::function<bool()>& giveUp) {
    constexpr std::chrono::microseconds pause{100};
    while (!mutex.try_lock()) {
        if (giveUp()) return false;
        platform::sleepFor(pause);
    }
    return true;
}

/// A recursive lock that somebody may hold while he stops the callback thread and joins it.
///
/// So on that thread it is taken by tries, which end once a stop is pending: nothing that a callback calls can hang a
/// stop. On every other thread it is a plain recursive lock.
class CAPABILITY("mutex") StoppableLock {
public:
    explicit StoppableLock(const CallbackLoop& callbackLoop) : loop(callbackLoop) {}

    /// Fails with code 17 on the callback thread while a stop is pending and the lock isn't to be had.
    void lock() ACQUIRE() {
        if (!lockUnlessStopped())
            fail("The callback is being stopped: this operation cannot be done from inside it.", DerrCallback,
                 "StoppableLock::lock");
    }

    /// As `lock`, but answers false in place of failing.
    bool lockUnlessStopped() TRY_ACQUIRE(true) {
        if (loop.onThisThread()) return takeUnless(mutex, [this] { return loop.stopPending(); });
        mutex.lock();
        return true;
    }

    bool lockUnless(const std::function<bool()>& giveUp) TRY_ACQUIRE(true) { return takeUnless(mutex, giveUp); }

    bool try_lock() TRY_ACQUIRE(true) { return mutex.try_lock(); }

    void unlock() RELEASE() { mutex.unlock(); }

private:
    const CallbackLoop& loop;
    std::recursive_mutex mutex;
};

/// Holds a `StoppableLock` for a scope.
class SCOPED_CAPABILITY StoppableGuard {
public:
    explicit StoppableGuard(StoppableLock& toHold) ACQUIRE(toHold) : held(toHold) { held.lock(); }
    /// Takes over a lock that is held.
    StoppableGuard(StoppableLock& alreadyHeld, std::adopt_lock_t) REQUIRES(alreadyHeld) : held(alreadyHeld) {}
    ~StoppableGuard() RELEASE() { held.unlock(); }
    StoppableGuard(const StoppableGuard&) = delete;
    StoppableGuard& operator=(const StoppableGuard&) = delete;

private:
    StoppableLock& held;
};

/// Holds `acquisitionLock` and `callbackMutex` together, taken so that a thread that takes them singly, in whatever
/// order, can't deadlock with this one. Fails as `StoppableLock::lock` does.
class SCOPED_CAPABILITY BothLocks {
public:
    BothLocks(StoppableLock& acquisitionLock, platform::Mutex& callbackMutex) ACQUIRE(acquisitionLock, callbackMutex);
    ~BothLocks() RELEASE();
    BothLocks(const BothLocks&) = delete;
    BothLocks& operator=(const BothLocks&) = delete;

private:
    StoppableLock& acquisition;
    platform::Mutex& callback;
};
