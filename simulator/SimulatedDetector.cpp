#include "simulator/SimulatedDetector.h"

#include <stdexcept>
#include <utility>

#include "simulator/Controller.h"
#include "simulator/FrameSource.h"
#include "simulator/SerialLine.h"

namespace simulator {

struct SimulatedDetector::State {
    explicit State(const Profile& profileToHold) : profile(profileToHold) {}

    const Profile profile;
    const std::shared_ptr<Faults> faults = std::make_shared<Faults>();
    const std::shared_ptr<Controller> controller = std::make_shared<Controller>(profile, faults);
    const std::shared_ptr<FrameSource> frames = std::make_shared<FrameSource>(controller, faults);
    SerialLine line;
};

std::shared_ptr<SimulatedDetector> SimulatedDetector::create(const Profile& profile) {
    constexpr int highestSensor = 9;  // a command has one digit for it
    if (profile.sensorWidth <= 0 || profile.sensorHeight <= 0 || profile.sensorsAcross <= 0 ||
        profile.sensorsDown <= 0 || profile.sensorCount() > highestSensor)
        throw std::invalid_argument("a simulated detector needs the size of its panel");
    return std::shared_ptr<SimulatedDetector>(new SimulatedDetector(profile));  // NOLINT: private constructor
}

SimulatedDetector::SimulatedDetector(const Profile& profile) : state(std::make_shared<State>(profile)) {}

SimulatedDetector::~SimulatedDetector() {
    state->frames->setReceiver(nullptr);
}

const Profile& SimulatedDetector::profile() const {
    return state->profile;
}

int SimulatedDetector::readRegister(int reg, int sensor) {
    return state->controller->read(reg, sensor);
}

void SimulatedDetector::writeRegister(int reg, std::uint16_t value, int sensor) {
    state->controller->write(reg, value, sensor);
    state->frames->setupChanged();
}

void SimulatedDetector::pokeRegister(int reg, std::uint16_t value, int sensor) {
    state->controller->poke(reg, value, sensor);
}

void SimulatedDetector::serialWrite(std::string_view bytes) {
    for (const std::string& command : state->line.take(bytes)) {
        const Reply reply = state->controller->execute(command);
        if (reply.silent) continue;
        state->line.answer(command.size() + 1, reply.delay, disturbedReply(reply, *state->faults));
    }
    state->frames->setupChanged();
}

std::size_t SimulatedDetector::serialRead(char* buffer, std::size_t capacity, platform::Time deadline) {
    return state->line.read(buffer, capacity, deadline);
}

void SimulatedDetector::serialDropInput() {
    state->line.dropArrived();
}

void SimulatedDetector::setWireSpeed(int baud) {
    state->line.setBaud(baud);
}

void SimulatedDetector::setTriggerInput(bool level) {
    state->frames->setTriggerInput(level);
}

void SimulatedDetector::injectEdge() {
    state->frames->edge();
}

void SimulatedDetector::setFrameReceiver(std::function<FrameFate(const Frame&)> receiver) {
    state->frames->setReceiver(std::move(receiver));
}

void SimulatedDetector::reportDropped(std::uint64_t count) {
    state->frames->reportDropped(count);
}

void SimulatedDetector::setPicture(Picture picture) {
    state->frames->setPicture(picture);
}

int SimulatedDetector::frameWidth() const {
    return state->controller->exposureSetup().geometry.width;
}

int SimulatedDetector::frameHeight() const {
    return state->controller->exposureSetup().geometry.height;
}

double SimulatedDetector::exposureWindowMs() const {
    return state->controller->exposureSetup().windowMs;
}

double SimulatedDetector::readoutTimeMs() const {
    return state->controller->exposureSetup().readoutMs;
}

Ledger SimulatedDetector::ledger() const {
    return state->frames->ledger();
}

Faults& SimulatedDetector::faults() {
    return *state->faults;
}

void SimulatedDetector::setMinimumWindowMs(double window) {
    state->controller->setMinimumWindowMs(window);
}

void SimulatedDetector::setReadoutTimeSettleMs(double time) {
    state->controller->setReadoutTimeSettleMs(time);
}

void SimulatedDetector::setFlashBusyMs(double time) {
    state->controller->setFlashBusyMs(time);
}

void SimulatedDetector::setBootTimeMs(double time) {
    state->controller->setBootTimeMs(time);
}

void SimulatedDetector::setEraseTimeMs(double time) {
    state->controller->setEraseTimeMs(time);
}

void SimulatedDetector::setTemperatures(double sensorCelsius, double auxiliaryCelsius) {
    state->controller->setTemperatures(sensorCelsius, auxiliaryCelsius);
}

std::vector<std::uint8_t> SimulatedDetector::flashContent(int sensor) const {
    return state->controller->flashContent(sensor);
}

void SimulatedDetector::setReadoutTimeMs(double time) {
    state->controller->setReadoutTimeMs(time);
}

}  // namespace simulator
