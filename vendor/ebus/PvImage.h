#pragma once

#include <cstdint>

#include "platform/export.h"

/// The picture in a buffer: rows of pixels of two bytes, without gaps. Made by the buffer that it lies in.
class QRAPI_EXPORT PvImage {
public:
    PvImage();
    virtual ~PvImage();
    PvImage(const PvImage&) = delete;
    PvImage& operator=(const PvImage&) = delete;

    /// The address of the first pixel; null while the buffer has no memory.
    virtual std::uint8_t* GetDataPointer();
    std::uint32_t GetWidth() const;
    /// Rows that lie in the buffer: fewer than the frame had if the buffer was too small.
    std::uint32_t GetHeight() const;

private:
    friend class PvBuffer;
    std::uint8_t* data = nullptr;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};
