#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "platform/DataFolder.h"
#include "tests/tools/ToolRun.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

struct Refused {
    std::vector<std::string> arguments;
    std::string named;  ///< what the text on stderr must name
};

TEST(ToolCommandLine, ABadOneEndsWithStatus2AndNamesWhatIsWrong) {
    const std::vector<Refused> lines{
        {{}, "list, info, snap, live"},
        {{"--nonsense", "list"}, "--nonsense"},
        {{"list", "info"}, "info"},
        {{"--detector", "sim:6112", "info"}, "ge:<address>"},
        {{"--detector", "cl:-1", "info"}, "cl:<unit>"},
        {{"--detector", "cl:99999999999", "info"}, "cl:<unit>"},
        {{"snap"}, "--output"},
        {{"snap", "--output", "/nowhere/at/all.tif"}, "/nowhere/at"},
        {{"snap", "--output", "/dev/null"}, "no regular file"},
        {{"snap", "--output", "/tmp/refused.tif", "--count", "0"}, "--count"},
        {{"snap", "--output", "/tmp/refused.tif", "--count", "2.5"}, "--count"},
        {{"snap", "--output", "/tmp/refused.tif", "--exposure", "nan"}, "--exposure"},
        {{"snap", "--output", "/tmp/refused.tif", "--exposure", "-1"}, "--exposure"},
        {{"snap", "--output", "/tmp/refused.tif", "--exposure", "long"}, "--exposure"},
        {{"snap", "--output", "/tmp/refused.tif", "--picture", "cat"}, "pattern or phantom"},
        {{"-d", "ge:10.0.0.7", "snap", "--output", "/tmp/refused.tif", "--picture", "phantom"}, "--picture"},
        {{"power", "interface", "maybe"}, "STATE"},
        {{"persistent-ip", "10.0.0.256"}, "four numbers of 0 to 255"},
        {{"persistent-ip", "10.0.0.1."}, "four numbers of 0 to 255"},
    };
    for (const Refused& line : lines) {
        SCOPED_TRACE(testing::PrintToString(line.arguments));
        const ToolRun run = runTool(line.arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.err, HasSubstr(line.named));
        EXPECT_THAT(run.out, IsEmpty());
    }
}

TEST(ToolCommandLine, AFailedCallEndsWithStatus1AndTellsTextCodeAndTransportError) {
    const std::vector<Refused> failing{
        {{"-d", "cl:10", "info"}, "(code 11 DerrGrabberSetup;"},
        {{"-d", "ge:sim:5101", "power", "interface", "on"}, "(code 2 DerrWrongTransport;"},
        {{"-d", "cl:3", "persistent-ip", "10.0.0.2"}, "(code 2 DerrWrongTransport;"},
        {{"-d", "ge:sim:6213", "info"}, "There is no readout time stored for these detector settings. (code 4"},
        {{"-d", "ge:sim:unknown", "info"}, "transport error 4:"},
        {{"-d", "ge:sim:unknown", "snap", "--picture", "phantom", "--output", "/tmp/never.tif"}, "(code 5"},
    };
    for (const Refused& line : failing) {
        SCOPED_TRACE(testing::PrintToString(line.arguments));
        const ToolRun run = runTool(line.arguments);
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.err, StartsWith("error: "));
        EXPECT_THAT(run.err, HasSubstr(line.named));
        EXPECT_THAT(run.out, IsEmpty());
    }
}

TEST(ToolCommandLine, HelpVersionAndTheLogsPathGoToStandardOutput) {
    EXPECT_THAT(runTool({"--help"}).out, HasSubstr("snap"));
    EXPECT_THAT(runTool({"snap", "--help"}).out, HasSubstr("--picture"));
    EXPECT_THAT(runTool({"--version"}).out, StartsWith("qrapi "));
    EXPECT_EQ(runTool({"--help"}).status, 0);
    const platform::ScopedDataFolder folder("/data/of/somebody");
    EXPECT_EQ(runTool({"--log"}).out, "/data/of/somebody/Selvo/QRAPI/qrapi_log.txt\n");
    const platform::ScopedDataFolder missing("", -2);
    EXPECT_EQ(runTool({"--log"}).status, 1);
}

/// With nothing in the rack but what the profiles give.
class ToolInfo : public testing::Test {
protected:
    void SetUp() override { simulator::Rack::instance().reset(); }
};
using ToolList = ToolInfo;

TEST_F(ToolList, ShowsWhatEachSimulatedDetectorIs) {
    const ToolRun run = runTool({"list"});
    EXPECT_EQ(run.status, 0);
    for (const std::string& address : simulator::Rack::instance().gigeAddresses())
        EXPECT_THAT(run.out, HasSubstr("ge:" + address + " "));
    EXPECT_THAT(run.out, testing::ContainsRegex("ge:sim:5309 +5309 +1536 x 1944 +plain +5\n"));
    EXPECT_THAT(run.out, testing::ContainsRegex("ge:sim:6112-kestrane +6112 +3072 x 864 +kestrane +11121\n"));
}

TEST_F(ToolInfo, TakesTheDefaultDetectorAndSaysSoOnStandardError) {
    const ToolRun run = runTool({"info"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, HasSubstr("ge:sim:6112-kestrane"));
    EXPECT_THAT(run.out, testing::ContainsRegex("model +6112\n"));
    EXPECT_THAT(run.out, testing::ContainsRegex("firmware_build +2024\\.6112\\.11121\n"));
    EXPECT_THAT(runTool({"info", "--detector", "ge:sim:5309"}).err, IsEmpty());
}

TEST_F(ToolInfo, JsonTellsWhatEachProfileIs) {
    for (const std::string& address : simulator::Rack::instance().gigeAddresses()) {
        SCOPED_TRACE(address);
        const auto detector = simulator::Rack::instance().find(address);
        const simulator::Profile& profile = detector->profile();
        const ToolRun run = runTool({"--detector", "ge:" + address, "info", "--json"});
        ASSERT_EQ(run.status, 0) << run.err;
        const json facts = json::parse(run.out);
        EXPECT_EQ(facts.at("model"), profile.model);
        EXPECT_EQ(facts.at("serial_number"), profile.serialNumber);
        EXPECT_EQ(facts.at("firmware_version"), profile.firmwareVersion);
        EXPECT_EQ(facts.at("firmware_build"), json(profile.firmwareBuild));
        EXPECT_EQ(facts.at("electronics"), profile.isKestrane() ? "kestrane" : "plain");
        EXPECT_EQ(facts.at("transport"), "gige");
        EXPECT_EQ(facts.at("image_width_pixels"), profile.sensorWidth * profile.sensorsAcross);
        EXPECT_EQ(facts.at("image_height_pixels"), profile.sensorHeight * profile.sensorsDown);
        EXPECT_EQ(facts.at("default_image_width_pixels"), facts.at("image_width_pixels"));
        EXPECT_EQ(facts.at("binning"), "1x1");
        EXPECT_EQ(facts.at("buffers"), 20);
        EXPECT_NEAR(facts.at("readout_time_ms").get<double>(), detector->readoutTimeMs(), 0.002);
        EXPECT_GE(facts.at("minimum_exposure_ms"), facts.at("readout_time_ms"));
        EXPECT_GE(facts.at("exposure_time_ms"), facts.at("minimum_exposure_ms"));
    }
}

TEST_F(ToolInfo, JsonTellsCapabilitiesAsYesNoOrNotReported) {
    simulator::Profile wordless = *simulator::findProfile("5309");
    wordless.featureWord36 = 0;
    simulator::Rack::instance().mount("sim:wordless", simulator::SimulatedDetector::create(wordless));
    const json silent = json::parse(runTool({"-d", "ge:sim:wordless", "info", "--json"}).out).at("capabilities");
    EXPECT_EQ(silent.at("linearization"), nullptr);
    EXPECT_THAT(runTool({"-d", "ge:sim:wordless", "info"}).out,
                testing::ContainsRegex("linearization +not reported\n"));
    const json older = json::parse(runTool({"-d", "ge:sim:5309", "info", "--json"}).out).at("capabilities");
    EXPECT_EQ(older.at("binning").at("2x2"), true);
    EXPECT_EQ(older.at("binning").at("1x2"), false);
    EXPECT_EQ(older.at("linearization"), false);
    const json newer = json::parse(runTool({"-d", "ge:sim:6112-kestrane", "info", "--json"}).out).at("capabilities");
    EXPECT_EQ(newer.at("binning").at("1x2"), true);
    EXPECT_EQ(newer.at("temperature_reporting"), true);
}

}  // namespace
