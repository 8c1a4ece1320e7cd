#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "maintenance.h"
#include "support/LogCapture.h"
#include "support/TransportRig.h"

/// The whole road, from the facade to a simulated detector and back, on every transport.

using simulator::Fault;
using support::expectFailure;
using support::failureOf;
using support::Road;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class OnRoad : public support::VirtualRoadTest {
protected:
    static std::vector<std::string> serialCommands(const support::LogCapture& log) {
        std::vector<std::string> commands;
        for (const std::string& line : log.linesFrom("debug|SERIAL: "))
            commands.push_back(line.substr(14, line.find(" -> ") - 14));
        return commands;
    }
};

using EveryPanel = OnRoad;
using Kestrane6112 = OnRoad;
using Plain5309 = OnRoad;

/// What a detector is and how it is timed at `Bin1x1`; a readout time of 0 is told by the detector itself.
struct Expected {
    const char* profile;
    int width, height;
    float gigeReadoutMs, gigeWindowMs;
    float cameraLinkReadoutMs;  ///< the exposure window has no minimum of its own there
};
constexpr Expected expectations[] = {
    {"5101", 1536, 864, 16.93F, 14.71F, 16.93F},     {"5101-kestrane", 1536, 864, 0, 0, 0},
    {"5309", 1536, 1944, 37.78F, 32.89F, 37.69F},    {"6112", 3072, 864, 16.93F, 0, 16.93F},
    {"6112-kestrane", 3072, 864, 0, 0, 0},           {"6213", 3072, 1944, 0, 0, 37.78F},
    {"6213-kestrane", 3072, 1944, 0, 0, 37.77F},     {"7127", 3072, 3888, 188.68F, 0, 37.74F},
    {"7127-slowed", 3072, 3888, 188.68F, 0, 56.95F}, {"8131", 3072, 3072, 0, 0, 37.92F}};

}  // namespace

TEST_P(EveryPanel, TellsWhatItIsAndGivesItsPictureByteForByte) {
    const Expected& expected = *std::find_if(std::begin(expectations), std::end(expectations),
                                             [&](const Expected& row) { return row.profile == road.profile; });
    detector->OpenBoard();
    EXPECT_EQ(detector->GetTransportMethod(), road.transport);
    EXPECT_EQ(detector->GetModelNumber(), panel().model);
    EXPECT_EQ(detector->GetSerialNumber(), panel().serialNumber);
    EXPECT_EQ(detector->GetFirmwareVersion(), panel().firmwareVersion);
    EXPECT_EQ(detector->GetSensorVersion(), panel().isKestrane() ? 2 : 1);
    EXPECT_EQ(detector->GetSensorWidth(1), panel().sensorWidth);
    EXPECT_EQ(detector->GetSensorHeight(1), panel().sensorHeight);
    int build[3] = {};
    detector->GetFirmwareBuild(build[0], build[1], build[2]);
    EXPECT_THAT(build, ElementsAre(2024, panel().model, panel().firmwareVersion));
    EXPECT_EQ(detector->GetBinningMode(), Bin1x1);

    float readout = road.isGigE() ? expected.gigeReadoutMs : expected.cameraLinkReadoutMs;
    float window = road.isGigE() ? expected.gigeWindowMs : 0.0F;
    if (readout == 0.0F) {
        clock.advance(std::chrono::seconds(1));  // the register settles after the open's writes
        readout = static_cast<float>(hardware->readRegister(410)) * 0.002F;
        const float linkMs = static_cast<float>(expected.width * expected.height * 16) / 670e6F * 1000.0F;
        window = std::max(0.5F, road.isGigE() ? linkMs - readout : 0.0F);
    }
    EXPECT_EQ(detector->GetReadOutTime(), readout);
    EXPECT_NEAR(detector->GetMinimumExposureTime(), readout + window, 0.011F);
    EXPECT_GE(detector->GetExposureTime(), detector->GetMinimumExposureTime() - 0.1F);

    detector->SetExposureTime(0.0F);
    EXPECT_NEAR(detector->GetExposureTime(), detector->GetMinimumExposureTime(), 0.1F);
    detector->SetExposureTime(250.0F);
    EXPECT_NEAR(detector->GetExposureTime(), 250.0F, 0.1F);
    const int fields = detector->GetFieldCount();
    for (const int buffer : {0, 2, detector->GetNumBuffers() - 1}) {
        expectSnap(buffer, expected.width, expected.height);
        EXPECT_NO_THROW(detector->WaitImage(0)) << "the frame's signal stays for the application";
    }
    EXPECT_EQ(detector->GetFieldCount(), fields + 3);
    QorImage image;
    detector->ReadBuffer(0, image, 1);
    EXPECT_EQ(image.GetImageXdim(), expected.width);
    EXPECT_EQ(image.GetImageYdim(), expected.height);
    EXPECT_EQ(image.GetImageModel(), panel().model);
    detector->ClearCameraBuffer(2);
    detector->ReadBuffer(2, image, 0);
    EXPECT_EQ(*static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0)), 0);
    detector->CloseBoard();
    EXPECT_EQ(hardware->ledger().delivered, 3U);
    expectBalancedLedger();
}

TEST_P(EveryPanel, PowerCycleRebuildsWhatTheLibraryKnows) {
    hardware->setTemperatures(41, 28);
    detector->OpenBoard();
    // Kestrane electronics have a thermistor for each sensor and an auxiliary probe, others one for all.
    const int sensors = panel().sensorCount();
    for (int sensor = 0; sensor <= sensors + 2; ++sensor) {
        float celsius = 41.0F;
        if (panel().isKestrane() && (sensor == 0 || sensor > sensors))
            celsius = sensor == sensors + 1 && panel().model != 5101 ? 28.0F : 0.0F;
        EXPECT_NEAR(detector->GetDetectorTemp(sensor), celsius, 0.05F) << sensor;
    }
    EXPECT_EQ(detector->ReadRegister(116, 1) & 1, 0);
    failureOf([&] { detector->SetBinningMode(Bin4x4); });  // not every model has times for it
    detector->SetExposureTime(700.0F);
    detector->SetTestMode(true);
    const platform::Time before = clock.now();
    detector->SoftReset();
    EXPECT_GE(clock.now() - before, std::chrono::seconds(8));
    EXPECT_FALSE(detector->GetTestMode());
    EXPECT_EQ(detector->GetBinningMode(), Bin1x1);
    EXPECT_LT(detector->GetExposureTime(), 500.0F);
    detector->SetExposureTime(250.0F);
    expectSnap(1, panelWidth(), panelHeight());
}

INSTANTIATE_TEST_SUITE_P(Road, EveryPanel, testing::ValuesIn(support::everyRoad()), testing::PrintToStringParamName());

TEST_P(Plain5309, OpeningAndExposureAreTheseCommands) {
    {
        const support::LogCapture log;
        detector->OpenBoard();
        std::vector<std::string> expected{"R1129", "R1124", "R1010", "R1009", "R1001", "R1126",
                                          "R1036", "R1037", "R1130", "R1126", "R1011", "R1012"};
        EXPECT_THAT(serialCommands(log), testing::ElementsAreArray(expected));
    }
    const support::LogCapture log;
    detector->SetExposureTime(detector->GetReadOutTime() + 62.22F);
    EXPECT_THAT(serialCommands(log), ElementsAre("W001106222", "W001200000", "R1011", "R1012"));
    EXPECT_FLOAT_EQ(detector->GetExposureTime(), detector->GetReadOutTime() + 62.22F);
}

TEST_P(Plain5309, RefusedBinningTouchesNeitherFramesNorTransport) {
    detector->OpenBoard(4);
    detector->Snap(0, 1000);
    std::vector<unsigned char> before(1536 * 1944 * 2);
    std::vector<unsigned char> after = before;
    detector->ReadBuffer(0, before.data());
    const support::LogCapture log;
    EXPECT_EQ(failureOf([&] { detector->SetBinningMode(Bin2x1); })->GetCode(), DerrBadRequest);
    detector->Snap(1, 1000);
    for (const char* call :
         {"info|PLEORA: pvDeviceGEV()->GetParameters()->SetIntegerValue(Width", "info|EPIX: pxe_setVideoResolution"})
        EXPECT_TRUE(log.linesFrom(call).empty()) << call;
    detector->ReadBuffer(0, after.data());
    EXPECT_EQ(before, after);
}

INSTANTIATE_TEST_SUITE_P(Road, Plain5309, testing::ValuesIn(support::roads({"5309"})),
                         testing::PrintToStringParamName());

TEST_P(Kestrane6112, FlaggedBinningThatWasLeftInTheDetectorIsOpenedWithItsSize) {
    detector->OpenBoard();
    detector->SetBinningMode(Bin4x4Flagged);
    detector = road.make();
    detector->OpenBoard();
    EXPECT_EQ(detector->GetBinningMode(), Bin4x4Flagged);
    expectSnap(0, 768, 216);
}

TEST_P(Kestrane6112, FirstOpenReadsBinningAgainOnlyForTheFlagOf4x4) {
    struct {
        int control;  ///< register 1
        std::vector<const char*> reads;
    } const cases[] = {{0x02, {"R1036", "R1037", "R1130", "R1126"}},
                       {0x10, {"R1036", "R1037", "R1130", "R1010", "R1009", "R1001", "R1003", "R1126"}}};
    for (const auto& each : cases) {
        replaceDetector();
        hardware->writeRegister(1, static_cast<std::uint16_t>(each.control));
        const support::LogCapture log;
        detector->OpenBoard();
        const std::vector<std::string> commands = serialCommands(log);
        const auto begin = std::find(commands.begin(), commands.end(), "R1036");
        ASSERT_GE(commands.end() - begin, static_cast<std::ptrdiff_t>(each.reads.size()));
        EXPECT_THAT(std::vector<std::string>(begin, begin + static_cast<std::ptrdiff_t>(each.reads.size())),
                    testing::ElementsAreArray(each.reads));
    }
}

TEST_P(Kestrane6112, ReadNeverOverrunsAFrameWhoseBinningWasFoundLater) {
    detector->OpenBoard();
    hardware->writeRegister(3, 0x140);
    hardware->writeRegister(1, 0x10);  // Bin4x4Flagged, behind the library's back
    EXPECT_EQ(detector->GetBinningMode(), Bin4x4Flagged);
    std::vector<unsigned char> frame(768 * 216 * 2 + 8, 0xEE);
    failureOf([&] { detector->ReadBuffer(0, frame.data()); });
    EXPECT_EQ(frame[768 * 216 * 2], 0xEE);
}

TEST_P(Kestrane6112, SecondUserIsRefusedUntilTheFirstHasClosed) {
    const auto other = road.make();
    other->OpenBoard();
    EXPECT_TRUE(failureOf([&] { detector->OpenBoard(); }));
    other->CloseBoard();
    EXPECT_NO_THROW(detector->OpenBoard());
}

TEST_P(Kestrane6112, DeadSerialLineIsOneErrorAndTheNextOpenWorks) {
    for (const int first : {1, 2, 5, 9, 14, 20}) {
        hardware->faults().set(Fault::SilentLine, {first, true});
        const auto failure = failureOf([&] { detector->OpenBoard(); });
        ASSERT_TRUE(failure) << first;
        EXPECT_THAT(failure->what(),
                    testing::AnyOf(HasSubstr("Problem sending serial command"), HasSubstr("exposure")));
        hardware->faults().clearAll();
        replaceDetector();
        EXPECT_NO_THROW(detector->OpenBoard()) << first;
        detector->CloseBoard();
    }
}

TEST_P(Kestrane6112, LostAndBrokenFramesFailTheSnapAndTheNextWorks) {
    detector->OpenBoard();
    detector->SetExposureTime(50.0F);
    for (const Fault fault : {Fault::LostFrame, Fault::TruncatedFrame, Fault::FailedFrame}) {
        hardware->faults().set(fault);
        const platform::Time before = clock.now();
        const auto failure = failureOf([&] { detector->Snap(0, 500); });
        ASSERT_TRUE(failure);
        const bool isLost = fault == Fault::LostFrame;
        EXPECT_EQ(failure->GetCode(), isLost ? DerrAcquisition : road.brokenFrameCode()) << failure->what();
        if (isLost) {
            EXPECT_EQ(failure->GetTransportError(), road.snapTimeout());
            EXPECT_GE(clock.now() - before, std::chrono::milliseconds(500));
        }
        expectSnap(1, 3072, 864);
    }
    EXPECT_EQ(detector->GetFieldCount(), 3);
    expectBalancedLedger(3);
}

TEST_P(Kestrane6112, FailedPowerChangesNameTheirLayersAndADetectorWithoutPowerCannotBeOpened) {
    detector->OpenBoard();
    detector->PowerSwitch(false);
    EXPECT_TRUE(failureOf([&] { detector->GetBinningMode(); }));
    hardware->setBootTimeMs(60000);
    const auto failure = expectFailure([&] { detector->PowerSwitch(true); },
                                       "Detector was not responsive after power-on.", DerrTransport);
    EXPECT_EQ(failure->GetFunctionName(), std::string(road.layer()) + "PowerSwitchKestrane");
    EXPECT_THAT(failure->what(), HasSubstr(std::string(road.layer()) + "PowerSwitch,"));
    clock.advance(std::chrono::minutes(2));
    EXPECT_NO_THROW(detector->PowerSwitch(true));
    EXPECT_EQ(detector->GetBinningMode(), Bin1x1);
    hardware->faults().set(Fault::NoTemperature, {1, true});
    EXPECT_EQ(detector->GetDetectorTemp(1), 0.0F);
    expectFailure([&] { detector->GetDetectorTemp(3); }, "Problem sending serial command!", DerrSerialCommand);
    detector->PowerSwitch(false);
    detector->CloseBoard();
    const auto silent = failureOf([&] { detector->OpenBoard(); });
    ASSERT_TRUE(silent);
    EXPECT_THAT(silent->what(), HasSubstr("Problem performing serial read!"));
    replaceDetector();
    hardware->serialWrite("WP1\rWC1\r");
    clock.advance(std::chrono::minutes(2));
    EXPECT_NO_THROW(detector->OpenBoard());
}

TEST_P(Kestrane6112, FirmwareReachesTheFlashOfItsSensorAndConfigurationItsRegisters) {
    detector->OpenBoard();
    std::vector<char> image(20 * 1024 + 100);
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * 31 + i / 1024);
    const std::string path = testing::TempDir() + "qrapi-road-" + std::to_string(getpid());
    std::ofstream(path, std::ios::binary).write(image.data(), static_cast<std::streamsize>(image.size()));
    testing::internal::CaptureStdout();
    EXPECT_NO_THROW(detector->UploadFirmware(path.c_str(), 2, true));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Block 20/20 written.\n\nWrite completed to sensor"));
    std::vector<std::uint8_t> expected;
    for (std::size_t i = 0; i < 20 * 1024; ++i) expected.push_back(ReverseBits(static_cast<std::uint8_t>(image[i])));
    EXPECT_EQ(hardware->flashContent(2), expected);
    EXPECT_TRUE(hardware->flashContent(1).empty());

    std::ofstream(path) << "# setup\nW000300004\nWC1\nW200600012\n";
    EXPECT_NO_THROW(detector->LoadSensorConfigFile(path.c_str()));
    expectRegisters({{3, 4}});
    EXPECT_EQ(hardware->readRegister(6, 1), 0);
    EXPECT_EQ(hardware->readRegister(6, 2), 12);
    std::remove(path.c_str());
}

INSTANTIATE_TEST_SUITE_P(Road, Kestrane6112, testing::ValuesIn(support::roads({"6112-kestrane"})),
                         testing::PrintToStringParamName());
