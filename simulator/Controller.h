#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/Faults.h"
#include "simulator/FlashMemory.h"
#include "simulator/RegisterBank.h"
#include "simulator/SerialLine.h"

namespace simulator {

/// What the next frame is taken with.
struct ExposureSetup {
    FrameGeometry geometry;
    double windowMs = 0;
    double readoutMs = 0;
    bool freeRun = false;
    bool powered = true;  ///< without power no frame is taken
};

/// The detector's controller: the registers in time. Executes commands; knows when the readout time has been worked
/// out and when the flash memory is ready. Any thread may call.
class Controller {
public:
    Controller(const Profile& profile, std::shared_ptr<Faults> faults);

    /// Executes one command, given without its carriage return.
    Reply execute(std::string_view command);

    int read(int number, int sensor);
    /// False if there is no such register or sensor.
    bool write(int number, std::uint16_t value, int sensor);
    void poke(int number, std::uint16_t value, int sensor);

    ExposureSetup exposureSetup() const;
    /// Whether frames reach the link.
    bool interfaceOn() const;

    void setMinimumWindowMs(double window);
    void setReadoutTimeSettleMs(double time);
    void setFlashBusyMs(double time);
    void setReadoutTimeMs(double time);
    void setBootTimeMs(double time);
    void setEraseTimeMs(double time);
    void setTemperatures(double sensorCelsius, double auxiliaryCelsius);

    std::vector<std::uint8_t> flashContent(int sensor) const;

private:
    /// `Low` is what Kestrane electronics fall into when they are switched off.
    enum class Power { On, Low, Off };

    Reply executeFlash(const FlashCommand& command);
    Reply executeRegister(const RegisterCommand& command);
    Reply switchPower(bool on);
    Reply switchInterface(bool on);
    Reply startAuxiliary();
    Reply readAuxiliary();
    bool booting() const REQUIRES(mutex);
    bool hasAuxiliaryProbe() const;
    int temperatureRegister(int sensor) REQUIRES(mutex);
    double readoutMs() const REQUIRES(mutex);
    bool readoutTimeSettled() const REQUIRES(mutex);
    bool flashBusy() const REQUIRES(mutex);
    std::uint16_t readoutTimeRegister() const REQUIRES(mutex);

    const Profile profile;
    const std::shared_ptr<Faults> faults;
    mutable platform::Mutex mutex;
    RegisterBank bank GUARDED_BY(mutex);
    platform::Time timingMovedAt GUARDED_BY(mutex);
    platform::Time flashWrittenAt GUARDED_BY(mutex){platform::Time::min()};
    double minimumWindowMs GUARDED_BY(mutex);
    double settleMs GUARDED_BY(mutex) = 20;
    double flashBusyMs GUARDED_BY(mutex) = 30;
    FlashMemory flash GUARDED_BY(mutex);
    Power power GUARDED_BY(mutex) = Power::On;
    bool linkInterfaceOn GUARDED_BY(mutex) = true;  ///< no switch of the power touches it
    platform::Time bootEnds GUARDED_BY(mutex){platform::Time::min()};
    platform::Time temperatureRequestedAt GUARDED_BY(mutex){0};
    platform::Time auxiliaryStartedAt GUARDED_BY(mutex){platform::Time::max()};
    double bootMs GUARDED_BY(mutex) = 1000;
    double eraseMs GUARDED_BY(mutex) = 3000;
    double sensorCelsius GUARDED_BY(mutex) = 35;
    double auxiliaryCelsius GUARDED_BY(mutex) = 32;
    double fixedReadoutMs GUARDED_BY(mutex) = 0;  ///< 0: the configuration decides
};

}  // namespace simulator
