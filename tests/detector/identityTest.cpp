#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"

using support::CoreDouble;

namespace {

class Identity : public testing::Test {
protected:
    Identity() { CoreDouble::present(core, 6112); }

    void features(int word36, int word37, int word130) {
        core.line.registers[36] = word36;
        core.line.registers[37] = word37;
        core.line.registers[130] = word130;
        core.UpdateFeaturesFlags();
    }

    platform::ScopedVirtualClock clock;
    CoreDouble core;
};

}  // namespace

TEST_F(Identity, ModelIsTakenModuloTenThousandOrFromTheOldFirmwareWord) {
    core.line.registers[124] = 16112;
    EXPECT_EQ(core.GetModelNumber(), 6112);
    core.line.registers[127] = (2551 << 4) | 9;
    char text[20];
    core.GetFirmwareVersionOld(text, sizeof(text));
    EXPECT_STREQ(text, "2551:9");
    EXPECT_EQ(core.modelNumber.get(), 2551);
    core.GetFirmwareVersionOld(text, 4);
    EXPECT_STREQ(text, "255");
}

TEST_F(Identity, LowByteOfTheFamilyDecidesOnKestraneElectronics) {
    for (const auto& [family, kestrane] :
         {std::pair(0, false), {1, true}, {257, true}, {3, false}, {256, false}, {258, false}}) {
        CoreDouble other;
        CoreDouble::present(other, 6112, family);
        EXPECT_EQ(other.IsKestrane(), kestrane) << family;
        EXPECT_EQ(other.GetSensorVersion(), kestrane ? 2 : 1);
        EXPECT_EQ(other.QueryLegacyTiming(), kestrane ? 1 : 0);
        EXPECT_EQ(other.QueryROI(), kestrane ? 1 : 0);
        EXPECT_EQ(std::count(other.line.commands.begin(), other.line.commands.end(), "R1129"), 1);
    }
}

TEST_F(Identity, SlowedDetectorsAreExactPairsOfModelAndFirmware) {
    const struct {
        int model;
        int firmware;
        bool slowed;
    } cases[] = {{5309, 3, true},   {6213, 27, true},  {7127, 13, true},  {7127, 27, true},  {7127, 14, false},
                 {5309, 27, false}, {6213, 13, false}, {5204, 27, false}, {8131, 27, false}, {6112, 3, false}};
    for (const auto& test : cases) {
        CoreDouble other;
        CoreDouble::present(other, test.model, 0, test.firmware);
        EXPECT_EQ(other.getSlowed(), test.slowed) << test.model << " " << test.firmware;
    }
    CoreDouble other;
    CoreDouble::present(other, 5204);
    other.SetSlowed(true);
    EXPECT_TRUE(other.getSlowed());
    other.SetSlowed(false);
    EXPECT_FALSE(other.getSlowed());
}

TEST_F(Identity, FeatureWordsThatAreSilentKeepTheDefaultsAndEachBitReachesItsOwnFlag) {
    features(0, 0, 0);
    EXPECT_EQ(core.QueryReadoutMode(ReadoutBit3Set), -1);
    EXPECT_EQ(core.QueryBinningMode(Bin2x2), 1);
    EXPECT_EQ(core.QueryBinningMode(Bin2x1), 0);
    EXPECT_EQ(core.QueryOnBoardLinearization(), -1);
    EXPECT_EQ(core.QueryTempReporting(), 0);
    EXPECT_EQ(core.readsOwnTiming, 0);
    features(0x0001, 0x01FF, 0);
    EXPECT_EQ(core.QueryBinningMode(Bin1x2), 1);
    EXPECT_EQ(core.QueryBinningMode(Bin2x2), 0);
    EXPECT_EQ(core.QueryBinningMode(Bin1x1), 1) << "extended row";
    features(0, 0, 0);
    EXPECT_EQ(core.QueryBinningMode(Bin1x2), 0) << "all-zero words count once others were seen";
    const auto flags = [&] {
        std::vector<int> all;
        for (int mode = Bin1x1; mode <= Bin2x2Flagged; ++mode) all.push_back(core.QueryBinningMode(bins(mode)));
        for (int mode = 0; mode < 4; ++mode) all.push_back(core.QueryExposureMode(ExposureModes(mode)));
        for (int source = 0; source < 3; ++source)
            all.push_back(core.QueryTriggerSource(ExposureTriggerSource(source)));
        for (int mode = 0; mode < 2; ++mode) all.push_back(core.QueryFullWellMode(FullWellModes(mode)));
        for (int mode = 0; mode < 2; ++mode) all.push_back(core.QueryReadoutMode(ReadoutModes(mode)));
        all.push_back(core.QueryOnBoardXTalkCorrection());
        all.push_back(core.QueryOnBoardLinearization());
        all.push_back(core.QueryDisableSliceInterlacing());
        EXPECT_EQ(core.QueryOnBoardUnscrambling(), all.back());
        return all;
    };
    const struct {
        int word36, word37, word130;
        std::size_t flag;
    } cases[] = {
        {1 << 0, 0, 16, 1},   {1 << 1, 0, 16, 2},   {1 << 2, 0, 16, 3},   {1 << 3, 0, 16, 4},   {1 << 4, 0, 16, 5},
        {1 << 5, 0, 16, 6},   {1 << 6, 0, 16, 7},   {1 << 7, 0, 16, 8},   {1 << 8, 0, 16, 9},   {0, 1 << 10, 0, 0},
        {0, 1 << 11, 0, 10},  {1 << 12, 0, 16, 11}, {1 << 14, 0, 16, 12}, {1 << 13, 0, 16, 13}, {0, 1 << 13, 0, 14},
        {0, 1 << 15, 0, 15},  {0, 1 << 14, 0, 16},  {0, 0, 1 << 0, 17},   {0, 0, 1 << 1, 18},   {0, 1 << 12, 0, 19},
        {1 << 15, 0, 16, 20}, {1 << 9, 0, 16, 21},  {1 << 10, 0, 16, 22}, {0, 1 << 9, 0, 23},
    };
    for (const auto& test : cases) {
        features(test.word36, test.word37, test.word130);
        std::vector<int> expected(24, 0);
        expected[test.flag] = 1;
        EXPECT_EQ(flags(), expected) << std::hex << test.word36 << " " << test.word37 << " " << test.word130;
    }
    for (const int bit : {4, 8}) {
        features(0, 0, bit);
        EXPECT_EQ(core.QueryTempReporting(), 1);
    }
    for (const int mode : {0, -1, 12, 99}) EXPECT_EQ(core.QueryBinningMode(bins(mode)), -1) << mode;
    for (const int mode : {-1, 4}) {
        EXPECT_EQ(core.QueryExposureMode(ExposureModes(mode)), -1);
        EXPECT_EQ(core.QueryTriggerSource(ExposureTriggerSource(mode)), -1);
        EXPECT_EQ(core.QueryFullWellMode(FullWellModes(mode)), -1);
        EXPECT_EQ(core.QueryReadoutMode(ReadoutModes(mode)), -1);
    }
}

TEST_F(Identity, ModelsAndElectronicsOverruleTheWords) {
    CoreDouble panel6318;
    CoreDouble::present(panel6318, 6318);
    panel6318.line.registers[36] = 0x180;
    panel6318.line.registers[37] = 0x400;
    panel6318.UpdateFeaturesFlags();
    EXPECT_EQ(panel6318.QueryBinningMode(Bin1x1), 0);
    EXPECT_EQ(panel6318.QueryBinningMode(Bin4x4), 0);
    EXPECT_EQ(panel6318.QueryBinningMode(Bin2x2Flagged), 0);
    EXPECT_EQ(panel6318.QueryBinningMode(Bin2x2), 1);

    CoreDouble kestrane;
    CoreDouble::present(kestrane, 7127, 1);
    EXPECT_EQ(kestrane.QueryBinningMode(Bin4x4Flagged), 0);
    kestrane.line.registers[37] = 0x400;
    kestrane.UpdateFeaturesFlags();
    EXPECT_EQ(kestrane.QueryBinningMode(Bin4x4Flagged), 1);
    EXPECT_EQ(kestrane.QueryDisableSliceInterlacing(), 1);
    EXPECT_EQ(kestrane.readsOwnTiming, 1);
    EXPECT_EQ(kestrane.QueryROI(), 0) << "a region exists on model 6112 alone";
}
