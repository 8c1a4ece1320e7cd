#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "detector/xclib_real.h"
#include "support/LiveRig.h"

/// The application's function: what it is called with, when it can be changed, and what becomes of its failures.

using support::Checkpoint;
using support::failureOf;
using support::LiveRig;
using support::until;

namespace {

using Callback = support::LiveTest;

}  // namespace

TEST_P(Callback, GetsFieldCountAndBufferOfEachFrame) {
    rig.installCallback();
    for (const int limit : {0, 3}) {
        const int before = rig.count;
        const int field = detector.GetFieldCount();
        detector.GoLiveSeq(1, 2, limit);
        for (int frame = 1; frame <= 3; ++frame) {
            rig.giveToCallback();
            rig.awaitCalls(before + frame);
            const LiveRig::Call last = rig.calls().back();
            EXPECT_EQ(last.field, field + feed.fieldsOfFirstFrame() - 1 + frame);
            EXPECT_EQ(last.buffer, frame == 2 ? 2 : 1);
        }
        if (limit == 0) detector.GoUnLive();
        rig.awaitEnd();
    }
    rig.awaitCallbackThreadsEnd();
    EXPECT_EQ(rig.count, 6);
    EXPECT_TRUE(detector.IsCallbackActive());
    EXPECT_NO_THROW(detector.CheckForCallbackError());
}

namespace {

struct Thrown {
    const char* name;
    std::function<void()> raise;
    const char* text;  ///< of what is kept; null for nothing
    Derr code;
    const char* function;
};

constexpr const char* threadName = "baseDetector::CallbackCounterThread";
constexpr const char* waitName = "baseDetector::WaitImage";

const Thrown thrown[] = {
    {"one of the library", [] { throw QuorinException("x", DerrBinning, 1, "f", "a::b", 7, ""); }, "x", DerrBinning,
     "a::b"},
    {"a standard exception", [] { throw std::runtime_error("out of paper"); }, "out of paper", DerrWrapped, threadName},
    {"anything else", [] { throw 42; }, "Unknown exception in callback", DerrWrapped, threadName},
    {"a wait without a frame", [] { throw QuorinException("t", DerrAcquisition, 1, "f", waitName, 258, ""); }, nullptr,
     DerrWrapped, ""},
    {"a wait that failed", [] { throw QuorinException("w", DerrAcquisition, 1, "f", waitName, 0, ""); }, "w",
     DerrAcquisition, waitName},
    {"258 of another function", [] { throw QuorinException("o", DerrTransport, 1, "f", "a::b", 258, ""); }, "o",
     DerrTransport, "a::b"},
};

}  // namespace

TEST_P(Callback, FailureIsKeptForTheApplicationUntilTheNext) {
    std::atomic<const Thrown*> now{nullptr};
    rig.installCallback([&](const LiveRig::Call&) { now.load()->raise(); });
    std::string kept;
    int frames = 0;
    detector.GoLiveSeq(0, 3, 0);
    for (const Thrown& each : thrown) {
        SCOPED_TRACE(each.name);
        now = &each;
        feed.give(1);
        rig.awaitCalls(++frames);
        feed.give(1);  // the thread has handled the first one's exception when it calls for the second
        rig.awaitCalls(++frames);
        if (each.text != nullptr) kept = each.text;
        for (int call = 0; call < 2; ++call) {
            const auto error = failureOf([&] { detector.CheckForCallbackError(); });
            ASSERT_TRUE(error);
            const std::string text = error->what();
            EXPECT_EQ(text.substr(0, text.find(" (code ")), kept);
            if (each.text == nullptr) continue;
            EXPECT_EQ(error->GetCode(), each.code);
            EXPECT_STREQ(error->GetFunctionName(), each.function);
            EXPECT_THAT(text, testing::HasSubstr("baseDetector::CheckForCallbackError"));
        }
    }
    detector.CloseBoard();
    detector.OpenBoard();
    rig.expectNextRunWorks();
    EXPECT_TRUE(failureOf([&] { detector.CheckForCallbackError(); })) << "a close or a new run cleared it";
}

TEST_P(Callback, SkipsToTheNewestFrame) {
    Checkpoint firstCall;
    rig.installCallback([&](const LiveRig::Call&) {
        if (rig.count == 1) firstCall.stop();
    });
    const int field = detector.GetFieldCount() + feed.fieldsOfFirstFrame() + 3;
    detector.GoLiveSeq(0, 3, 0);
    feed.give(1);
    firstCall.await();
    feed.give(3);
    until([&] { return detector.GetFieldCount() == field && feed.framesHeld() == 0; });
    firstCall.release();
    rig.awaitCalls(2);
    EXPECT_EQ(rig.calls()[1].field, field);
    EXPECT_EQ(rig.calls()[1].buffer, 3);
    detector.GoUnLive();
    EXPECT_EQ(rig.count, 2);
}

namespace {

/// Counts the questions of a callback thread whether the grabber is live; the next one can fail.
class Questions : public xclib_real {
public:
    explicit Questions(std::shared_ptr<CallbackLoop> ofThread) : loop(std::move(ofThread)) {}
    int goneLive(pxdstate* state, int unitMap) override {
        if (loop->onThisThread() && counted.fetch_add(1) == 0 && failsFirst.exchange(false))
            throw std::runtime_error("no answer");
        return xclib_real::goneLive(state, unitMap);
    }

    std::atomic<int> counted{0};
    std::atomic<bool> failsFirst{false};

private:
    const std::shared_ptr<CallbackLoop> loop;
};

struct InsideEpix : EpixDetector {
    static auto& library(baseDetector& detector) {
        return static_cast<EpixDetector&>(detector).*(&InsideEpix::xclibLib);
    }
};

}  // namespace

TEST(CameraLinkCallback, ThreadAsksOnceWhetherTheRunIsLiveAndAFailureOfTheQuestionKeepsNoLock) {
    const support::Watchdog watchdog;
    const support::QuietLog quiet;
    LiveRig rig(TransportCL);
    baseDetector& detector = *rig.detector;
    support::FrameFeed& feed = *rig.feed;
    const auto questions = std::make_shared<Questions>(support::Inside::loop(detector));
    InsideEpix::library(detector) = questions;
    rig.installCallback([&](const LiveRig::Call& /*call*/) {
        until([&] { return !feed.isAcquiring(); });
        questions->counted = 0;
    });
    for (const bool fails : {false, true}) {
        questions->failsFirst = false;
        detector.GoLiveSeq(0, 3, 1);
        until([&] { return questions->counted > 0; });
        questions->failsFirst = fails;
        rig.giveToCallback();
        rig.awaitCallbackThreadsEnd();
        EXPECT_EQ(questions->counted, fails ? 2 : 1);
    }
    const auto kept = failureOf([&] { detector.CheckForCallbackError(); });
    ASSERT_TRUE(kept);
    EXPECT_THAT(kept->what(), testing::HasSubstr("no answer"));
    EXPECT_NO_THROW(detector.StopCallback());
}

TEST_P(Callback, GetsItsShareOfFramesThatAnotherThreadWaitsForInALoop) {
    constexpr int frames = 60;
    std::atomic<int> waited{0};
    std::atomic<bool> done{false};
    rig.installCallback();
    detector.GoLiveSeq();
    std::thread greedy([&] {
        while (!done)
            if (!failureOf([&] { detector.WaitImage(20); })) ++waited;
    });
    for (int frame = 1; frame <= frames; ++frame) {
        feed.give(1);
        until([&] { return waited + rig.count >= frame; });
    }
    done = true;
    greedy.join();
    detector.GoUnLive();
    EXPECT_GE(rig.count, frames / 5);
    EXPECT_GE(waited, frames / 5);
}

INSTANTIATE_TEST_SUITE_P(On, Callback, support::onBothTransports, support::transportName);
