#include "Capture.h"

#include <algorithm>
#include <utility>

#include "link.h"
#include "platform/Event.h"
#include "xcliball.h"

namespace grabber {

using simulator::FrameFate;

Capture::Capture(std::shared_ptr<simulator::SimulatedDetector> detectorBehind,
                 std::shared_ptr<FaultText> faultTextToUse)
    : detector(std::move(detectorBehind)), faultText(std::move(faultTextToUse)) {}

void Capture::arrange(FrameSize size, std::uint64_t poolBytes) {
    {
        const platform::MutexLock lock(mutex);
        if (!memory.arrange(size, poolBytes)) return;
        ++currentArrangement;
        if (nextBuffer > memory.bufferCount()) nextBuffer = sequence.start;
        if (mode != Mode::Snap) return;
        begin(Mode::Idle, {});
    }
    settleReceiver();
}

void Capture::begin(Mode newMode, const Sequence& wanted) {
    mode = newMode;
    ++currentRun;
    sequence = wanted;
    nextBuffer = wanted.start;
    captured = 0;
    toSkip = 0;
}

int Capture::snap(long buffer) {
    Sequence once;
    once.start = once.end = buffer;
    once.count = 1;
    {
        const platform::MutexLock lock(mutex);
        if (mode == Mode::Live) return PXERBUSY;
        if (!once.isIn(memory.bufferCount())) return PXERBADPARAM;
        begin(Mode::Snap, once);
    }
    settleReceiver();
    return 0;
}

int Capture::startSequence(const Sequence& wanted) {
    {
        const platform::MutexLock lock(mutex);
        if (mode == Mode::Live) return PXERBUSY;
        if (!wanted.isIn(memory.bufferCount())) return PXERBADPARAM;
        begin(Mode::Live, wanted);
    }
    settleReceiver();
    return 0;
}

void Capture::stop() {
    {
        const platform::MutexLock lock(mutex);
        if (mode != Mode::Idle) begin(Mode::Idle, {});
    }
    settleReceiver();
}

bool Capture::wantsFrames() const {
    const platform::MutexLock lock(mutex);
    return mode != Mode::Idle;
}

void Capture::settleReceiver() {
    // Whoever changes the mode comes here afterwards, so the last one to tell the detector has seen the last mode.
    bool told = false;
    do {
        told = wantsFrames();
        if (told)
            detector->setFrameReceiver([weak = weak_from_this()](const simulator::Frame& frame) {
                const std::shared_ptr<Capture> alive = weak.lock();
                return alive != nullptr ? alive->receive(frame) : FrameFate::NoReceiver;
            });
        else
            detector->setFrameReceiver({});
    } while (told != wantsFrames());
}

bool Capture::isLive() const {
    const platform::MutexLock lock(mutex);
    return mode == Mode::Live;
}

int Capture::capturedBuffer() const {
    const platform::MutexLock lock(mutex);
    return lastBuffer;
}

int Capture::fieldCount() const {
    const platform::MutexLock lock(mutex);
    return fields;
}

FrameFate Capture::receive(const simulator::Frame& frame) {
    if (!isPlugged(*detector)) return FrameFate::NoReceiver;
    Place place;
    if (const FrameFate fate = findPlace(frame, place); place.buffer == nullptr) return fate;
    try {
        place.buffer->store(reinterpret_cast<const std::uint8_t*>(frame.pixels.data()));
    } catch (const std::bad_alloc&) {
        return refuse("no memory for a buffer");
    }
    std::vector<void*> toSignal;
    if (!commit(place, toSignal)) return FrameFate::InFlight;
    // A capture that ended itself is over before anybody learns of its last frame.
    if (!wantsFrames()) settleReceiver();
    for (void* const event : toSignal) platform::signalEvent(event);
    return FrameFate::Delivered;
}

FrameFate Capture::refuse(const char* why) {
    faultText->put(std::string("a frame was not captured: ") + why);
    return FrameFate::InFlight;
}

FrameFate Capture::findPlace(const simulator::Frame& frame, Place& place) {
    const platform::MutexLock lock(mutex);
    if (mode == Mode::Idle) return FrameFate::NoReceiver;
    if (toSkip > 0) {
        --toSkip;
        return FrameFate::InFlight;
    }
    if (!frame.complete) return refuse("it came incomplete");
    FrameSize size;
    place.number = nextBuffer;
    place.run = currentRun;
    place.arrangement = currentArrangement;
    std::shared_ptr<FrameBuffer> buffer = memory.buffer(nextBuffer, size);
    if (buffer == nullptr) return refuse("its buffer is not in the frame memory any more");
    if (frame.pixels.size() * sizeof(frame.pixels.front()) != size.byteCount())
        return refuse("its size is not the video resolution");
    place.buffer = std::move(buffer);
    return FrameFate::Delivered;
}

bool Capture::commit(const Place& place, std::vector<void*>& toSignal) {
    const platform::MutexLock lock(mutex);
    if (place.run != currentRun || place.arrangement != currentArrangement) return false;
    lastBuffer = static_cast<int>(place.number);
    ++fields;
    ++captured;
    const long last = std::min<long>(sequence.end, memory.bufferCount());
    nextBuffer = sequence.increment <= last - place.number ? place.number + sequence.increment : sequence.start;
    toSkip = sequence.period - 1;
    toSignal = events;
    if (captured == sequence.count) begin(Mode::Idle, {});
    return true;
}

void* Capture::createEvent() {
    void* const event = platform::createAutoResetEvent();
    const platform::MutexLock lock(mutex);
    events.push_back(event);
    return event;
}

void Capture::closeEvent(void* event) {
    {
        const platform::MutexLock lock(mutex);
        const auto place = std::find(events.begin(), events.end(), event);
        if (place == events.end()) return;
        events.erase(place);
    }
    platform::closeEvent(event);
}

void Capture::closeAllEvents() {
    std::vector<void*> open;
    {
        const platform::MutexLock lock(mutex);
        open.swap(events);
    }
    for (void* const event : open) platform::closeEvent(event);
}

}  // namespace grabber
