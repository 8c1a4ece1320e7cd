#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/Mutex.h"
#include "platform/threadSafety.h"

/// State that the callback thread shares with its detector. The thread co-owns it, since a callback may destroy the
/// detector.
struct CallbackLoop {
    std::atomic<bool> running{false};       ///< false: the thread ends after the current call
    std::atomic<bool> abandoned{false};     ///< the detector is destroyed: the thread must not touch it
    std::atomic<std::thread::id> thread{};  ///< the thread while it runs

    bool onThisThread() const { return thread.load() == std::this_thread::get_id(); }

    /// Makes the threads that wait for a `StoppableLock` of the detector test again whether to give up.
    void wake();

    std::mutex monitor;  ///< guards the state of the detector's stoppable locks; a leaf
    std::condition_variable changed;
};

/// A recursive lock that a thread may hold while it stops the callback thread and joins it.
///
/// Threads get it in the order of their requests. On the callback thread the wait ends once a stop is pending, so that
/// no call from a callback can block the stop.
class CAPABILITY("mutex") StoppableLock {
public:
    explicit StoppableLock(CallbackLoop& callbackLoop) : loop(callbackLoop) {}
    StoppableLock(const StoppableLock&) = delete;
    StoppableLock& operator=(const StoppableLock&) = delete;

    /// Fails with code 17 on the callback thread if a stop is pending and another thread has the lock.
    void lock() ACQUIRE();
    /// As `lock`, but returns false instead of failing.
    bool lockUnlessStopped() TRY_ACQUIRE(true);
    /// Gives up, and returns false, once `giveUp` is set. The thread that sets it calls `CallbackLoop::wake`
    /// afterwards.
    bool lockUnless(const std::atomic<bool>& giveUp) TRY_ACQUIRE(true);
    /// Returns false instead of waiting.
    bool try_lock() TRY_ACQUIRE(true);
    void unlock() RELEASE();

private:
    struct Waiter {
        Waiter* next = nullptr;
    };
    template <class GivesUp>
    bool take(GivesUp&& givesUp);
    bool takeIfFree();
    void remove(const Waiter& waiter);

    CallbackLoop& loop;
    // Guarded by the loop's monitor.
    std::thread::id owner{};
    int depth = 0;
    Waiter* first = nullptr;  ///< queue of waiting threads; each entry is on its thread's stack
};

/// Holds a `StoppableLock` for a scope.
class SCOPED_CAPABILITY StoppableGuard {
public:
    explicit StoppableGuard(StoppableLock& toHold) ACQUIRE(toHold) : held(toHold) { held.lock(); }
    /// Adopts a lock that this thread holds.
    StoppableGuard(StoppableLock& alreadyHeld, std::adopt_lock_t) REQUIRES(alreadyHeld) : held(alreadyHeld) {}
    ~StoppableGuard() RELEASE() { held.unlock(); }
    StoppableGuard(const StoppableGuard&) = delete;
    StoppableGuard& operator=(const StoppableGuard&) = delete;

private:
    StoppableLock& held;
};

/// Holds `acquisitionLock` and `callbackMutex`, acquired without deadlock against threads that acquire them one by one,
/// in either order. Fails as `StoppableLock::lock` does.
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

/// Sets a flag for a scope.
class RaisedFlag {
public:
    explicit RaisedFlag(std::atomic<bool>& toRaise) : flag(toRaise) { flag = true; }
    ~RaisedFlag() { flag = false; }
    RaisedFlag(const RaisedFlag&) = delete;
    RaisedFlag& operator=(const RaisedFlag&) = delete;

private:
    std::atomic<bool>& flag;
};
