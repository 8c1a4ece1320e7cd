#pragma once

#include <cstdint>
#include <memory>

#include "PvImage.h"
#include "PvResult.h"
#include "platform/export.h"

namespace ebus {
struct StreamFrame;
class FrameQueue;
}  // namespace ebus

/// Memory for one frame.
class QRAPI_EXPORT PvBuffer {
public:
    PvBuffer();
    virtual ~PvBuffer();
    PvBuffer(const PvBuffer&) = delete;
    PvBuffer& operator=(const PvBuffer&) = delete;

    /// Gives the buffer new memory, whose content is indeterminate; the old one goes. `NoMemory` leaves it empty.
    PvResult Alloc(std::uint32_t sizeBytes);
    std::uint32_t GetSize() const;

    /// Never null; belongs to the buffer.
    PvImage* GetImage();

private:
    friend class ebus::FrameQueue;
    /// Copies what fits; the result is the frame's operation result.
    PvResult fill(const ebus::StreamFrame& frame);

    std::unique_ptr<std::uint8_t[]> memory;
    std::uint32_t sizeBytes = 0;
    PvImage image;
};
