#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "components/binningTable.h"
#include "simulator/Picture.h"
#include "simulator/Profile.h"
#include "simulator/registerMap.h"

namespace simulator {

/// How the latch of the exposure window treats what was written.
struct LatchRule {
    std::uint32_t minimumCount = 0;  ///< smaller windows are raised to this; counts of 0.01 ms
    bool refuse = false;             ///< the window keeps its old value
};

/// What a register write set going.
struct WriteEffects {
    bool timingMoved = false;  ///< the readout time has to be worked out again
    bool flashWritten = false;
};

/// The registers of all sensors, and which of their settings are in force. Knows neither time nor locks.
///
/// The first sensor's controller leads the panel: settings take force with writes that reach it.
class RegisterBank {
public:
    explicit RegisterBank(const Profile& profile);

    /// Puts every register and setting into its state after power-on; flash-held registers keep what they hold.
    void powerOn();

    bool hasSensor(int sensor) const { return sensor >= reg::firstSensor && sensor <= profile.sensorCount(); }
    static bool hasRegister(int number) { return number >= 0 && number < reg::count; }

    /// @name Content, without effects. The register exists, and so does the sensor; 0 in `put` is every sensor.
    /// @{
    std::uint16_t get(int number, int sensor) const;
    void put(int number, std::uint16_t value, int sensor);
    /// @}

    /// A write with its effects, under the conditions of `put`.
    WriteEffects write(int number, std::uint16_t value, int sensor, LatchRule latch);
    /// Whether that write latches the exposure window.
    static bool latchesWindow(int number, int sensor);

    /// @name The settings in force
    /// @{
    bins binning() const { return activeBinning->mode; }
    std::uint32_t windowCount() const { return latchedWindowCount; }
    bool legacyTiming() const { return (activeStaged & reg::legacyTimingOffBit) == 0; }
    bool freeRun() const { return (get(reg::mode, reg::firstSensor) & reg::triggerSourceBits) == 0; }
    FrameGeometry frameGeometry() const;
    /// Rows of one sensor that are read out for a frame, the region's margin among them.
    int rowsRead() const;
    /// @}

private:
    struct Region {
        int startRow = 0;
        int rows = 0;
    };
    bool canRegion() const;
    /// The rows of one sensor that a frame shows; the whole sensor where no sensible region is set.
    Region region() const;
    bins selectedBinning() const;
    void latchWindow(int sensor, LatchRule latch);
    bool moveControl(std::uint16_t before, std::uint16_t after);

    const Profile profile;
    std::vector<std::array<std::uint16_t, reg::count>> sensors;
    const BinningMode* activeBinning = findBinning(Bin1x1);
    std::uint16_t activeStaged = 0;
    std::uint32_t latchedWindowCount = 0;
};

}  // namespace simulator
