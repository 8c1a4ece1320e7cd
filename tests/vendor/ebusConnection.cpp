#include <PvDeviceInfoGEV.h>
#include <PvNetworkAdapter.h>
#include <PvSystem.h>

#include <set>

#include "EbusRig.h"

namespace {

using EbusConnection = EbusRig;
using EbusSerialBridge = EbusRig;

TEST_F(EbusConnection, OneUserControlsADeviceUntilHeLetsGo) {
    EXPECT_TRUE(user.device.Connect(address).IsOK());
    EXPECT_EQ(user.device.Connect(address).GetCode(), PvResult::StateError);
    PvDeviceGEV waiting;
    EXPECT_EQ(waiting.Connect(address).GetCode(), PvResult::AccessDenied);
    EXPECT_TRUE(user.device.Disconnect().IsOK());
    EXPECT_FALSE(user.device.IsConnected());
    EXPECT_EQ(user.device.Disconnect().GetCode(), PvResult::NotConnected);
    {
        PvDeviceGEV shortLived;
        EXPECT_TRUE(shortLived.Connect(address).IsOK());
        EXPECT_EQ(waiting.Connect(address).GetCode(), PvResult::AccessDenied);
    }
    EXPECT_TRUE(waiting.Connect(address).IsOK());
}

TEST_F(EbusConnection, AnUnknownAddressIsAnsweredWithTheOnesThereAre) {
    for (const char* const unknown : {"", "sim:", "sim:9999", "192.168.1.10"}) {
        const PvResult result = user.device.Connect(unknown);
        EXPECT_EQ(result.GetCode(), PvResult::NotFound) << unknown;
        EXPECT_NE(std::string(result.GetDescription().GetAscii()).find(address), std::string::npos) << unknown;
        EXPECT_EQ(user.stream.Open(unknown).GetCode(), PvResult::NotFound) << unknown;
    }
}

TEST_F(EbusConnection, ObjectsThatWereNeverOpenedFailQuietly) {
    EXPECT_EQ(user.serial.Close().GetCode(), PvResult::NotConnected);
    EXPECT_TRUE(user.stream.Close().IsFailure());
    EXPECT_TRUE(user.pipeline.Start().IsFailure());
    EXPECT_TRUE(user.pipeline.Stop().IsFailure());
    EXPECT_TRUE(user.acquisition.Start().IsFailure());
    EXPECT_EQ(user.acquisition.GetState(), PvAcquisitionStateUnlocked);
    EXPECT_EQ(user.stream.GetLocalPort(), 0);
}

TEST_F(EbusConnection, WhatStandsOnADeviceSurvivesIt) {
    auto device = std::make_unique<PvDeviceGEV>();
    PvDeviceAdapter adapter(device.get());
    PvAcquisitionStateManager acquisition(device.get(), nullptr);
    PvDeviceSerialPort serial;
    ASSERT_TRUE(device->Connect(address).IsOK());
    ASSERT_TRUE(serial.Open(&adapter, PvDeviceSerial0).IsOK());
    ASSERT_TRUE(acquisition.Start().IsOK());
    device.reset();
    EXPECT_FALSE(serial.IsOpened());
    EXPECT_EQ(acquisition.Stop().GetCode(), PvResult::NotConnected);
    EXPECT_EQ(acquisition.GetState(), PvAcquisitionStateUnlocked);
    EXPECT_TRUE(user.device.Connect(address).IsOK());
    EXPECT_EQ(user.acquisition.GetState(), PvAcquisitionStateUnlocked) << "acquisition ends with its user";
}

TEST_F(EbusConnection, AnUnpluggedDeviceIsLostUntilItIsConnectedAnew) {
    connectAndRun(2);
    detector->faults().set(simulator::Fault::Unplugged);
    EXPECT_EQ(user.features().SetBooleanValue("PLC_ctrl0", true).GetCode(), PvResult::ConnectionLost);
    EXPECT_FALSE(user.device.IsConnected());
    EXPECT_EQ(user.acquisition.GetState(), PvAcquisitionStateUnlocked);
    EXPECT_EQ(user.acquisition.Start().GetCode(), PvResult::ConnectionLost);
    std::uint32_t count = 0;
    EXPECT_EQ(user.serial.Write(nullptr, 0, count).GetCode(), PvResult::ConnectionLost);
    PvBuffer* buffer = nullptr;
    PvResult frame;
    EXPECT_EQ(user.pipeline.RetrieveNextBuffer(&buffer, 100, &frame).GetCode(), PvResult::ConnectionLost);

    EXPECT_TRUE(user.serial.Close().IsOK()) << "closing needs no device";
    EXPECT_TRUE(user.pipeline.Stop().IsOK());
    EXPECT_TRUE(user.stream.Close().IsOK());
    user.connect(address);
    user.run(2);
    EXPECT_TRUE(user.device.IsConnected());
}

TEST_F(EbusConnection, ConnectingAndOpeningCanBeRefused) {
    detector->faults().set(simulator::Fault::RefusedConnect);
    detector->faults().set(simulator::Fault::RefusedStream);
    EXPECT_EQ(user.device.Connect(address).GetCode(), PvResult::Refused);
    EXPECT_EQ(user.stream.Open(address).GetCode(), PvResult::Refused);
    user.connect(address);
    for (const char* const operation : {"NegotiatePacketSize", "AcquisitionStart", "PipelineStart"})
        detector->faults().set(simulator::Fault::RefusedFeature, {}, operation);
    EXPECT_EQ(user.device.NegotiatePacketSize().GetCode(), PvResult::Refused);
    EXPECT_EQ(user.acquisition.Start().GetCode(), PvResult::Refused);
    EXPECT_EQ(user.pipeline.Start().GetCode(), PvResult::Refused);
    EXPECT_FALSE(user.pipeline.IsStarted());
    EXPECT_TRUE(user.device.NegotiatePacketSize().IsOK());
    EXPECT_TRUE(user.acquisition.Start().IsOK());
    EXPECT_EQ(user.acquisition.Start().GetCode(), PvResult::StateError);
}

TEST_F(EbusConnection, DiscoveryListsEveryAddressOnce) {
    PvSystem system;
    system.SetDetectionTimeout(20);
    EXPECT_EQ(system.GetDetectionTimeout(), 20U);
    EXPECT_EQ(system.GetInterfaceCount(), 0U);
    ASSERT_TRUE(system.Find().IsOK());
    ASSERT_EQ(system.GetInterfaceCount(), 1U);
    EXPECT_EQ(system.GetInterface(1), nullptr);
    const auto* const adapter = dynamic_cast<const PvNetworkAdapter*>(system.GetInterface(0));
    ASSERT_NE(adapter, nullptr);
    ASSERT_EQ(adapter->GetDeviceCount(), system.GetDeviceCount());
    EXPECT_EQ(system.GetDeviceInfo(system.GetDeviceCount()), nullptr);
    std::set<std::string> found;
    for (std::uint32_t i = 0; i < system.GetDeviceCount(); ++i) {
        const auto* const info = dynamic_cast<const PvDeviceInfoGEV*>(system.GetDeviceInfo(i));
        ASSERT_NE(info, nullptr);
        EXPECT_TRUE(found.insert(info->GetIPAddress().GetAscii()).second);
    }
    EXPECT_EQ(found.count("sim:6112-kestrane"), 1U);
    EXPECT_EQ(found.count(address), 1U);
}

TEST_F(EbusSerialBridge, CarriesCommandsAndTheirReplies) {
    user.connect(address);
    const std::string command = "R1124\r";
    std::uint32_t count = 0;
    ASSERT_TRUE(user.serial.Write(reinterpret_cast<const std::uint8_t*>(command.data()), 6, count).IsOK());
    EXPECT_EQ(count, 6U);
    std::string reply(24, '\0');
    ASSERT_TRUE(user.serial.Read(reinterpret_cast<std::uint8_t*>(reply.data()), 24, count, 1000).IsOK());
    EXPECT_EQ(reply.substr(0, count), "S06112\r");
}

TEST_F(EbusSerialBridge, LoopbackReturnsWhatIsWrittenAndFlushDropsIt) {
    user.connect(address);
    ASSERT_TRUE(user.features().SetBooleanValue("Uart0Loopback", true).IsOK());
    const std::array<std::uint8_t, 4> sent{0, 1, 254, 255};
    std::array<std::uint8_t, 8> received{};
    std::uint32_t count = 0;
    ASSERT_TRUE(user.serial.Write(sent.data(), 4, count).IsOK());
    ASSERT_TRUE(user.serial.Read(received.data(), 3, count).IsOK());
    EXPECT_EQ(count, 3U);
    EXPECT_TRUE(std::equal(sent.begin(), sent.begin() + 3, received.begin()));
    ASSERT_TRUE(user.serial.FlushRxBuffer().IsOK());
    ASSERT_TRUE(user.serial.Read(received.data(), 8, count).IsOK());
    EXPECT_EQ(count, 0U);
}

TEST_F(EbusSerialBridge, ASilentLineIsNoFailureButTakesTheTimeout) {
    user.connect(address);
    std::array<std::uint8_t, 8> received{};
    for (const bool loopback : {false, true}) {
        user.features().SetBooleanValue("Uart0Loopback", loopback);
        std::uint32_t count = 9;
        const platform::Time before = clock.now();
        EXPECT_TRUE(user.serial.Read(received.data(), 8, count, 250).IsOK());
        EXPECT_EQ(count, 0U);
        EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(250));
    }
}

TEST_F(EbusSerialBridge, OpensOncePerDeviceAndOnThePortThatIsWired) {
    ASSERT_TRUE(user.serial.Open(&user.adapter, PvDeviceSerial0).IsFailure()) << "not connected";
    user.connect(address);
    PvDeviceSerialPort second;
    EXPECT_EQ(second.Open(&user.adapter, PvDeviceSerial0).GetCode(), PvResult::StateError);
    EXPECT_EQ(second.Open(&user.adapter, PvDeviceSerial1).GetCode(), PvResult::NotSupported);
    EXPECT_TRUE(user.serial.Close().IsOK());
    EXPECT_TRUE(second.Open(&user.adapter, PvDeviceSerial0).IsOK());
}

}  // namespace
