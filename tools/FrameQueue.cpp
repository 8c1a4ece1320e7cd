#include "tools/FrameQueue.h"

#include <algorithm>
#include <utility>

namespace tool {

FrameQueue::FrameQueue(FrameFiles& filesToWrite, std::size_t pixelsOfFrame, std::size_t framesThatMayWait)
    : files(filesToWrite),
      framePixels(pixelsOfFrame),
      capacity(std::max<std::size_t>(framesThatMayWait, 1)),
      thread([this] { run(); }) {}

FrameQueue::~FrameQueue() {
    {
        const platform::MutexLock lock(mutex);
        ending = true;
        queue.clear();
        changed.notifyAll();
    }
    thread.join();
}

bool FrameQueue::waitForRoom(platform::Time deadline) {
    const platform::MutexLock lock(mutex);
    while (queue.size() >= capacity && !failure) {
        sum.wasFull = true;
        if (!changed.waitUntil(mutex, deadline)) return false;
    }
    if (failure) std::rethrow_exception(failure);
    return true;
}

void FrameQueue::put(const Frame& frame) {
    waitForRoom(platform::never);
    Waiting waiting{frame, {}};
    {
        const platform::MutexLock lock(mutex);
        if (!spare.empty()) {
            waiting.pixels = std::move(spare.back());
            spare.pop_back();
        }
    }
    waiting.pixels.assign(frame.pixels, frame.pixels + framePixels);
    waiting.frame.pixels = waiting.pixels.data();
    const platform::MutexLock lock(mutex);
    queue.push_back(std::move(waiting));  // moves the memory, so that `pixels` stays where it was
    changed.notifyAll();
}

void FrameQueue::finish() {
    const platform::MutexLock lock(mutex);
    while ((!queue.empty() || isWriting) && !failure) changed.waitUntil(mutex, platform::never);
    if (failure) std::rethrow_exception(failure);
}

bool FrameQueue::hasFailed() const {
    const platform::MutexLock lock(mutex);
    return failure != nullptr;
}

FrameQueue::Account FrameQueue::account() const {
    const platform::MutexLock lock(mutex);
    return sum;
}

/// Waits for a frame. False when there is no more to come.
bool FrameQueue::next(Waiting& waiting) {
    const platform::MutexLock lock(mutex);
    while (queue.empty() && !ending) changed.waitUntil(mutex, platform::never);
    if (queue.empty()) return false;
    waiting = std::move(queue.front());
    queue.pop_front();
    isWriting = true;
    changed.notifyAll();
    return true;
}

void FrameQueue::run() {
    Waiting waiting;
    while (next(waiting)) {
        std::exception_ptr thrown;
        const platform::Time began = platform::now();
        try {
            files.write(waiting.frame);
        } catch (...) {
            thrown = std::current_exception();
        }
        const platform::Time took = platform::now() - began;
        const platform::MutexLock lock(mutex);
        isWriting = false;
        if (thrown)
            failure = thrown;
        else
            ++sum.written;
        sum.spent += took;
        sum.longest = std::max(sum.longest, took);
        spare.push_back(std::move(waiting.pixels));
        changed.notifyAll();
        if (failure) return;
    }
}

}  // namespace tool
