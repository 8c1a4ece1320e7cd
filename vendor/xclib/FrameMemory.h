#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "platform/Mutex.h"

namespace grabber {

/// Columns, in bytes, and lines of a frame; x1 and y1 stand behind the last.
struct Rectangle {
    std::size_t x0 = 0;
    std::size_t y0 = 0;
    std::size_t x1 = 0;
    std::size_t y1 = 0;

    std::size_t byteCount() const { return (x1 - x0) * (y1 - y0); }
};

struct FrameSize {
    int width = 0;  ///< bytes of a line
    int height = 0;

    std::size_t byteCount() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    bool operator==(const FrameSize&) const = default;
};

/// One frame's bytes, zero until something is written. Any thread may call; readers don't wait for each other.
class FrameBuffer {
public:
    explicit FrameBuffer(FrameSize sizeToHold) : size(sizeToHold) {}

    /// Takes a whole frame.
    void store(const std::uint8_t* frame);
    void write(const Rectangle& where, const std::uint8_t* source);
    void read(const Rectangle& where, std::uint8_t* target) const;

private:
    /// Calls `take(offset, count)` for each part of the rectangle whose bytes follow each other: whole lines are one.
    template <class Take>
    void forEachPiece(const Rectangle& where, const Take& take) const;

    const FrameSize size;
    mutable platform::SharedMutex mutex;
    std::vector<std::uint8_t> bytes GUARDED_BY(mutex);  ///< empty: nothing was written yet
};

/// What the board keeps frames in: as many buffers of the frame's size as fit. A buffer takes memory from its first
/// write on. Any thread may call; the lock is not held while bytes are copied.
class FrameMemory {
public:
    /// How many frames of that size fit. The size is not empty.
    static int fitting(FrameSize size, std::uint64_t poolBytes);
    /// Divides the pool into buffers. If their size or number changes, all are new ones; who holds an old one keeps it.
    /// False if nothing changes.
    bool arrange(FrameSize size, std::uint64_t poolBytes);

    FrameSize frameSize() const;
    int bufferCount() const;
    /// The buffer of that number, counted from 1, and the size of its frames; null if there is none.
    std::shared_ptr<FrameBuffer> buffer(long number, FrameSize& size);

private:
    mutable platform::Mutex mutex;
    FrameSize frame GUARDED_BY(mutex);
    int count GUARDED_BY(mutex) = 0;
    std::map<long, std::shared_ptr<FrameBuffer>> buffers GUARDED_BY(mutex);
};

}  // namespace grabber
