#include "PvDeviceSerialPort.h"

#include <string_view>

#include "DeviceConnection.h"
#include "timeouts.h"

using ebus::GigeDevice;

namespace {

PvResult notOpen() {
    return PvResult(PvResult::NotConnected, "the serial port is not open");
}

}  // namespace

PvDeviceSerialPort::PvDeviceSerialPort() = default;

PvDeviceSerialPort::~PvDeviceSerialPort() {
    if (const std::shared_ptr<GigeDevice> open = device.lock()) open->closeSerial();
}

PvResult PvDeviceSerialPort::Open(PvDeviceAdapter* adapter, PvDeviceSerial port) {
    if (adapter == nullptr) return PvResult(PvResult::InvalidParameter, "no adapter");
    if (IsOpened()) return PvResult(PvResult::StateError, "the serial port is open already");
    const std::shared_ptr<GigeDevice> channel =
        adapter->connection != nullptr ? adapter->connection->channel() : nullptr;
    if (channel == nullptr) return ebus::notConnected("SerialOpen");
    const PvResult result = channel->openSerial(static_cast<std::uint32_t>(port));
    if (result.IsOK()) device = channel;
    return result;
}

bool PvDeviceSerialPort::IsOpened() const {
    const std::shared_ptr<GigeDevice> open = device.lock();
    return open != nullptr && open->isSerialOpen();
}

PvResult PvDeviceSerialPort::Close() {
    const std::shared_ptr<GigeDevice> open = device.lock();
    if (open == nullptr) return notOpen();
    const PvResult result = open->closeSerial();
    if (result.IsOK()) device.reset();
    return result;
}

PvResult PvDeviceSerialPort::Read(std::uint8_t* bytes, std::uint32_t size, std::uint32_t& bytesRead,
                                  std::uint32_t timeoutMs) {
    bytesRead = 0;
    if (bytes == nullptr || size == 0) return PvResult(PvResult::InvalidParameter, "no room to read into");
    const std::shared_ptr<GigeDevice> open = device.lock();
    if (open == nullptr) return notOpen();
    std::size_t count = 0;
    const PvResult result = open->readSerial(bytes, size, ebus::deadlineAfter(timeoutMs), count);
    bytesRead = static_cast<std::uint32_t>(count);
    return result;
}

PvResult PvDeviceSerialPort::Write(const std::uint8_t* bytes, std::uint32_t size, std::uint32_t& bytesWritten) {
    bytesWritten = 0;
    if (bytes == nullptr && size > 0) return PvResult(PvResult::InvalidParameter, "no bytes to write");
    const std::shared_ptr<GigeDevice> open = device.lock();
    if (open == nullptr) return notOpen();
    const PvResult result = open->writeSerial(std::string_view(reinterpret_cast<const char*>(bytes), size));
    if (result.IsOK()) bytesWritten = size;
    return result;
}

PvResult PvDeviceSerialPort::FlushRxBuffer() {
    const std::shared_ptr<GigeDevice> open = device.lock();
    return open != nullptr ? open->flushSerialInput() : notOpen();
}
