#pragma once

#include <gtest/gtest.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "detector/PleoraDetector.h"
#include "logging.h"
#include "support/ThreadedPleora.h"
#include "support/Watchdog.h"
#include "support/expectFailure.h"

namespace support {

/// What is hidden in a `PleoraDetector`. The object itself is no test class: nothing but the library's own
/// destructors may stand between a running thread and the end.
struct Inside : PleoraDetector {
    static auto& library(PleoraDetector& detector) { return detector.*(&Inside::pleoraLib); }
    static auto& threadMaker(PleoraDetector& detector) { return detector.*(&Inside::startThread); }
    static auto& framesCountedStale(PleoraDetector& detector) { return detector.*(&Inside::staleFrames); }
    static bool someoneWaitsForAnImage(PleoraDetector& detector) {
        auto& section = detector.*(&Inside::waitSection);
        if (!section.try_lock()) return true;
        section.unlock();
        return false;
    }
    static auto loop(PleoraDetector& detector) { return detector.*(&Inside::callbackLoop); }
};

/// A GigE detector over a `ThreadedPleora`, with a ring of 4 small frames and a callback that the test fills in.
class LiveRig {
public:
    static constexpr int ringFrames = 4;

    struct Call {
        int field;
        int buffer;
    };

    LiveRig() : pleora(std::make_shared<ThreadedPleora>()) {
        // Electronics that tell their own timing, binned 4x4: frames of 384 x 216.
        pleora->line.registers = {{124, 5101}, {126, 1}, {129, 2}, {9, 4}, {10, 4}, {11, 60000}, {410, 1000}};
        pleora->frame.assign(1536 * 864 * 2, 0);
        // The core hands its owner to the callback and never looks into it.
        detector = std::make_unique<PleoraDetector>("10.0.0.2", reinterpret_cast<QuorinDetector*>(this));  // NOLINT
        Inside::library(*detector) = pleora;
        detector->OpenBoard(ringFrames);
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
        until([&] { return !detector->IsLive() && !pleora->isAcquiring(); });
    }
    void awaitCallbackThreadsEnd() {
        const auto loop = Inside::loop(*detector);  // the flag is up before the thread comes to say who it is
        until([&] { return !loop->running && loop->thread.load() == std::thread::id(); });
    }
    /// Gives a frame once the callback thread waits for one. A run that is over before the thread came to wait brings
    /// no call: its last frame is told by the end of the run.
    void giveToCallback() {
        until([&] { return Inside::someoneWaitsForAnImage(*detector); });
        pleora->give(1);
    }
    /// The number that the frame in a ring block begins with.
    int frameIn(int buffer) {
        std::vector<unsigned char> pixels(
            2 * static_cast<std::size_t>(detector->GetBufferXdim() * detector->GetBufferYdim()));
        detector->ReadBuffer(buffer, pixels.data());
        int number = 0;
        std::memcpy(&number, pixels.data(), sizeof(number));
        return number;
    }
    /// Takes one frame with a callback in a run of its own.
    void expectNextRunCalls() {
        pleora->dropFrames();
        const int before = count;
        ASSERT_NO_THROW(detector->GoLiveSeq(0, 3, 1));
        giveToCallback();
        awaitEnd();
        awaitCallbackThreadsEnd();
        EXPECT_EQ(count, before + 1);
    }
    /// Takes one frame in a run of its own: nothing of an earlier run stands in the way.
    void expectNextRunWorks() {
        pleora->dropFrames();
        const int field = detector->GetFieldCount();
        ASSERT_NO_THROW(detector->GoLiveSeq(1, 2, 1));
        pleora->give(1);
        awaitEnd();
        EXPECT_EQ(detector->GetFieldCount(), field + 2);
        EXPECT_EQ(detector->GetCapturedBuffer(), 1);
        EXPECT_EQ(frameIn(1), pleora->framesTaken());
    }

    std::shared_ptr<ThreadedPleora> pleora;
    std::unique_ptr<PleoraDetector> detector;
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

class LiveTest : public testing::Test {
protected:
    const Watchdog watchdog;
    const QuietLog quiet;
    LiveRig rig;
    ThreadedPleora& pleora = *rig.pleora;
    PleoraDetector& detector = *rig.detector;
};

}  // namespace support
