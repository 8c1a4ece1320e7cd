#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "QuorinDetector.h"
#include "panelTable.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/LogCapture.h"
#include "support/expectFailure.h"

/// The whole road, from the facade to a simulated detector and back.

using support::expectFailure;
using support::LogCapture;
using testing::HasSubstr;

namespace {

class Road : public testing::TestWithParam<const char*> {
protected:
    Road() { simulator::Rack::instance().reset(); }
    ~Road() override { simulator::Rack::instance().reset(); }

    static std::shared_ptr<simulator::SimulatedDetector> device(const std::string& address) {
        return simulator::Rack::instance().find(address);
    }
    static std::vector<std::string> serialCommands(const LogCapture& log) {
        std::vector<std::string> commands;
        for (const std::string& line : log.linesFrom("debug|SERIAL: "))
            commands.push_back(line.substr(14, line.find(" -> ") - 14));
        return commands;
    }
    platform::ScopedVirtualClock clock;
};

/// What the tables say of a profile at `Bin1x1` on GigE; a readout time of 0 means that the detector tells its own.
struct Expected {
    const char* profile;
    int model;
    float readoutMs;
    float windowMs;
};
constexpr Expected expectedTimings[] = {
    {"5101", 5101, 16.93F, 14.71F},      {"5309", 5309, 37.78F, 32.89F},       {"6112", 6112, 16.93F, 0.0F},
    {"7127", 7127, 188.68F, 0.0F},       {"7127-slowed", 7127, 188.68F, 0.0F}, {"6112-kestrane", 6112, 0.0F, 0.0F},
    {"5101-kestrane", 5101, 0.0F, 0.0F}, {"6213-kestrane", 6213, 0.0F, 0.0F},
};

}  // namespace

TEST_F(Road, EveryProfileTellsWhatItIs) {
    for (const Expected& expected : expectedTimings) {
        const std::string address = std::string("sim:") + expected.profile;
        const auto hardware = device(address);
        ASSERT_NE(hardware, nullptr) << address;
        QuorinDetector detector(TransportGE, 0, address.c_str());
        detector.OpenBoard();
        const simulator::Profile& profile = hardware->profile();
        EXPECT_EQ(detector.GetModelNumber(), expected.model);
        EXPECT_EQ(detector.GetSerialNumber(), profile.serialNumber);
        EXPECT_EQ(detector.GetFirmwareVersion(), profile.firmwareVersion);
        EXPECT_EQ(detector.GetSensorVersion(), profile.isKestrane() ? 2 : 1);
        EXPECT_EQ(detector.GetBufferXdim(), findPanel(expected.model)->imageWidth());
        EXPECT_EQ(detector.GetBufferYdim(), findPanel(expected.model)->imageHeight());
        float readout = expected.readoutMs;
        float window = expected.windowMs;
        if (readout == 0.0F) {
            clock.advance(std::chrono::seconds(1));  // the register settles after the open's writes
            readout = static_cast<float>(hardware->readRegister(410)) * 0.002F;
            const float frameBits = static_cast<float>(detector.GetBufferXdim() * detector.GetBufferYdim() * 16);
            window = std::max(0.5F, frameBits / 670e6F * 1000.0F - readout);
        }
        EXPECT_EQ(detector.GetReadOutTime(), readout) << address;
        EXPECT_NEAR(detector.GetMinimumExposureTime(), readout + window, 0.011F) << address;
        EXPECT_GE(detector.GetExposureTime(), detector.GetMinimumExposureTime() - 0.1F);
    }
}

TEST_F(Road, PatternArrivesByteForByte) {
    for (const char* profile : {"5101", "5309", "6112", "6112-kestrane", "6213-kestrane", "7127"}) {
        const std::string address = std::string("sim:") + profile;
        const auto hardware = device(address);
        hardware->setPicture(simulator::Picture::Pattern);
        QuorinDetector detector(TransportGE, 0, address.c_str());
        detector.OpenBoard();
        detector.SetExposureTime(250.0F);
        for (int buffer = 0; buffer < 3; ++buffer) {
            detector.Snap(buffer, 5000);
            detector.WaitImage(0);
        }
        const PanelModel& panel = *findPanel(hardware->profile().model);
        const auto bytes =
            static_cast<std::size_t>(panel.imageWidth()) * static_cast<std::size_t>(panel.imageHeight()) * 2;
        QorImage image;
        for (int buffer = 0; buffer < 3; ++buffer) {
            detector.ReadBuffer(buffer, image, 0);
            const auto& pixels = *static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0));
            bool found = false;
            for (std::uint64_t number = 1; number <= hardware->ledger().exposed && !found; ++number) {
                const auto expected = simulator::patternFrame(number, panel.imageWidth(), panel.imageHeight(),
                                                              panel.sensorsAcross, panel.sensorsDown);
                found = std::memcmp(expected.data(), &pixels, bytes) == 0;
            }
            EXPECT_TRUE(found) << address << " buffer " << buffer;
        }
        detector.CloseBoard();
        const simulator::Ledger ledger = hardware->ledger();
        EXPECT_GE(ledger.delivered, 3U);
        EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
    }
}

TEST_F(Road, OpeningReadsTheDetectorInItsOrder) {
    QuorinDetector detector(TransportGE, 0, "sim:5309");
    const LogCapture log;
    detector.OpenBoard();
    EXPECT_THAT(serialCommands(log), testing::ElementsAre("R1129", "R1124", "R1010", "R1009", "R1001", "R1126", "R1036",
                                                          "R1037", "R1130", "R1126", "R1011", "R1012"));
}

TEST_F(Road, ExposureIsWrittenAsItsWindow) {
    QuorinDetector detector(TransportGE, 0, "sim:5309");
    detector.OpenBoard();
    const LogCapture log;
    detector.SetExposureTime(100.0F);
    EXPECT_THAT(serialCommands(log), testing::ElementsAre("W001106222", "W001200000", "R1011", "R1012"));
    EXPECT_FLOAT_EQ(detector.GetExposureTime(), 100.0F);
}

TEST_F(Road, ReadNeverOverrunsAFrameWhoseBinningWasFoundLater) {
    const auto hardware = device("sim:6112-kestrane");
    hardware->writeRegister(3, 0x140);
    hardware->writeRegister(1, 0x10);  // Bin4x4Flagged, which the first open can't know yet
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    detector.OpenBoard();
    EXPECT_EQ(detector.GetBinningMode(), Bin4x4Flagged);
    QorImage image;
    detector.ReadBuffer(0, image, 0);
    EXPECT_EQ(image.GetImageXdim(), 768);
    std::vector<unsigned char> frame(768 * 216 * 2 + 8, 0xEE);
    detector.ReadBuffer(0, frame.data());
    EXPECT_EQ(frame[768 * 216 * 2], 0xEE);
}

TEST_F(Road, WrongAddressSaysSoAndASecondUserIsRefused) {
    QuorinDetector nowhere(TransportGE, 0, "sim:9999");
    const auto failure = support::failureOf([&] { nowhere.OpenBoard(); });
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->what(), testing::StartsWith("Problem Opening Connection to Detector! (code 5"));
    EXPECT_THAT(failure->GetTransportMessage(), HasSubstr("sim:9999"));
    QuorinDetector first(TransportGE, 0, "sim:5101");
    QuorinDetector second(TransportGE, 0, "sim:5101");
    first.OpenBoard();
    EXPECT_TRUE(support::failureOf([&] { second.OpenBoard(); }));
    first.CloseBoard();
    EXPECT_NO_THROW(second.OpenBoard());
}

TEST_F(Road, ModelWithoutTimingsOnGigEIsRefusedAndReleased) {
    QuorinDetector detector(TransportGE, 0, "sim:6213");
    for (int round = 0; round < 2; ++round)
        expectFailure([&] { detector.OpenBoard(); }, "There is no readout time stored for these detector settings.",
                      DerrBadRequest);
}

TEST_F(Road, DeadSerialLineIsOneErrorAndTheNextOpenWorks) {
    const auto hardware = device("sim:6112-kestrane");
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    for (const int first : {1, 2, 5, 9, 14, 20}) {
        hardware->faults().set(simulator::Fault::SilentLine, {first, true});
        const auto failure = support::failureOf([&] { detector.OpenBoard(); });
        ASSERT_TRUE(failure) << first;
        EXPECT_THAT(failure->what(),
                    testing::AnyOf(HasSubstr("Problem sending serial command"), HasSubstr("exposure")));
        hardware->faults().clearAll();
        EXPECT_NO_THROW(detector.OpenBoard()) << first;
        detector.CloseBoard();
    }
}

TEST_F(Road, RefusedFeaturesAreOneErrorEachAndTheNextOpenWorks) {
    const auto hardware = device("sim:5101");
    QuorinDetector detector(TransportGE, 0, "sim:5101");
    for (const char* feature :
         {"NegotiatePacketSize", "SetStreamDestination", "PixelFormat", "SerialOpen", "PayloadSize", "SetBufferCount",
          "PLC_I0", "PLC_ctrl3", "PLC_Q4_Variable3", "TestImageSelector", "Uart0Parity", "Uart0Loopback", "Width",
          "Height", "PipelineStart"}) {
        hardware->faults().set(simulator::Fault::RefusedFeature, {}, feature);
        const auto failure = support::failureOf([&] { detector.OpenBoard(); });
        ASSERT_TRUE(failure) << feature;
        EXPECT_EQ(failure->GetCode(), DerrTransport) << feature;
        EXPECT_NE(failure->GetTransportError(), 0) << feature;
        EXPECT_FALSE(detector.IsConnected());
        hardware->faults().clearAll();
        EXPECT_NO_THROW(detector.OpenBoard()) << feature;
        detector.CloseBoard();
    }
    for (const auto fault : {simulator::Fault::RefusedConnect, simulator::Fault::RefusedStream}) {
        hardware->faults().set(fault);
        EXPECT_TRUE(support::failureOf([&] { detector.OpenBoard(); }));
        EXPECT_NO_THROW(detector.OpenBoard());
        detector.CloseBoard();
    }
}

TEST_F(Road, LostAndBrokenFramesFailTheSnapAndTheNextWorks) {
    const auto hardware = device("sim:6112-kestrane");
    hardware->writeRegister(0, 0x60);  // frames on an edge only
    QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
    detector.OpenBoard();
    detector.SetExposureTime(50.0F);
    hardware->faults().set(simulator::Fault::LostFrame);
    expectFailure([&] { detector.Snap(0, 500); }, "Problem Snapping Image!", DerrAcquisition, 30);
    EXPECT_NO_THROW(detector.Snap(0, 500));
    for (const auto fault : {simulator::Fault::TruncatedFrame, simulator::Fault::FailedFrame}) {
        hardware->faults().set(fault);
        EXPECT_TRUE(support::failureOf([&] { detector.Snap(0, 500); }));
        EXPECT_NO_THROW(detector.Snap(0, 500));
    }
    EXPECT_EQ(detector.GetFieldCount(), 3);
}
