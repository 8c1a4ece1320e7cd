#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>
#include <thread>

#include "support/Watchdog.h"
#include "tests/tools/StoredFrames.h"
#include "tests/tools/ToolRun.h"
#include "tools/FrameQueue.h"
#include "tools/commands.h"
#include "tools/run.h"

using testing::AllOf;
using testing::HasSubstr;

namespace {

constexpr const char* address = "sim:5101";
constexpr int heldUpFrames = 60;  // thrice the ring
constexpr int heldUpUntil = 50;

class ToolLiveFiles : public FramesFolder {
protected:
    std::string named(const std::string& extension) const { return (folder / ("frames." + extension)).string(); }

    const support::Watchdog watchdog;
};

/// Expects that each frame is the one that its field count names, as the detector exposed it.
void expectFramesOfTheirFieldCounts(const StoredFrames& stored, const std::string& detectorAddress) {
    const simulator::Profile& profile = simulator::Rack::instance().find(detectorAddress)->profile();
    const auto frame = [&](int number) {
        return simulator::patternFrame(static_cast<std::uint64_t>(number), stored.width, stored.height,
                                       profile.sensorsAcross, profile.sensorsDown);
    };
    ASSERT_FALSE(stored.frames.empty());
    ASSERT_EQ(stored.fieldCounts.size(), stored.frames.size());
    ASSERT_EQ(stored.timeStamps.size(), stored.frames.size());
    // A frame that was in progress when the run began may be lost.
    int before = 1;
    while (before < 5 && stored.frames[0] != frame(before)) ++before;
    before -= stored.fieldCounts[0];
    for (std::size_t index = 0; index < stored.frames.size(); ++index) {
        EXPECT_TRUE(stored.frames[index] == frame(before + stored.fieldCounts[index])) << "frame " << index;
        EXPECT_EQ(stored.numbers[index], stored.fieldCounts[index] - 1) << "the first frame of a run adds 2";
        if (index > 0) {
            EXPECT_GE(stored.timeStamps[index], stored.timeStamps[index - 1]);
        }
    }
    EXPECT_LT(stored.start, stored.end) << "ISO 8601 is in order as text";
}

TEST_F(ToolLiveFiles, EachFormatHoldsEveryFrameOfARegion) {
    for (const std::string extension : {"tif", "raw", "h5"})
        for (const bool callback : {false, true}) {
            SCOPED_TRACE(extension);
            simulator::Rack::instance().reset();
            std::vector<std::string> arguments{
                "-d",       "ge:sim:6112-kestrane", "live", "--count", "5", "--roi", "3072,136,304", "--exposure", "20",
                "--output", named(extension)};
            if (callback) arguments.emplace_back("--callback");
            const ToolRun run = runTool(arguments);
            ASSERT_EQ(run.status, 0) << run.err;
            const StoredFrames stored = readFrames(named(extension));
            EXPECT_EQ(stored.frames.size(), 5U);
            EXPECT_EQ(stored.height, 136);
            EXPECT_EQ(stored.firstRow, 304);
            expectFramesOfTheirFieldCounts(stored, "sim:6112-kestrane");
        }
}

TEST_F(ToolLiveFiles, AnInterruptKeepsWhatCameBeforeInEachFormat) {
    for (const std::string extension : {"raw", "h5", "png"}) {
        SCOPED_TRACE(extension);
        simulator::Rack::instance().reset();
        auto* const handlerBefore = std::signal(SIGINT, SIG_DFL);
        std::thread user([] {
            support::until([] { return simulator::Rack::instance().find(address)->ledger().delivered >= 4; });
            std::raise(SIGINT);
        });
        const ToolRun run = runTool({"-d", std::string("ge:") + address, "live", "--count", "10000", "--set",
                                     "binning=4x4", "--exposure", "20", "--output", named(extension)});
        user.join();
        std::signal(SIGINT, handlerBefore);
        EXPECT_EQ(run.status, tool::exitInterrupted) << run.err;
        if (extension == "png") {
            EXPECT_EQ(readPng(named(extension)).width, 384);
        } else {
            expectFramesOfTheirFieldCounts(readFrames(named(extension)), address);
        }
    }
}

/// A disk that does nothing about its first frame until the detector has delivered so many.
class SlowDisk : public tool::FrameFiles {
public:
    SlowDisk(std::unique_ptr<FrameFiles> behind, std::uint64_t deliveredBefore)
        : files(std::move(behind)), awaited(deliveredBefore) {}

    void write(const tool::Frame& frame) override {
        support::until([&] { return simulator::Rack::instance().find(address)->ledger().delivered >= awaited; });
        files->write(frame);
    }
    void commit() override { files->commit(); }

private:
    const std::unique_ptr<FrameFiles> files;
    const std::uint64_t awaited;
};

struct Slow {
    const char* what;
    std::int64_t queueBytes;
    bool callback;
    bool loses;
};

class ToolLiveOnASlowDisk : public ToolLiveFiles, public testing::WithParamInterface<Slow> {};

TEST_P(ToolLiveOnASlowDisk, LosesNothingThatMemoryHoldsAndTellsOfTheRest) {
    tool::LiveRequest request;
    request.preparation.detector = tool::parseDetectorAddress(std::string("ge:") + address).value();
    request.preparation.changes = {tool::parseAssignment("binning=4x4").change};
    request.preparation.exposureMs = 10.0F;
    request.count = heldUpFrames;
    request.output = tool::parseDestination({named("h5"), "", "", {}});
    request.callback = GetParam().callback;
    request.ringBytes = 1;  // no more than the library's own ring
    request.queueBytes = GetParam().queueBytes;
    request.makeFiles = [](const tool::Destination& output, const tool::RunFacts& facts, int count) {
        return std::make_unique<SlowDisk>(tool::makeFrameFiles(output, facts, count), heldUpUntil);
    };
    std::ostringstream out;
    std::ostringstream err;
    tool::Output output(out, err);
    const int status = tool::live(request, output);
    const StoredFrames stored = readFrames(named("h5"));
    expectFramesOfTheirFieldCounts(stored, address);
    if (!GetParam().loses) {
        EXPECT_EQ(status, tool::exitSuccess);
        EXPECT_EQ(stored.frames.size(), static_cast<std::size_t>(heldUpFrames));
        EXPECT_THAT(err.str(), testing::Not(HasSubstr("lost")));
        return;
    }
    EXPECT_EQ(status, tool::exitFramesLost);
    const int lost = heldUpFrames - static_cast<int>(stored.frames.size());
    EXPECT_GT(lost, 20);
    EXPECT_LT(lost, heldUpUntil);
    EXPECT_THAT(out.str(), HasSubstr("60 delivered, " + std::to_string(lost) + " skipped"));
    EXPECT_THAT(err.str(),
                AllOf(HasSubstr("lost " + std::to_string(lost) + " of 60 frames: the ring of 20 buffers"),
                      testing::ContainsRegex("because the disk wrote [0-9.]+ MB/s while [0-9.]+ MB/s came")));
}

INSTANTIATE_TEST_SUITE_P(Disks, ToolLiveOnASlowDisk,
                         testing::Values(Slow{"QueueHolds", 1 << 30, false, false},
                                         Slow{"QueueHoldsByCallback", 1 << 30, true, false},
                                         Slow{"QueueOverflows", 1, false, true},
                                         Slow{"QueueOverflowsByCallback", 1, true, true}),
                         [](const auto& slow) { return std::string(slow.param.what); });

/// Takes the numbers of frames; fails at one.
class BrokenFiles : public tool::FrameFiles {
public:
    void write(const tool::Frame& frame) override {
        if (frame.number == 2) throw std::runtime_error("cannot write: broken");
        numbers.push_back(frame.number * 10 + *frame.pixels);
    }
    void commit() override {}

    std::vector<int> numbers;
};

TEST(FrameQueueOfAFailingDisk, TellsTheProducerAndWritesNothingAfterTheFailure) {
    const support::Watchdog watchdog;
    BrokenFiles files;
    tool::FrameQueue queue(files, 1, 1);
    const auto putMany = [&] {
        for (int number = 0; number < 10; ++number) {
            const auto pixel = static_cast<std::uint16_t>(number);  // gone before it is written
            queue.put({number, number, number, {}, &pixel});
        }
    };
    EXPECT_THROW(putMany(), std::runtime_error);
    EXPECT_TRUE(queue.hasFailed());
    EXPECT_THROW(queue.finish(), std::runtime_error);
    EXPECT_EQ(files.numbers, (std::vector<int>{0, 11}));
    EXPECT_EQ(queue.account().written, 2);
}

}  // namespace
