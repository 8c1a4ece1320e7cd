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
    detector->injectEdge();
    detector->writeRegister(403, 128);
    detector->writeRegister(1, 64);
    pass(100);
    detector->injectEdge();
    pass(100);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[1].height, 864) << "the geometry of its beginning";
    EXPECT_EQ(frames[2].pixels.size(), 3072U * 128U);
}

TEST_F(Frames, IgnoreEdgesThatComeWhileOneIsInProgress) {
    selectTrigger();
    receiveFrames();
    for (const bool level : {true, true, false, true}) detector->setTriggerInput(level);
    detector->injectEdge();
    pass(20);
    for (const bool level : {false, true}) detector->setTriggerInput(level);
    pass(20);
    const Ledger ledger = detector->ledger();
    EXPECT_EQ(ledger.edges, 4U);
    EXPECT_EQ(ledger.edgesIgnored, 2U);
    EXPECT_EQ(ledger.delivered, 2U);
    expectBalanced();
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
    const std::uint64_t fates[] = {ledger.delivered, ledger.lostNoBuffer, ledger.lostNoReceiver, ledger.lostInFlight,
                                   ledger.lostByFault};
    EXPECT_TRUE(std::equal(std::begin(fates), std::end(fates), std::begin({1, 1, 1, 2, 1})));
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
    EXPECT_EQ(pixels[99 * 300 + 199], patternPixel(9, 2, 99, 99));
    EXPECT_EQ(pixels[100 * 300 + 200], patternPixel(9, 6, 0, 0));
}

TEST_F(Frames, OfThePhantomLookTheSameButForTheirNoise) {
    const auto takePhantoms = [this](std::size_t count) {
        use("6112-kestrane");
        frames.clear();
        detector->setPicture(simulator::Picture::Phantom);
        for (const int reg : {10, 9}) detector->writeRegister(reg, 4);
        detector->writeRegister(5, 514);
        receiveFrames();
        while (frames.size() < count) pass(10);
    };
    takePhantoms(2);
    ASSERT_EQ(frames[0].pixels.size(), 768U * 216U);
    const std::vector<std::uint16_t> first = frames[0].pixels;
    const auto squareOfStep = [](double one, double other) { return (one - other) * (one - other); };
    const double squares =
        std::inner_product(first.begin(), first.end(), frames[1].pixels.begin(), 0.0, std::plus<>(), squareOfStep);
    EXPECT_NEAR(std::sqrt(squares / static_cast<double>(first.size())), 100, 95);
    const auto [lowest, highest] = std::minmax_element(first.begin(), first.end());
    EXPECT_LT(*lowest, 1000);
    EXPECT_GT(*highest, 10000);
    EXPECT_LE(*highest, simulator::highestPixel);
    takePhantoms(1);
    EXPECT_EQ(frames[0].pixels, first);
}

}  // namespace
