#include <algorithm>
#include <cmath>
#include <numeric>

#include "SimulatorFixture.h"
#include "simulator/Picture.h"

namespace {

using simulator::Fault;
using simulator::FrameFate;
using simulator::Ledger;
using simulator::patternFrame;
using simulator::patternPixel;

class Frames : public SimulatorTest {
protected:
    Frames() {
        setWindowCount(1000);
        detector->setReadoutTimeMs(5);
    }
};

TEST_F(Frames, AppearAfterWindowAndReadout) {
    selectTrigger();
    receiveFrames();
    detector->injectEdge();
    setWindowCount(9000);  // too late for the frame in progress
    pass(14.99);
    EXPECT_TRUE(frames.empty());
    pass(0.02);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].number, 1U);
    EXPECT_EQ(frames[0].pixels, patternFrame(1, 3072, 864, 2, 1));
    pass(1000);
    EXPECT_EQ(frames.size(), 1U);
}

TEST_F(Frames, TakeTheGeometryOfTheirBeginning) {
    selectTrigger();
    receiveFrames();
    detector->injectEdge();
    detector->writeRegister(403, 128);
    detector->writeRegister(1, 64);
    pass(20);
    detector->injectEdge();
    pass(20);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].height, 864);
    EXPECT_EQ(frames[1].height, 128);
    EXPECT_EQ(frames[1].pixels.size(), 3072U * 128U);
}

TEST_F(Frames, IgnoreEdgesThatComeWhileOneIsInProgress) {
    selectTrigger();
    receiveFrames();
    for (const bool level : {true, true, false, true}) detector->setTriggerInput(level);
    detector->injectEdge();
    pass(20);
    detector->setTriggerInput(false);
    detector->setTriggerInput(true);
    pass(20);
    const Ledger ledger = detector->ledger();
    EXPECT_EQ(ledger.edges, 4U);
    EXPECT_EQ(ledger.edgesIgnored, 2U);
    EXPECT_EQ(ledger.exposed, 2U);
    EXPECT_EQ(ledger.delivered, 2U);
}

TEST_F(Frames, RunFreeBackToBackWhileSomebodyReceives) {
    pass(1000);
    EXPECT_EQ(detector->ledger().exposed, 0U);
    receiveFrames();
    pass(45);
    EXPECT_EQ(frames.size(), 3U);
    selectTrigger();
    pass(100);
    EXPECT_EQ(frames.size(), 4U) << "the one in progress, then none without an edge";
    detector->writeRegister(0, 0);
    pass(15);
    EXPECT_EQ(frames.size(), 5U);
    detector->setFrameReceiver(nullptr);
    pass(1000);
    EXPECT_EQ(detector->ledger().exposed, 6U);
    EXPECT_EQ(detector->ledger().lostNoReceiver, 1U);
    detector->injectEdge();
    pass(1000);
    EXPECT_EQ(detector->ledger().lostNoReceiver, 2U);
    expectBalanced();
}

TEST_F(Frames, AreCountedByTheirFate) {
    selectTrigger();
    for (const FrameFate fate : {FrameFate::Delivered, FrameFate::Delivered, FrameFate::NoBuffer, FrameFate::NoReceiver,
                                 FrameFate::InFlight}) {
        receiveFrames(fate);
        detector->injectEdge();
        pass(20);
    }
    detector->faults().set(Fault::LostFrame);
    detector->injectEdge();
    pass(20);
    detector->reportDropped(1);
    const Ledger ledger = detector->ledger();
    EXPECT_EQ(frames.size(), 5U);
    EXPECT_EQ(ledger.exposed, 6U);
    EXPECT_EQ(ledger.delivered, 1U);
    EXPECT_EQ(ledger.lostNoBuffer, 1U);
    EXPECT_EQ(ledger.lostNoReceiver, 1U);
    EXPECT_EQ(ledger.lostInFlight, 2U);
    EXPECT_EQ(ledger.lostByFault, 1U);
    expectBalanced();
}

TEST_F(Frames, ComeIncompleteWhenTruncatedOrFailed) {
    receiveFrames();
    detector->faults().set(Fault::TruncatedFrame, {2, false, 0, 1.0});
    detector->faults().set(Fault::FailedFrame, {3, false, 0, 1.0});
    pass(60);
    ASSERT_EQ(frames.size(), 4U);
    const bool complete[] = {frames[0].complete, frames[1].complete, frames[2].complete, frames[3].complete};
    EXPECT_TRUE(complete[0] && !complete[1] && !complete[2] && complete[3]);
    const std::vector<std::uint16_t> whole = patternFrame(2, 3072, 864, 2, 1);
    const auto half = static_cast<std::ptrdiff_t>(whole.size() / 2);
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + half, frames[1].pixels.begin()));
    EXPECT_EQ(std::accumulate(frames[1].pixels.begin() + half, frames[1].pixels.end(), 0L), 0);
}

TEST_F(Frames, EndWithTheDetectorAndWithinTheirOwnReceiver) {
    int calls = 0;
    detector->setFrameReceiver([&](const simulator::Frame&) {
        ++calls;
        detector->setFrameReceiver(nullptr);
        return FrameFate::Delivered;
    });
    pass(100);
    EXPECT_EQ(calls, 1);
    receiveFrames();
    pass(10);
    detector.reset();
    pass(100);
    EXPECT_TRUE(frames.empty());
}

TEST(Pattern, ChangesWithEveryArgument) {
    for (const std::uint64_t frame : {0ULL, 1ULL, 16383ULL, 1ULL << 40U})
        for (int sensor = 1; sensor <= 6; ++sensor)
            for (int row = 0; row < 1944; row += 97)
                for (int column = 0; column < 1536; column += 61) {
                    const std::uint16_t pixel = patternPixel(frame, sensor, row, column);
                    ASSERT_LE(pixel, simulator::highestPixel);
                    ASSERT_NE(pixel, patternPixel(frame + 1, sensor, row, column));
                    ASSERT_NE(pixel, patternPixel(frame, sensor + 1, row, column));
                    ASSERT_NE(pixel, patternPixel(frame, sensor, row + 1, column));
                    ASSERT_NE(pixel, patternPixel(frame, sensor, row, column + 1));
                }
}

TEST(Pattern, FillsThePanelSensorBySensor) {
    const std::vector<std::uint16_t> pixels = patternFrame(9, 300, 200, 3, 2);
    ASSERT_EQ(pixels.size(), 300U * 200U);
    EXPECT_EQ(pixels[0], patternPixel(9, 1, 0, 0));
    EXPECT_EQ(pixels[99 * 300 + 199], patternPixel(9, 2, 99, 99));
    EXPECT_EQ(pixels[100 * 300 + 200], patternPixel(9, 6, 0, 0));
    EXPECT_EQ(pixels[199 * 300 + 299], patternPixel(9, 6, 99, 99));
}

class PhantomFrames : public SimulatorTest {
protected:
    void takePhantoms(std::size_t count) {
        use("6112-kestrane");
        frames.clear();
        detector->setPicture(simulator::Picture::Phantom);
        detector->writeRegister(10, 4);
        detector->writeRegister(9, 4);
        detector->writeRegister(5, 514);
        receiveFrames();
        while (frames.size() < count) pass(10);
    }
};

TEST_F(PhantomFrames, LookTheSameButForTheirNoise) {
    takePhantoms(2);
    ASSERT_EQ(frames[0].pixels.size(), 768U * 216U);
    double difference = 0;
    double lowest = 16384;
    double highest = 0;
    for (std::size_t i = 0; i < frames[0].pixels.size(); ++i) {
        const double first = frames[0].pixels[i];
        const double step = first - frames[1].pixels[i];
        difference += step * step;
        lowest = std::min(lowest, first);
        highest = std::max(highest, first);
    }
    difference = std::sqrt(difference / static_cast<double>(frames[0].pixels.size()));
    EXPECT_GT(difference, 5);
    EXPECT_LT(difference, 200);
    EXPECT_LT(lowest, 1000);
    EXPECT_GT(highest, 10000);
    EXPECT_LE(highest, simulator::highestPixel);

    const std::vector<std::uint16_t> first = frames[0].pixels;
    takePhantoms(1);
    EXPECT_EQ(frames[0].pixels, first);
}

}  // namespace
