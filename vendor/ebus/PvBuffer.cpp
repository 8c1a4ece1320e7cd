#include "PvBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "GigeDevice.h"

PvImage::PvImage() = default;
PvImage::~PvImage() = default;

std::uint8_t* PvImage::GetDataPointer() {
    return data;
}
std::uint32_t PvImage::GetWidth() const {
    return width;
}
std::uint32_t PvImage::GetHeight() const {
    return height;
}

PvBuffer::PvBuffer() = default;
PvBuffer::~PvBuffer() = default;

PvResult PvBuffer::Alloc(std::uint32_t newSizeBytes) {
    memory.reset();
    sizeBytes = 0;
    image.data = nullptr;
    image.width = image.height = 0;
    try {
        // Not cleared: a pipeline's buffers take hundreds of megabytes, and each is overwritten before it is seen.
        memory = std::make_unique_for_overwrite<std::uint8_t[]>(newSizeBytes);
    } catch (const std::bad_alloc&) {
        return PvResult(PvResult::NoMemory, "no memory for a buffer of " + std::to_string(newSizeBytes) + " bytes");
    }
    sizeBytes = newSizeBytes;
    image.data = memory.get();
    return {};
}

std::uint32_t PvBuffer::GetSize() const {
    return sizeBytes;
}

PvImage* PvBuffer::GetImage() {
    return &image;
}

PvResult PvBuffer::fill(const ebus::StreamFrame& frame) {
    const std::size_t copied = std::min<std::size_t>(frame.sizeBytes(), sizeBytes);
    if (copied > 0) std::memcpy(memory.get(), frame.pixels, copied);
    image.width = frame.width;
    image.height = frame.width == 0 ? 0 : static_cast<std::uint32_t>(copied / ebus::rowBytes(frame.width));
    if (copied < frame.sizeBytes())
        return PvResult(PvResult::BufferTooSmall, "a frame of " + std::to_string(frame.sizeBytes()) +
                                                      " bytes came for a buffer of " + std::to_string(sizeBytes));
    if (!frame.complete)
        return PvResult(PvResult::FrameIncomplete, "part of frame " + std::to_string(frame.number) + " is missing");
    return {};
}
