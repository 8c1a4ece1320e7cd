#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "support/Watchdog.h"
#include "tests/tools/FramesFolder.h"
#include "tests/tools/Signals.h"
#include "tests/tools/ToolRun.h"
#include "tools/RingReader.h"

using simulator::Fault;
using testing::AllOf;
using testing::HasSubstr;

namespace {

class ToolLive : public FramesFolder {
protected:
    ToolRun live(const std::string& profile, int count, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments{
            "-d", "ge:sim:" + profile, "live", "--count", std::to_string(count), "--output", output};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runTool(arguments);
    }

    const support::Watchdog watchdog;
};

/// Expects consecutive frames of the detector, each as it exposed it.
void expectPattern(const std::vector<Page>& pages, const simulator::Profile& profile) {
    const auto frame = [&](std::uint64_t number, const Page& page) {
        return simulator::patternFrame(number, static_cast<int>(page.width), static_cast<int>(page.height),
                                       profile.sensorsAcross, profile.sensorsDown);
    };
    ASSERT_FALSE(pages.empty());
    // A frame that was in progress when the run began may be lost.
    std::uint64_t first = 1;
    while (first < 5 && pages[0].pixels != frame(first, pages[0])) ++first;
    for (std::size_t index = 0; index < pages.size(); ++index) {
        EXPECT_TRUE(pages[index].pixels == frame(first + index, pages[index])) << "page " << index;
        EXPECT_EQ(pages[index].description.at("field_count"), index + 2) << "the first frame of a run adds 2";
    }
}

struct Recorded {
    const char* profile;
    int count;
    std::vector<std::string> options;
};

class ToolLiveOfEachPanel : public ToolLive, public testing::WithParamInterface<Recorded> {};

TEST_P(ToolLiveOfEachPanel, WritesEveryFramePixelForPixel) {
    const Recorded& run = GetParam();
    const auto detector = simulator::Rack::instance().find(std::string("sim:") + run.profile);
    const ToolRun result = live(run.profile, run.count, run.options);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, AllOf(HasSubstr(std::to_string(run.count) + " delivered, 0 skipped, "),
                                  HasSubstr(" frames exposed, "), HasSubstr(" frames/s; wrote " + output)));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("\r"))) << "no progress bar where no terminal is";
    const std::vector<Page> pages = readPages(output);
    ASSERT_EQ(pages.size(), static_cast<std::size_t>(run.count));
    expectPattern(pages, detector->profile());
}

INSTANTIATE_TEST_SUITE_P(
    Panels, ToolLiveOfEachPanel,
    testing::Values(Recorded{"5101", 50, {"--exposure", "20", "--picture", "pattern"}},
                    Recorded{"5101", 50, {"--exposure", "20", "--picture", "pattern", "--callback"}},
                    Recorded{"6112-kestrane", 5, {"--exposure", "30"}}, Recorded{"7127", 2, {"--callback"}},
                    Recorded{"6112-kestrane", 5, {"--roi", "3072,128", "--exposure", "20"}},
                    Recorded{"5101", 30, {"--set", "binning=4x4", "--set", "exposure_time_ms=8", "--callback"}},
                    Recorded{"5101", 5, {"--set", "trigger_source=bits_5_and_6", "--exposure", "20", "--pulse", "30"}}),
    [](const auto& run) { return "Run" + std::to_string(run.index); });

class ToolLiveInterrupted : public ToolLive, public testing::WithParamInterface<std::pair<const char*, int>> {
    const DefaultSignals signals;
};

TEST_P(ToolLiveInterrupted, KeepsTheFramesThatCameBefore) {
    constexpr int longerThanAnybodyWaits = 10000;
    const int signal = GetParam().second;
    std::thread user([signal] {
        support::until([] { return simulator::Rack::instance().find("sim:5101")->ledger().delivered >= 4; });
        std::raise(signal);
    });
    std::vector<std::string> options{"--set", "binning=4x4", "--exposure", "20"};
    if (std::string_view(GetParam().first) == "callback") options.emplace_back("--callback");
    const ToolRun run = live("5101", longerThanAnybodyWaits, options);
    user.join();
    EXPECT_EQ(run.status, 130) << run.err;
    EXPECT_THAT(run.out, HasSubstr("interrupted"));
    const std::vector<Page> pages = readPages(output);
    EXPECT_GE(pages.size(), 2U);
    EXPECT_LT(pages.size(), 1000U);
    expectPattern(pages, simulator::Rack::instance().find("sim:5101")->profile());
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
    EXPECT_EQ(std::signal(signal, SIG_DFL), SIG_DFL) << "the previous handler is restored";
}

INSTANTIATE_TEST_SUITE_P(Ways, ToolLiveInterrupted,
                         testing::Values(std::pair("waiting", SIGINT), std::pair("callback", SIGTERM),
                                         std::pair("waiting", SIGHUP)),
                         [](const auto& way) { return way.param.first + std::to_string(way.param.second); });

TEST_F(ToolLive, AFailedFrameLeavesNoFileAndAFullDiskTheFramesBefore) {
    for (const std::vector<std::string>& way : {std::vector<std::string>{}, {"--callback"}}) {
        const auto detector = simulator::Rack::instance().find("sim:5101");
        std::vector<std::string> options{"--exposure", "20"};
        options.insert(options.end(), way.begin(), way.end());
        detector->faults().set(Fault::FailedFrame, {3});
        const ToolRun broken = live("5101", 10, options);
        detector->faults().clearAll();
        EXPECT_EQ(broken.status, 1);
        EXPECT_THAT(broken.err, HasSubstr("An error occured in the Live thread!"));
        EXPECT_TRUE(fs::is_empty(folder));

        const FileSizeLimit limit(4000000);
        const ToolRun full = live("5101", 10, options);
        EXPECT_EQ(full.status, 1);
        EXPECT_THAT(full.err, HasSubstr("File too large; " + output + " holds the 1 frame before it\n"));
        EXPECT_EQ(readPages(output).size(), 1U);
        fs::remove(output);
    }
}

/// A field count that goes through a script, one answer per question; the last answer stays.
struct Told {
    const char* what;
    int buffers;
    int frames;
    std::vector<int> fieldCounts;
    std::vector<int> kept;  ///< numbers of the frames
    int skipped;
};

TEST(RingReading, KeepsWholeFramesOnlyAndCountsTheRest) {
    constexpr int first = 9;  // the field count that tells of the first frame
    const std::vector<Told> cases{
        {"nothing yet", 4, 8, {7}, {}, 0},
        {"one frame per look", 4, 8, {9, 9, 9}, {0}, 0},
        {"several frames per look", 4, 8, {11, 11, 11, 11, 11}, {0, 1, 2}, 0},
        {"the oldest block is being refilled", 4, 8, {12, 12}, {1, 2, 3}, 1},
        {"lapped by more than a ring", 4, 20, {18, 18}, {7, 8, 9}, 7},
        {"overwritten while it was read", 4, 20, {10, 14, 14}, {3, 4, 5}, 3},
        {"the last frames of a run stay", 4, 4, {12, 12}, {0, 1, 2, 3}, 0},
        {"the last ring of a longer run stays", 4, 6, {14, 14}, {2, 3, 4, 5}, 2},
        {"one buffer for one frame", 1, 1, {9, 9}, {0}, 0},
        {"one buffer for many frames", 1, 3, {9, 9}, {}, 1},
    };
    for (const Told& told : cases) {
        SCOPED_TRACE(told.what);
        tool::RingReader reader(told.buffers, told.frames, first);
        std::size_t question = 0;
        std::vector<int> kept;
        std::vector<int> buffers;
        const auto fieldCount = [&] { return told.fieldCounts[std::min(question++, told.fieldCounts.size() - 1)]; };
        const auto keep = [&](const tool::RingReader::Frame& frame) {
            kept.push_back(frame.number);
            EXPECT_EQ(frame.buffer, frame.number % told.buffers);
            EXPECT_EQ(frame.fieldCount, first + frame.number);
        };
        reader.readAll(
            fieldCount, [&](const tool::RingReader::Frame& frame) { buffers.push_back(frame.buffer); }, keep);
        EXPECT_EQ(kept, told.kept);
        EXPECT_EQ(reader.skipped(), told.skipped);
        EXPECT_EQ(reader.delivered(), static_cast<int>(kept.size()) + told.skipped);
        EXPECT_EQ(reader.isFinished(), reader.delivered() == told.frames);
    }
}

}  // namespace
