#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/tools/ToolRun.h"
#include "tools/settings.h"

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// With nothing in the rack but what the profiles give.
class ToolSettings : public testing::Test {
protected:
    void SetUp() override { simulator::Rack::instance().reset(); }

    static ToolRun on(const std::string& profile, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"-d", "ge:sim:" + profile});
        return runTool(arguments);
    }
    static int registerOf(const std::string& profile, int reg) {
        return simulator::Rack::instance().find("sim:" + profile)->readRegister(reg);
    }
};

struct Kept {
    const char* name;
    std::vector<const char*> values;  ///< set one after the other on the same detector
};

TEST_F(ToolSettings, EveryOneCanBeSetAndReadBack) {
    const std::vector<Kept> rows{
        {"binning", {"1x2", "2x2", "4x4", "1x1"}},
        {"exposure_time_ms", {"250", "100"}},
        {"exposure_mode", {"bits_3_and_4", "bit_13", "bit_12", "bits_clear"}},
        {"trigger_source", {"bits_5_and_6", "bits_5_and_7", "bits_clear"}},
        {"full_well_mode", {"bit_2_set", "bit_2_clear"}},
        {"readout_mode", {"bit_3_set", "bit_3_clear"}},
        {"gap_time_ms", {"40", "120"}},
        {"num_of_exposures", {"1", "65535", "3"}},
        {"pre_programmed_exposure_times_ms", {"100,200,300,400"}},
        {"slice_interlacing", {"off", "on"}},
        {"legacy_timing", {"off", "on"}},
        {"test_mode", {"on", "off"}},
        {"pixel_frame_counter", {"on", "off"}},
        {"linearization", {"off", "on"}},
        {"xtalk_correction", {"on", "off"}},
        {"roi", {"3072,128,16", "3072,864,0"}},
        {"roi_enabled", {"on", "off"}},
        {"roi_margin", {"off", "on"}},
    };
    std::set<std::string> covered;
    for (const Kept& row : rows) {
        covered.insert(row.name);
        for (const std::string value : row.values) {
            const std::string assignment = std::string(row.name) + "=" + value;
            const ToolRun changed = on("6112-kestrane", {"set", assignment});
            EXPECT_EQ(changed.status, 0) << assignment << ": " << changed.err;
            const json answer = json::parse(on("6112-kestrane", {"get", row.name, "--json"}).out).at(row.name);
            const std::string text = on("6112-kestrane", {"get", row.name}).out;
            EXPECT_EQ(changed.out, text) << "set prints what get says";
            if (answer.is_number_float())
                EXPECT_NEAR(answer.get<double>(), std::stod(value), 0.1) << assignment;
            else if (answer.is_array())
                EXPECT_EQ(json::parse("[" + value + "]").size(), answer.size()) << assignment;
            else
                EXPECT_EQ(text, assignment + "\n");
        }
    }
    for (const tool::Setting& setting : tool::settings())
        EXPECT_EQ(covered.count(std::string(setting.name)), 1U) << setting.name << " has no row";
}

TEST_F(ToolSettings, AreAllListedByGetAndByHelp) {
    const json all = json::parse(on("5101", {"get", "--json"}).out);
    const std::string text = on("5101", {"get"}).out;
    const std::string help = runTool({"set", "--help"}).out;
    for (const tool::Setting& setting : tool::settings()) {
        const std::string name(setting.name);
        EXPECT_TRUE(all.contains(name)) << name;
        EXPECT_THAT(text, HasSubstr(name + "="));
        EXPECT_THAT(help, AllOf(HasSubstr(name + "=" + setting.allowed()), HasSubstr(std::string(setting.help))));
        EXPECT_THAT(help, HasSubstr(setting.unit.empty() ? "" : "[" + std::string(setting.unit) + "]"));
    }
    EXPECT_EQ(all.at("roi"), nullptr);
    EXPECT_THAT(text, HasSubstr("roi=not supported\n"));
    EXPECT_EQ(on("5101", {"get", "test_mode", "binning"}).out, "test_mode=off\nbinning=1x1\n");
}

TEST_F(ToolSettings, OfACommandLineAreInForceForItsCommand) {
    const json facts = json::parse(
        on("6112-kestrane", {"info", "--json", "--set", "binning=2x2", "--set", "exposure_time_ms=300"}).out);
    EXPECT_EQ(facts.at("image_width_pixels"), 1536);
    EXPECT_NEAR(facts.at("exposure_time_ms").get<double>(), 300.0, 0.1);
    simulator::Rack::instance().reset();
    const ToolRun region = on("6112-kestrane", {"get", "roi", "roi_enabled", "--roi", "3072,256,8"});
    EXPECT_EQ(region.out, "roi=3072,256,8\nroi_enabled=on\n");
}

TEST_F(ToolSettings, RegionOfInterestIsShownAfterEachChange) {
    const struct {
        std::vector<std::string> command;
        const char* said;
    } steps[] = {
        {{"roi", "show"}, "off, 3072 x 864 pixels from row 0, margin on; at most 3072 x 864; a frame has 3072 x 864"},
        {{"roi", "set", "3072", "128"}, "off, 3072 x 128 pixels from row 368, margin on;"},
        {{"roi", "set", "3072", "256", "8"}, "off, 3072 x 256 pixels from row 8, margin on;"},
        {{"roi", "on"}, "on, 3072 x 256 pixels from row 8, margin on; at most 3072 x 864; a frame has 3072 x 256"},
        {{"roi", "margin", "off"}, "on, 3072 x 256 pixels from row 8, margin off;"},
        {{"roi", "off"}, "off, 3072 x 256 pixels from row 8, margin off; at most 3072 x 864; a frame has 3072 x 864"},
    };
    for (const auto& step : steps) EXPECT_THAT(on("6112-kestrane", step.command).out, HasSubstr(step.said));
    EXPECT_THAT(on("5101", {"roi", "show"}).err, HasSubstr("This detector does not support ROI (code 4"));
    EXPECT_THAT(on("6112-kestrane", {"roi", "set", "3072", "130"}).err, HasSubstr("multiple of 8 (code 4"));
}

TEST_F(ToolSettings, PulsesAndTriggersReachTheDetector) {
    const auto detector = triggeredDetector("5101");
    EXPECT_EQ(on("5101", {"trigger"}).out, "trigger sent\n");
    EXPECT_EQ(detector->ledger().edges, 1U);
    const ToolRun run = on("5101", {"pulse", "run", "20", "--for", "0.5", "--set", "exposure_time_ms=20"});
    EXPECT_EQ(run.status, 0) << run.err;
    int frames = 0;
    int edges = 0;
    int duringFrames = 0;
    ASSERT_EQ(std::sscanf(run.out.c_str(), "%d frames from %d edges, %d of them", &frames, &edges, &duringFrames), 3);
    // Ten periods fit; a loaded machine may take some of them.
    EXPECT_GE(edges, 5);
    EXPECT_LE(edges, 11);
    EXPECT_GE(frames, 1);
    EXPECT_LE(frames + duringFrames, edges);
    EXPECT_EQ(on("5101", {"pulse", "on", "20"}).status, 0);
    EXPECT_EQ(on("5101", {"pulse", "hold"}).status, 0);
    EXPECT_EQ(on("5101", {"pulse", "off"}).status, 0);
    const ToolRun tooFast = on("5101", {"pulse", "on", "501"});
    EXPECT_EQ(tooFast.status, 1);
    EXPECT_THAT(tooFast.err, HasSubstr("The frequency you are trying to use is too high! (code 4"));
}

struct Refused {
    std::vector<std::string> arguments;
    std::string named;  ///< what the text on stderr must name
};

TEST(ToolSettingsLine, ABadOneEndsWithStatus2BeforeAnythingIsOpened) {
    const std::vector<Refused> lines{
        {{"set"}, "NAME=VALUE"},
        {{"set", "binning"}, "NAME=VALUE is needed"},
        {{"set", "colour=red"}, "colour is no setting; allowed are binning, exposure_time_ms"},
        {{"set", "binning=3x3"}, "allowed is 1x1, 1x2"},
        {{"set", "binning=1x1", "test_mode=maybe"}, "allowed is on, off"},
        {{"set", "exposure_time_ms=nan"}, "a number from 0 on (ms)"},
        {{"set", "gap_time_ms=12ms"}, "a number from 0 on"},
        {{"set", "num_of_exposures=0"}, "1 to 65535"},
        {{"set", "pre_programmed_exposure_times_ms=5"}, "2 to 4"},
        {{"set", "pre_programmed_exposure_times_ms=1,2,3,4,5"}, "2 to 4"},
        {{"get", "colour"}, "colour is no setting"},
        {{"info", "--pulse", "0"}, "--pulse"},
        {{"roi", "margin", "wide"}, "STATE"},
        {{"pulse", "on", "0"}, "HZ"},
        {{"pulse", "run", "10"}, "--for"},
        {{"live", "--output", "/tmp/refused.tif"}, "--count"},
        {{"live", "--count", "5", "--output", "/nowhere/at/all.tif"}, "/nowhere/at"},
    };
    for (const Refused& line : lines) {
        SCOPED_TRACE(testing::PrintToString(line.arguments));
        // An address that fails with status 1 as soon as anything is opened.
        std::vector<std::string> arguments{"-d", "ge:sim:unknown"};
        arguments.insert(arguments.end(), line.arguments.begin(), line.arguments.end());
        const ToolRun run = runTool(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.err, HasSubstr(line.named));
        EXPECT_THAT(run.out, IsEmpty());
    }
}

}  // namespace
