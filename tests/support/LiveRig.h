#pragma once

#include <gtest/gtest.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "logging.h"
#include "support/FrameFeed.h"
#include "support/Watchdog.h"
#include "support/expectFailure.h"

namespace support {

/// What is hidden in a detector. The object itself is no test class: nothing but the library's own destructors may
/// stand between a running thread and the end.
struct Inside : baseDetector {
    static auto& threadMaker(baseDetector& detector) { return detector.*(&Inside::startThread); }
    static bool someoneWaitsForAnImage(baseDetector& detector) {
        auto& section = detector.*(&Inside::waitSection);
        if (!section.try_lock()) return true;
        section.unlock();
        return false;
    }
    static auto loop(baseDetector& detector) { return detector.*(&Inside::callbackLoop); }
};

/// A detector with frames on demand, a ring of 4 small frames and a callback that the test fills in.
class LiveRig {
public:
    static constexpr int ringFrames = 4;

    struct Call {
        int field;
        int buffer;
    };

    explicit LiveRig(DetectorInterface transport) {
        if (transport == TransportGE)
            feed = std::make_unique<PleoraFeed>();
        else
            feed = std::make_unique<GrabberFeed>();
        // The core hands its owner to the callback and never looks into it.
        detector = feed->open(reinterpret_cast<QuorinDetector*>(this), ringFrames);  // NOLINT
    }

    ~LiveRig() { detector.reset(); }  // while what its callback needs is still there
    LiveRig(const LiveRig&) = delete;
    LiveRig& operator=(const LiveRig&) = delete;

    void installCallback(std::function<void(const Call&)> onFrame = {}) {
        {
            const platform::MutexLock lock(mutex);
            whenCalled = std::move(onFrame);
        }
        detector->SetCallback(called);
    }
    static void called(int field, int buffer, QuorinDetector* owner) {
        auto& rig = *reinterpret_cast<LiveRig*>(owner);  // NOLINT: see the constructor
        std::function<void(const Call&)> action;         // the rig's detector, or the rig, may go during the call
        {
            const platform::MutexLock lock(rig.mutex);
            action = rig.whenCalled;
            rig.made.push_back({field, buffer});
        }
        ++rig.count;
        if (action) action({field, buffer});
    }

    std::vector<Call> calls() {
        const platform::MutexLock lock(mutex);
        return made;
    }
    void awaitCalls(int number) {
        until([&] { return count >= number; });
    }
    void awaitEnd() {
        until([&] { return !detector->IsLive() && !feed->isAcquiring(); });
    }
    void awaitCallbackThreadsEnd() {
        const auto loop = Inside::loop(*detector);  // the flag is up before the thread comes to say who it is
        until([&] { return !loop->running && loop->thread.load() == std::thread::id(); });
    }
    /// Gives a frame once the callback thread waits for one. A run that is over before the thread came to wait brings
    /// no call: its last frame is told by the end of the run.
    void giveToCallback() {
        until([&] { return Inside::someoneWaitsForAnImage(*detector); });
        feed->give(1);
    }
    /// The number of the frame in a ring block.
    int frameIn(int buffer) {
        std::vector<unsigned char> pixels(
            2 * static_cast<std::size_t>(detector->GetBufferXdim() * detector->GetBufferYdim()));
        detector->ReadBuffer(buffer, pixels.data());
        return feed->numberOf(pixels);
    }
    /// Takes one frame with a callback in a run of its own.
    void expectNextRunCalls() {
        feed->dropFrames();
        failureOf([&] { detector->WaitImage(0); });  // consumes the signal of an earlier run
        const int before = count;
        ASSERT_NO_THROW(detector->GoLiveSeq(0, 3, 1));
        giveToCallback();
        awaitEnd();
        awaitCallbackThreadsEnd();
        EXPECT_EQ(count, before + 1);
    }
    /// Takes one frame in a run of its own: nothing of an earlier run stands in the way.
    void expectNextRunWorks() {
        feed->dropFrames();
        const int field = detector->GetFieldCount();
        ASSERT_NO_THROW(detector->GoLiveSeq(1, 2, 1));
        feed->give(1);
        awaitEnd();
        EXPECT_EQ(detector->GetFieldCount(), field + feed->fieldsOfFirstFrame());
        EXPECT_EQ(detector->GetCapturedBuffer(), 1);
        EXPECT_EQ(frameIn(1), feed->newestFrame());
    }

    std::unique_ptr<FrameFeed> feed;
    std::unique_ptr<baseDetector> detector;
    std::atomic<int> count{0};

private:
    platform::Mutex mutex;
    std::function<void(const Call&)> whenCalled GUARDED_BY(mutex);
    std::vector<Call> made GUARDED_BY(mutex);
};

/// No log, whose lock would put the threads in a row.
class QuietLog {
public:
    QuietLog() : level(getQorLogger()->level()) { getQorLogger()->set_level(spdlog::level::off); }
    ~QuietLog() { getQorLogger()->set_level(level); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

private:
    spdlog::level::level_enum level;
};

/// On the transport that is the parameter.
class LiveTest : public testing::TestWithParam<DetectorInterface> {
protected:
    const Watchdog watchdog;
    const QuietLog quiet;
    LiveRig rig{GetParam()};
    FrameFeed& feed = *rig.feed;
    baseDetector& detector = *rig.detector;
};

inline const auto onBothTransports = testing::Values(TransportGE, TransportCL);
inline std::string transportName(const testing::TestParamInfo<DetectorInterface>& info) {
    return info.param == TransportGE ? "GE" : "CL";
}

/// On GigE alone: what the eBUS seam and the live thread can do to a run.
class GigeLiveTest : public testing::Test {
protected:
    const Watchdog watchdog;
    const QuietLog quiet;
    LiveRig rig{TransportGE};
    ThreadedPleora& pleora = *static_cast<PleoraFeed&>(*rig.feed).pleora;
    PleoraDetector& detector = static_cast<PleoraDetector&>(*rig.detector);
};

}  // namespace support
