#include "platform/Event.h"

#include <cerrno>
#include <map>
#include <memory>

#include "platform/Clock.h"
#include "platform/SystemError.h"

namespace platform {
namespace {

struct Event {
    Mutex mutex;
    Condition changed;
    bool signaled GUARDED_BY(mutex) = false;
    bool closed GUARDED_BY(mutex) = false;
};

struct EventTable {
    Mutex mutex;
    std::uintptr_t lastKey GUARDED_BY(mutex) = 0;
    std::map<void*, std::shared_ptr<Event>> events GUARDED_BY(mutex);
};

EventTable& table() {
    static EventTable& theTable = *new EventTable;  // NOLINT: outlives every thread that may still signal
    return theTable;
}

std::shared_ptr<Event> find(void* handle) {
    EventTable& all = table();
    const MutexLock lock(all.mutex);
    const auto found = all.events.find(handle);
    return found == all.events.end() ? nullptr : found->second;
}

}  // namespace

void* createAutoResetEvent() {
    EventTable& all = table();
    const MutexLock lock(all.mutex);
    void* const handle = reinterpret_cast<void*>(++all.lastKey);  // NOLINT: a key, not an address
    all.events.emplace(handle, std::make_shared<Event>());
    return handle;
}

void signalEvent(void* handle) {
    if (const std::shared_ptr<Event> event = find(handle)) {
        {
            const MutexLock lock(event->mutex);
            event->signaled = true;
        }
        event->changed.notifyAll();  // without the lock, for which a woken thread would have to wait
    }
}

void resetEvent(void* handle) {
    if (const std::shared_ptr<Event> event = find(handle)) {
        const MutexLock lock(event->mutex);
        event->signaled = false;
    }
}

std::uint32_t waitForEvent(void* handle, std::uint32_t timeoutMs) {
    const std::shared_ptr<Event> event = find(handle);
    if (event == nullptr) {
        setLastError(EBADF);
        return waitFailed;
    }
    const Time deadline = deadlineAfterMs(timeoutMs == waitForever ? -1 : static_cast<std::int64_t>(timeoutMs));
    const MutexLock lock(event->mutex);
    while (!event->signaled && !event->closed) {
        if (!event->changed.waitUntil(event->mutex, deadline) && !event->signaled && !event->closed)
            return waitTimedOut;
    }
    if (event->closed) {
        setLastError(EBADF);
        return waitFailed;
    }
    event->signaled = false;
    return waitSignaled;
}

int closeEvent(void* handle) {
    std::shared_ptr<Event> event;
    {
        EventTable& all = table();
        const MutexLock lock(all.mutex);
        const auto found = all.events.find(handle);
        if (found == all.events.end()) {
            setLastError(EBADF);
            return 0;
        }
        event = std::move(found->second);
        all.events.erase(found);
    }
    const MutexLock lock(event->mutex);
    event->closed = true;
    event->changed.notifyAll();
    return 1;
}

std::size_t openEventCount() {
    EventTable& all = table();
    const MutexLock lock(all.mutex);
    return all.events.size();
}

}  // namespace platform
