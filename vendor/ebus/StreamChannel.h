#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "FrameQueue.h"
#include "GigeDevice.h"
#include "platform/Mutex.h"

namespace ebus {

/// What a stream object and the pipeline that stands on it share. Outlives the stream object. Any thread may call; the
/// lock is not held while anything else is called, opening and closing excepted.
class StreamChannel : public FrameSink, public FeatureAccess, public std::enable_shared_from_this<StreamChannel> {
public:
    StreamChannel();

    PvResult open(const std::string& address);
    /// Frames that wait for the user are dropped.
    PvResult close();
    /// Closes whatever the device says to it.
    void drop();
    bool isOpen() const;
    /// Empty while the stream is closed.
    Endpoint local() const;

    /// Frames go to the queue from now on; `StateError` for a closed stream or one that feeds another queue.
    PvResult attach(const std::shared_ptr<FrameQueue>& queue);
    void detach(const FrameQueue* queue);
    std::shared_ptr<FrameQueue> attached() const;

    PvResult status() const;
    PvResult permit(std::string_view operation) const;
    void reportDropped(std::uint64_t frames) const;

    FrameFate receive(const StreamFrame& frame) override;
    PvResult setFeature(std::string_view name, const FeatureValue& value) override;
    PvResult getFeature(std::string_view name, FeatureType type, FeatureValue& value) override;

private:
    std::shared_ptr<GigeDevice> channel() const;
    PvResult reachFeature(std::string_view name) const;

    mutable platform::Mutex mutex;
    /// Stays after closing, for what is still to be reported.
    std::shared_ptr<GigeDevice> device GUARDED_BY(mutex);
    Endpoint endpoint GUARDED_BY(mutex);
    std::shared_ptr<FrameQueue> queue GUARDED_BY(mutex);
    FeatureStore parameters GUARDED_BY(mutex);
};

}  // namespace ebus
