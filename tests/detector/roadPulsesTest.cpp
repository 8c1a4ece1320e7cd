#include <gtest/gtest.h>

#include <cmath>

#include "support/TransportRig.h"

/// The pulse generator of each transport, seen from the facade and from the detector's trigger input.

using support::expectFailure;

namespace {

class Pulses : public support::VirtualRoadTest {
protected:
    Pulses() {
        detector->OpenBoard();
        detector->SetBinningMode(Bin4x4);
        detector->SetExposureTime(0.0F);
    }
    static platform::Time periodOf(float frequencyHz) {
        return std::chrono::nanoseconds(std::llround(1e9 / frequencyHz));
    }
    static constexpr double timerError = 0.011;  ///< of the coarser of the two generators
};

}  // namespace

TEST_P(Pulses, HundredEdgesComeAtTheFrequencyAskedForWhileTheGateIsOpen) {
    for (const float frequencyHz : {1.0F, 8.0F, 60.0F, 118.1F, 480.0F}) {
        detector->EnablePulseGenerator(frequencyHz);
        const platform::Time period = periodOf(frequencyHz);
        const simulator::Ledger before = hardware->ledger();
        clock.advance(10 * period);
        detector->SoftwareTrigger();
        EXPECT_EQ(hardware->ledger().edges, before.edges) << "silent until the gate opens, and mute";
        detector->ToggleGenerator(true);
        clock.advance(100 * period);
        detector->ToggleGenerator(false);
        const simulator::Ledger running = hardware->ledger();
        EXPECT_NEAR(static_cast<double>(running.edges - before.edges), 100, 100 * timerError + 1) << frequencyHz;
        clock.advance(std::chrono::seconds(1));
        const simulator::Ledger after = hardware->ledger();
        EXPECT_EQ(after.edges, running.edges) << "the gate holds the pulses back";
        const std::uint64_t ignored = after.edgesIgnored - before.edgesIgnored;
        EXPECT_EQ(after.exposed - before.exposed + ignored, after.edges - before.edges);
        const bool slowEnough = period > std::chrono::duration<float, std::milli>(detector->GetExposureTime());
        EXPECT_EQ(ignored == 0, slowEnough) << frequencyHz;
        detector->DisablePulseGenerator();
    }
    const std::uint64_t edges = hardware->ledger().edges;
    detector->SoftwareTrigger();
    EXPECT_EQ(hardware->ledger().edges, edges + 1);
}

TEST_P(Pulses, SnapsTakeTheGeneratorsFramesOnePeriodApart) {
    constexpr int frames = 100;
    for (const float frequencyHz : {4.0F, 25.0F, 90.0F}) {
        detector->EnablePulseGenerator(frequencyHz);
        expectFailure([&] { detector->Snap(0, 300); }, road.snapTimeoutText(), DerrAcquisition, road.snapTimeout());
        detector->ToggleGenerator(true);
        for (int frame = 0; frame < 2; ++frame) detector->Snap(0, 1000);  // the first may begin in a pulse's middle
        const platform::Time start = clock.now();
        for (int frame = 0; frame < frames; ++frame) detector->Snap(0, 1000);
        const double ratio = static_cast<double>((clock.now() - start).count()) /
                             static_cast<double>(frames * periodOf(frequencyHz).count());
        EXPECT_NEAR(ratio, 1, timerError) << frequencyHz;
        detector->DisablePulseGenerator();
        detector->ToggleGenerator(false);
    }
    EXPECT_EQ(hardware->ledger().delivered, 3U * (frames + 2U));
    expectBalancedLedger();
}

TEST_P(Pulses, CloseEndsThemAndImpossibleFrequenciesAreRefused) {
    const auto failure = support::failureOf([&] { detector->EnablePulseGenerator(500.1F); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->GetCode(), DerrBadRequest) << failure->what();
    detector->EnablePulseGenerator(100.0F);
    detector->ToggleGenerator(true);
    detector->CloseBoard();
    const std::uint64_t edges = hardware->ledger().edges;
    clock.advance(std::chrono::seconds(1));
    EXPECT_EQ(hardware->ledger().edges, edges);
    detector->OpenBoard();
    expectSnap(0, panelWidth() / 4, panelHeight() / 4);
}

INSTANTIATE_TEST_SUITE_P(Road, Pulses, testing::ValuesIn(support::roads({"5101-kestrane"})),
                         testing::PrintToStringParamName());
