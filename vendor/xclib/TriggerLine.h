#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "simulator/SimulatedDetector.h"
#include "videoFormat.h"

namespace grabber {

/// The pulse generator: a pulse, then a pause, over and over.
struct Exsync {
    bool running = false;
    unsigned exsync = 0;  ///< counts of the pulse; 0: none was set, and no pulse comes
    unsigned prin = 0;    ///< counts of the pause
    unsigned divide = 0;  ///< N
    platform::Time startedAt{0};

    bool pulses() const { return running && exsync > 0; }
    platform::Time count() const;
    platform::Time cycle() const;
    bool levelAt(platform::Time time) const;
    /// The first change of level after `time`; `never` if no pulse comes.
    platform::Time nextChange(platform::Time time) const;
};

/// The line that triggers the detector, and what drives it. Any thread may call. Held by a shared pointer: what it
/// plans on the timeline holds weak ones.
///
/// The lock is held while the detector is told of an edge; the frame receiver doesn't take it.
class TriggerLine : public std::enable_shared_from_this<TriggerLine> {
public:
    explicit TriggerLine(std::shared_ptr<simulator::SimulatedDetector> detector);

    /// The format decides who drives the line. The generator is switched off.
    void select(VideoFormat format);
    /// Low from now on, and nothing is planned any more.
    void release();

    /// @name What the callers of the board set; negative for values out of range
    /// @{
    int setControl(int level);
    int setMode(unsigned mode, unsigned princ);
    int setCounts(unsigned exsync, unsigned prin);
    /// @}

private:
    /// Brings the line to its level at `time`, and plans the next change.
    void settle(platform::Time time) REQUIRES(mutex);
    void runPlannedChange(std::uint64_t plan, platform::Time due);
    void change(const Exsync& wanted) REQUIRES(mutex);

    const std::shared_ptr<simulator::SimulatedDetector> detector;
    platform::Mutex mutex;
    std::optional<VideoFormat> driver GUARDED_BY(mutex);
    bool control GUARDED_BY(mutex) = false;
    Exsync generator GUARDED_BY(mutex);
    bool level GUARDED_BY(mutex) = false;
    std::uint64_t currentPlan GUARDED_BY(mutex) = 0;
};

}  // namespace grabber
