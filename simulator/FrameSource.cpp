#include "simulator/FrameSource.h"

#include <algorithm>
#include <utility>

#include "simulator/Timing.h"

namespace simulator {
namespace {

// Keeps a timeline that runs free moving even where neither window nor readout takes time.
constexpr platform::Time shortestFrame = std::chrono::microseconds(10);

}  // namespace

FrameSource::FrameSource(std::shared_ptr<Controller> controllerToAsk, std::shared_ptr<Faults> faultsToAsk)
    : controller(std::move(controllerToAsk)), faults(std::move(faultsToAsk)) {}

void FrameSource::edge() {
    const platform::MutexLock lock(mutex);
    ++counts.edges;
    if (inProgress || !controller->exposureSetup().powered)
        ++counts.edgesIgnored;
    else
        begin(platform::now());
}

void FrameSource::setTriggerInput(bool level) {
    bool rising = false;
    {
        const platform::MutexLock lock(mutex);
        rising = level && !triggerLevel;
        triggerLevel = level;
    }
    if (rising) edge();
}

void FrameSource::begin(platform::Time start) {
    const ExposureSetup setup = controller->exposureSetup();
    inProgress = true;
    geometryInProgress = setup.geometry;
    period = std::max(durationOf(setup.windowMs + setup.readoutMs), shortestFrame);
    due = start + period;
    platform::schedule(due, [weak = weak_from_this()] {
        if (const std::shared_ptr<FrameSource> self = weak.lock()) self->finish();
    });
}

void FrameSource::runFreeFrom(platform::Time start) {
    if (!inProgress && receiver && controller->exposureSetup().freeRun) begin(start);
}

void FrameSource::setupChanged() {
    const platform::MutexLock lock(mutex);
    runFreeFrom(platform::now());
}

void FrameSource::finish() {
    Frame frame;
    FrameGeometry geometry;
    Picture kind{};
    {
        const platform::MutexLock lock(mutex);
        inProgress = false;
        frame.number = ++counts.exposed;
        geometry = geometryInProgress;
        kind = picture;
        // Back to back, unless the pixels take longer to make than to expose: then the lost time stays lost.
        const platform::Time now = platform::now();
        runFreeFrom(now - due < period ? due : now);
        if (faults->strikes(Fault::LostFrame)) {
            ++counts.lostByFault;
            return;
        }
        if (!receiver || !controller->interfaceOn()) {
            ++counts.lostNoReceiver;
            return;
        }
        frame.pixels = std::exchange(spare, {});
    }
    expose(frame, geometry, kind);
    deliver(frame);
    const platform::MutexLock lock(mutex);
    spare = std::move(frame.pixels);
}

void FrameSource::expose(Frame& frame, const FrameGeometry& geometry, Picture kind) {
    frame.width = geometry.width;
    frame.height = geometry.height;
    if (kind == Picture::Pattern) {
        fillPattern(frame.number, geometry.width, geometry.height, geometry.sensorsAcross, geometry.sensorsDown,
                    frame.pixels);
    } else {
        if (!phantom || phantom->geometry() != geometry) phantom = std::make_shared<const Phantom>(geometry);
        phantom->fill(frame.number, frame.pixels);
    }
    if (faults->strikes(Fault::TruncatedFrame)) {
        frame.complete = false;
        std::fill(frame.pixels.begin() + static_cast<std::ptrdiff_t>(frame.pixels.size() / 2), frame.pixels.end(),
                  std::uint16_t{0});
    }
    if (faults->strikes(Fault::FailedFrame)) frame.complete = false;
}

void FrameSource::deliver(const Frame& frame) {
    std::shared_ptr<const Receiver> taker;
    const std::thread::id thisThread = std::this_thread::get_id();
    {
        const platform::MutexLock lock(mutex);
        taker = receiver;
        if (!taker) {
            ++counts.lostNoReceiver;
            return;
        }
        deliveries.push_back(thisThread);
    }
    const FrameFate fate = (*taker)(frame);
    {
        const platform::MutexLock lock(mutex);
        count(fate);
        deliveries.erase(std::find(deliveries.begin(), deliveries.end(), thisThread));
    }
    deliveryEnded.notifyAll();
}

void FrameSource::count(FrameFate fate) {
    switch (fate) {
        case FrameFate::Delivered:
            ++counts.delivered;
            break;
        case FrameFate::NoReceiver:
            ++counts.lostNoReceiver;
            break;
        case FrameFate::NoBuffer:
            ++counts.lostNoBuffer;
            break;
        case FrameFate::InFlight:
            ++counts.lostInFlight;
            break;
    }
}

void FrameSource::setReceiver(std::function<FrameFate(const Frame&)> newReceiver) {
    const std::thread::id thisThread = std::this_thread::get_id();
    std::shared_ptr<const Receiver> next;
    if (newReceiver) next = std::make_shared<const Receiver>(std::move(newReceiver));
    const platform::MutexLock lock(mutex);
    // The old one goes after the lock does: what it captured may call in here when it dies.
    receiver.swap(next);
    runFreeFrom(platform::now());
    while (std::any_of(deliveries.begin(), deliveries.end(),
                       [&](const std::thread::id& delivering) { return delivering != thisThread; }))
        deliveryEnded.waitUntil(mutex, platform::never);
}

void FrameSource::reportDropped(std::uint64_t dropped) {
    const platform::MutexLock lock(mutex);
    const std::uint64_t moved = std::min(dropped, counts.delivered);
    counts.delivered -= moved;
    counts.lostInFlight += moved;
}

void FrameSource::setPicture(Picture newPicture) {
    const platform::MutexLock lock(mutex);
    picture = newPicture;
}

Ledger FrameSource::ledger() const {
    const platform::MutexLock lock(mutex);
    return counts;
}

}  // namespace simulator
