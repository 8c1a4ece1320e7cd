#include "detector/StoppableLock.h"

#include "InternalUtils/Failure.h"

void CallbackLoop::wake() {
    { const std::lock_guard<std::mutex> lock(monitor); }
    changed.notify_all();
}

bool StoppableLock::takeIfFree() {
    const std::thread::id self = std::this_thread::get_id();
    if (depth > 0 ? owner != self : first != nullptr) return false;
    owner = self;
    ++depth;
    return true;
}

void StoppableLock::remove(const Waiter& waiter) {
    Waiter** place = &first;
    while (*place != &waiter) place = &(*place)->next;
    *place = waiter.next;
}

template <class GivesUp>
bool StoppableLock::take(GivesUp&& givesUp) {
    std::unique_lock<std::mutex> monitor(loop.monitor);
    if (takeIfFree()) return true;
    Waiter self;
    Waiter** place = &first;
    while (*place != nullptr) place = &(*place)->next;
    *place = &self;
    bool taken = false;
    loop.changed.wait(monitor, [&] {
        taken = depth == 0 && first == &self;
        return taken || givesUp();
    });
    remove(self);
    if (taken) {
        owner = std::this_thread::get_id();
        depth = 1;
    } else {
        loop.changed.notify_all();  // the next waiter may be able to acquire it
    }
    return taken;
}

void StoppableLock::lock() {
    if (!lockUnlessStopped())
        fail("The callback is being stopped: this operation cannot be done from inside it.", DerrCallback,
             "StoppableLock::lock");
}

bool StoppableLock::lockUnlessStopped() {
    if (loop.onThisThread()) return take([this] { return !loop.running; });
    return take([] { return false; });
}

bool StoppableLock::lockUnless(const std::atomic<bool>& giveUp) {
    return take([&giveUp] { return giveUp.load(); });
}

bool StoppableLock::try_lock() {
    const std::lock_guard<std::mutex> monitor(loop.monitor);
    return takeIfFree();
}

void StoppableLock::unlock() {
    const std::lock_guard<std::mutex> monitor(loop.monitor);
    if (--depth > 0) return;
    owner = {};
    if (first != nullptr) loop.changed.notify_all();
}

BothLocks::BothLocks(StoppableLock& acquisitionLock, platform::Mutex& callbackMutex) NO_THREAD_SAFETY_ANALYSIS
    : acquisition(acquisitionLock),
      callback(callbackMutex) {
    std::lock(callback, acquisition);
}

BothLocks::~BothLocks() NO_THREAD_SAFETY_ANALYSIS {
    acquisition.unlock();
    callback.unlock();
}
