#include <gmock/gmock.h>

#include <functional>

#include "support/SettingsRig.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::SettingsCore;
using testing::ElementsAre;

namespace {

using Registers = std::map<int, int>;
using Change = void (*)(baseDetector&);

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
        {[](auto& d) { d.SetROIArea(2048, 128); }, "width must be 3072"},
        {[](auto& d) { d.SetROIArea(3072, 865, 737, 8); }, "height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, 127, 737, 8); }, "height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, -2147483647 - 1); }, "height must be between 128 and 864"},
        {[](auto& d) { d.SetROIArea(3072, 130, -1, 8); }, "start row must be between 0 and 736"},
        {[](auto& d) { d.SetROIArea(3072, 202, 700, 8); }, "start column must be 0"},
        {[](auto& d) { d.SetROIArea(3072, 200, 700); }, "is outside of sensor area"},
        {[](auto& d) { d.SetROIArea(3072, 130, 700); }, "height must be a multiple of 8"},
    };
    for (const auto& test : cases) {
        const auto failure = expectFailure([&] { test.change(kestrane); },
                                           std::string("Cannot set ROI: ROI ") + test.text, DerrBadRequest);
        ASSERT_TRUE(failure);
        EXPECT_STREQ(failure->GetFunctionName(), "baseDetector::SetROIArea");
        EXPECT_STREQ(failure->GetTransportMessage(), "");
    }
    EXPECT_TRUE(kestrane.line.writes().empty());
    EXPECT_TRUE(kestrane.transportCalls.empty());
    EXPECT_FALSE(kestrane.cachedROIArea.get());
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
        EXPECT_EQ(kestrane.IsROIMarginEnabled(), (kestrane.line.registers[401] & 0x20) == 0);
    }
}

TEST_F(RegionOfInterest, OtherDetectorsHaveTheWholePanelAndRefuseTheRest) {
    const struct {
        int model, family, width, height;
    } others[] = {{6112, 0, 3072, 864}, {6213, 1, 3072, 1944}, {5101, 1, 1536, 864}};
    for (const auto& other : others) {
        SettingsCore core(other.model, other.family);
        EXPECT_EQ(core.QueryROI(), 0);
        EXPECT_FALSE(core.IsROIEnabled());
        const ROIArea panel = core.GetROIArea();
        EXPECT_EQ(panel.GetHeight(), other.height);
        EXPECT_EQ(panel.GetWidth(), other.width);
        int i = 0;
        const std::pair<const char*, std::function<void()>> refused[] = {
            {"GetMaximumROISize", [&] { core.SetROIArea(3072, 128); }},
            {"SetROIArea", [&] { core.SetROIArea(3072, 128, 0, 0); }},
            {"GetROIArea", [&] { static_cast<baseDetector&>(core).GetROIArea(i, i, i, i); }},
            {"SetROIEnabled", [&] { core.SetROIEnabled(false); }},
            {"SetROIMarginEnabled", [&] { core.SetROIMarginEnabled(true); }},
            {"IsROIMarginEnabled", [&] { core.IsROIMarginEnabled(); }}};
        for (const auto& [name, call] : refused) {
            const auto failure = expectFailure(call, "This detector does not support ROI", DerrBadRequest);
            EXPECT_EQ(failure->GetFunctionName(), std::string("baseDetector::") + name);
        }
        EXPECT_THAT(core.line.commands, testing::Not(testing::Contains(testing::AnyOf("R1001", "R1402", "R2402"))));
        EXPECT_TRUE(core.line.writes().empty());
        EXPECT_TRUE(core.transportCalls.empty());
    }
    EXPECT_EQ(kestrane.QueryROI(), 1);
}
