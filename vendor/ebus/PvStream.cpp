#include "PvStream.h"

#include "PvStreamGEV.h"
#include "StreamChannel.h"

PvStream::PvStream() : channel(std::make_shared<ebus::StreamChannel>()), parameters(channel) {}

PvStream::~PvStream() {
    channel->drop();
}

bool PvStream::IsOpen() const {
    return channel->isOpen();
}

PvResult PvStream::Close() {
    return channel->close();
}

PvGenParameterArray* PvStream::GetParameters() {
    return &parameters;
}

PvResult PvStream::QueueBuffer(PvBuffer* buffer) {
    if (buffer == nullptr) return PvResult(PvResult::InvalidParameter, "no buffer");
    const std::shared_ptr<ebus::FrameQueue> queue = channel->attached();
    if (queue == nullptr) return PvResult(PvResult::StateError, "no pipeline runs on the stream");
    return queue->release(buffer);
}

PvStreamGEV::PvStreamGEV() = default;
PvStreamGEV::~PvStreamGEV() = default;

PvResult PvStreamGEV::Open(const PvString& address) {
    return channel->open(address.GetAscii());
}

PvString PvStreamGEV::GetLocalIPAddress() const {
    return channel->local().address.c_str();
}

std::uint16_t PvStreamGEV::GetLocalPort() const {
    return channel->local().port;
}
