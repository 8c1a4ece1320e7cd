#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "platform/VirtualClock.h"
#include "tests/tools/FramesFolder.h"
#include "tests/tools/Signals.h"
#include "tests/tools/ToolRun.h"

using simulator::Fault;
using testing::HasSubstr;

namespace {

class ToolSnap : public FramesFolder {
protected:
    ToolRun snap(const std::string& profile, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments{"--detector", "ge:sim:" + profile, "snap", "--output", output};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runTool(arguments);
    }
};

struct Taken {
    const char* profile;
    int count;
    std::uint32_t width;
    std::uint32_t height;

    friend std::ostream& operator<<(std::ostream& out, const Taken& taken) { return out << taken.profile; }
};

class ToolSnapOfEachPanel : public ToolSnap, public testing::WithParamInterface<Taken> {};

TEST_P(ToolSnapOfEachPanel, WritesThePatternPixelForPixelOnePagePerFrame) {
    const Taken& taken = GetParam();
    const auto detector = triggeredDetector(taken.profile);
    const simulator::Profile& profile = detector->profile();
    const ToolRun run =
        snap(taken.profile, {"--exposure", "250", "--count", std::to_string(taken.count), "--picture", "pattern"});
    ASSERT_EQ(run.status, 0) << run.err;

    const std::vector<Page> pages = readPages(output);
    ASSERT_EQ(pages.size(), static_cast<std::size_t>(taken.count));
    for (int index = 0; index < taken.count; ++index) {
        SCOPED_TRACE(index);
        const Page& page = pages[static_cast<std::size_t>(index)];
        ASSERT_EQ(page.width, taken.width);
        ASSERT_EQ(page.height, taken.height);
        EXPECT_EQ(page.bitsPerPixel, 16);
        const auto expected =
            simulator::patternFrame(static_cast<std::uint64_t>(index) + 1, static_cast<int>(taken.width),
                                    static_cast<int>(taken.height), profile.sensorsAcross, profile.sensorsDown);
        EXPECT_TRUE(page.pixels == expected);
        EXPECT_EQ(page.description.at("model"), profile.model);
        EXPECT_EQ(page.description.at("serial_number"), profile.serialNumber);
        EXPECT_NEAR(page.description.at("exposure_time_ms").get<double>(), 250.0, 0.1);
        EXPECT_EQ(page.description.at("binning"), "1x1");
        EXPECT_EQ(page.description.at("field_count"), index + 1);
        EXPECT_EQ(page.description.at("buffer"), index);
        EXPECT_EQ(page.description.at("transport"), "gige");
    }
    EXPECT_EQ(detector->ledger().delivered, static_cast<std::uint64_t>(taken.count));
    EXPECT_THAT(run.out, HasSubstr("wrote " + output));
}

INSTANTIATE_TEST_SUITE_P(Panels, ToolSnapOfEachPanel,
                         testing::Values(Taken{"5309", 1, 1536, 1944}, Taken{"6112-kestrane", 3, 3072, 864},
                                         Taken{"7127", 1, 3072, 3888}),
                         [](const auto& panel) {
                             std::string name = panel.param.profile;
                             for (char& letter : name)
                                 if (letter == '-') letter = '_';
                             return name;
                         });

TEST_F(ToolSnap, TakesARadiographFromADetectorThatRunsFreeOverAnOlderFile) {
    std::ofstream(output) << "older";
    const ToolRun run = snap("5101", {"--exposure", "40", "--count", "2", "--picture", "phantom"});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<Page> pages = readPages(output);
    ASSERT_EQ(pages.size(), 2U);
    EXPECT_NE(pages[0].pixels, simulator::patternFrame(1, 1536, 864, 1, 1));
    const auto [lowest, highest] = std::minmax_element(pages[0].pixels.begin(), pages[0].pixels.end());
    EXPECT_LT(*lowest * 4, *highest);  // dark steps of the wedge against the open field
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
}

TEST_F(ToolSnap, KeepsTheOlderFileWhenALaterFrameFails) {
    std::ofstream(output) << "older";
    triggeredDetector("5101")->faults().set(Fault::FailedFrame, {2});
    const ToolRun run = snap("5101", {"--exposure", "40", "--count", "3"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("frame 1 of 3"));
    EXPECT_THAT(run.err, HasSubstr("(code 13 DerrAcquisition;"));
    EXPECT_EQ(fs::file_size(output), 5U);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
}

/// Ten frames on the virtual clock, of a detector that exposes by the snap's trigger.
class ToolSnapInterrupted : public FramesFolder {
protected:
    ToolRun snap(const char* address = "ge:sim:5101", FlushedErrors&& errors = {}) const {
        return runTool({"-d", address, "snap", "--exposure", "40", "--count", "10", "--output", output},
                       std::move(errors));
    }

    platform::ScopedVirtualClock clock;
    const DefaultSignals signals;
};

TEST_F(ToolSnapInterrupted, EndsAfterTheFrameOrTheTimeoutAndKeepsTheFrames) {
    const struct {
        int signal;
        std::uint64_t exposed;  ///< when the signal comes
        int lost;               ///< the first frame that doesn't come
        const char* notice;
        std::size_t kept;
    } cases[] = {{SIGINT, 0, 11, "ending before the first frame", 0},
                 {SIGTERM, 1, 11, "ending after frame 2, or", 2},
                 {SIGHUP, 3, 3, "ending after frame 3, or", 2}};
    for (const char* address : {"ge:sim:5101", "cl:0"})
        for (const auto& test : cases) {
            SCOPED_TRACE(std::string(address) + ": " + test.notice);
            simulator::Rack::instance().reset();
            std::ofstream(output) << "older";
            const auto detector = triggeredDetector("5101");
            simulator::Rack::instance().mountSlot(0, detector);
            detector->faults().set(Fault::LostFrame, {test.lost, true});
            FlushedErrors errors;
            const auto isTime = [&] { return detector->ledger().exposed == test.exposed; };
            actWhen(isTime, [&] { EXPECT_TRUE(std::raise(test.signal) == 0 && errors.waitForLine()); });
            const ToolRun run = snap(address, std::move(errors));
            EXPECT_EQ(run.status, 130) << run.err;
            EXPECT_THAT(run.err, HasSubstr(test.notice));
            EXPECT_EQ(readPages(output).size(), test.kept);
            EXPECT_EQ(fs::file_size(output) == 5, test.kept == 0) << "without a frame the older file stays";
            EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
        }
}

TEST_F(ToolSnapInterrupted, ASecondSignalButNoHangUpEndsItWithoutATemporaryFile) {
    triggeredDetector("5101")->faults().set(Fault::LostFrame, {2, true});
    const auto killed = [&] {
        for (const auto& [second, signal] : {std::pair(1, SIGTERM), {2, SIGHUP}, {3, SIGINT}})
            platform::schedule(clock.now() + std::chrono::seconds(second), [signal = signal] { std::raise(signal); });
        snap();
    };
    EXPECT_EXIT(killed(), testing::KilledBySignal(SIGINT), "");
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(ToolSnapInterrupted, ASignalThatWasIgnoredStaysIgnored) {
    std::signal(SIGHUP, SIG_IGN);
    const auto detector = triggeredDetector("5101");
    actWhen([&] { return detector->ledger().exposed == 1; }, [] { std::raise(SIGHUP); });
    EXPECT_EQ(snap().status, 0);
    EXPECT_EQ(readPages(output).size(), 10U);
    EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_IGN);
}

}  // namespace
