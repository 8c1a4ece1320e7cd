#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "simulator/SimulatedDetector.h"

namespace {

using simulator::FrameFate;
using simulator::SimulatedDetector;

class FramesOnTheRealClock : public testing::Test {
protected:
    FramesOnTheRealClock() {
        detector->setReadoutTimeMs(0.2);
        detector->setMinimumWindowMs(0.3);
        detector->writeRegister(11, 0);
        detector->writeRegister(12, 0);
    }
    std::shared_ptr<SimulatedDetector> detector = SimulatedDetector::create(*simulator::findProfile("5101"));
};

TEST_F(FramesOnTheRealClock, AreNotHandedToAReceiverThatWasCleared) {
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> inReceiver{false};
    detector->setFrameReceiver([&, first = true](const simulator::Frame&) mutable {
        inReceiver = true;
        if (first) {
            first = false;
            entered.set_value();
            leave.get_future().wait();
            for (int turn = 0; turn < 2000; ++turn) std::this_thread::yield();  // lets an early return be seen
        }
        inReceiver = false;
        return FrameFate::Delivered;
    });
    entered.get_future().wait();
    std::promise<void> clearing;
    std::thread clearer([&] {
        clearing.set_value();
        detector->setFrameReceiver(nullptr);
        EXPECT_FALSE(inReceiver) << "returned in the middle of a call";
    });
    clearing.get_future().wait();
    leave.set_value();
    clearer.join();
}

}  // namespace
