#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "GigeDevice.h"
#include "PvBuffer.h"
#include "PvResult.h"
#include "platform/Clock.h"
#include "platform/Mutex.h"

namespace ebus {

/// The buffers of a pipeline and where each of them is: free, being filled, waiting for the user, or in his hands.
/// Any thread may call; the lock is a leaf and is not held while a frame is copied.
class FrameQueue {
public:
    /// Sizes that act at the next `start`.
    void setBufferSize(std::uint32_t bytes);
    PvResult setBufferCount(std::uint32_t count);

    /// Allocates all buffers; `StateError` if started, `NoMemory` leaves it stopped.
    PvResult start();
    /// Takes back what waits for the user and says how many frames that were. Buffers in the user's hands live on
    /// until he releases them.
    PvResult stop(std::uint64_t& dropped);
    bool isStarted() const;
    /// Frees the buffers that wait for the user; returns how many frames are lost by that.
    std::uint64_t dropWaiting();

    FrameFate receive(const StreamFrame& frame);

    bool isEmpty() const;
    /// Hands over the oldest waiting frame. `Timeout` when none came until the deadline, started or not; a stop does
    /// not end the wait.
    PvResult retrieve(PvBuffer*& buffer, PvResult& operationResult, platform::Time deadline);
    PvResult release(PvBuffer* buffer);

private:
    struct Waiting {
        std::shared_ptr<PvBuffer> buffer;
        PvResult operationResult;
    };
    struct HandedOut {
        std::shared_ptr<PvBuffer> buffer;
        std::uint64_t run = 0;
    };

    std::uint64_t dropWaitingLocked() REQUIRES(mutex);

    mutable platform::Mutex mutex;
    platform::Condition arrived;
    std::uint32_t bufferSizeBytes GUARDED_BY(mutex) = 0;
    std::uint32_t bufferCount GUARDED_BY(mutex) = 16;
    bool started GUARDED_BY(mutex) = false;
    std::uint64_t run GUARDED_BY(mutex) = 0;  ///< counts starts; a buffer of an earlier run does not become free again
    std::vector<std::shared_ptr<PvBuffer>> freeBuffers GUARDED_BY(mutex);
    std::deque<Waiting> waiting GUARDED_BY(mutex);
    std::map<PvBuffer*, HandedOut> handedOut GUARDED_BY(mutex);
};

}  // namespace ebus
