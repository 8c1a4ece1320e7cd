#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/Event.h"
#include "platform/VirtualClock.h"

using namespace platform;
using std::chrono::milliseconds;
using testing::ElementsAre;

TEST(VirtualClock, SleepRunsWhatFallsDueInOrder) {
    ScopedVirtualClock clock;
    const Time start = clock.now();
    std::vector<int> ran;
    schedule(start + milliseconds(20), [&] { ran.push_back(2); });
    schedule(start + milliseconds(10), [&] {
        ran.push_back(1);
        schedule(now() + milliseconds(5), [&] { ran.push_back(15); });
    });
    schedule(start + milliseconds(20), [&] { ran.push_back(3); });
    schedule(start + milliseconds(31), [&] { ran.push_back(9); });
    sleepFor(milliseconds(30));
    EXPECT_THAT(ran, ElementsAre(1, 15, 2, 3));
    EXPECT_EQ(clock.now() - start, milliseconds(30));
}

TEST(VirtualClock, TimedWaitEndsAtTheSignalOrTheDeadline) {
    ScopedVirtualClock clock;
    const Time start = clock.now();
    void* const event = createAutoResetEvent();
    schedule(start + milliseconds(40), [&] { signalEvent(event); });
    EXPECT_EQ(waitForEvent(event, 30), waitTimedOut);
    EXPECT_EQ(clock.now() - start, milliseconds(30));
    EXPECT_EQ(waitForEvent(event, waitForever), waitSignaled);
    EXPECT_EQ(clock.now() - start, milliseconds(40));
    EXPECT_THROW(waitForEvent(event, waitForever), VirtualClockHang);
    EXPECT_EQ(clock.hangs(), 1);
    closeEvent(event);
}

TEST(Event, HoldsOneSignalWhichAWaitTakes) {
    void* const event = createAutoResetEvent();
    EXPECT_EQ(waitForEvent(event, 0), waitTimedOut);
    signalEvent(event);
    signalEvent(event);
    EXPECT_EQ(waitForEvent(event, 0), waitSignaled);
    EXPECT_EQ(waitForEvent(event, 0), waitTimedOut);
    signalEvent(event);
    resetEvent(event);
    EXPECT_EQ(waitForEvent(event, 0), waitTimedOut);
    EXPECT_NE(closeEvent(event), 0);
}

TEST(Event, ClosedHandlesAreRecognised) {
    void* const event = createAutoResetEvent();
    closeEvent(event);
    signalEvent(event);
    resetEvent(event);
    EXPECT_EQ(waitForEvent(event, waitForever), waitFailed);
    EXPECT_EQ(closeEvent(event), 0);
    EXPECT_EQ(waitForEvent(nullptr, waitForever), waitFailed);
    EXPECT_NE(createAutoResetEvent(), event) << "keys are not used twice";
}

TEST(Event, ClosingEndsAWaitInProgress) {
    void* const event = createAutoResetEvent();
    std::atomic<bool> waiting{false};
    std::uint32_t result = 0;
    std::thread waiter([&] {
        waiting = true;
        result = waitForEvent(event, waitForever);
    });
    while (!waiting) std::this_thread::yield();
    closeEvent(event);
    waiter.join();
    EXPECT_EQ(result, waitFailed);
}

TEST(RealClock, TimerThreadRunsTasksInDueOrder) {
    void* const done = createAutoResetEvent();
    std::vector<int> ran;
    const Time start = now();
    schedule(start + milliseconds(4), [&] {
        ran.push_back(2);
        signalEvent(done);
    });
    schedule(start + milliseconds(2), [&] { ran.push_back(1); });
    EXPECT_EQ(waitForEvent(done, 10000), waitSignaled);
    EXPECT_THAT(ran, ElementsAre(1, 2));
    EXPECT_GE(now() - start, milliseconds(4));
    closeEvent(done);
}
