#include "StreamChannel.h"

#include <array>
#include <limits>

namespace ebus {
namespace {

constexpr std::int64_t longestTimeoutMs = std::numeric_limits<std::uint32_t>::max();

constexpr FeatureRow timeoutMs(std::string_view name, std::int64_t start) {
    return {name, FeatureType::Integer, Access::ReadWrite, 0, longestTimeoutMs, start};
}

constexpr std::array<FeatureRow, 3> streamTable{
    {timeoutMs("RequestTimeout", 1000), timeoutMs("FirstPacketTimeout", 500), timeoutMs("InterPacketTimeout", 100)}};

}  // namespace

StreamChannel::StreamChannel() : parameters(streamTable.data(), streamTable.size()) {}

PvResult StreamChannel::open(const std::string& address) {
    const platform::MutexLock lock(mutex);
    if (endpoint.port != 0) return PvResult(PvResult::StateError, "the stream is open already");
    std::shared_ptr<GigeDevice> opened;
    if (const PvResult result = makeDevice(address, opened); result.IsFailure()) return result;
    Endpoint local;
    if (const PvResult result = opened->openStream(shared_from_this(), local); result.IsFailure()) return result;
    device = std::move(opened);
    endpoint = local;
    return {};
}

PvResult StreamChannel::close() {
    std::shared_ptr<FrameQueue> fed;
    {
        const platform::MutexLock lock(mutex);
        if (endpoint.port == 0) return PvResult(PvResult::StateError, "the stream is not open");
        if (const PvResult result = device->closeStream(); result.IsFailure()) return result;
        endpoint = {};
        fed = queue;
    }
    if (fed != nullptr) reportDropped(fed->dropWaiting());
    return {};
}

void StreamChannel::drop() {
    close();
    const platform::MutexLock lock(mutex);
    if (endpoint.port == 0) return;
    // Closing was refused: the port goes with the device's channel.
    endpoint = {};
    device.reset();
}

bool StreamChannel::isOpen() const {
    const platform::MutexLock lock(mutex);
    return endpoint.port != 0;
}

Endpoint StreamChannel::local() const {
    const platform::MutexLock lock(mutex);
    return endpoint;
}

PvResult StreamChannel::attach(const std::shared_ptr<FrameQueue>& fed) {
    const platform::MutexLock lock(mutex);
    if (endpoint.port == 0) return PvResult(PvResult::StateError, "the stream is not open");
    if (queue != nullptr && queue != fed) return PvResult(PvResult::StateError, "the stream feeds another pipeline");
    queue = fed;
    return {};
}

void StreamChannel::detach(const FrameQueue* fed) {
    const platform::MutexLock lock(mutex);
    if (queue.get() == fed) queue.reset();
}

std::shared_ptr<FrameQueue> StreamChannel::attached() const {
    const platform::MutexLock lock(mutex);
    return queue;
}

std::shared_ptr<GigeDevice> StreamChannel::channel() const {
    const platform::MutexLock lock(mutex);
    return device;
}

PvResult StreamChannel::status() const {
    const std::shared_ptr<GigeDevice> behind = isOpen() ? channel() : nullptr;
    return behind != nullptr ? behind->streamStatus() : PvResult();
}

PvResult StreamChannel::permit(std::string_view operation) const {
    const std::shared_ptr<GigeDevice> behind = channel();
    return behind != nullptr ? behind->permitHostOperation(operation) : PvResult();
}

void StreamChannel::reportDropped(std::uint64_t frames) const {
    const std::shared_ptr<GigeDevice> behind = channel();
    if (behind != nullptr && frames > 0) behind->reportDropped(frames);
}

FrameFate StreamChannel::receive(const StreamFrame& frame) {
    const std::shared_ptr<FrameQueue> fed = attached();
    return fed != nullptr ? fed->receive(frame) : FrameFate::NoReceiver;
}

PvResult StreamChannel::reachFeature(std::string_view name) const {
    if (!isOpen())
        return PvResult(PvResult::NotConnected, "feature \"" + std::string(name) + "\": the stream is not open");
    return permit(name);
}

PvResult StreamChannel::setFeature(std::string_view name, const FeatureValue& value) {
    if (const PvResult result = reachFeature(name); result.IsFailure()) return result;
    const platform::MutexLock lock(mutex);
    const std::size_t feature = parameters.find(name);
    if (feature == FeatureStore::npos) return unknownFeature(name);
    std::int64_t stored = 0;
    const PvResult result = checkWrite(parameters.row(feature), value, stored);
    if (result.IsOK()) parameters.put(feature, stored);
    return result;
}

PvResult StreamChannel::getFeature(std::string_view name, FeatureType type, FeatureValue& value) {
    if (const PvResult result = reachFeature(name); result.IsFailure()) return result;
    const platform::MutexLock lock(mutex);
    const std::size_t feature = parameters.find(name);
    if (feature == FeatureStore::npos) return unknownFeature(name);
    const PvResult result = checkType(parameters.row(feature), type);
    if (result.IsOK()) value = toValue(parameters.row(feature), parameters.get(feature));
    return result;
}

}  // namespace ebus
