#pragma once

#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>

#include "platform/Clock.h"
#include "support/ScriptedPleora.h"

namespace support {

/// The eBUS seam for tests with several threads: the script of `ScriptedPleora` under a lock, and a pipeline whose
/// frames come when the test says, or are always ready. Every frame begins with its number, counted from 1.
class ThreadedPleora final : public ScriptedPleora {
public:
    /// Called on the thread that makes the call, without a lock; set them while no run is live.
    std::function<void()> atRetrieved;  ///< a frame was taken and not handed over yet
    std::function<void()> atRelease;
    std::function<void()> atStateStop;
    std::function<void(const std::string&)> atCommand;

    void give(int frames) {
        for (int frame = 0; frame < frames; ++frame) put({0, 0});
    }
    /// The next retrieval returns `returned`, with `frame` as the frame's own result.
    void giveFailure(int returned, int frame) { put({returned, frame}); }
    void setEndless(bool on) {
        const platform::MutexLock lock(mutex);
        endless = on;
        changed.notifyAll();
    }
    void dropFrames() {
        const platform::MutexLock lock(mutex);
        queue.clear();
    }
    /// Makes a call fail with `code` each time; 0 lets it succeed again. Of "State_Start", "State_Stop", "release".
    void setFailing(const std::string& call, int code) {
        const platform::MutexLock lock(mutex);
        failures[call] = code;
    }
    int integer(const std::string& feature) {
        const platform::MutexLock lock(mutex);
        return static_cast<int>(integers[feature]);
    }
    bool isOpen() const { return initialized; }
    bool pipelineStarted() { return Pipeline_IsStarted(); }
    bool isAcquiring() const { return acquiring; }
    int framesTaken() const { return taken; }
    int framesHeld() const { return held; }
    int emptyRetrievals() const { return timeouts; }

    using ScriptedPleora::Pipeline_RetrieveNextBuffer;

    PvResult Dev_GetFloatValue(PvString /*name*/, double& value) override {
        constexpr double granuleSeconds = 6.0e-5;
        value = 1.0 / (granuleSeconds * (integer("TimerGranularityFactor") + 1));
        return {};
    }
    PvResult IP_FlushRxBuffer() override { return {}; }
    PvResult IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& count) override {
        if (atCommand) atCommand(std::string(reinterpret_cast<const char*>(source), size - 1));
        return ScriptedPleora::IP_Write(source, size, count);
    }

    PvResult Pipeline_RetrieveNextBuffer(PvBuffer** /*location*/, PvResult* frameResult,
                                         std::int32_t timeoutMs) override {
        Outcome next;
        if (!take(next, platform::deadlineAfterMs(timeoutMs))) {
            ++timeouts;
            return failed(PvResult::Timeout);
        }
        if (next.returned != 0) return failed(next.returned);
        ++held;
        if (next.frame != 0) {
            *frameResult = failed(next.frame);
            return {};
        }
        const int number = ++taken;
        std::memcpy(frame.data(), &number, sizeof(number));
        if (atRetrieved) atRetrieved();
        return {};
    }
    PvResult Pipeline_ReleaseBuffer(PvBuffer* /*released*/) override {
        if (atRelease) atRelease();
        --held;
        return resultOf("release");
    }
    PvAcquisitionState State_GetState() override {
        return acquiring ? PvAcquisitionStateLocked : PvAcquisitionStateUnlocked;
    }
    PvResult State_Start() override {
        PvResult result = resultOf("State_Start");
        if (result.IsOK()) acquiring = true;
        return result;
    }
    PvResult State_Stop() override {
        if (atStateStop) atStateStop();
        PvResult result = resultOf("State_Stop");
        if (result.IsOK()) acquiring = false;
        return result;
    }

private:
    struct Outcome {
        int returned = 0;
        int frame = 0;
    };

    void put(Outcome outcome) {
        const platform::MutexLock lock(mutex);
        queue.push_back(outcome);
        changed.notifyAll();
    }
    bool take(Outcome& next, platform::Time deadline) {
        const platform::MutexLock lock(mutex);
        while (queue.empty() && !endless)
            if (!changed.waitUntil(mutex, deadline) && queue.empty() && !endless) return false;
        if (queue.empty()) return true;
        next = queue.front();
        queue.pop_front();
        return true;
    }
    PvResult resultOf(const std::string& call) {
        const platform::MutexLock lock(mutex);
        const int code = failures[call];
        return code == 0 ? PvResult() : failed(code);
    }

    platform::Condition changed;
    std::deque<Outcome> queue GUARDED_BY(mutex);
    bool endless GUARDED_BY(mutex) = false;
    std::map<std::string, int> failures GUARDED_BY(mutex);
    std::atomic<bool> acquiring{false};
    std::atomic<int> taken{0};
    std::atomic<int> held{0};
    std::atomic<int> timeouts{0};
};

}  // namespace support
