#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <future>
#include <system_error>
#include <thread>

#include "support/LiveRig.h"
#include "support/LogCapture.h"

/// Every way to end a live run, against everything that can go on meanwhile: nothing hangs, nothing outlives what it
/// stands on, and the next run finds a clean table.

using support::Checkpoint;
using support::expectFailure;
using support::failureOf;
using support::Gate;
using support::Inside;
using support::LiveRig;
using support::until;

namespace {

using Stop = support::LiveTest;
using GigeStop = support::GigeLiveTest;
using Calls = std::vector<std::function<void()>>;

/// Runs all of them at once.
void together(const Calls& calls) {
    Gate start;
    std::vector<std::thread> threads;
    threads.reserve(calls.size());
    for (const auto& call : calls)
        threads.emplace_back([&start, &call] {
            start.pass();
            call();
        });
    start.open();
    for (std::thread& thread : threads) thread.join();
}

/// How long a wrong thing gets to happen, where the right thing is that it doesn't.
constexpr std::chrono::milliseconds room{5};

/// Moves two threads against each other by a little more each round.
void linger(int round) {
    for (int turn = 0; turn < round % 16; ++turn) std::this_thread::yield();
}

}  // namespace

TEST_P(Stop, WaitsForTheCallbackWhichMayAskWhetherTheRunIsLive) {
    Gate entered;
    bool answered = false;
    rig.installCallback([&](const LiveRig::Call&) {
        entered.open();
        until([&] { return !Inside::loop(detector)->running; });
        for (int question = 0; question < 100; ++question) answered = detector.IsLive();
    });
    detector.GoLiveSeq(0, 3, 0);
    feed.give(1);
    entered.pass();
    detector.GoUnLive();
    EXPECT_TRUE(answered) << "the stop returned before the callback, or was seen before it was done";
    EXPECT_FALSE(detector.IsLive());
    EXPECT_FALSE(feed.isAcquiring());
}

TEST_F(GigeStop, MeetsTheLastFrameAndTheEndOfTheLoop) {
    const std::vector<std::function<void()> support::ThreadedPleora::*> moments{&support::ThreadedPleora::atRetrieved,
                                                                                &support::ThreadedPleora::atRelease,
                                                                                &support::ThreadedPleora::atStateStop};
    rig.installCallback([&](const LiveRig::Call&) { detector.IsLive(); });
    for (int round = 0; round < 150; ++round) {
        const auto moment = moments[static_cast<std::size_t>(round) % moments.size()];
        Gate reached;
        pleora.*moment = [&] { reached.open(); };
        detector.GoLiveSeq(0, 3, 1);
        pleora.give(1);
        reached.pass();
        linger(round);
        detector.GoUnLive();
        EXPECT_FALSE(detector.IsLive());
        rig.awaitEnd();
        detector.GoUnLive();
        rig.awaitCallbackThreadsEnd();
        rig.detector->GoLiveSeq(0, 3, -1);  // joins the thread that the moment's gate belongs to
        rig.awaitEnd();
        pleora.*moment = nullptr;
    }
    EXPECT_EQ(pleora.framesHeld(), 0);
    EXPECT_EQ(detector.GetFieldCount(), 2 * pleora.framesTaken());
}

TEST_P(Stop, AgainstStart) {
    rig.installCallback();
    feed.setEndless(true);
    const auto churn = [&] {
        for (int round = 0; round < 100; ++round) {
            const auto refusal = failureOf([&] { detector.GoLiveSeq(0, 3, round % 3); });
            EXPECT_TRUE(!refusal || refusal->GetCode() == DerrBadRequest) << refusal->what();
            linger(round);
            EXPECT_NO_THROW(detector.GoUnLive());
        }
    };
    together({churn, churn, churn});
    detector.GoUnLive();
    feed.setEndless(false);
    rig.awaitEnd();
    rig.awaitCallbackThreadsEnd();
    rig.expectNextRunCalls();
}

namespace {

/// What can end a detector's life with the board.
struct Ending {
    const char* name;
    void (*end)(LiveRig& rig);
};
const Ending endings[] = {
    {"close", [](LiveRig& rig) { rig.detector->CloseBoard(); }},
    {"destruction", [](LiveRig& rig) { rig.detector.reset(); }},
};

}  // namespace

TEST_P(Stop, ByCloseOrDestructionWaitsForTheLastCallOfAnEndedRun) {
    for (const Ending& ending : endings) {
        SCOPED_TRACE(ending.name);
        LiveRig each(GetParam());
        Checkpoint lastCall;
        std::atomic<bool> returned{false};
        each.installCallback([&](const LiveRig::Call&) {
            lastCall.stop();
            returned = true;
        });
        each.detector->GoLiveSeq(0, 3, 1);
        each.giveToCallback();
        lastCall.await();
        each.awaitEnd();
        std::thread closer([&] {
            ending.end(each);
            EXPECT_TRUE(returned) << "ended under the running callback";
        });
        lastCall.release();
        closer.join();
        EXPECT_FALSE(each.feed->isOpen());
        EXPECT_EQ(each.count, 1);
    }
}

TEST_P(Stop, ByCloseOrDestructionMeetsACallbackThreadThatWaits) {
    for (const Ending& ending : endings) {
        SCOPED_TRACE(ending.name);
        for (int round = 0; round < 20; ++round) {
            LiveRig each(GetParam());
            each.installCallback();
            if (round == 0) {
                // The application takes the last frame's signal: the thread waits for one that doesn't come.
                std::thread application([&] { each.detector->WaitImage(-1); });
                until([&] { return Inside::someoneWaitsForAnImage(*each.detector); });
                each.detector->GoLiveSeq(0, 3, 1);
                until([&] { return Inside::loop(*each.detector)->thread.load() != std::thread::id(); });
                each.feed->give(1);
                application.join();
            } else {
                each.detector->GoLiveSeq(0, 3, 1 + round % 2);
                each.feed->give(2);
                linger(round);
            }
            ending.end(each);
            EXPECT_FALSE(each.feed->isOpen());
            EXPECT_FALSE(each.feed->isAcquiring());
            if (round == 0 && each.detector != nullptr) {
                each.detector->OpenBoard();
                EXPECT_NO_THROW(each.detector->CheckForCallbackError()) << "the event was closed under the thread";
            }
            const int calls = each.count;
            EXPECT_LE(calls, 2);
            linger(15);
            EXPECT_EQ(each.count, calls) << "called after the end";
        }
    }
}

TEST_P(Stop, ByDestructionFromTheCallbackClosesTheBoard) {
    getQorLogger()->set_level(spdlog::level::err);
    const support::LogCapture log;
    for (const int limit : {0, 1}) {
        SCOPED_TRACE(limit == 0 ? "in the middle of a run" : "at the last frame");
        LiveRig each(GetParam());
        Gate gone;
        Gate inCallback;
        // The live thread has its last frame's lock while the callback begins to destroy.
        each.feed->setAtRelease([&] {
            inCallback.pass();
            linger(15);
        });
        each.installCallback([&](const LiveRig::Call&) {
            inCallback.open();
            each.detector.reset();
            gone.open();
        });
        each.detector->GoLiveSeq(0, 3, limit);
        each.giveToCallback();
        gone.pass();
        EXPECT_FALSE(each.feed->isOpen());
        EXPECT_FALSE(each.feed->isAcquiring());
        EXPECT_EQ(each.feed->framesHeld(), 0);
    }
    EXPECT_TRUE(log.lines().empty()) << log.lines().front();
}

TEST_P(Stop, FromTheCallbackIsRefusedOnceAndTheRunGoesOn) {
    std::errc refusal{};
    const int field = detector.GetFieldCount() + feed.fieldsOfFirstFrame() + 1;
    rig.installCallback([&](const LiveRig::Call&) {
        if (rig.count > 1) return;
        try {
            detector.GoUnLive();
        } catch (const std::system_error& error) {
            refusal = static_cast<std::errc>(error.code().value());
            throw;
        }
    });
    detector.GoLiveSeq(0, 3, 0);
    feed.give(1);
    rig.awaitCalls(1);
    rig.awaitCallbackThreadsEnd();
    EXPECT_EQ(refusal, std::errc::resource_deadlock_would_occur);
    const auto kept = failureOf([&] { detector.CheckForCallbackError(); });
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->GetCode(), DerrWrapped);
    EXPECT_TRUE(detector.IsLive());
    feed.give(1);
    detector.WaitImage(-1);
    EXPECT_EQ(detector.GetFieldCount(), field);
    EXPECT_EQ(rig.count, 1);
    detector.GoUnLive();
    EXPECT_FALSE(feed.isAcquiring());
    rig.expectNextRunCalls();
}

TEST_P(Stop, TwiceFromTheCallbackEndsTheRunAndTheNextWaitsForItsReturn) {
    Checkpoint stopped;
    Gate calledAgain;
    std::atomic<bool> inFirst{false};
    std::atomic<bool> overlap{false};
    rig.installCallback([&](const LiveRig::Call&) {
        if (inFirst) overlap = true;
        if (rig.count > 1) return calledAgain.open();
        inFirst = true;
        EXPECT_THROW(detector.GoUnLive(), std::system_error);
        EXPECT_NO_THROW(detector.GoUnLive());
        stopped.stop();
        inFirst = false;
    });
    detector.GoLiveSeq(0, 3, 0);
    feed.give(1);
    stopped.await();
    EXPECT_FALSE(detector.IsLive());
    EXPECT_FALSE(feed.isAcquiring());
    std::thread starter([&] { detector.GoLiveSeq(0, 3, 0); });
    until([&] { return feed.isAcquiring(); });
    feed.give(1);
    calledAgain.passBefore(platform::now() + room);
    stopped.release();
    starter.join();
    calledAgain.pass();
    EXPECT_FALSE(overlap);
    together({[&] { detector.GoUnLive(); }, [&] { feed.give(1); }});
    rig.expectNextRunCalls();
}

TEST_P(Stop, IsNotHeldUpByAnEndlessWaitWhichACloseEnds) {
    rig.installCallback();
    std::optional<QuorinException> failure;
    std::atomic<bool> ended{false};
    std::thread waiter([&] {
        failure = failureOf([&] { detector.WaitImage(-1); });
        ended = true;
    });
    until([&] { return Inside::someoneWaitsForAnImage(detector); });
    for (int round = 0; round < 10; ++round) {
        detector.GoLiveSeq(0, 3, 0);
        until([&] { return Inside::loop(detector)->thread.load() != std::thread::id(); });
        linger(round);
        detector.GoUnLive();
        EXPECT_FALSE(ended);
    }
    detector.CloseBoard();
    waiter.join();
    ASSERT_TRUE(failure);
    const std::string text = failure->what();
    const bool saysSo = text.find("Error while waiting for image: WAIT_FAILED: ") == 0 ||
                        text.find("OpenBoard must be called") == 0;  // the board was closed when it came to look
    EXPECT_TRUE(saysSo) << text;
    EXPECT_EQ(rig.count, 0);
}

TEST_F(GigeStop, MeetsAFailureOfTheRun) {
    constexpr int rounds = 100;
    for (int round = 0; round < rounds; ++round) {
        // With a callback each stop takes the second of the callback thread's wait: no frame comes after a failure.
        if (round == rounds - 2) rig.installCallback();
        detector.GoLiveSeq(0, 3, round % 2);
        together({[&] { pleora.giveFailure(round % 4 < 2 ? 3 : 0, 13); },
                  [&] {
                      linger(round);
                      detector.GoUnLive();
                  }});
        EXPECT_FALSE(detector.IsLive());
        EXPECT_EQ(pleora.framesHeld(), 0);
        pleora.dropFrames();
    }
    rig.expectNextRunCalls();
}

TEST_P(Stop, OfALimitedRunMeetsWhatChangesTheAcquisition) {
    for (const bool pulses : {true, false}) {
        for (int round = 0; round < 60; ++round) {
            if (!pulses) rig.installCallback();
            detector.GoLiveSeq(0, 3, 1);
            together({[&] { feed.give(1); },
                      [&] {
                          if (!pulses) until([&] { return !detector.IsLive(); });
                          linger(round);
                          EXPECT_NO_THROW(pulses ? detector.EnablePulseGenerator(100.0F) : detector.StopCallback());
                      }});
            rig.awaitEnd();
            EXPECT_FALSE(detector.IsCallbackActive());
        }
        detector.DisablePulseGenerator();
        rig.expectNextRunWorks();
        failureOf([&] { detector.WaitImage(0); });  // consumes the signal of that run
    }
    EXPECT_NO_THROW(detector.CheckForCallbackError());
    EXPECT_LE(rig.count, 60);
}

TEST_P(Stop, OfALimitedRunLosesNoCallbackOfTheRunRightAfter) {
    rig.installCallback();
    for (int round = 0; round < 200; ++round) {
        detector.GoLiveSeq(0, 3, 1);
        feed.give(1);
        until([&] { return !detector.IsLive(); });
        linger(round);
        const int field = detector.GetFieldCount();
        detector.GoLiveSeq(0, 3, 0);
        feed.give(1);
        until([&] { return detector.GetFieldCount() > field; });
        // The one frame of this run has to bring a call, and no other frame comes to the rescue.
        until([&] { return !rig.calls().empty() && rig.calls().back().field == field + feed.fieldsOfFirstFrame(); });
        feed.setEndless(true);  // a stop without frames takes the second of the callback thread's wait
        detector.GoUnLive();
        feed.setEndless(false);
    }
    EXPECT_NO_THROW(detector.CheckForCallbackError());
}

TEST_P(Stop, OfTheCallbackThreadByItselfMeetsTheNextStart) {
    Checkpoint ending;
    class HoldUp : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
    public:
        explicit HoldUp(Checkpoint& checkpoint) : place(checkpoint) {}

    private:
        void sink_it_(const spdlog::details::log_msg& message) override {
            const std::string_view text(message.payload.data(), message.payload.size());
            if (text == "CALLBACK: IsLive is false, stopping callback thread" && !held.exchange(true)) place.stop();
        }
        void flush_() override {}
        Checkpoint& place;
        std::atomic<bool> held{false};
    };
    getQorLogger()->set_level(spdlog::level::info);
    getQorLogger()->sinks().push_back(std::make_shared<HoldUp>(ending));
    rig.installCallback();
    detector.GoLiveSeq(0, 3, 1);
    feed.give(1);
    ending.await();
    const int before = rig.count;
    Gate started;
    std::thread starter([&] {
        detector.GoLiveSeq(0, 3, 0);
        started.open();
    });
    started.passBefore(platform::now() + room);
    ending.release();
    starter.join();
    rig.giveToCallback();
    rig.awaitCalls(before + 1);
    together({[&] { detector.GoUnLive(); }, [&] { feed.give(1); }});
    getQorLogger()->sinks().pop_back();
}

TEST_P(Stop, OfALimitedRunMayBeTheNextStartFromTheCallback) {
    constexpr int runs = 50;
    rig.installCallback([&](const LiveRig::Call&) {
        if (rig.count < runs) detector.GoLiveSeq(0, 3, 1);
    });
    detector.GoLiveSeq(0, 3, 1);
    for (int run = 1; run <= runs; ++run) {
        rig.giveToCallback();
        rig.awaitCalls(run);
    }
    rig.awaitEnd();
    EXPECT_EQ(detector.GetFieldCount(), feed.fieldsOfFirstFrame() * runs);
    EXPECT_NO_THROW(detector.CheckForCallbackError());
}

namespace {

class Rounds : public testing::TestWithParam<DetectorInterface> {
protected:
    const support::Watchdog watchdog{std::chrono::seconds(110)};
    const support::QuietLog quiet;
    LiveRig rig{GetParam()};
};

}  // namespace

TEST_P(Rounds, TenThousandOfStartAndStop) {
    rig.installCallback([&](const LiveRig::Call&) { rig.detector->IsLive(); });
    rig.feed->setEndless(true);
    for (int round = 0; round < 10000; ++round) {
        rig.detector->GoLiveSeq(0, 3, round % 4);
        if (round % 8 == 0) rig.awaitCalls(rig.count + 1);
        rig.detector->GoUnLive();
        ASSERT_FALSE(rig.detector->IsLive());
    }
    EXPECT_NO_THROW(rig.detector->CheckForCallbackError());
    EXPECT_NO_THROW(rig.detector->CheckForLiveError());
    EXPECT_EQ(rig.feed->framesHeld(), 0);
}

INSTANTIATE_TEST_SUITE_P(On, Rounds, support::onBothTransports, support::transportName);
INSTANTIATE_TEST_SUITE_P(On, Stop, support::onBothTransports, support::transportName);
