#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/tools/ToolRun.h"
#include "tools/nearest.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/// A mistake that a user can make, and the words that help out of it.
struct Mistake {
    std::vector<std::string> arguments;
    int status;
    std::string said;
};

const std::vector<Mistake>& mistakes() {
    static const std::vector<Mistake> rows{
        {{"inof"}, 2, R"(qrapi has no command "inof"; did you mean "info"? There are list, info, snap)"},
        {{"temp"}, 2, R"(did you mean "temperature"?)"},
        {{"xyzzy"}, 2, R"(qrapi has no command "xyzzy"; there are list, info)"},
        {{"roi", "shwo"}, 2, R"(qrapi roi has no command "shwo"; did you mean "show"? There are show, set, on)"},
        {{"roi"}, 2, "qrapi roi needs a command behind it: show, set, on, off, margin"},
        {{"list", "info"}, 2, R"(qrapi list takes no further argument "info")"},
        {{"snap", "--ouput", "x.tif"}, 2, R"(qrapi snap has no option "--ouput"; did you mean "--output"?)"},
        {{"snap", "--xyz"},
         2,
         R"(has no option "--xyz"; there are -h, --help, --exposure, --count, --picture, --output, )"
         R"(--format, --window, --compress, --set, --roi, --pulse, --version, -d, --detector)"},
        {{"snap", "--detectr=cl:3"}, 2, R"(has no option "--detectr"; did you mean "--detector"?)"},
        {{"snap"}, 2, R"(--output is required; "qrapi snap --help" tells what is allowed)"},
        {{"snap", "--output", "x.tif", "--count", "2.5"}, 2, R"(--count: "2.5" is no whole number)"},
        {{"snap", "--output", "x.tif", "--exposure", "long"}, 2, R"(--exposure: "long" is no number;)"},
        {{"register", "read", "x"}, 2, R"(N: "x" is no number;)"},
        {{"register", "read", "1000"}, 2, "N: must be between 0 and 999"},
        {{"--quiet", "--verbose", "list"}, 2, "--quiet and --verbose: only one"},
        {{"-d", "sim:6112", "info"}, 2, R"(--detector: sim:6112 is none; did you mean "ge:sim:6112"? Allowed is ge:)"},
        {{"-d", "", "info"}, 2, "--detector: it is empty; allowed is ge:<address>"},
        {{"selftest", "cl:x"}, 2, "ADDRESS: cl:x is none;"},
        {{"info", "sim:6112"}, 2, R"(ADDRESS: sim:6112 is none; did you mean "ge:sim:6112"?)"},
        {{"snap", "--output", "-", "--format", "raw"},
         2,
         "--output: - is refused, since files don't go to the standard"},
        {{"report", "cl:3", "--output", "-"}, 2, "--output: - is refused"},
        {{"temperature", "--sensor", "77"}, 2, "model 6112 has no temperature of sensor 77; allowed is 1 to 3"},
        {{"-d", "ge:sim:5101", "temperature", "--sensor", "0"}, 2, "of sensor 0; allowed is 1"},
        {{"set", "exposure_time_ms=1e9"}, 1, "exposure_time_ms: 1000000000 ms is too long; the longest is 21474850 ms"},
        {{"live", "--count", "1", "--exposure", "21474852", "--output", "x.tif"}, 1, "the longest is 21474850 ms"},
        {{"set", "pre_programmed_exposure_times_ms=100,3e7"}, 1, "30000000 ms is too long; the longest is 21474850 ms"},
        {{"-d", "cl:3", "selftest", "cl:3"}, 2, "ADDRESS: the detector is named twice"},
        {{"set", "binnning=2x2"}, 2, R"(binnning is no setting; did you mean "binning"? Allowed are binning, exp)"},
        {{"set", "trigger_source=bits_claer"}, 2, R"("bits_claer" is no value of it; did you mean "bits_clear"?)"},
        {{"set", "binning=2x3"}, 2, R"(binning: "2x3" is no value of it; allowed is 1x1, 1x2)"},
        {{"set", "test_mode"}, 2, "test_mode: NAME=VALUE is needed, such as binning=2x2"},
        {{"roi", "margin", "of"}, 2, R"(STATE: "of" is none; did you mean "off"? Allowed is on, off)"},
        {{"report", "cl:3", "--output", "x.zip"}, 2, "x.zip doesn't end with .tar.gz or .tgz"},
        {{"report", "cl:3", "--output", "x.tgz", "--log-lines", "-1"}, 2, "--log-lines: must be between 0 and 1000000"},
        {{"config", "load", "/nowhere.cfg"}, 1, "/nowhere.cfg: there is no such file"},
        {{"firmware", "upload", "/tmp", "--sensor", "1", "--yes"}, 1, "/tmp: is a directory; a file is needed"},
        {{"-d", "ge:sim:6122", "info"}, 1, R"(no detector at ge:sim:6122; did you mean "ge:sim:6112"? There are ge:)"},
        {{"-d", "ge:10.0.0.9", "info"}, 1, "no detector at ge:10.0.0.9; there are ge:sim:5101, "},
        {{"-d", "ge:10.0.0.9", "info"}, 1, "for one on the network look at address, cable and power"},
        {{"-d", "cl:12", "info"}, 1, "no frame grabber has the unit number 12; there are cl:0, cl:1"},
        {{"-d", "ge:sim:6213", "info"}, 1, "hint: this model has no readout times for this setting on this transport"},
        {{"-d", "ge:sim:5101", "roi", "show"}, 1, "hint: \"qrapi info\" tells under region_of_interest"},
        {{"roi", "set", "300", "128"}, 1, "hint: allowed are the panel's width, a height from 128 on in steps of 8"},
        {{"set", "gap_time_ms=99999"}, 1, "hint: allowed are up to 1638.3 ms plus the readout time"},
        {{"pulse", "on", "501"}, 1, "hint: allowed are up to 500 Hz on GigE"},
        {{"-d", "cl:4", "pulse", "on", "501"},
         1,
         "hint: allowed are up to 500 Hz on GigE and less than 500 Hz on Camera"},
        {{"send", "R12345678901234567890123"}, 1, "hint: a command has 1 to 23 characters"},
        {{"-d", "ge:sim:5101", "power", "interface", "on"}, 1, "hint: this is for detectors on Camera Link alone"},
        {{"-d", "cl:3", "persistent-ip", "10.0.0.2"}, 1, "hint: this is for GigE detectors alone: name one by -d ge:"},
    };
    return rows;
}

class ToolErrors : public testing::Test {
protected:
    void SetUp() override { simulator::Rack::instance().reset(); }
};

TEST_F(ToolErrors, TellWhatIsWrongAndWhatWouldBeRight) {
    for (const Mistake& mistake : mistakes()) {
        SCOPED_TRACE(testing::PrintToString(mistake.arguments));
        const ToolRun run = runTool(mistake.arguments);
        EXPECT_EQ(run.status, mistake.status);
        EXPECT_THAT(run.err, HasSubstr("error: "));
        EXPECT_THAT(run.err, HasSubstr(mistake.said));
        EXPECT_THAT(run.out, IsEmpty());
    }
}

TEST_F(ToolErrors, AreOneObjectUnderJson) {
    for (const Mistake& mistake : mistakes()) {
        SCOPED_TRACE(testing::PrintToString(mistake.arguments));
        std::vector<std::string> arguments{"--json"};
        arguments.insert(arguments.end(), mistake.arguments.begin(), mistake.arguments.end());
        const ToolRun run = runTool(arguments);
        EXPECT_EQ(run.status, mistake.status);
        EXPECT_THAT(run.err, IsEmpty());
        const json error = json::parse(run.out).at("error");
        EXPECT_FALSE(error.at("text").get<std::string>().empty());
        for (const char* key : {"code", "code_name", "transport_error", "transport_message", "function", "hint"})
            EXPECT_TRUE(error.contains(key)) << key;
        if (mistake.status == 2) {
            EXPECT_EQ(error.at("code"), nullptr);
        }
    }
}

TEST_F(ToolErrors, OfADisturbedDetectorNameTheRemedy) {
    using simulator::Fault;
    const struct {
        Fault fault;
        std::vector<std::string> command;
        const char* said;
    } rows[] = {
        {Fault::RefusedConnect, {"info"}, "hint: another program may have the detector open"},
        {Fault::SilentLine, {"info"}, "hint: the detector doesn't answer: look at its power and cable"},
        {Fault::RefusedExposure, {"set", "exposure_time_ms=200"}, "hint: the detector didn't take the exposure time"},
    };
    for (const auto& row : rows) {
        const auto detector = simulator::Rack::instance().find("sim:6112-kestrane");
        ASSERT_EQ(runTool({"info"}).status, 0);
        detector->faults().set(row.fault, {1, true});
        const ToolRun run = runTool(row.command);
        detector->faults().clearAll();
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.err, HasSubstr(row.said));
    }
}

TEST(ToolNearest, IsAGuessOnlyWhereItIsLikely) {
    const std::vector<std::string> names{"info", "snap", "live", "temperature", "trigger", "1x1", "ge:sim:6112"};
    const struct {
        const char* typed;
        const char* meant;
    } rows[] = {
        {"inof", "info"},
        {"INFO", "info"},
        {"snpa", "snap"},
        {"temprature", "temperature"},
        {"te", "temperature"},
        {"triger", "trigger"},
        {"t", ""},
        {"", ""},
        {"open", ""},
        {"3x3", ""},
        {"ge:sim:6122", "ge:sim:6112"},
        {"liv", "live"},
    };
    for (const auto& row : rows) EXPECT_EQ(tool::nearestOf(row.typed, names), row.meant) << row.typed;
    EXPECT_EQ(tool::nearestOf(std::string(100000, 'x'), names), "");
}

}  // namespace
