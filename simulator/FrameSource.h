#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "simulator/Controller.h"
#include "simulator/SimulatedDetector.h"

namespace simulator {

/// Trigger, exposure and readout of frames, and what became of them. Any thread may call.
///
/// One frame is in progress at a time; it takes the setup that is in force when it begins. Pixels are made when the
/// frame is due, on the timeline, without the lock. Held by a shared pointer: its timeline holds weak ones.
class FrameSource : public std::enable_shared_from_this<FrameSource> {
public:
    FrameSource(std::shared_ptr<Controller> controller, std::shared_ptr<Faults> faults);

    void edge();
    void setTriggerInput(bool level);
    void setReceiver(std::function<FrameFate(const Frame&)> newReceiver);
    /// Begins to run free if the setup says so now.
    void setupChanged();
    void reportDropped(std::uint64_t count);
    void setPicture(Picture newPicture);
    Ledger ledger() const;

private:
    using Receiver = std::function<FrameFate(const Frame&)>;

    void begin(platform::Time start) REQUIRES(mutex);
    void runFreeFrom(platform::Time start) REQUIRES(mutex);
    void finish();
    bool isReceiving();
    void expose(Frame& frame, const FrameGeometry& geometry, Picture kind);
    void deliver(const Frame& frame);
    void count(FrameFate fate) REQUIRES(mutex);

    const std::shared_ptr<Controller> controller;
    const std::shared_ptr<Faults> faults;

    mutable platform::Mutex mutex;
    platform::Condition deliveryEnded;
    Ledger counts GUARDED_BY(mutex);
    Picture picture GUARDED_BY(mutex) = Picture::Pattern;
    bool triggerLevel GUARDED_BY(mutex) = false;
    std::shared_ptr<const Receiver> receiver GUARDED_BY(mutex);
    std::vector<std::thread::id> deliveries GUARDED_BY(mutex);  ///< threads that are in the receiver now

    bool inProgress GUARDED_BY(mutex) = false;
    platform::Time due GUARDED_BY(mutex){0};  ///< of the frame in progress
    platform::Time period GUARDED_BY(mutex){0};
    FrameGeometry geometryInProgress GUARDED_BY(mutex);

    std::shared_ptr<const Phantom> phantom;              ///< only touched on the timeline
    std::vector<std::uint16_t> spare GUARDED_BY(mutex);  ///< the last frame's pixels, to be filled again
};

}  // namespace simulator
