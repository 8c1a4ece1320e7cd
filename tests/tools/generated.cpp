#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/tools/FramesFolder.h"
#include "tests/tools/ToolRun.h"
#include "tools/CommandLine.h"
#include "tools/settings.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// What a shell command prints, on both streams.
std::string printed(const std::string& command) {
    return printedBy(command + " 2>&1");
}

bool isInstalled(const std::string& program) {
    return !printed("command -v " + program).empty();
}

/// Each text that the build makes from the commands, and what checks it.
class ToolGenerated : public FramesFolder {
protected:
    std::string made(const std::string& what) const {
        const ToolRun run = runTool({"--generate", what});
        EXPECT_EQ(run.status, 0) << run.err;
        const std::string path = (folder / what).string();
        std::ofstream(path) << run.out;
        return path;
    }
    static std::string text(const std::string& what) { return runTool({"--generate", what}).out; }
};

TEST_F(ToolGenerated, ManPageRendersWithoutAWarning) {
    if (!isInstalled("groff")) GTEST_SKIP() << "groff is not installed";
    EXPECT_EQ(printed("groff -ww -man -Tutf8 " + made("man") + " >/dev/null"), "");
    const std::string page = printed("groff -man -Tascii -P-cbou " + made("man"));
    for (const std::string heading : {"NAME", "SYNOPSIS", "OPTIONS", "COMMANDS", "SETTINGS", "EXIT STATUS"})
        EXPECT_THAT(page, HasSubstr("\n" + heading + "\n"));
    EXPECT_THAT(page, AllOf(HasSubstr("qrapi snap [ADDRESS] --output FILE|DIR [options]"),
                            HasSubstr("qrapi pulse run HZ --for SEC")));
}

TEST_F(ToolGenerated, TextsTellEveryCommandOptionAndSetting) {
    const tool::CommandLine line;
    std::string man = std::regex_replace(text("man"), std::regex(R"(\\-)"), "-");
    man = std::regex_replace(man, std::regex(R"(\\f[BIR])"), "");
    const std::string bash = text("bash");
    const std::string zsh = text("zsh");
    std::set<std::string> commands;
    for (const CLI::App* command : tool::allCommands(line.app)) {
        const std::string path = tool::commandPath(*command);
        commands.insert(path);
        SCOPED_TRACE(path);
        EXPECT_THAT(bash, HasSubstr("'" + path + "') echo"));
        if (!path.empty()) {
            EXPECT_THAT(man, HasSubstr(".SS \"" + path + "\"\n"));
            EXPECT_THAT(zsh, HasSubstr("                '" + command->get_name() + ":"));
        }
        for (const CLI::Option* option : tool::dashedOptions(*command))
            for (const std::string& name : tool::optionNames(*option)) {
                if (name != "-h" && name != "--help") {
                    EXPECT_THAT(man, HasSubstr(name));
                }
                EXPECT_THAT(zsh, HasSubstr(name + "["));
                EXPECT_THAT(bash, HasSubstr(name));
            }
    }
    EXPECT_THAT(commands, testing::IsSupersetOf({"list", "roi margin", "power interface", "selftest", "report"}));
    for (const tool::Setting& setting : tool::settings()) {
        EXPECT_THAT(man, HasSubstr(".TP\n" + std::string(setting.name) + "\n"));
        EXPECT_THAT(bash, HasSubstr(std::string(setting.name) + "="));
    }
}

struct Typed {
    const char* line;
    std::vector<std::string> offered;
};

TEST_F(ToolGenerated, BashCompletesWhatWasTyped) {
    if (!isInstalled("bash")) GTEST_SKIP() << "bash is not installed";
    const std::string script = made("bash");
    std::ofstream(folder / "frames_of_today.tif") << "";
    const std::vector<Typed> rows{
        {"qrapi sel", {"selftest"}},
        {"qrapi roi ", {"margin", "off", "on", "set", "show"}},
        {"qrapi roi margin o", {"off", "on"}},
        {"qrapi --json -d ge:sim:5101 pulse r", {"run"}},
        {"qrapi -d ge:sim:6112-", {"6112-kestrane"}},
        {"qrapi snap --detector cl:9", {"9"}},
        {"qrapi selftest ge:sim:53", {"5309"}},
        {"qrapi snap --pi", {"--picture"}},
        {"qrapi snap --picture ph", {"phantom"}},
        {"qrapi roi --set lega", {"legacy_timing="}},
        {"qrapi roi show --set legacy_timing=", {"off", "on"}},
        {"qrapi set binn", {"binning="}},
        {"qrapi set binning=2x2_", {"2x2_flagged"}},
        {"qrapi get test", {"test_mode"}},
        {"qrapi pulse run --qui", {"--quiet"}},
        {"qrapi snap --output frames_of", {"frames_of_today.tif"}},
        {"qrapi list nothing", {""}},
    };
    for (const Typed& row : rows) {
        const std::string command = "cd " + folder.string() + " && bash --norc -c 'source " + script +
                                    "; COMP_LINE=\"" + row.line +
                                    "\"; COMP_POINT=${#COMP_LINE}; _qrapi; printf \"%s\\n\" \"${COMPREPLY[@]}\"'";
        std::istringstream lines(printed(command));
        std::vector<std::string> offered;
        for (std::string name; std::getline(lines, name);) offered.push_back(name);
        EXPECT_EQ(offered, row.offered) << row.line;
    }
}

TEST_F(ToolGenerated, ZshAndBashTakeTheScripts) {
    EXPECT_EQ(printed("bash -n " + made("bash")), "");
    if (!isInstalled("zsh")) GTEST_SKIP() << "zsh is not installed";
    EXPECT_EQ(printed("zsh -n " + made("zsh")), "");
    // Every specification is one that _arguments understands; it answers outside of a completion with that alone.
    EXPECT_EQ(
        printed("zsh -f -c '_arguments() { print -l -- \"$@\"; }; source " + made("zsh") + "' | grep -c '^--json\\['"),
        "1\n");
}

}  // namespace
