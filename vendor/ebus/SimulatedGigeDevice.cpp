#include "SimulatedGigeDevice.h"

#include <chrono>

#include "simulator/Rack.h"

namespace ebus {
namespace {

using simulator::Fault;

constexpr std::uint32_t onlyChannel = 0;
constexpr std::uint32_t onlySource = 0;
constexpr std::uint32_t wiredSerialPort = 0;

PvResult only(const char* what, std::uint32_t allowed, std::uint32_t wanted) {
    if (wanted == allowed) return {};
    return PvResult(PvResult::NotSupported, std::string("the device has ") + what + ' ' + std::to_string(allowed) +
                                                " only, not " + std::to_string(wanted));
}

PvResult during(std::uint32_t code, std::string_view operation) {
    return PvResult(code, std::string(operation) + ": " + PvResult(code).GetDescription().GetAscii());
}

}  // namespace

std::shared_ptr<GigeDevice> SimulatedGigeDevice::make(const std::string& address) {
    std::shared_ptr<SimulatedBoard> board = SimulatedBoard::at(address);
    return board == nullptr ? nullptr : std::make_shared<SimulatedGigeDevice>(std::move(board));
}

std::vector<DeviceRecord> SimulatedGigeDevice::discover() {
    std::vector<DeviceRecord> records;
    simulator::Rack& rack = simulator::Rack::instance();
    for (const std::string& address : rack.gigeAddresses())
        if (const std::shared_ptr<simulator::SimulatedDetector> detector = rack.find(address))
            records.push_back(
                {address, std::to_string(detector->profile().model), std::to_string(detector->profile().serialNumber)});
    return records;
}

SimulatedGigeDevice::SimulatedGigeDevice(std::shared_ptr<SimulatedBoard> boardBehind) : board(std::move(boardBehind)) {}

SimulatedGigeDevice::~SimulatedGigeDevice() {
    board->releaseControl(this);
    const platform::MutexLock lock(mutex);
    if (streamPort != 0) LocalPorts::instance().close(streamPort);
}

PvResult SimulatedGigeDevice::reach(std::string_view operation) {
    {
        const platform::MutexLock lock(mutex);
        if (!connected) return during(PvResult::NotConnected, operation);
    }
    if (!board->answers() || !board->isControlledBy(this)) return during(PvResult::ConnectionLost, operation);
    if (const std::optional<int> slowMs = board->faults().strikes(Fault::SlowCall))
        platform::sleepFor(std::chrono::milliseconds(*slowMs));
    return permitHostOperation(operation);
}

PvResult SimulatedGigeDevice::permitHostOperation(std::string_view operation) {
    if (board->faults().strikes(Fault::RefusedFeature, operation)) return during(PvResult::Refused, operation);
    return {};
}

PvResult SimulatedGigeDevice::connect() {
    const platform::MutexLock lock(mutex);
    if (connected && board->isControlledBy(this)) return during(PvResult::StateError, "already connected");
    if (!board->answers()) return during(PvResult::ConnectionLost, "Connect");
    if (board->faults().strikes(Fault::RefusedConnect)) return during(PvResult::Refused, "Connect");
    if (!board->takeControl(this)) return during(PvResult::AccessDenied, "Connect");
    connected = true;
    serialOpen = false;
    return {};
}

PvResult SimulatedGigeDevice::disconnect() {
    PvResult result = reach("Disconnect");
    if (result.GetCode() == PvResult::Refused) return result;
    board->releaseControl(this);
    const platform::MutexLock lock(mutex);
    connected = false;
    serialOpen = false;
    return result;
}

bool SimulatedGigeDevice::isConnected() {
    {
        const platform::MutexLock lock(mutex);
        if (!connected) return false;
    }
    return board->answers() && board->isControlledBy(this);
}

PvResult SimulatedGigeDevice::negotiatePacketSize(std::uint32_t channel, std::uint32_t) {
    if (const PvResult result = reach("NegotiatePacketSize"); result.IsFailure()) return result;
    return only("stream channel", onlyChannel, channel);
}

PvResult SimulatedGigeDevice::setStreamDestination(const Endpoint& destination, std::uint32_t channel) {
    if (const PvResult result = reach("SetStreamDestination"); result.IsFailure()) return result;
    if (const PvResult result = only("stream channel", onlyChannel, channel); result.IsFailure()) return result;
    board->setStreamDestination(destination);
    return {};
}

PvResult SimulatedGigeDevice::setFeature(std::string_view name, const FeatureValue& value) {
    if (const PvResult result = reach(name); result.IsFailure()) return result;
    return board->setFeature(name, value);
}

PvResult SimulatedGigeDevice::getFeature(std::string_view name, FeatureType type, FeatureValue& value) {
    if (const PvResult result = reach(name); result.IsFailure()) return result;
    return board->getFeature(name, type, value);
}

PvResult SimulatedGigeDevice::startAcquisition(std::uint32_t source) {
    if (const PvResult result = reach("AcquisitionStart"); result.IsFailure()) return result;
    if (const PvResult result = only("source", onlySource, source); result.IsFailure()) return result;
    if (!board->startAcquisition()) return PvResult(PvResult::StateError, "acquisition is running already");
    return {};
}

PvResult SimulatedGigeDevice::stopAcquisition(std::uint32_t source) {
    if (const PvResult result = reach("AcquisitionStop"); result.IsFailure()) return result;
    if (const PvResult result = only("source", onlySource, source); result.IsFailure()) return result;
    if (!board->stopAcquisition()) return PvResult(PvResult::StateError, "acquisition is not running");
    return {};
}

bool SimulatedGigeDevice::isAcquiring() {
    // The state of a device that somebody else controls, or nobody, is not this channel's.
    return board->isControlledBy(this) && board->isAcquiring();
}

PvResult SimulatedGigeDevice::openSerial(std::uint32_t port) {
    if (const PvResult result = reach("SerialOpen"); result.IsFailure()) return result;
    if (const PvResult result = only("serial port", wiredSerialPort, port); result.IsFailure()) return result;
    const platform::MutexLock lock(mutex);
    if (serialOpen) return PvResult(PvResult::StateError, "the serial port is open already");
    serialOpen = true;
    return {};
}

PvResult SimulatedGigeDevice::closeSerial() {
    if (const PvResult result = permitHostOperation("SerialClose"); result.IsFailure()) return result;
    const platform::MutexLock lock(mutex);
    if (!serialOpen) return PvResult(PvResult::StateError, "the serial port is not open");
    serialOpen = false;
    return {};
}

bool SimulatedGigeDevice::isSerialOpen() {
    const platform::MutexLock lock(mutex);
    return serialOpen;
}

PvResult SimulatedGigeDevice::reachSerial(std::string_view operation) {
    if (const PvResult result = reach(operation); result.IsFailure()) return result;
    if (!isSerialOpen()) return PvResult(PvResult::StateError, "the serial port is not open");
    return {};
}

PvResult SimulatedGigeDevice::readSerial(std::uint8_t* bytes, std::size_t capacity, platform::Time deadline,
                                         std::size_t& count) {
    count = 0;
    if (const PvResult result = reachSerial("SerialRead"); result.IsFailure()) return result;
    count = board->readSerial(bytes, capacity, deadline);
    return {};
}

PvResult SimulatedGigeDevice::writeSerial(std::string_view bytes) {
    if (const PvResult result = reachSerial("SerialWrite"); result.IsFailure()) return result;
    board->writeSerial(bytes);
    return {};
}

PvResult SimulatedGigeDevice::flushSerialInput() {
    if (const PvResult result = reachSerial("SerialFlush"); result.IsFailure()) return result;
    board->flushSerialInput();
    return {};
}

PvResult SimulatedGigeDevice::openStream(std::shared_ptr<FrameSink> sink, Endpoint& local) {
    if (!board->answers()) return during(PvResult::ConnectionLost, "StreamOpen");
    if (board->faults().strikes(Fault::RefusedStream)) return during(PvResult::Refused, "StreamOpen");
    const platform::MutexLock lock(mutex);
    if (streamPort != 0) return PvResult(PvResult::StateError, "the stream is open already");
    local = LocalPorts::instance().open(sink);
    if (local.port == 0) return PvResult(PvResult::NoMemory, "no receiving port is left");
    streamPort = local.port;
    lossesAtOpen = board->linkLosses();
    return {};
}

PvResult SimulatedGigeDevice::closeStream() {
    if (const PvResult result = permitHostOperation("StreamClose"); result.IsFailure()) return result;
    const platform::MutexLock lock(mutex);
    if (streamPort == 0) return PvResult(PvResult::StateError, "the stream is not open");
    LocalPorts::instance().close(streamPort);
    streamPort = 0;
    return {};
}

PvResult SimulatedGigeDevice::streamStatus() {
    const bool answers = board->answers();
    const platform::MutexLock lock(mutex);
    if (!answers || lossesAtOpen != board->linkLosses()) return during(PvResult::ConnectionLost, "stream");
    return {};
}

void SimulatedGigeDevice::reportDropped(std::uint64_t frames) {
    board->reportDropped(frames);
}

}  // namespace ebus
