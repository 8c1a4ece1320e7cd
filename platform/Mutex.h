#pragma once

#include <mutex>
#include <shared_mutex>

#include "threadSafety.h"

namespace platform {

/// A mutex with annotations for clang's thread safety analysis.
class CAPABILITY("mutex") Mutex {
public:
    void lock() ACQUIRE() { mutex.lock(); }
    void unlock() RELEASE() { mutex.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return mutex.try_lock(); }
    std::mutex& native() { return mutex; }

private:
    std::mutex mutex;
};

/// Holds a `Mutex` for a scope.
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutexToHold) ACQUIRE(mutexToHold) : mutex(mutexToHold) { mutex.lock(); }
    ~MutexLock() RELEASE() { mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex;
};

/// A mutex that several readers or one writer hold.
class CAPABILITY("mutex") SharedMutex {
public:
    void lock() ACQUIRE() { mutex.lock(); }
    void unlock() RELEASE() { mutex.unlock(); }
    void lock_shared() ACQUIRE_SHARED() { mutex.lock_shared(); }
    void unlock_shared() RELEASE_SHARED() { mutex.unlock_shared(); }

private:
    std::shared_mutex mutex;
};

/// Holds a `SharedMutex` as its writer for a scope.
class SCOPED_CAPABILITY ExclusiveLock {
public:
    explicit ExclusiveLock(SharedMutex& mutexToHold) ACQUIRE(mutexToHold) : mutex(mutexToHold) { mutex.lock(); }
    ~ExclusiveLock() RELEASE() { mutex.unlock(); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;

private:
    SharedMutex& mutex;
};

/// Holds a `SharedMutex` as a reader for a scope.
class SCOPED_CAPABILITY SharedLock {
public:
    explicit SharedLock(SharedMutex& mutexToHold) ACQUIRE_SHARED(mutexToHold) : mutex(mutexToHold) {
        mutex.lock_shared();
    }
    ~SharedLock() RELEASE_GENERIC() { mutex.unlock_shared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

private:
    SharedMutex& mutex;
};

}  // namespace platform
