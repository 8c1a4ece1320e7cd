#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/Mutex.h"
#include "platform/threadSafety.h"

/// What the callback thread's loop shares with its detector. The thread co-owns it, since a callback may destroy the
/// detector.
struct CallbackLoop {
    std::atomic<bool> running{false};       ///< the thread is meant to run
    std::atomic<bool> abandoned{false};     ///< the detector is gone: nothing of it may be touched
    std::atomic<std::thread::id> thread{};  ///< the thread while it runs

    bool onThisThread() const { return thread.load() == std::this_thread::get_id(); }

    /// Makes all threads that wait for a `StoppableLock` of the detector look again whether they are to give up.
    void wake();

    std::mutex monitor;  ///< guards the state of the detector's stoppable locks; held for moments
    std::condition_variable changed;
};

/// A recursive lock that a thread may hold while it stops the callback thread and joins it.
///
/// Threads get it in the order in which they ask. On the callback thread the wait ends once a stop is pending, so that
/// nothing that a callback calls can block the stop.
class CAPABILITY("mutex") StoppableLock {
public:
    explicit StoppableLock(CallbackLoop& callbackLoop) : loop(callbackLoop) {}
    StoppableLock(const StoppableLock&) = delete;
    StoppableLock& operator=(const StoppableLock&) = delete;

    /// Fails with code 17 on the callback thread if a stop is pending and another thread has the lock.
    void lock() ACQUIRE();
    /// As `lock`, but returns false instead of failing.
    bool lockUnlessStopped() TRY_ACQUIRE(true);
    /// Gives up, and returns false, once `giveUp` is set. Whoever sets it calls `CallbackLoop::wake` afterwards.
    bool lockUnless(const std::atomic<bool>& giveUp) TRY_ACQUIRE(true);
    bool try_lock() TRY_ACQUIRE(true);
    void unlock() RELEASE();

private:
    struct Waiter {
        Waiter* next = nullptr;
    };
    template <class GivesUp>
    bool take(GivesUp&& givesUp);
    bool takeAtOnce();
    void remove(const Waiter& waiter);

    CallbackLoop& loop;
    // Guarded by the loop's monitor.
    std::thread::id owner{};
    int depth = 0;
    Waiter* first = nullptr;  ///< of the waiting threads; each is on its thread's stack
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

/// Holds `acquisitionLock` and `callbackMutex` together, without the risk of a deadlock with a thread that takes them
/// one by one, in whatever order. Fails as `StoppableLock::lock` does.
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
