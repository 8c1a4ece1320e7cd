#include "platform/Clock.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "platform/FastClock.h"
#include "platform/VirtualClock.h"

namespace platform {
namespace {

std::atomic<ScopedVirtualClock*> virtualClock{nullptr};
std::atomic<int> clockSpeed{1};
std::atomic<Time::rep> speedBegan{0};  ///< steady time since which time runs at that speed

Time steadyNow() {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

Time realNow() {
    const Time began(speedBegan.load());
    return began + (steadyNow() - began) * clockSpeed.load();
}

std::chrono::steady_clock::time_point toSteady(Time time) {
    const Time began(speedBegan.load());
    const Time steady = began + (time - began) / clockSpeed.load();
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(steady));
}

/// The thread that runs scheduled tasks on the real clock; it starts with the first task.
class TimerThread {
public:
    static TimerThread& instance() {
        // The queue is never destroyed: a task may be scheduled while the process ends.
        static TimerThread& theInstance = *new TimerThread;  // NOLINT
        static const StopAtExit stopper{theInstance};
        return theInstance;
    }

    void add(Time due, std::function<void()> task) EXCLUDES(mutex) {
        {
            const MutexLock lock(mutex);
            tasks.emplace(std::pair(due, ++added), std::move(task));
            if (!started && !stopped) {
                started = true;
                thread = std::thread([this] { run(); });
            }
        }
        changed.notify_all();
    }

private:
    struct StopAtExit {
        TimerThread& timer;
        ~StopAtExit() { timer.stop(); }
    };

    void run() NO_THREAD_SAFETY_ANALYSIS {
        std::unique_lock lock(mutex.native());
        while (!stopped) {
            if (tasks.empty()) {
                changed.wait(lock);
            } else if (const Time due = tasks.begin()->first.first; due > realNow()) {
                changed.wait_until(lock, toSteady(due));
            } else {
                const std::function<void()> task = std::move(tasks.begin()->second);
                tasks.erase(tasks.begin());
                lock.unlock();
                task();
                lock.lock();
            }
        }
    }

    void stop() EXCLUDES(mutex) {
        {
            const MutexLock lock(mutex);
            stopped = true;
        }
        changed.notify_all();
        if (thread.joinable()) thread.join();
    }

    Mutex mutex;
    std::condition_variable changed;
    std::map<std::pair<Time, std::uint64_t>, std::function<void()>> tasks GUARDED_BY(mutex);
    std::uint64_t added GUARDED_BY(mutex) = 0;
    bool started GUARDED_BY(mutex) = false;
    bool stopped GUARDED_BY(mutex) = false;
    std::thread thread;
};

}  // namespace

Time now() {
    const ScopedVirtualClock* clock = virtualClock.load();
    return clock != nullptr ? clock->now() : realNow();
}

void sleepFor(std::chrono::nanoseconds duration) {
    if (ScopedVirtualClock* clock = virtualClock.load()) {
        if (duration.count() > 0) clock->advance(duration);
    } else if (duration.count() > 0) {
        std::this_thread::sleep_for(duration / clockSpeed.load());
    } else {
        std::this_thread::yield();
    }
}

std::chrono::system_clock::time_point timeOfDay() {
    return std::chrono::system_clock::now();
}

std::int64_t tickCountMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(now()).count();
}

std::int64_t performanceCounter() {
    return now().count();
}

std::int64_t performanceFrequency() {
    return std::nano::den;
}

Time deadlineAfterMs(std::int64_t timeoutMs) {
    return timeoutMs < 0 ? never : now() + std::chrono::milliseconds(timeoutMs);
}

void schedule(Time due, std::function<void()> task) {
    if (ScopedVirtualClock* clock = virtualClock.load())
        clock->add(due, std::move(task));
    else
        TimerThread::instance().add(due, std::move(task));
}

VirtualClockHang::VirtualClockHang() : std::logic_error("an infinite wait on the virtual clock with nothing due") {}
VirtualClockHang::~VirtualClockHang() = default;

void Condition::notifyAll() {
    condition.notify_all();
}

bool Condition::waitUntil(Mutex& mutex, Time deadline) {
    if (ScopedVirtualClock* clock = virtualClock.load()) {
        struct Relock {
            Mutex& mutex;
            explicit Relock(Mutex& held) NO_THREAD_SAFETY_ANALYSIS : mutex(held) { mutex.unlock(); }
            ~Relock() NO_THREAD_SAFETY_ANALYSIS { mutex.lock(); }
        } const relock(mutex);
        return clock->step(deadline);
    }
    std::unique_lock lock(mutex.native(), std::adopt_lock);
    bool inTime = true;
    if (deadline == never)
        condition.wait(lock);
    else
        inTime = condition.wait_until(lock, toSteady(deadline)) == std::cv_status::no_timeout;
    lock.release();
    return inTime;
}

ScopedFastClock::ScopedFastClock(int speed) {
    if (speed < 1) throw std::invalid_argument("a clock's speed is 1 or more");
    speedBegan = steadyNow().count();
    clockSpeed = speed;
}

ScopedFastClock::~ScopedFastClock() {
    clockSpeed = 1;
    speedBegan = 0;
}

ScopedVirtualClock::ScopedVirtualClock() {
    ScopedVirtualClock* none = nullptr;
    if (!virtualClock.compare_exchange_strong(none, this))
        throw std::logic_error("a virtual clock is in force already");
}

ScopedVirtualClock::~ScopedVirtualClock() {
    virtualClock.store(nullptr);
}

void ScopedVirtualClock::add(Time due, std::function<void()> task) {
    tasks.emplace(std::pair(due, ++added), std::move(task));
}

void ScopedVirtualClock::runUntil(Time target) {
    while (step(target)) {
    }
}

bool ScopedVirtualClock::step(Time deadline) {
    if (tasks.empty() || tasks.begin()->first.first > deadline) {
        if (deadline == never) {
            ++hangCount;
            throw VirtualClockHang();
        }
        current = std::max(current, deadline);
        return false;
    }
    current = std::max(current, tasks.begin()->first.first);
    const std::function<void()> task = std::move(tasks.begin()->second);
    tasks.erase(tasks.begin());
    task();
    return true;
}

}  // namespace platform
