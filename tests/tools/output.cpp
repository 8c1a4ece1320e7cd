#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <regex>

#include "platform/DataFolder.h"
#include "platform/VirtualClock.h"
#include "tests/tools/FramesFolder.h"
#include "tests/tools/ToolRun.h"
#include "tools/Output.h"

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

/// A command that reports, and what its JSON object must tell: members, null where any value will do.
struct Reported {
    std::vector<std::string> arguments;
    json members;
};

class ToolOutput : public FramesFolder {
protected:
    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
        return (folder / name).string();
    }

    static void expectMembers(const std::vector<Reported>& rows) {
        for (const Reported& row : rows) {
            SCOPED_TRACE(testing::PrintToString(row.arguments));
            std::vector<std::string> arguments = row.arguments;
            arguments.emplace_back("--json");
            const ToolRun run = runTool(arguments);
            EXPECT_THAT(run.err, IsEmpty());
            const json answer = json::parse(run.out, nullptr, false);
            ASSERT_TRUE(answer.is_object()) << run.out;
            for (const auto& [key, value] : row.members.items()) {
                ASSERT_TRUE(answer.contains(key)) << key << " in " << run.out;
                if (!value.is_null()) {
                    EXPECT_EQ(answer.at(key), value) << key;
                }
            }
        }
    }
};

TEST_F(ToolOutput, JsonOfEveryCommandIsOneObjectOfNumbersAndNames) {
    const platform::ScopedVirtualClock clock;
    simulator::Rack::instance().reset();
    const std::string bad = file("bad.cfg", "W000300004\n\n");
    const std::string good = file("good.cfg", "W000300004\n");
    const std::string image = file("image.bin", std::string(2048, 'q'));
    expectMembers({
        {{"list"}, {{"detectors", nullptr}}},
        {{"--log"}, {{"log_file", nullptr}}},
        {{"info"}, {{"model", 6112}, {"transport", "gige"}, {"capabilities", nullptr}}},
        {{"get", "binning", "test_mode"}, {{"binning", "1x1"}, {"test_mode", false}}},
        {{"set", "num_of_exposures=3", "test_mode=on"}, {{"num_of_exposures", 3}, {"test_mode", true}}},
        {{"set", "roi=3072,128,8"}, {{"roi", {{"width", 3072}, {"height", 128}, {"start_row", 8}}}}},
        {{"roi", "show"}, {{"enabled", false}, {"width_pixels", 3072}, {"height_pixels", 128}, {"start_row", 8}}},
        {{"roi", "on"}, {{"enabled", true}, {"frame_height_pixels", 128}, {"maximum_height_pixels", 864}}},
        {{"roi", "off"}, {{"margin", true}}},
        {{"pulse", "on", "20"}, {{"pulse_generator", "on"}, {"frequency_hz", 20}}},
        {{"pulse", "hold"}, {{"pulse_generator", "held"}}},
        {{"pulse", "off"}, {{"pulse_generator", "off"}}},
        {{"trigger"}, {{"triggers_sent", 1}}},
        {{"temperature", "--sensor", "1"},
         {{"temperatures", json::array({{{"sensor", 1}, {"temperature_celsius", 35.0}}})}}},
        {{"power", "reset"}, {{"power", "on"}, {"binning", "1x1"}, {"image_width_pixels", 3072}}},
        {{"-d", "cl:4", "power", "interface", "on"}, {{"camera_link_interface", "on"}}},
        {{"persistent-ip", "10.0.0.7"}, {{"persistent_address", "10.0.0.7"}}},
        {{"config", "load", bad, "--check"},
         {{"loaded", false},
          {"refused_lines", json::array({{{"line", 2}, {"reason", "an empty line is no command and no comment"}}})}}},
        {{"config", "load", good}, {{"loaded", true}, {"refused_lines", json::array()}}},
        {{"firmware", "upload", image, "--sensor", "1", "--yes"},
         {{"size_bytes", 2048}, {"blocks", 2}, {"written_blocks", 2}, {"sensor", 1}}},
        {{"register", "read", "124"}, {{"register", 124}, {"sensor", 1}, {"value", 6112}}},
        {{"register", "write", "17", "9"}, {{"register", 17}, {"value", 9}}},
        {{"register", "dump"}, {{"sensor", 1}, {"registers", nullptr}}},
        {{"send", "R1124"}, {{"command", "R1124"}, {"reply", "S06112"}}},
    });
    const json unasked = json::parse(runTool({"firmware", "upload", image, "--sensor", "1", "--json"}).out);
    EXPECT_THAT(unasked.at("error").at("text").get<std::string>(), HasSubstr("add --yes or --dry-run"));
    simulator::Rack::instance().reset();
}

TEST_F(ToolOutput, JsonOfFramesTellsTheirNumbers) {
    expectMembers({
        {{"snap", "--output", output, "--exposure", "50"}, {{"output", output}, {"frames", nullptr}}},
        {{"live", "--count", "3", "--exposure", "50", "--output", output},
         {{"delivered", 3}, {"skipped", 0}, {"output", output}, {"interrupted", false}, {"rate_hz", nullptr}}},
        {{"pulse", "run", "20", "--for", "0.1"}, {{"frames", nullptr}, {"edges", nullptr}, {"interrupted", false}}},
    });
    const json frame = json::parse(runTool({"snap", "--output", output, "--json"}).out).at("frames").at(0);
    EXPECT_EQ(frame.at("width_pixels"), 3072);
    EXPECT_TRUE(frame.at("mean_value").is_number());
}

TEST_F(ToolOutput, QuietIsResultsAlone) {
    const struct {
        std::vector<std::string> arguments;
        std::string printed;
    } rows[] = {
        {{"register", "read", "124"}, "6112\n"},
        {{"trigger"}, ""},
        {{"pulse", "on", "20"}, ""},
        {{"get", "binning"}, "binning=1x1\n"},
        {{"config", "load", file("good.cfg", "# nothing\n")}, ""},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = row.arguments;
        arguments.emplace_back("-q");
        const ToolRun run = runTool(arguments);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, row.printed);
        EXPECT_THAT(run.err, IsEmpty());
    }
    EXPECT_THAT(runTool({"snap", "-q", "--output", output}).out,
                AllOf(StartsWith("frame 1 of 1"), Not(HasSubstr("wrote"))));
    EXPECT_THAT(runTool({"-q", "register", "read", "1000"}).err, StartsWith("error: "));
}

TEST_F(ToolOutput, VerboseShowsEachCallWithItsTime) {
    const ToolRun run = runTool({"-d", "ge:sim:5101", "register", "read", "124", "--verbose"});
    EXPECT_EQ(run.out, "5101\n");
    const std::regex call(R"( +\d+\.\d{3} s  ENTER: QuorinDetector::ReadRegister\(124, 1\)\n)");
    const std::regex end(R"( +\d+\.\d{3} s  EXIT: QuorinDetector::ReadRegister -> 5101\n)");
    EXPECT_TRUE(std::regex_search(run.err, call)) << run.err;
    EXPECT_TRUE(std::regex_search(run.err, end));
    const ToolRun failed = runTool({"-v", "--json", "-d", "ge:sim:nothing", "info"});
    EXPECT_THAT(failed.err, HasSubstr("EXCEPTION: Problem Opening Connection"));
    EXPECT_EQ(json::parse(failed.out).at("error").at("code"), 5);
    EXPECT_THAT(runTool({"-d", "ge:sim:5101", "info"}).err, IsEmpty()) << "for its own command alone";
}

/// What a command line of the program itself prints, and its status.
std::string shell(const std::string& arguments) {
    return printedBy("(" QRAPI_COMMAND " " + arguments + "); echo status $?");
}

TEST_F(ToolOutput, OfAStandardOutputThatFailsIsAFailure) {
    const struct {
        const char* arguments;
        const char* reason;
    } rows[] = {
        {"list 2>&1 >/dev/full", "No space left on device"},
        {"--help 2>&1 >/dev/full", "No space left on device"},
        {"info --json cl:3 2>&1 >/dev/full", "No space left on device"},
        {"list 2>&1 >&-", "Bad file descriptor"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(shell(row.arguments),
                  std::string("error: cannot write to the standard output: ") + row.reason + "\nstatus 1\n");
    EXPECT_THAT(shell("snap cl:3 --exposure 40 --output " + output + " 2>&1 >&-"), HasSubstr("status 1"));
    EXPECT_EQ(readPages(output).size(), 1U) << "no text went into the file in place of the closed stream";
}

TEST_F(ToolOutput, TellsOnceThatThereIsNoLogAndWhy) {
    const struct {
        platform::DataFolder folder;
        const char* reason;
    } rows[] = {
        {{-EACCES, ""}, "the folder of the log is not known: Permission denied"},
        {{0, file("data", "no folder")}, "data/Selvo can't be made: Not a directory"},
    };
    for (const auto& row : rows) {
        const platform::ScopedDataFolder home(row.folder.path, row.folder.result);
        const ToolRun run = runTool({"info", "ge:sim:5101"});
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.err, AllOf(StartsWith("warning: no log is written: "), HasSubstr(row.reason)));
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
    }
    EXPECT_THAT(runTool({"info", "ge:sim:5101"}).err, IsEmpty());
}

TEST_F(ToolOutput, HasNeitherColourNorProgressBesidesATerminal) {
    std::ostringstream out;
    std::ostringstream err;
    tool::Output plain(out, err);
    EXPECT_EQ(plain.painted("failed", tool::Tone::Bad), "failed");
    EXPECT_EQ(plain.terminal(), nullptr);
}

}  // namespace
