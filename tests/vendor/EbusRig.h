#pragma once

#include <PvAcquisitionStateManager.h>
#include <PvDeviceAdapter.h>
#include <PvDeviceGEV.h>
#include <PvDeviceSerialPort.h>
#include <PvPipeline.h>
#include <PvStreamGEV.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/VirtualClock.h"
#include "simulator/Rack.h"

/// Everything that a user of the GigE classes holds, in the order in which he makes it.
struct EbusUser {
    PvDeviceGEV device;
    PvStreamGEV stream;
    PvAcquisitionStateManager acquisition{&device, &stream};
    PvDeviceAdapter adapter{&device};
    PvDeviceSerialPort serial;
    PvPipeline pipeline{&stream};

    PvGenParameterArray& features() { return *device.GetParameters(); }

    void connect(const char* address) {
        ASSERT_TRUE(device.Connect(address).IsOK());
        ASSERT_TRUE(stream.Open(address).IsOK());
        ASSERT_TRUE(device.SetStreamDestination(stream.GetLocalIPAddress(), stream.GetLocalPort()).IsOK());
        ASSERT_TRUE(serial.Open(&adapter, PvDeviceSerial0).IsOK());
    }

    void run(std::uint32_t buffers) {
        std::int64_t payloadBytes = 0;
        ASSERT_TRUE(features().GetIntegerValue("PayloadSize", payloadBytes).IsOK());
        pipeline.SetBufferSize(static_cast<std::uint32_t>(payloadBytes));
        ASSERT_TRUE(pipeline.SetBufferCount(buffers).IsOK());
        ASSERT_TRUE(pipeline.Start().IsOK());
        ASSERT_TRUE(acquisition.Start().IsOK());
    }

    /// Q4 follows the first control bit.
    void wireControlBit() {
        features().SetEnumValue("PLC_I0", "PLC_ctrl0");
        features().SetEnumValue("PLC_Q4_Variable0", "PLC_I0");
    }

    void pulse() {
        ASSERT_TRUE(features().SetBooleanValue("PLC_ctrl0", true).IsOK());
        ASSERT_TRUE(features().SetBooleanValue("PLC_ctrl0", false).IsOK());
    }
};

/// Waits for trigger edges; a frame comes 2 ms after one.
inline std::shared_ptr<simulator::SimulatedDetector> makeSmallTriggeredDetector() {
    simulator::Profile profile = *simulator::findProfile("6112");
    profile.sensorWidth = 32;
    profile.sensorHeight = 16;
    std::shared_ptr<simulator::SimulatedDetector> detector = simulator::SimulatedDetector::create(profile);
    constexpr std::uint16_t triggerBits5And6 = 1U << 5 | 1U << 6;
    constexpr std::uint16_t windowOf1Ms = 100;
    detector->writeRegister(0, triggerBits5And6);
    detector->writeRegister(11, windowOf1Ms);
    detector->writeRegister(12, 0);
    detector->setReadoutTimeMs(1);
    return detector;
}

/// A small detector at `address`, on the virtual clock.
class EbusRig : public testing::Test {
protected:
    static constexpr const char* address = "sim:bench";
    static constexpr std::uint32_t width = 64;
    static constexpr std::uint32_t height = 16;

    EbusRig() { simulator::Rack::instance().mount(address, detector); }
    ~EbusRig() override { simulator::Rack::instance().reset(); }

    void connectAndRun(std::uint32_t buffers) {
        user.connect(address);
        user.wireControlBit();
        user.run(buffers);
    }

    void expose(int frames = 1) {
        for (int i = 0; i < frames; ++i) {
            user.pulse();
            clock.advance(std::chrono::milliseconds(5));
        }
    }

    void expectBalancedLedger() {
        const simulator::Ledger ledger = detector->ledger();
        EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
    }

    platform::ScopedVirtualClock clock;
    std::shared_ptr<simulator::SimulatedDetector> detector = makeSmallTriggeredDetector();
    EbusUser user;
};
