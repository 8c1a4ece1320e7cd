#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "tools/FrameFiles.h"

namespace tool {

/// Writes frames on a thread of its own, so that a slow moment of the disk keeps nobody from reading the ring.
///
/// One thread at a time puts frames.
class FrameQueue {
public:
    /// What writing has cost so far.
    struct Account {
        int written = 0;
        std::chrono::nanoseconds spent{};
        std::chrono::nanoseconds longest{};  ///< for one frame
        bool wasFull = false;                ///< somebody had to wait for room
    };

    /// @param files     are the queue's alone until `finish` has returned
    /// @param capacity  how many frames may wait, at least 1
    FrameQueue(FrameFiles& files, std::size_t framePixels, std::size_t capacity);
    /// Drops the frames that nobody waited for.
    ~FrameQueue();
    FrameQueue(const FrameQueue&) = delete;
    FrameQueue& operator=(const FrameQueue&) = delete;

    /// Waits for room for one frame. False if the deadline came first. Throws as `put` does.
    bool waitForRoom(platform::Time deadline);

    /// Copies the frame and its pixels. Waits for room, which is as long as the disk takes for a frame. Throws what the
    /// writing of an earlier frame threw.
    void put(const Frame& frame);

    /// Waits until all frames are written. Throws what the writing of one of them threw.
    void finish();

    bool hasFailed() const;
    Account account() const;

private:
    struct Waiting {
        Frame frame;
        std::vector<std::uint16_t> pixels;
    };

    void run();
    bool next(Waiting& waiting);

    FrameFiles& files;
    const std::size_t framePixels;
    const std::size_t capacity;
    mutable platform::Mutex mutex;
    platform::Condition changed;
    std::deque<Waiting> queue GUARDED_BY(mutex);
    std::vector<std::vector<std::uint16_t>> spare GUARDED_BY(mutex);  ///< memory of frames that were written
    Account sum GUARDED_BY(mutex);
    std::exception_ptr failure GUARDED_BY(mutex);
    bool isWriting GUARDED_BY(mutex) = false;
    bool ending GUARDED_BY(mutex) = false;
    std::thread thread;  ///< the last member: it uses the others
};

}  // namespace tool
