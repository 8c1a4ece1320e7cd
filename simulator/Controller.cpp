#include "simulator/Controller.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "simulator/Thermometer.h"
#include "simulator/Timing.h"

namespace simulator {
namespace {

// A controller that is at work answers status reads late, which is also what lets a host that polls without a pause
// get ahead in time.
constexpr platform::Time busyReplyDelay = std::chrono::milliseconds(1);

constexpr platform::Time conversionTime = std::chrono::milliseconds(30);
constexpr std::string_view powerOnCommand = "WP1";
constexpr std::string_view powerOffCommand = "WP0";
constexpr std::string_view interfaceOnCommand = "WC1";
constexpr std::string_view interfaceOffCommand = "WC0";
constexpr std::string_view replyVersion = "SV1";

Reply silence() {
    Reply reply;
    reply.silent = true;
    return reply;
}

bool passed(platform::Time since, double ms) {
    return since == platform::Time::min() || platform::now() - since >= durationOf(ms);
}

}  // namespace

Controller::Controller(const Profile& profileToHold, std::shared_ptr<Faults> faultsToAsk)
    : profile(profileToHold),
      faults(std::move(faultsToAsk)),
      bank(profileToHold),
      timingMovedAt(platform::now()),
      minimumWindowMs(
          firmwareMinimumWindowMs(profileToHold.model, profileToHold.firmwareVersion, profileToHold.isKestrane())),
      flash(profileToHold.sensorCount()) {}

Reply Controller::execute(std::string_view text) {
    const std::optional<RegisterCommand> registerCommand = parseRegisterCommand(text);
    {
        const platform::MutexLock lock(mutex);
        const bool interfaceCommand = text == interfaceOnCommand || text == interfaceOffCommand;
        // Plain electronics switch their interface by a circuit that doesn't wait for the controller.
        if (booting() && (profile.isKestrane() || !interfaceCommand)) return silence();
        const bool powerCommand = interfaceCommand || text == powerOnCommand || text == powerOffCommand;
        if (power == Power::Off && !powerCommand) return silence();
        // In low power the controller sleeps, but for what wakes it, its version and its flash status.
        const bool flashStatus =
            registerCommand && !registerCommand->write && registerCommand->number == reg::flashStatus;
        if (power == Power::Low && !powerCommand && text != "RV" && !flashStatus) return {std::string(replyRefused)};
    }
    if (text == powerOnCommand || text == powerOffCommand) return switchPower(text == powerOnCommand);
    if (text == interfaceOnCommand || text == interfaceOffCommand) return switchInterface(text == interfaceOnCommand);
    if (text == "RV") return {std::string(replyVersion)};
    if (text == "M1") return startAuxiliary();
    if (text == "RM8") return readAuxiliary();
    if (const std::optional<FlashCommand> command = parseFlashCommand(text)) return executeFlash(*command);
    if (registerCommand) return executeRegister(*registerCommand);
    return {std::string(replyRefused)};
}

Reply Controller::executeRegister(const RegisterCommand& command) {
    if (command.write) {
        const bool done = write(command.number, command.value, command.sensor);
        return {std::string(done ? replyAccepted : replyRefused)};
    }
    const int value = read(command.number, command.sensor);
    if (value < 0) return {std::string(replyRefused), true};
    const bool working = (command.number == reg::readoutTime && value == 0) ||
                         (command.number == reg::flashStatus && (value & reg::flashBusyBit) != 0);
    return {readReply(static_cast<std::uint16_t>(value)), true, working ? busyReplyDelay : platform::Time{0}};
}

Reply Controller::executeFlash(const FlashCommand& command) {
    const platform::MutexLock lock(mutex);
    Reply refused{std::string(replyRefused)};
    if (command.sensor != reg::allSensors && !bank.hasSensor(command.sensor)) return refused;
    switch (command.kind) {
        case FlashCommand::Kind::Erase: {
            if (faults->strikes(Fault::RefusedErase)) return refused;
            const bool endless = faults->strikes(Fault::EndlessErase).has_value();
            flash.erase(command.sensor, endless ? platform::never : platform::now() + durationOf(eraseMs));
            return {std::string(replyAccepted)};
        }
        case FlashCommand::Kind::Status:
            return {readReply(flash.eraseRunning(command.sensor) ? 1 : 0)};
        case FlashCommand::Kind::Packet: {
            if (faults->strikes(Fault::SilentPacket)) return silence();
            if (flash.eraseRunning(command.sensor)) return refused;
            const std::uint8_t checksum = flash.write(command.sensor, command.offset, command.data);
            const bool wrong = faults->strikes(Fault::WrongChecksum).has_value();
            return {readReply(static_cast<std::uint16_t>(wrong ? checksum ^ 1 : checksum))};
        }
    }
    return refused;
}

Reply Controller::switchPower(bool on) {
    const platform::MutexLock lock(mutex);
    if (!on) {
        power = profile.isKestrane() ? Power::Low : Power::Off;
    } else if (power != Power::On) {
        power = Power::On;
        bank.powerOn();
        bootEnds = platform::now() + durationOf(bootMs);
        timingMovedAt = bootEnds;
        temperatureRequestedAt = platform::Time{0};
        auxiliaryStartedAt = platform::never;
    }
    return {std::string(replyAccepted)};
}

Reply Controller::switchInterface(bool on) {
    const platform::MutexLock lock(mutex);
    linkInterfaceOn = on;
    return {std::string(replyAccepted)};
}

bool Controller::interfaceOn() const {
    const platform::MutexLock lock(mutex);
    return linkInterfaceOn;
}

bool Controller::booting() const {
    return power == Power::On && platform::now() < bootEnds;
}

bool Controller::hasAuxiliaryProbe() const {
    return profile.isKestrane() && (profile.model == 6112 || profile.model == 6213 || profile.model == 7127);
}

Reply Controller::startAuxiliary() {
    const platform::MutexLock lock(mutex);
    if (!hasAuxiliaryProbe()) return {std::string(replyRefused)};
    auxiliaryStartedAt = platform::now();
    return {"X"};
}

Reply Controller::readAuxiliary() {
    const platform::MutexLock lock(mutex);
    if (!hasAuxiliaryProbe()) return {std::string(replyRefused)};
    const bool ready = platform::now() - conversionTime >= auxiliaryStartedAt && !faults->strikes(Fault::NoTemperature);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "Sx%X,x0,x0",
                  static_cast<unsigned>(ready ? auxiliaryReading(auxiliaryCelsius) : 0));
    return {text.data()};
}

int Controller::temperatureRegister(int sensor) {
    const std::uint16_t held = bank.get(reg::temperature, sensor);
    if ((held & reg::temperatureRequestBit) == 0) return held;
    if (platform::now() - temperatureRequestedAt < conversionTime || faults->strikes(Fault::NoTemperature)) return held;
    const auto celsius = static_cast<std::uint16_t>(std::clamp(std::lround(sensorCelsius), 0L, 255L));
    bank.put(reg::temperature, celsius, sensor);
    return celsius;
}

int Controller::read(int number, int sensor) {
    const platform::MutexLock lock(mutex);
    if (!RegisterBank::hasRegister(number) || !bank.hasSensor(sensor)) return -1;
    if (number == reg::readoutTime && profile.isKestrane()) {
        const bool zero = faults->strikes(Fault::ZeroReadoutTime).has_value();
        return zero ? 0 : readoutTimeRegister();
    }
    if (number == reg::flashStatus) {
        const bool stuck = faults->strikes(Fault::BusyFlash).has_value();
        const int others = bank.get(number, sensor);
        return stuck || flashBusy() ? others | reg::flashBusyBit : others;
    }
    if (number == reg::temperature && profile.isKestrane()) return temperatureRegister(sensor);
    if (number == reg::temperatureReading && !profile.isKestrane()) {
        const bool requested = (bank.get(reg::temperatureRequest, reg::firstSensor) & reg::thermistorRequestBit) != 0;
        return requested && !faults->strikes(Fault::NoTemperature) ? thermistorReading(sensorCelsius) : 0;
    }
    return bank.get(number, sensor);
}

bool Controller::write(int number, std::uint16_t value, int sensor) {
    const platform::MutexLock lock(mutex);
    if (!RegisterBank::hasRegister(number) || (sensor != reg::allSensors && !bank.hasSensor(sensor))) return false;
    if (faults->registerSticks(number)) return true;
    LatchRule latch;
    latch.minimumCount = windowCount(minimumWindowMs);
    latch.refuse = RegisterBank::latchesWindow(number, sensor) && faults->strikes(Fault::RefusedExposure).has_value();
    const WriteEffects effects = bank.write(number, value, sensor, latch);
    if (effects.timingMoved) timingMovedAt = platform::now();
    if (effects.flashWritten) flashWrittenAt = platform::now();
    if (number == reg::temperature) temperatureRequestedAt = platform::now();
    return true;
}

void Controller::poke(int number, std::uint16_t value, int sensor) {
    const platform::MutexLock lock(mutex);
    if (RegisterBank::hasRegister(number)) bank.put(number, value, sensor);
}

ExposureSetup Controller::exposureSetup() const {
    const platform::MutexLock lock(mutex);
    const bool powered = power == Power::On && !booting();
    return {bank.frameGeometry(), windowMs(bank.windowCount()), readoutMs(), powered && bank.freeRun(), powered};
}

double Controller::readoutMs() const {
    if (fixedReadoutMs > 0) return fixedReadoutMs;
    return readoutTimeMs({profile.model, profile.firmwareVersion, profile.isKestrane(),
                          profile.link == Link::CameraLink, bank.legacyTiming(), bank.binning(), bank.rowsRead()});
}

bool Controller::readoutTimeSettled() const {
    return passed(timingMovedAt, settleMs);
}

bool Controller::flashBusy() const {
    return profile.isKestrane() && !passed(flashWrittenAt, flashBusyMs);
}

std::uint16_t Controller::readoutTimeRegister() const {
    const std::uint16_t poked = bank.get(reg::readoutTime, reg::firstSensor);
    if (poked != 0) return poked;
    return readoutTimeSettled() ? readoutTimeCount(readoutMs()) : std::uint16_t{0};
}

void Controller::setMinimumWindowMs(double window) {
    const platform::MutexLock lock(mutex);
    minimumWindowMs = window;
}

void Controller::setReadoutTimeSettleMs(double time) {
    const platform::MutexLock lock(mutex);
    settleMs = time;
}

void Controller::setFlashBusyMs(double time) {
    const platform::MutexLock lock(mutex);
    flashBusyMs = time;
}

void Controller::setReadoutTimeMs(double time) {
    const platform::MutexLock lock(mutex);
    fixedReadoutMs = time;
}

void Controller::setBootTimeMs(double time) {
    const platform::MutexLock lock(mutex);
    bootMs = time;
}

void Controller::setEraseTimeMs(double time) {
    const platform::MutexLock lock(mutex);
    eraseMs = time;
}

void Controller::setTemperatures(double newSensorCelsius, double newAuxiliaryCelsius) {
    const platform::MutexLock lock(mutex);
    sensorCelsius = newSensorCelsius;
    auxiliaryCelsius = newAuxiliaryCelsius;
}

std::vector<std::uint8_t> Controller::flashContent(int sensor) const {
    const platform::MutexLock lock(mutex);
    return bank.hasSensor(sensor) ? flash.content(sensor) : std::vector<std::uint8_t>();
}

}  // namespace simulator
