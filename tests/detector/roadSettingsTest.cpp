#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TransportRig.h"

/// Settings through the facade on every transport: what the registers hold, and what becomes of the picture.

using support::expectFailure;
using support::Registers;

namespace {

class SettingsOnRoad : public support::VirtualRoadTest {
protected:
    SettingsOnRoad() { detector->OpenBoard(); }
};

using Region = SettingsOnRoad;
using PlainSettings = SettingsOnRoad;

/// Registers 10, 9, 3 and 1, and what they divide width and height by.
struct Binned {
    bins mode;
    int column, row, code, flags;
    int widthFactor, heightFactor;
};
constexpr Binned binnings[] = {{Bin1x2, 1, 2, 0, 0, 1, 2},        {Bin1x4, 1, 4, 0x40, 0, 1, 4},
                               {Bin2x1, 2, 1, 0x80, 0, 2, 1},     {Bin2x2, 2, 2, 0x80, 0, 2, 2},
                               {Bin2x4, 2, 4, 0xC0, 0, 2, 4},     {Bin4x1, 4, 1, 0x100, 0, 4, 1},
                               {Bin4x2, 4, 2, 0x100, 0, 4, 2},    {Bin4x4, 4, 4, 0x140, 0, 4, 4},
                               {Bin2x2Flagged, 1, 1, 0, 2, 2, 2}, {Bin4x4Flagged, 1, 1, 0x140, 0x10, 4, 4},
                               {Bin1x1, 1, 1, 0, 0, 1, 1}};

}  // namespace

TEST_P(SettingsOnRoad, FrameAndPatternFollowEveryBinningAndRegion) {
    int snaps = 0;
    for (const Binned& test : binnings) {
        if (detector->QueryBinningMode(test.mode) != 1) continue;
        detector->SetBinningMode(test.mode);
        expectRegisters({{10, test.column}, {9, test.row}, {3, test.code}, {1, test.flags}, {5, 514}});
        EXPECT_EQ(detector->GetBinningMode(), test.mode);
        expectSnap(snaps++ % 20, panelWidth() / test.widthFactor, panelHeight() / test.heightFactor);
        if (detector->QueryROI() != 1) continue;
        detector->SetROIArea(panelWidth(), 256, 8);
        detector->SetROIEnabled(true);
        expectSnap(snaps++ % 20, panelWidth() / test.widthFactor, 256 / test.heightFactor);
        detector->SetROIEnabled(false);
    }
    EXPECT_GE(snaps, 3);
    EXPECT_EQ(hardware->ledger().delivered, static_cast<std::uint64_t>(snaps));
    expectBalancedLedger();
}

INSTANTIATE_TEST_SUITE_P(Road, SettingsOnRoad,
                         testing::ValuesIn(support::roads({"5101", "6112-kestrane", "6213-kestrane"})),
                         testing::PrintToStringParamName());

TEST_P(PlainSettings, BinningWithoutTimesIsRefusedAndTheNextSnapIsWhole) {
    expectFailure([&] { detector->SetBinningMode(Bin1x2); },
                  "There is no readout time stored for these detector settings.", DerrBadRequest);
    expectRegisters({{10, 1}, {9, 1}, {3, 0}, {5, 0}});
    expectSnap(0, panelWidth(), panelHeight());
}

INSTANTIATE_TEST_SUITE_P(Road, PlainSettings, testing::ValuesIn(support::roads({"5101", "7127"})),
                         testing::PrintToStringParamName());

TEST_P(Region, IsReadCheckedWrittenAndSwitched) {
    const auto region = [&] {
        std::vector<int> area(4);
        detector->GetROIArea(area[0], area[1], area[2], area[3]);
        return area;
    };
    using testing::ElementsAre;
    EXPECT_THAT(region(), ElementsAre(3072, 864, 0, 0));
    const struct {
        void (*change)(QuorinDetector&);
        int row, height;
    } accepted[] = {{[](auto& d) { d.SetROIArea(3072, 128); }, 368, 128},
                    {[](auto& d) { d.SetROIArea(3072, 864, 0, 0); }, 0, 864},
                    {[](auto& d) { d.SetROIArea(3072, 128, 736); }, 736, 128},
                    {[](auto& d) { d.SetROIArea(3072, 136, 3); }, 3, 136},
                    {[](auto& d) { d.SetROIArea(3072, 128, 200); }, 200, 128}};
    for (const auto& test : accepted) {
        test.change(*detector);
        EXPECT_THAT(region(), ElementsAre(3072, test.height, test.row, 0));
        expectRegisters({{402, test.row}, {403, test.height}, {404, 0}, {405, 1536}});
    }
    expectSnap(0, 3072, 864);
    const float whole = detector->GetReadOutTime();
    detector->SetROIEnabled(true);
    expectRegisters({{1, 0x40}, {401, 0x09}, {402, 200}, {403, 128}, {404, 0}, {405, 1536}});
    EXPECT_TRUE(detector->IsROIEnabled());
    EXPECT_FALSE(detector->IsLegacyTimingEnabled());
    EXPECT_FALSE(detector->GetSliceInterlacing());
    EXPECT_LT(detector->GetReadOutTime(), whole / 4);
    expectSnap(1, 3072, 128);
    detector->SetBinningMode(Bin4x4);
    detector->SetROIArea(3072, 256);
    expectSnap(2, 768, 64);
    detector->SetROIEnabled(false);
    expectRegisters({{1, 0}, {401, 0x09}});
    detector->CloseBoard();
    detector->OpenBoard();
    expectSnap(3, 768, 216);
    detector->SetBinningMode(Bin1x1);  // more than the ring was opened for
    expectSnap(4, 3072, 864);

    detector->CloseBoard();
    hardware->writeRegister(403, 128, 2);
    hardware->writeRegister(1, 0x40);
    detector = road.make();
    detector->OpenBoard();  // repairs a region that the sensors don't agree on
    expectRegisters({{1, 0x40}, {402, 0}, {403, 864}, {404, 0}, {405, 1536}});
    expectSnap(0, 3072, 864);
}

TEST_P(Region, ReadoutTimeIsAwaitedWhileTheDetectorWorksItOutAndMissedOnce) {
    hardware->setReadoutTimeSettleMs(300);
    const struct {
        void (*change)(QuorinDetector&);
        double ms;  ///< of the readout time afterwards, within a tenth
    } cases[] = {{[](auto& d) { d.SetLegacyTiming(false); }, 16.0},
                 {[](auto& d) { d.SetBinningMode(Bin2x2); }, 6.05},
                 {[](auto& d) { d.SetLegacyTiming(true); }, 6.4},
                 {[](auto& d) { d.SetROIArea(3072, 128); }, 6.4},
                 {[](auto& d) { d.SetROIEnabled(true); }, 1.3},
                 {[](auto& d) { d.SetROIMarginEnabled(false); }, 1.1},
                 {[](auto& d) { d.SetTriggerSource(TriggerBits5And7); }, 1.1}};
    for (const auto& test : cases) {
        const platform::Time before = clock.now();
        test.change(*detector);
        EXPECT_GE(clock.now() - before, std::chrono::milliseconds(300));
        EXPECT_NEAR(detector->GetReadOutTime(), test.ms, 0.1) << &test - cases;
        clock.advance(std::chrono::seconds(1));
        EXPECT_EQ(detector->GetReadOutTime(), static_cast<float>(hardware->readRegister(410)) * 0.002F);
        EXPECT_GE(detector->GetExposureTime(), detector->GetMinimumExposureTime() - 0.1F);
    }
    EXPECT_FALSE(detector->IsLegacyTimingEnabled()) << "the region has turned it off";
    expectRegisters({{0, 0xA0}, {1, 0x40}, {401, 0x29}});
    hardware->setReadoutTimeSettleMs(60000);
    expectFailure([&] { detector->SetBinningMode(Bin4x4); },
                  "Failed to update readout time, readout time register remained zero until timeout.",
                  DerrSerialCommand);
}

TEST_P(Region, SettingsStayInTheDetectorAcrossReconnects) {
    const float times[] = {100.0F, 200.0F};
    detector->SetBinningMode(Bin2x2Flagged);
    detector->SetGapTime(detector->GetReadOutTime() + 12.3F);
    detector->SetPreProgrammedExposureTimes(times, 2);
    detector->SetFullWellMode(FullWellBit2Set);
    detector->SetReadoutMode(ReadoutBit3Set);
    detector->SetPixelFrameCounter(true);
    detector->ToggleOnBoardLinearization(false);
    detector->ToggleOnBoardXTalkCorrection(true);
    detector->SetTestMode(true);
    detector->SetExposureMode(ExposureBit12);
    const Registers expected{{0, 0x5061}, {1, 0x8E}, {3, 4}, {9, 1}, {10, 1}, {17, 2}, {18, 123}};
    expectRegisters(expected);
    detector->CloseBoard();

    const auto again = road.make();
    again->OpenBoard();
    expectRegisters(expected);
    EXPECT_EQ(again->GetBinningMode(), Bin2x2Flagged);
    EXPECT_EQ(again->GetExposureMode(), ExposureBit12);
    EXPECT_EQ(again->GetNumOfExposures(), 2);
    EXPECT_NEAR(again->GetGapTime(), again->GetReadOutTime() + 12.3F, 0.001F);
    float back[4] = {};
    EXPECT_EQ(again->GetPreProgrammedExposureTimes(back, 4), 4);
    EXPECT_NEAR(back[1], 200.0F, 0.02F);
    EXPECT_NEAR(back[3], again->GetMinimumExposureTime(), 0.02F);
}

INSTANTIATE_TEST_SUITE_P(Road, Region, testing::ValuesIn(support::roads({"6112-kestrane"})),
                         testing::PrintToStringParamName());
