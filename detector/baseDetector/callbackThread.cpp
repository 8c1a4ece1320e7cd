#include <spdlog/spdlog.h>

#include <string_view>
#include <system_error>

#include "InternalUtils/Failure.h"
#include "detector/attempt.h"
#include "detector/baseDetector.h"
#include "logging.h"
#include "platform/Clock.h"
#include "platform/Event.h"

void baseDetector::SetCallback(CallbackFunction function) {
    constexpr const char* here = "baseDetector::SetCallback";
    CheckConnected();
    const BothLocks locks(acquisitionLock, callbackMutex);
    if (callbackFunction != nullptr)
        fail("Callback thread already active! Please stop current callbacks before launching new one!", DerrCallback,
             here);
    if (IsLive()) fail("Cannot set callback during acquisition.", DerrCallback, here);
    callbackFunction = function;
}

void baseDetector::SetCallbackData(void* data) {
    CheckConnected();
    const BothLocks locks(acquisitionLock, callbackMutex);
    if (IsLive()) fail("Cannot set callback data acquisition.", DerrCallback, "baseDetector::SetCallbackData");
    callbackData = data;
}

void* baseDetector::GetCallbackData() {
    CheckConnected();
    return callbackData;
}

void baseDetector::StopCallback() {
    constexpr const char* here = "baseDetector::StopCallback";
    CheckConnected();
    const BothLocks locks(acquisitionLock, callbackMutex);
    if (callbackFunction == nullptr)
        fail("Callback thread is not active! Please make sure callbacks are active before trying to stop them!",
             DerrBadRequest, here);
    if (IsLive()) fail("Cannot stop callback during acquisition.", DerrCallback, here);
    callbackFunction = nullptr;
}

bool baseDetector::IsCallbackActive() {
    CheckConnected();
    const platform::MutexLock lock(callbackMutex);
    return callbackFunction != nullptr;
}

void baseDetector::CheckForCallbackError() {
    CheckConnected();
    if (const std::optional<QuorinException> error = callbackError.get())
        throw QuorinException(*error, "baseDetector::CheckForCallbackError");
}

void baseDetector::StartCallbackThread() {
    std::unique_ptr<std::thread> ended;
    {
        const platform::MutexLock lock(callbackMutex);
        if (callbackFunction == nullptr || callbackRunning) return;
        getQorLogger()->info("CALLBACK: Starting callback thread");
        if (callbackLoop->onThisThread()) {
            // A callback starts the next run: its thread serves that run too.
            callbackRunning = true;
            getQorLogger()->info("CALLBACK: Callback thread started");
            return;
        }
        ended = std::move(callbackThread);
    }
    if (ended != nullptr) ended->join();
    const platform::MutexLock lock(callbackMutex);
    callbackRunning = true;
    try {
        callbackThread = startThread([this, loop = callbackLoop] {
            loop->thread = std::this_thread::get_id();
            CallbackCounterThread(*loop);
            loop->thread = std::thread::id();
        });
    } catch (...) {
        callbackRunning = false;
        throw;
    }
    getQorLogger()->info("CALLBACK: Callback thread started");
}

void baseDetector::StopCallbackThread() {
    std::unique_ptr<std::thread> ended;
    bool wasRunning = false;
    {
        const platform::MutexLock lock(callbackMutex);
        wasRunning = callbackRunning;
        if (wasRunning) {
            getQorLogger()->info("CALLBACK: Stopping callback thread");
            callbackRunning = false;
            callbackLoop->wake();
        }
        if (callbackLoop->onThisThread()) {
            if (!wasRunning) return;
            // The thread would join itself. It ends once the callback has returned.
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
        ended = std::move(callbackThread);
    }
    if (ended != nullptr) ended->join();
    if (wasRunning) getQorLogger()->info("CALLBACK: Callback thread stopped");
}

void baseDetector::releaseCallbackThread() {
    if (!callbackLoop->onThisThread()) {
        StopCallbackThread();
        return;
    }
    const platform::MutexLock lock(callbackMutex);
    callbackRunning = false;
    callbackLoop->wake();
    callbackLoop->abandoned = true;
    callbackLoop->thread = std::thread::id();  // no thread joins it any more: it may wait for locks as any other
    if (callbackThread != nullptr) callbackThread->detach();
    callbackThread.reset();
}

std::uint32_t baseDetector::CallbackCounterThread(CallbackLoop& loop) {
    constexpr const char* here = "baseDetector::CallbackCounterThread";
    constexpr const char* waitName = "baseDetector::WaitImage";
    const auto keep = [this](const char* text) {
        callbackError = madeOrOutOfMemory(
            [&] { return QuorinException(text, DerrWrapped, __LINE__, baseName(__FILE__), here, 0, ""); });
    };
    while (loop.running) {
        try {
            callbackRound(loop);
        } catch (const QuorinException& failure) {
            if (loop.abandoned) return 0;
            const bool noFrame = std::string_view(failure.GetFunctionName()) == waitName &&
                                 failure.GetTransportError() == static_cast<int>(platform::waitTimedOut);
            if (noFrame) continue;
            getQorLogger()->info("CALLBACK: Exception {}", failure.what());
            callbackError = named(failure, failure.GetFunctionName());
        } catch (const std::exception& failure) {
            if (loop.abandoned) return 0;
            getQorLogger()->info("CALLBACK: EXCEPTION: {}", failure.what());
            keep(failure.what());
        } catch (...) {
            if (loop.abandoned) return 0;
            getQorLogger()->info("CALLBACK: EXCEPTION: Unknown exception, does not derive from std::exception.");
            keep("Unknown exception in callback");
        }
        if (loop.abandoned) return 0;
    }
    getQorLogger()->info("CALLBACK: End of callback thread");
    return 0;
}

void baseDetector::callbackRound(CallbackLoop& loop) {
    constexpr int waitMs = 1000;
    if (!callbacksContinue()) return;
    WaitImage(waitMs);
    const int buffer = GetCapturedBuffer();
    const int field = GetFieldCount();
    QuorinDetector* const instance = owner;
    const CallbackFunction function = callbackFunction;
    if (function == nullptr) return;
    getQorLogger()->info("CALLBACK: Calling customer callback, field count {}, buffer {}, instance {}", field, buffer,
                         static_cast<const void*>(instance));
    function(field, buffer, instance);
    if (loop.abandoned) return;
    getQorLogger()->info("CALLBACK: Returned from customer callback for field count {}, buffer {}", field, buffer);
}

bool baseDetector::callbacksContinue() {
    // Under both locks, so that no run can start between the check and the end: its start would find this thread
    // running and start none.
    if (!acquisitionLock.lockUnlessStopped()) return false;
    const StoppableGuard acquisition(acquisitionLock, std::adopt_lock);
    const platform::MutexLock lock(callbackMutex);
    if (!callbackRunning) return false;
    if (IsLive()) return true;
    getQorLogger()->info("CALLBACK: IsLive is false, stopping callback thread");
    callbackRunning = false;
    return false;
}
