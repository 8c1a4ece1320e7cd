#pragma once

#include <memory>

#include "PvBuffer.h"
#include "PvGenParameterArray.h"
#include "PvResult.h"
#include "platform/export.h"

namespace ebus {
class StreamChannel;
}

/// Where the frames of a device are received. Any thread may call.
class QRAPI_EXPORT PvStream {
public:
    virtual ~PvStream();
    PvStream(const PvStream&) = delete;
    PvStream& operator=(const PvStream&) = delete;

    bool IsOpen() const;
    /// Frames that a pipeline has received and not handed out are lost.
    PvResult Close();
    /// Never null; belongs to the stream object. Its calls fail while the stream is closed.
    PvGenParameterArray* GetParameters();
    /// Gives a buffer that the stream's pipeline has handed out back for the next frame; `NotFound` for any other.
    PvResult QueueBuffer(PvBuffer* buffer);

protected:
    PvStream();
    std::shared_ptr<ebus::StreamChannel> channel;

private:
    friend class PvPipeline;
    PvGenParameterArray parameters;
};
