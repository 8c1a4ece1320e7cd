#include "PvDevice.h"

#include "DeviceConnection.h"
#include "PvDeviceAdapter.h"
#include "PvDeviceGEV.h"

using ebus::GigeDevice;

PvDevice::PvDevice() : connection(std::make_shared<ebus::DeviceConnection>()), parameters(connection) {}

PvDevice::~PvDevice() {
    connection->drop();
}

bool PvDevice::IsConnected() const {
    const std::shared_ptr<GigeDevice> channel = connection->channel();
    return channel != nullptr && channel->isConnected();
}

PvResult PvDevice::Disconnect() {
    return connection->disconnect();
}

PvGenParameterArray* PvDevice::GetParameters() {
    return &parameters;
}

PvDeviceGEV::PvDeviceGEV() = default;
PvDeviceGEV::~PvDeviceGEV() = default;

PvResult PvDeviceGEV::Connect(const PvString& address) {
    return connection->connect(address.GetAscii());
}

PvResult PvDeviceGEV::NegotiatePacketSize(std::uint32_t channelNumber, std::uint32_t defaultPacketSize) {
    const std::shared_ptr<GigeDevice> channel = connection->channel();
    if (channel == nullptr) return ebus::notConnected("NegotiatePacketSize");
    return channel->negotiatePacketSize(channelNumber, defaultPacketSize);
}

PvResult PvDeviceGEV::SetStreamDestination(const PvString& address, std::uint16_t port, std::uint32_t channelNumber) {
    const std::shared_ptr<GigeDevice> channel = connection->channel();
    if (channel == nullptr) return ebus::notConnected("SetStreamDestination");
    return channel->setStreamDestination({address.GetAscii(), port}, channelNumber);
}

PvDeviceAdapter::PvDeviceAdapter(PvDevice* device) {
    if (device != nullptr) connection = device->connection;
}

PvDeviceAdapter::~PvDeviceAdapter() = default;
