#include <gmock/gmock.h>

#include <algorithm>

#include "support/SettingsRig.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::SettingsCore;
using testing::ElementsAre;

namespace {

using Registers = std::map<int, int>;
using Change = void (*)(baseDetector&);

constexpr const char* notSupported = "This detector does not support ROI";

class RegionOfInterest : public support::SettingsTest {
protected:
    RegionOfInterest() {
        kestrane.readoutTime = 16.0F;
        kestrane.minimumExposureWindow = 0.5F;
        setRegion(0, 864, 0, 1536);
    }
    void setRegion(int row, int height, int column, int width) {
        int reg = 402;
        for (const int value : {row, height, column, width}) kestrane.line.registers[reg++] = value;
    }
    std::vector<int> read() {
        int width = 0;
        int height = 0;
        int row = 0;
        int column = 0;
        static_cast<baseDetector&>(kestrane).GetROIArea(width, height, row, column);
        return {width, height, row, column};
    }
    std::vector<int> cached() {
        const ROIArea area = kestrane.GetCachedROIArea();
        return {area.GetWidth(), area.GetHeight(), area.GetStartRow(), area.GetStartColumn()};
    }
    void forgetCalls() {
        kestrane.line.commands.clear();
        kestrane.transportCalls.clear();
    }
};

}  // namespace

TEST_F(RegionOfInterest, SoundRegionIsReportedAcrossThePanel) {
    setRegion(368, 128, 0, 1536);
    EXPECT_THAT(read(), ElementsAre(3072, 128, 368, 0));
    std::vector<std::string> asked = kestrane.line.commands;
    asked.erase(std::remove(asked.begin(), asked.end(), "R1418"), asked.end());
    EXPECT_THAT(asked, ElementsAre("R2402", "R2403", "R2404", "R2405", "R1402", "R1403", "R1404", "R1405"));
    EXPECT_THAT(cached(), ElementsAre(3072, 128, 368, 0));
    setRegion(736, 128, 0, 1536);
    EXPECT_THAT(cached(), ElementsAre(3072, 128, 368, 0)) << "not asked again";
    EXPECT_THAT(read(), ElementsAre(3072, 128, 736, 0)) << "ends with the last row";
}

TEST_F(RegionOfInterest, UnsoundRegionIsReplacedByTheWholePanel) {
    const struct {
        int row, height, column, width;
        int rightRegister, rightValue;  ///< what sensor 2 says in its place
    } cases[] = {{0, 864, 0, 3072, 0, 0},   {0, 864, 8, 1536, 0, 0},     {8, 864, 0, 1536, 0, 0},
                 {0, 120, 0, 1536, 0, 0},   {0, 130, 0, 1536, 0, 0},     {65535, 128, 0, 1536, 0, 0},
                 {0, 0, 0, 0, 0, 0},        {0, 128, 0, 1536, 403, 136}, {0, 128, 0, 1536, 402, 8},
                 {0, 128, 0, 1536, 404, 8}, {0, 128, 0, 1536, 405, 1528}};
    for (const auto& test : cases) {
        forgetCalls();
        setRegion(test.row, test.height, test.column, test.width);
        kestrane.line.perSensor.clear();
        if (test.rightRegister != 0) kestrane.line.perSensor[{2, test.rightRegister}] = test.rightValue;
        EXPECT_THAT(read(), ElementsAre(3072, 864, 0, 0));
        EXPECT_EQ(written(kestrane), (Registers{{402, 0}, {403, 864}, {404, 0}, {405, 1536}})) << &test - cases;
        EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare", "Update"));
        EXPECT_THAT(cached(), ElementsAre(3072, 864, 0, 0));
    }
}

TEST_F(RegionOfInterest, RequestsAreCheckedRuleByRuleAndARefusalChangesNothing) {
    const struct {
        Change change;
        const char* text;
    } cases[] = {
        {[](auto& d) { d.SetROIArea(2048, 130, 737, 8); }, "Cannot set ROI: ROI width must be 3072"},
        {[](auto& d) { d.SetROIArea(2048, 128, 0); }, "Cannot set ROI: ROI width must be 3072"},
        {[](auto& d) { d.SetROIArea(2048, 128); }, "Cannot set ROI: ROI width must be 3072"},
        {[](auto& d) { d.SetROIArea(3072, 865, 737, 8); }, "Cannot set ROI: ROI height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, 127, 737, 8); }, "Cannot set ROI: ROI height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, 1000); }, "Cannot set ROI: ROI height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, -2147483647 - 1); },
         "Cannot set ROI: ROI height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, 130, 737, 8); }, "Cannot set ROI: ROI start row must be between 0 and 736"},
        {[](auto& d) { d.SetROIArea(3072, 130, -1, 8); }, "Cannot set ROI: ROI start row must be between 0 and 736"},
        {[](auto& d) { d.SetROIArea(3072, 202, 700, 8); }, "Cannot set ROI: ROI start column must be 0"},
        {[](auto& d) { d.SetROIArea(3072, 202, 700, -8); }, "Cannot set ROI: ROI start column must be 0"},
        {[](auto& d) { d.SetROIArea(3072, 200, 700); }, "Cannot set ROI: ROI is outside of sensor area"},
        {[](auto& d) { d.SetROIArea(3072, 130, 700); }, "Cannot set ROI: ROI height must be a multiple of 8"},
    };
    for (const auto& test : cases) {
        const auto failure = expectFailure([&] { test.change(kestrane); }, test.text, DerrBadRequest);
        ASSERT_TRUE(failure);
        EXPECT_STREQ(failure->GetFunctionName(), "baseDetector::SetROIArea");
        EXPECT_STREQ(failure->GetTransportMessage(), "");
    }
    EXPECT_TRUE(kestrane.line.writes().empty());
    EXPECT_TRUE(kestrane.transportCalls.empty());
    EXPECT_FALSE(kestrane.cachedROIArea.get());
}

TEST_F(RegionOfInterest, AcceptedRequestsWriteTheRegionBetweenPrepareAndUpdate) {
    const struct {
        Change change;
        int row, height;
    } cases[] = {{[](auto& d) { d.SetROIArea(3072, 128); }, 368, 128},
                 {[](auto& d) { d.SetROIArea(3072, 864, 0, 0); }, 0, 864},
                 {[](auto& d) { d.SetROIArea(3072, 128, 736); }, 736, 128},
                 {[](auto& d) { d.SetROIArea(3072, 136, 3); }, 3, 136}};
    for (const auto& test : cases) {
        forgetCalls();
        kestrane.line.hook = [this](const std::string& command) -> std::vector<std::string> {
            EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare")) << command;
            return {};
        };
        test.change(kestrane);
        EXPECT_EQ(written(kestrane), (Registers{{402, test.row}, {403, test.height}, {404, 0}, {405, 1536}}));
        std::vector<std::string> order = kestrane.line.writes();
        for (std::string& command : order) command.resize(5);
        order.resize(5);
        EXPECT_THAT(order, ElementsAre("W0402", "W0403", "W0404", "W0405", "W0011"));
        EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare", "Update"));
        EXPECT_THAT(cached(), ElementsAre(3072, test.height, test.row, 0));
        EXPECT_FLOAT_EQ(kestrane.readoutTime, SettingsCore::newReadoutMs);
    }
    int width = 0;
    int height = 0;
    kestrane.GetMaximumROISize(width, height);
    EXPECT_THAT((std::vector<int>{width, height}), ElementsAre(3072, 864));
}

TEST_F(RegionOfInterest, SerialFailureRisesUnchangedAndLeavesTheInterfaceUnprepared) {
    const SilentAt height(kestrane, "W0403");
    const auto failure = expectFailure([&] { kestrane.SetROIArea(3072, 128); },
                                       "Problem sending serial command W040300128", DerrSerialCommand);
    EXPECT_THAT(failure->what(), testing::HasSubstr(", baseDetector::WriteRegister)")) << "no layer of its own";
    EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare"));
    EXPECT_FALSE(kestrane.cachedROIArea.get());
}

// The old minimum is 16 + 0.5 ms, the new one 12 ms.
TEST_F(RegionOfInterest, ExposureAtTheMinimumStaysThereAndAnyOtherStaysWhatItIs) {
    const Change changes[] = {[](auto& d) { d.SetROIArea(3072, 128); }, [](auto& d) { d.SetROIEnabled(true); },
                              [](auto& d) { d.SetROIEnabled(false); }};
    const struct {
        float before, after;
    } exposures[] = {{16.5F, SettingsCore::newReadoutMs}, {16.0F, 16.0F}, {100.0F, 100.0F}, {5.0F, 12.0F}};
    for (const Change& change : changes) {
        for (const auto& exposure : exposures) {
            kestrane.line.registers[1] = &change - changes == 2 ? 0x40 : 0;
            kestrane.readoutTime = 16.0F;
            kestrane.minimumExposureWindow = 0.5F;
            kestrane.exposureTime = exposure.before;
            change(kestrane);
            EXPECT_NEAR(*kestrane.exposureTime.get(), exposure.after, 0.006F) << &change - changes;
        }
    }
}

TEST_F(RegionOfInterest, SwitchesTouchTheirBitAndTurningOnEndsInterlacingAndLegacyTiming) {
    const struct {
        int control, staged;
        Change change;
        Registers written;
        bool framed;  ///< by a change of the interface's image size
    } cases[] = {
        {0xFF3F, 0xFFF6, [](auto& d) { d.SetROIEnabled(true); }, {{1, 0xFF7F}, {401, 0xFFFF}}, true},
        {0x48, 0, [](auto& d) { d.SetROIEnabled(true); }, {}, true},
        {0xFFFF, 0xFF, [](auto& d) { d.SetROIEnabled(false); }, {{1, 0xFFBF}}, true},
        {0xFFBF, 0xFF, [](auto& d) { d.SetROIEnabled(false); }, {}, true},
        {0x4C, 0xFFFF, [](auto& d) { d.SetROIMarginEnabled(true); }, {{401, 0xFFDF}, {1, 0x4C}}, false},
        {0x4C, 0xFF00, [](auto& d) { d.SetROIMarginEnabled(false); }, {{401, 0xFF20}, {1, 0x4C}}, false},
    };
    for (const auto& test : cases) {
        forgetCalls();
        kestrane.line.registers[1] = test.control;
        kestrane.line.registers[401] = test.staged;
        kestrane.readoutTime = 16.0F;
        kestrane.sliceInterlacing = 1;
        kestrane.legacyTiming.reset();
        test.change(kestrane);
        EXPECT_EQ(written(kestrane), test.written) << &test - cases;
        EXPECT_EQ(kestrane.transportCalls,
                  test.framed ? (std::vector<std::string>{"Prepare", "Update"}) : (std::vector<std::string>{}));
        EXPECT_FLOAT_EQ(kestrane.readoutTime, test.written.empty() ? 16.0F : SettingsCore::newReadoutMs);
        const bool turnedOn = &test == cases;
        EXPECT_EQ(kestrane.sliceInterlacing, turnedOn ? 0 : 1);
        EXPECT_EQ(kestrane.legacyTiming.get(), turnedOn ? std::optional(false) : std::nullopt);
        if (test.framed) {
            EXPECT_EQ(kestrane.cachedROIEnabled.get(), (kestrane.line.registers[1] & 0x40) != 0);
        }
        EXPECT_EQ(kestrane.IsROIMarginEnabled(), (kestrane.line.registers[401] & 0x20) == 0);
    }
    kestrane.line.registers[1] = 0;
    forgetCalls();
    setRegion(8, 864, 0, 1536);
    kestrane.SetROIEnabled(false);
    EXPECT_EQ(written(kestrane), (Registers{{402, 0}, {403, 864}, {404, 0}, {405, 1536}})) << "repaired on the way";
}

TEST_F(RegionOfInterest, EnabledFlagIsAskedEachTimeAndItsCacheOnce) {
    kestrane.line.registers[1] = 0x40;
    EXPECT_TRUE(kestrane.GetCachedROIEnabled());
    kestrane.line.registers[1] = 0xFFBF;
    EXPECT_TRUE(kestrane.GetCachedROIEnabled());
    EXPECT_FALSE(kestrane.IsROIEnabled());
    EXPECT_FALSE(kestrane.GetCachedROIEnabled());
}

TEST_F(RegionOfInterest, OtherDetectorsHaveTheWholePanelAndRefuseTheRest) {
    const struct {
        int model, family, width, height;
    } others[] = {{6112, 0, 3072, 864}, {6213, 1, 3072, 1944}, {5101, 1, 1536, 864}};
    for (const auto& other : others) {
        SettingsCore core(other.model, other.family);
        EXPECT_EQ(core.QueryROI(), 0);
        EXPECT_FALSE(core.IsROIEnabled());
        EXPECT_FALSE(core.GetCachedROIEnabled());
        const ROIArea panel = core.GetROIArea();
        EXPECT_EQ(panel.GetHeight(), other.height);
        EXPECT_EQ(panel.GetWidth(), other.width);
        const struct {
            const char* name;
            Change call;
        } refused[] = {
            {"GetMaximumROISize", [](auto& d) { d.SetROIArea(3072, 128); }},
            {"GetMaximumROISize", [](auto& d) { d.SetROIArea(3072, 128, 0); }},
            {"SetROIArea", [](auto& d) { d.SetROIArea(3072, 128, 0, 0); }},
            {"GetROIArea",
             [](auto& d) {
                 int i = 0;
                 d.GetROIArea(i, i, i, i);
             }},
            {"SetROIEnabled", [](auto& d) { d.SetROIEnabled(false); }},
            {"SetROIMarginEnabled", [](auto& d) { d.SetROIMarginEnabled(true); }},
            {"IsROIMarginEnabled", [](auto& d) { d.IsROIMarginEnabled(); }},
        };
        for (const auto& operation : refused) {
            const auto failure = expectFailure([&] { operation.call(core); }, notSupported, DerrBadRequest);
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->GetFunctionName(), std::string("baseDetector::") + operation.name);
        }
        EXPECT_THAT(core.line.commands, testing::Not(testing::Contains(testing::AnyOf("R1001", "R1402", "R2402"))));
        EXPECT_TRUE(core.line.writes().empty());
        EXPECT_TRUE(core.transportCalls.empty());
    }
    EXPECT_EQ(kestrane.QueryROI(), 1);
}
