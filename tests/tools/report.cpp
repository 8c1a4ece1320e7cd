#include <archive.h>
#include <archive_entry.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "tests/tools/FramesFolder.h"
#include "tests/tools/ToolRun.h"

using nlohmann::json;
using simulator::Fault;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// Name and content of each file of an archive.
std::map<std::string, std::string> unpacked(const std::string& path) {
    std::map<std::string, std::string> files;
    const std::unique_ptr<archive, decltype(&archive_read_free)> reader(archive_read_new(), archive_read_free);
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_format_tar(reader.get());
    constexpr std::size_t blockBytes = 10240;
    EXPECT_EQ(archive_read_open_filename(reader.get(), path.c_str(), blockBytes), ARCHIVE_OK) << path;
    archive_entry* entry = nullptr;
    while (archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
        std::string content(static_cast<std::size_t>(archive_entry_size(entry)), '\0');
        archive_read_data(reader.get(), content.data(), content.size());
        files[archive_entry_pathname(entry)] = content;
    }
    return files;
}

class ToolReport : public FramesFolder {
protected:
    void SetUp() override {
        FramesFolder::SetUp();
        output = (folder / "report.tar.gz").string();
    }
    ToolRun report(const std::string& address, std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {"report", address, "--output", output});
        return runTool(more);
    }
    json part(const std::string& name) const {
        return json::parse(unpacked(output).at("qrapi-report/" + name + ".json"));
    }
};

TEST_F(ToolReport, HoldsWhatIsKnownOfADetectorAsTextAndAsJson) {
    ASSERT_EQ(runTool({"info", "ge:sim:5101"}).status, 0);
    const ToolRun run = report("ge:sim:6112-kestrane", {"--log-lines", "20"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "wrote " + output + ", 11 files\n");
    const std::map<std::string, std::string> files = unpacked(output);
    const struct {
        const char* file;
        const char* line;
    } lines[] = {
        {"versions.txt", "tool "},
        {"versions.txt", "distribution "},
        {"detector.txt", "model "},
        {"detector.txt", "capabilities\n"},
        {"settings.txt", "binning=1x1\n"},
        {"registers.txt", "124   6112  model number\n"},
        {"log.txt", "EXIT: "},
        {"summary.txt", "address: ge:sim:6112-kestrane\n"},
    };
    for (const auto& [file, line] : lines) EXPECT_THAT(files.at(std::string("qrapi-report/") + file), HasSubstr(line));
    EXPECT_EQ(part("detector").at("detector").at("model"), 6112);
    EXPECT_EQ(part("settings").at("settings").at("test_mode"), false);
    EXPECT_EQ(part("registers").at("registers").size(), 41U);
    EXPECT_EQ(part("versions").at("error"), nullptr);
    EXPECT_EQ(part("summary").at("summary").at("failures"), json::array());
    const std::string& log = files.at("qrapi-report/log.txt");
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 20);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
}

TEST_F(ToolReport, QuotesTheLogFromBeforeItsOwnCalls) {
    ASSERT_EQ(runTool({"-d", "ge:sim:5101", "send", "R1124"}).status, 0);
    ASSERT_EQ(report("ge:sim:6112-kestrane", {"--log-lines", "100"}).status, 0);
    const std::string log = unpacked(output).at("qrapi-report/log.txt");
    EXPECT_THAT(log, HasSubstr("SERIAL: R1124 -> S05101"));
    EXPECT_THAT(log, testing::Not(HasSubstr("6112")));
}

TEST_F(ToolReport, OfADetectorThatCannotBeOpenedHoldsTheFailure) {
    const ToolRun run = report("ge:sim:nothing");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, StartsWith("not in it: detector: Problem Opening Connection to Detector! (code 5"));
    const json error = part("detector").at("error");
    EXPECT_EQ(error.at("code"), 5);
    EXPECT_EQ(error.at("code_name"), "DerrTransport");
    EXPECT_THAT(error.at("hint").get<std::string>(), HasSubstr("there are ge:sim:5101"));
    EXPECT_EQ(unpacked(output).count("qrapi-report/log.txt"), 1U);
    EXPECT_EQ(unpacked(output).count("qrapi-report/registers.json"), 0U);
}

TEST_F(ToolReport, KeepsTheRegistersThatWereReadBeforeAFailure) {
    const ToolRun sound = report("ge:sim:6112-kestrane", {"--json"});
    const json told = json::parse(sound.out);
    EXPECT_EQ(told.at("output"), output);
    EXPECT_EQ(told.at("files").size(), 11U);
    const auto detector = simulator::Rack::instance().find("sim:6112-kestrane");
    // Only the dump reads so many registers in a row.
    int reads = 0;
    for (int occasion = 1; occasion < 400 && reads == 0; occasion += 20) {
        detector->faults().set(Fault::ForeignReply, {occasion, true});
        const ToolRun run = report("ge:sim:6112-kestrane", {"--json"});
        detector->faults().clearAll();
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_FALSE(json::parse(run.out).at("failures").empty()) << "occasion " << occasion;
        const auto files = unpacked(output);
        if (files.count("qrapi-report/registers.json") == 0) continue;
        const json registers = part("registers");
        EXPECT_NE(registers.at("error"), nullptr);
        reads = static_cast<int>(registers.at("registers").size());
    }
    EXPECT_GT(reads, 0);
    EXPECT_LT(reads, 41);
}

TEST_F(ToolReport, LeavesNoFileWhenItCannotBeWritten) {
    {
        const FileSizeLimit limit(100);
        const ToolRun full = report("ge:sim:5101");
        EXPECT_EQ(full.status, 1);
        EXPECT_THAT(full.err, StartsWith("error: cannot write " + output + ": "));
    }
    EXPECT_TRUE(fs::is_empty(folder));
    const struct {
        const char* name;
        const char* said;
    } refused[] = {
        {"report.zip", "doesn't end with .tar.gz or .tgz"},
        {"nowhere/report.tar.gz", "there is no directory"},
    };
    for (const auto& [name, said] : refused) {
        output = (folder / name).string();
        const ToolRun run = report("ge:sim:5101");
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.err, HasSubstr(said));
    }
}

}  // namespace
