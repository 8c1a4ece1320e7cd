#pragma once

#include <cstdint>
#include <memory>

#include "PvBuffer.h"
#include "PvResult.h"
#include "PvStream.h"

namespace ebus {
class FrameQueue;
}

/// Buffers that a stream fills and the user takes one after the other. Any thread may call, though starting and
/// stopping is for one thread at a time. The destructor stops; a buffer that is still handed out then goes with it.
class QRAPI_EXPORT PvPipeline {
public:
    explicit PvPipeline(PvStream* stream);
    virtual ~PvPipeline();
    PvPipeline(const PvPipeline&) = delete;
    PvPipeline& operator=(const PvPipeline&) = delete;

    /// Bytes of a buffer, and buffers; both act at the next start.
    void SetBufferSize(std::uint32_t bytes);
    PvResult SetBufferCount(std::uint32_t count);

    /// Allocates the buffers; the stream must be open.
    PvResult Start();
    bool IsStarted() const;
    /// Drops the frames that have not been retrieved. Ends no wait.
    PvResult Stop();

    /// Hands over the oldest frame as soon as there is one. OK means that there is a buffer, which must go back through
    /// `ReleaseBuffer`; whether the frame in it is good says `operationResult`. `Timeout` when none came in time, also
    /// from a stopped pipeline; 0xFFFFFFFF waits without end. `ConnectionLost` when the device no longer answers.
    /// On a failure the buffer is null.
    PvResult RetrieveNextBuffer(PvBuffer** buffer, std::uint32_t timeoutMs, PvResult* operationResult);
    /// A buffer stays valid until here, also across a stop. `NotFound` for one that was not handed out.
    PvResult ReleaseBuffer(PvBuffer* buffer);

private:
    std::shared_ptr<ebus::StreamChannel> stream;
    std::shared_ptr<ebus::FrameQueue> queue;
};
