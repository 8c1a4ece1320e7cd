#include "EbusRig.h"

namespace {

using EbusConnection = EbusRig;

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
    for (const char* const unknown : {"", "sim:", "sim:9999", "192.168.1.10"}) {
        const PvResult result = user.device.Connect(unknown);
        EXPECT_EQ(result.GetCode(), PvResult::NotFound) << unknown;
        EXPECT_NE(std::string(result.GetDescription().GetAscii()).find(address), std::string::npos) << unknown;
        EXPECT_EQ(user.stream.Open(unknown).GetCode(), PvResult::NotFound) << unknown;
    }
}

TEST_F(EbusConnection, ObjectsThatWereNeverOpenedFailQuietly) {
    EXPECT_EQ(user.serial.Close().GetCode(), PvResult::NotConnected);
    for (const PvResult& result : {user.stream.Close(), user.pipeline.Start(), user.pipeline.Stop(),
                                   user.acquisition.Start(), user.serial.Open(&user.adapter, PvDeviceSerial0)})
        EXPECT_TRUE(result.IsFailure());
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

TEST_F(EbusConnection, SerialBridgeIsOneAndItsSilenceTakesTheTimeout) {
    user.connect(address);
    PvDeviceSerialPort second;
    EXPECT_EQ(second.Open(&user.adapter, PvDeviceSerial0).GetCode(), PvResult::StateError);
    EXPECT_EQ(second.Open(&user.adapter, PvDeviceSerial1).GetCode(), PvResult::NotSupported);
    std::array<std::uint8_t, 8> bytes{0, 1, 254, 255};
    std::uint32_t count = 9;
    for (const bool loopback : {false, true}) {
        user.features().SetBooleanValue("Uart0Loopback", loopback);
        const platform::Time before = clock.now();
        EXPECT_TRUE(user.serial.Read(bytes.data(), 8, count, 250).IsOK());
        EXPECT_EQ(count, 0U);
        EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(250));
    }
    for (const std::uint32_t flushed : {0U, 4U}) {
        ASSERT_TRUE(user.serial.Write(bytes.data(), 4, count).IsOK());
        if (flushed != 0) user.serial.FlushRxBuffer();
        ASSERT_TRUE(user.serial.Read(bytes.data(), 8, count).IsOK());
        EXPECT_EQ(count, 4 - flushed) << "the loopback returns what is written";
    }
    EXPECT_TRUE(user.serial.Close().IsOK());
    EXPECT_TRUE(second.Open(&user.adapter, PvDeviceSerial0).IsOK());
}

}  // namespace
