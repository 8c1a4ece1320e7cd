#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "FaultText.h"
#include "FrameMemory.h"
#include "platform/Mutex.h"
#include "simulator/SimulatedDetector.h"

namespace grabber {

/// Which buffers a capture fills, counted from 1, and how often.
struct Sequence {
    long start = 1;
    long end = 1;
    long increment = 1;
    long count = 0;  ///< 0 is without end
    int period = 1;  ///< of so many frames the first is captured

    bool isIn(long buffers) const {
        return start >= 1 && start <= end && end <= buffers && increment >= 1 && count >= 0 && period >= 1;
    }
};

/// Takes frames from the detector into frame memory. Any thread may call. Held by a shared pointer: the detector's
/// frame receiver holds a weak one.
///
/// The detector has a receiver while a capture is under way and at no other time, so that without one it doesn't run
/// free. The receiver takes `mutex` and the leaves below it; no lock is held while the detector is called.
class Capture : public std::enable_shared_from_this<Capture> {
public:
    Capture(std::shared_ptr<simulator::SimulatedDetector> detector, std::shared_ptr<FaultText> faultText);

    /// Divides frame memory anew; a change ends an open snap, while a sequence goes on in the new buffers.
    void arrange(FrameSize size, std::uint64_t poolBytes);
    FrameMemory& frames() { return memory; }

    /// @name Results as in xcliball.h
    /// @{
    int snap(long buffer);
    int startSequence(const Sequence& wanted);
    /// Returns when no frame is being captured any more.
    void stop();
    bool isLive() const;
    int capturedBuffer() const;
    int fieldCount() const;
    void* createEvent();
    void closeEvent(void* event);
    /// @}
    void closeAllEvents();

private:
    enum class Mode { Idle, Snap, Live };

    /// Where the frame that is arriving goes.
    struct Place {
        std::shared_ptr<FrameBuffer> buffer;
        long number = 0;
        std::uint64_t run = 0;
        std::uint64_t arrangement = 0;
    };

    void begin(Mode newMode, const Sequence& wanted) REQUIRES(mutex);
    /// Gives the detector a receiver, or takes it away, until that is what the capture wants.
    void settleReceiver() EXCLUDES(mutex);
    bool wantsFrames() const;
    simulator::FrameFate receive(const simulator::Frame& frame);
    simulator::FrameFate findPlace(const simulator::Frame& frame, Place& place) EXCLUDES(mutex);
    simulator::FrameFate refuse(const char* why);
    /// False if the capture is another one by now, or the buffers are.
    bool commit(const Place& place, std::vector<void*>& toSignal) EXCLUDES(mutex);

    const std::shared_ptr<simulator::SimulatedDetector> detector;
    const std::shared_ptr<FaultText> faultText;
    FrameMemory memory;

    mutable platform::Mutex mutex;
    Mode mode GUARDED_BY(mutex) = Mode::Idle;
    std::uint64_t currentRun GUARDED_BY(mutex) = 0;          ///< counts captures that began or ended
    std::uint64_t currentArrangement GUARDED_BY(mutex) = 0;  ///< counts changes of the buffers
    Sequence sequence GUARDED_BY(mutex);
    long nextBuffer GUARDED_BY(mutex) = 1;
    long captured GUARDED_BY(mutex) = 0;  ///< of this capture
    int toSkip GUARDED_BY(mutex) = 0;     ///< frames before the next one that is captured
    int lastBuffer GUARDED_BY(mutex) = 0;
    int fields GUARDED_BY(mutex) = 0;
    std::vector<void*> events GUARDED_BY(mutex);
};

}  // namespace grabber
