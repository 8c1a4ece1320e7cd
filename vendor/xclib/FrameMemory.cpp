#include "FrameMemory.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace grabber {

template <class Take>
void FrameBuffer::forEachPiece(const Rectangle& where, const Take& take) const {
    const auto lineBytes = static_cast<std::size_t>(size.width);
    if (where.x0 == 0 && where.x1 == lineBytes) {
        take(where.y0 * lineBytes, where.byteCount());
        return;
    }
    for (std::size_t y = where.y0; y < where.y1; ++y) take(y * lineBytes + where.x0, where.x1 - where.x0);
}

void FrameBuffer::store(const std::uint8_t* frame) {
    const platform::ExclusiveLock lock(mutex);
    bytes.assign(frame, frame + size.byteCount());
}

void FrameBuffer::write(const Rectangle& where, const std::uint8_t* source) {
    const platform::ExclusiveLock lock(mutex);
    bytes.resize(size.byteCount());
    std::uint8_t* const all = bytes.data();
    forEachPiece(where, [&](std::size_t offset, std::size_t count) {
        std::memcpy(all + offset, source, count);
        source += count;
    });
}

void FrameBuffer::read(const Rectangle& where, std::uint8_t* target) const {
    const platform::SharedLock lock(mutex);
    if (bytes.empty()) {
        std::memset(target, 0, where.byteCount());
        return;
    }
    const std::uint8_t* const all = bytes.data();
    forEachPiece(where, [&](std::size_t offset, std::size_t count) {
        std::memcpy(target, all + offset, count);
        target += count;
    });
}

int FrameMemory::fitting(FrameSize size, std::uint64_t poolBytes) {
    constexpr std::uint64_t mostBuffers = std::numeric_limits<int>::max();
    return static_cast<int>(std::min(poolBytes / size.byteCount(), mostBuffers));
}

bool FrameMemory::arrange(FrameSize size, std::uint64_t poolBytes) {
    const int fittingNow = fitting(size, poolBytes);
    std::map<long, std::shared_ptr<FrameBuffer>> gone;
    const platform::MutexLock lock(mutex);
    if (size == frame && fittingNow == count) return false;
    frame = size;
    count = fittingNow;
    gone.swap(buffers);  // the memory is given back after the lock is
    return true;
}

FrameSize FrameMemory::frameSize() const {
    const platform::MutexLock lock(mutex);
    return frame;
}

int FrameMemory::bufferCount() const {
    const platform::MutexLock lock(mutex);
    return count;
}

std::shared_ptr<FrameBuffer> FrameMemory::buffer(long number, FrameSize& size) {
    const platform::MutexLock lock(mutex);
    if (number < 1 || number > count) return nullptr;
    size = frame;
    std::shared_ptr<FrameBuffer>& place = buffers[number];
    if (place == nullptr) place = std::make_shared<FrameBuffer>(frame);
    return place;
}

}  // namespace grabber
