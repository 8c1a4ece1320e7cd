#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "GigeDevice.h"
#include "LocalPorts.h"
#include "deviceFeatures.h"
#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "simulator/SimulatedDetector.h"

namespace ebus {

/// The GigE interface board in front of a simulated detector: what is one per device and outlives its users.
/// Features and logic survive reconnects; control and acquisition don't. Any thread may call.
///
/// Locks: `acquisitionMutex` and `logicMutex` are taken before `stateMutex`, and alone are held while the detector is
/// called. The frame receiver takes `stateMutex` only, and holds nothing when it hands a frame on.
class SimulatedBoard : public std::enable_shared_from_this<SimulatedBoard> {
public:
    /// The board of the detector that is mounted at the address now; null if there is none.
    static std::shared_ptr<SimulatedBoard> at(const std::string& address);

    explicit SimulatedBoard(std::shared_ptr<simulator::SimulatedDetector> detector);
    ~SimulatedBoard();

    /// @name Link and control; `user` is only compared
    /// @{
    /// Whether the device answers. If it doesn't, everybody's connection is lost and acquisition has stopped.
    bool answers();
    /// Counts how often the link was lost; a connection of an earlier count is gone.
    std::uint64_t linkLosses() const;
    bool takeControl(const void* user);
    void releaseControl(const void* user);
    bool isControlledBy(const void* user) const;
    /// @}

    PvResult setFeature(std::string_view name, const FeatureValue& value);
    PvResult getFeature(std::string_view name, FeatureType type, FeatureValue& value) const;
    void setStreamDestination(const Endpoint& endpoint);

    /// False if it is running already, or not running.
    bool startAcquisition();
    bool stopAcquisition();
    bool isAcquiring() const;

    std::size_t readSerial(std::uint8_t* bytes, std::size_t capacity, platform::Time deadline);
    void writeSerial(std::string_view bytes);
    void flushSerialInput();

    simulator::Faults& faults() { return detector->faults(); }
    void reportDropped(std::uint64_t frames) { detector->reportDropped(frames); }

private:
    simulator::FrameFate deliver(const simulator::Frame& frame);
    /// Brings the detector's trigger input to what the logic says at `time`, and plans the next change.
    void settleLogic(platform::Time time) REQUIRES(logicMutex);
    void runPlannedChange(std::uint64_t plan, platform::Time due);
    /// Where the values of the timer that is selected now are kept; 0 for a feature that has one value only.
    std::size_t bankOf(const FeatureRow& row) const REQUIRES(stateMutex);
    std::int64_t stored(std::size_t feature, std::size_t bank) const REQUIRES(stateMutex);

    const std::shared_ptr<simulator::SimulatedDetector> detector;

    platform::Mutex acquisitionMutex;
    platform::Mutex logicMutex;
    bool triggerLevel GUARDED_BY(logicMutex) = false;
    std::uint64_t currentPlan GUARDED_BY(logicMutex) = 0;

    mutable platform::Mutex stateMutex;
    platform::Condition loopbackArrived;
    FeatureStore features GUARDED_BY(stateMutex);
    std::array<platform::Time, timerCount> timerStarts GUARDED_BY(stateMutex){};
    const void* controller GUARDED_BY(stateMutex) = nullptr;
    std::uint64_t losses GUARDED_BY(stateMutex) = 0;
    Endpoint destination GUARDED_BY(stateMutex);
    bool acquiring GUARDED_BY(stateMutex) = false;
    std::deque<char> loopback GUARDED_BY(stateMutex);
};

}  // namespace ebus
