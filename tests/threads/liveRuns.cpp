#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

#include "support/LiveRig.h"

/// Live sequences on the road from the pipeline to the ring: where frames go, how runs end, what failures leave.

using support::Checkpoint;
using support::expectFailure;
using support::Inside;
using support::LiveRig;
using support::ThreadedPleora;
using support::until;

namespace {

using LiveRun = support::LiveTest;
using GigeLiveRun = support::GigeLiveTest;

constexpr const char* rangeText = "The requested buffer is outside of the allocated range!";
constexpr const char* liveText = "An error occured in the Live thread!";

struct Sequence {
    const char* name;
    int start;
    int stop;
    int limit;
    std::vector<int> blocks;  ///< in the order in which frames come
};

const Sequence sequences[] = {
    {"the whole ring, over and over", 0, 3, 0, {0, 1, 2, 3, 0, 1}},
    {"one block each time", 2, 2, 0, {2, 2, 2}},
    {"a stretch of the ring", 1, 2, 0, {1, 2, 1, 2}},
    {"two frames", 0, 3, 2, {0, 1}},
    {"more frames than blocks", 1, 2, 3, {1, 2, 1}},
    {"a first frame that is the last", 0, 9, 1, {0}},
};

}  // namespace

TEST_P(LiveRun, PutsEachFrameIntoItsBlockAndCountsIt) {
    int field = 0;
    int frame = 0;
    for (const Sequence& sequence : sequences) {
        SCOPED_TRACE(sequence.name);
        detector.GoLiveSeq(sequence.start, sequence.stop, sequence.limit);
        field += feed.fieldsOfFirstFrame() - 1;
        int taken = 0;
        for (const int block : sequence.blocks) {
            feed.give(1);
            detector.WaitImage(-1);
            EXPECT_EQ(detector.GetFieldCount(), ++field);
            EXPECT_EQ(detector.GetCapturedBuffer(), block);
            EXPECT_EQ(rig.frameIn(block), ++frame);
            EXPECT_EQ(detector.IsLive(), ++taken != sequence.limit);
        }
        if (sequence.limit == 0) detector.GoUnLive();
        rig.awaitEnd();
        EXPECT_EQ(feed.framesHeld(), 0);
    }
    detector.GoLiveSeq();
    EXPECT_TRUE(detector.IsLive());
    detector.GoUnLive();
    EXPECT_NO_THROW(detector.GoUnLive());
    expectFailure([&] { detector.GoLiveSeq(2, 1, 0); },
                  "The stop parameter cannot be greater than the start parameter!", DerrBadRequest);
}

INSTANTIATE_TEST_SUITE_P(On, LiveRun, support::onBothTransports, support::transportName);

TEST_F(GigeLiveRun, BeyondTheRingFailsWhenItGetsThereAndStaysLive) {
    const auto expectLiveError = [&](const auto& call) { expectFailure(call, rangeText, DerrResources); };
    detector.GoLiveSeq(3, 4, 0);
    pleora.give(2);
    until([&] { return support::failureOf([&] { detector.CheckForLiveError(); }).has_value(); });
    detector.WaitImage(0);  // the good frame's signal counts in spite of the error
    expectLiveError([&] { detector.WaitImage(0); });
    expectLiveError([&] { detector.CheckForLiveError(); });
    EXPECT_TRUE(detector.IsLive());
    EXPECT_TRUE(pleora.isAcquiring());
    detector.GoUnLive();
    EXPECT_FALSE(detector.IsLive());
    EXPECT_TRUE(pleora.isAcquiring());
    rig.expectNextRunWorks();
    expectLiveError([&] { detector.CheckForLiveError(); });
}

namespace {

struct Failure {
    const char* name;
    std::function<void(support::ThreadedPleora&)> provoke;
    int limit;
    const char* text;
    int transportError;
    bool liveAfter;
};

const Failure failures[] = {
    {"a retrieval that fails", [](auto& pleora) { pleora.giveFailure(3, 0); }, 0, liveText, 3, true},
    {"a frame that is bad", [](auto& pleora) { pleora.giveFailure(0, 13); }, 0, liveText, 13, true},
    {"a bad frame whose code is that of a time-out", [](auto& pleora) { pleora.giveFailure(0, 30); }, 0, liveText, 30,
     true},
    {"a refused release",
     [](auto& pleora) {
         pleora.setFailing("release", 5);
         pleora.give(1);
     },
     0, "Problem releasing detector buffers!", 5, true},
    {"a refused release of the last frame",
     [](auto& pleora) {
         pleora.setFailing("release", 5);
         pleora.give(1);
     },
     1, "Problem releasing detector buffers!", 5, false},
    {"a refused stop after the last frame",
     [](auto& pleora) {
         pleora.setFailing("State_Stop", 7);
         pleora.give(1);
     },
     1, "Problem stopping acquisition manager!", 7, false},
};

}  // namespace

TEST_F(GigeLiveRun, FailureIsReportedAtEachCallAndTheStopStillWorks) {
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.name);
        LiveRig each(TransportGE);
        ThreadedPleora& line = *static_cast<support::PleoraFeed&>(*each.feed).pleora;
        each.detector->GoLiveSeq(0, 3, failure.limit);
        failure.provoke(line);
        until([&] { return support::failureOf([&] { each.detector->CheckForLiveError(); }).has_value(); });
        for (int call = 0; call < 2; ++call) {
            const auto error = expectFailure([&] { each.detector->CheckForLiveError(); }, failure.text, DerrTransport,
                                             failure.transportError);
            EXPECT_STREQ(error->GetFunctionName(), "PleoraDetector::CheckForLiveError");
            EXPECT_STREQ(error->GetTransportMessage(), "scripted failure");
        }
        EXPECT_EQ(each.detector->IsLive(), failure.liveAfter);
        for (const char* call : {"release", "State_Stop"}) line.setFailing(call, 0);
        EXPECT_NO_THROW(each.detector->GoUnLive());
        EXPECT_EQ(line.framesHeld(), 0);
        each.expectNextRunWorks();
    }
}

TEST_F(GigeLiveRun, FrameWithoutPixelsIsAnErrorAndGivenBackByTheNextRun) {
    std::vector<std::uint8_t> pixels;
    pleora.atRetrieved = [&] { pixels.swap(pleora.frame); };
    detector.GoLiveSeq();
    pleora.give(1);
    until([&] { return support::failureOf([&] { detector.CheckForLiveError(); }).has_value(); });
    expectFailure([&] { detector.CheckForLiveError(); }, liveText, DerrTransport);
    detector.GoUnLive();
    pleora.atRetrieved = nullptr;
    pixels.swap(pleora.frame);
    rig.expectNextRunWorks();
    EXPECT_EQ(pleora.framesHeld(), 0);
}

TEST_F(GigeLiveRun, PausesForAChangeOfSizeAndCountsAFrameThatComesRightAfterIt) {
    int writesWhileAcquiring = 0;
    pleora.atCommand = [&](const std::string& command) {
        if (command.front() == 'W' && pleora.isAcquiring()) ++writesWhileAcquiring;
    };
    detector.GoLiveSeq();
    int frames = 0;
    for (const bins mode : {Bin2x2, Bin4x4, Bin2x2, Bin4x4}) {
        detector.SetBinningMode(mode);
        EXPECT_TRUE(pleora.isAcquiring());
        pleora.give(1);
        ++frames;
        until([&] { return pleora.framesTaken() == frames && pleora.framesHeld() == 0; });
        EXPECT_EQ(detector.GetFieldCount(), frames + 1);
    }
    detector.GoUnLive();
    EXPECT_EQ(writesWhileAcquiring, 0);
    pleora.atCommand = nullptr;
}

TEST_F(GigeLiveRun, WaitsForFramesWithoutAnError) {
    pleora.give(1);
    detector.GoLiveSeq(0, 3, -1);
    rig.awaitEnd();
    EXPECT_EQ(detector.GetFieldCount(), 0) << "a negative count ends at once";
    pleora.dropFrames();
    detector.GoLiveSeq(0, 3, 1);
    pleora.giveFailure(30, 0);
    until([&] { return pleora.emptyRetrievals() >= 2; });
    EXPECT_NO_THROW(detector.CheckForLiveError());
    pleora.give(1);
    detector.WaitImage(-1);
    EXPECT_EQ(detector.GetFieldCount(), 2) << "an empty retrieval used up the first frame's mark";
}

namespace {

struct Refusal {
    const char* name;
    int threadToRefuse;  ///< counted from 1 within the start; 0: none
    bool refuseAcquisition;
};
constexpr Refusal refusals[] = {{"acquisition", 0, true}, {"callback thread", 1, false}, {"live thread", 2, false}};

}  // namespace

TEST_F(GigeLiveRun, ThatCannotStartLeavesNothingBehind) {
    rig.installCallback();
    auto& startThread = Inside::threadMaker(detector);
    const auto realStart = startThread;
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        int asked = 0;
        startThread = [&](std::function<void()> body) {
            if (++asked == refusal.threadToRefuse)
                throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
            return realStart(std::move(body));
        };
        pleora.setFailing("State_Start", refusal.refuseAcquisition ? 5 : 0);
        if (refusal.refuseAcquisition) {
            expectFailure([&] { detector.GoLiveSeq(0, 3, 0); }, "Problem starting acquisition manager!", DerrTransport,
                          5);
        } else {
            try {
                detector.GoLiveSeq(0, 3, 0);
                ADD_FAILURE() << "started without a thread";
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
            }
        }
        EXPECT_FALSE(detector.IsLive());
        EXPECT_FALSE(pleora.isAcquiring());
        EXPECT_FALSE(Inside::loop(detector)->running);
        EXPECT_NO_THROW(detector.GoUnLive());
        pleora.setFailing("State_Start", 0);
        startThread = realStart;
        rig.expectNextRunCalls();
    }
}

namespace {

struct Stale : PleoraDetector {
    static auto& count(PleoraDetector& detector) { return detector.*(&Stale::staleFrames); }
};

}  // namespace

TEST_F(GigeLiveRun, ReleasesAFrameFromBeforeASizeChangeUncopied) {
    Checkpoint frameInHand;
    std::atomic<int> retrieved{0};
    pleora.atRetrieved = [&] {
        if (++retrieved == 2) frameInHand.stop();
    };
    detector.GoLiveSeq(0, 3, 0);
    pleora.give(1);
    detector.WaitImage(-1);
    pleora.give(1);
    frameInHand.await();
    detector.UpdateInterfaceImageSize();
    frameInHand.release();
    until([&] { return Stale::count(detector) == 1; });
    EXPECT_EQ(detector.GetFieldCount(), 2);
    EXPECT_EQ(detector.GetCapturedBuffer(), 0);
    pleora.give(1);
    detector.WaitImage(-1);
    EXPECT_EQ(detector.GetFieldCount(), 3);
    EXPECT_EQ(detector.GetCapturedBuffer(), 1);
    EXPECT_EQ(rig.frameIn(1), 3) << "the stale frame was the second";
    detector.GoUnLive();
    EXPECT_EQ(pleora.framesHeld(), 0);
}
