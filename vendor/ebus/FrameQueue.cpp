#include "FrameQueue.h"

#include <string>

namespace ebus {
namespace {

constexpr std::uint32_t largestBufferCount = 4096;

}  // namespace

void FrameQueue::setBufferSize(std::uint32_t bytes) {
    const platform::MutexLock lock(mutex);
    bufferSizeBytes = bytes;
}

PvResult FrameQueue::setBufferCount(std::uint32_t count) {
    if (count == 0 || count > largestBufferCount)
        return PvResult(PvResult::InvalidParameter, "a pipeline has 1 to " + std::to_string(largestBufferCount) +
                                                        " buffers, not " + std::to_string(count));
    const platform::MutexLock lock(mutex);
    bufferCount = count;
    return {};
}

PvResult FrameQueue::start() {
    const platform::MutexLock lock(mutex);
    if (started) return PvResult(PvResult::StateError, "the pipeline is started already");
    std::vector<std::shared_ptr<PvBuffer>> fresh;
    for (std::uint32_t i = 0; i < bufferCount; ++i) {
        fresh.push_back(std::make_shared<PvBuffer>());
        if (const PvResult result = fresh.back()->Alloc(bufferSizeBytes); result.IsFailure()) return result;
    }
    freeBuffers = std::move(fresh);
    ++run;
    started = true;
    return {};
}

PvResult FrameQueue::stop(std::uint64_t& dropped) {
    dropped = 0;
    const platform::MutexLock lock(mutex);
    if (!started) return PvResult(PvResult::StateError, "the pipeline is not started");
    dropped = dropWaitingLocked();
    started = false;
    freeBuffers.clear();
    return {};
}

bool FrameQueue::isStarted() const {
    const platform::MutexLock lock(mutex);
    return started;
}

std::uint64_t FrameQueue::dropWaiting() {
    const platform::MutexLock lock(mutex);
    return dropWaitingLocked();
}

std::uint64_t FrameQueue::dropWaitingLocked() {
    const std::uint64_t dropped = waiting.size();
    for (Waiting& each : waiting) freeBuffers.push_back(std::move(each.buffer));
    waiting.clear();
    return dropped;
}

FrameFate FrameQueue::receive(const StreamFrame& frame) {
    Waiting taken;
    std::uint64_t runOfBuffer = 0;
    {
        const platform::MutexLock lock(mutex);
        if (!started) return FrameFate::NoReceiver;
        if (freeBuffers.empty()) return FrameFate::NoBuffer;
        taken.buffer = std::move(freeBuffers.back());
        freeBuffers.pop_back();
        runOfBuffer = run;
    }
    taken.operationResult = taken.buffer->fill(frame);
    {
        const platform::MutexLock lock(mutex);
        if (!started || runOfBuffer != run) return FrameFate::Dropped;
        waiting.push_back(std::move(taken));
    }
    arrived.notifyAll();
    return FrameFate::Delivered;
}

bool FrameQueue::isEmpty() const {
    const platform::MutexLock lock(mutex);
    return waiting.empty();
}

PvResult FrameQueue::retrieve(PvBuffer*& buffer, PvResult& operationResult, platform::Time deadline) {
    const platform::MutexLock lock(mutex);
    while (waiting.empty() && arrived.waitUntil(mutex, deadline)) {
    }
    if (waiting.empty()) return PvResult(PvResult::Timeout);
    Waiting& oldest = waiting.front();
    buffer = oldest.buffer.get();
    operationResult = oldest.operationResult;
    handedOut[buffer] = {std::move(oldest.buffer), run};
    waiting.pop_front();
    return {};
}

PvResult FrameQueue::release(PvBuffer* buffer) {
    const platform::MutexLock lock(mutex);
    const auto place = handedOut.find(buffer);
    if (place == handedOut.end()) return PvResult(PvResult::NotFound, "not a buffer that the pipeline has handed out");
    if (started && place->second.run == run) freeBuffers.push_back(std::move(place->second.buffer));
    handedOut.erase(place);
    return {};
}

}  // namespace ebus
