#include "detector/StoppableLock.h"

BothLocks::BothLocks(StoppableLock& acquisitionLock, platform::Mutex& callbackMutex) NO_THREAD_SAFETY_ANALYSIS
    : acquisition(acquisitionLock),
      callback(callbackMutex) {
    for (;;) {
        callback.lock();
        if (acquisition.try_lock()) return;
        callback.unlock();
        std::this_thread::yield();

        acquisition.lock();
        if (callback.try_lock()) return;
        acquisition.unlock();
        std::this_thread::yield();
    }
}

BothLocks::~BothLocks() NO_THREAD_SAFETY_ANALYSIS {
    acquisition.unlock();
    callback.unlock();
}
