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

TEST_F(FramesOnTheRealClock, SurviveReceiversThatComeAndGo) {
    for (int round = 0; round < 50; ++round) {
        std::promise<void> arrived;
        detector->setFrameReceiver([&, first = true](const simulator::Frame& frame) mutable {
            EXPECT_EQ(frame.pixels.front(), simulator::patternPixel(frame.number, 1, 0, 0));
            if (first) arrived.set_value();
            first = false;
            return FrameFate::Delivered;
        });
        arrived.get_future().wait();
        detector->injectEdge();
        detector->setFrameReceiver(nullptr);
    }
    EXPECT_GE(detector->ledger().delivered, 50U);
}

TEST_F(FramesOnTheRealClock, AnswerSeveralHostsAtOnce) {
    std::atomic<int> replies{0};
    const auto host = [&] {
        for (int i = 0; i < 200; ++i) {
            detector->serialWrite("R1124\r");
            char byte = 0;
            while (byte != '\r')
                if (detector->serialRead(&byte, 1, platform::deadlineAfterMs(5000)) == 0) return;
            ++replies;
        }
    };
    std::thread other(host);
    host();
    other.join();
    EXPECT_EQ(replies, 400);
}

}  // namespace
