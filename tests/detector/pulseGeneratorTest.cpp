#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "detector/PleoraDetector.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/ScriptedPleora.h"
#include "support/expectFailure.h"

using support::expectFailure;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char* enableText = "Problem enabling pulse generator!";
constexpr const char* disableText = "Problem disabling pulse generator!";
constexpr const char* tooHighText = "The frequency you are trying to use is too high!";
constexpr const char* frequencyText = "Unable to set pulse-generator to desired frequency!";

/// The scripted seam with a timer: it reports what its granularity makes of it, or what a test wants.
class TimedPleora final : public support::ScriptedPleora {
public:
    double reportedHz = 0.0;  ///< 0: what the granularity gives

    PvResult Dev_GetFloatValue(PvString name, double& value) override {
        constexpr double granuleSeconds = 60e-6;
        value = reportedHz;
        if (reportedHz == 0.0)
            value = 1.0 / (static_cast<double>(integers["TimerGranularityFactor"] + 1) * granuleSeconds);
        return ScriptedPleora::Dev_GetFloatValue(name, value);
    }
};

class TestDetector : public PleoraDetector {
public:
    explicit TestDetector(const char* address) : PleoraDetector(address, nullptr) {}
    using PleoraDetector::pleoraLib;
    using PleoraDetector::pulseGeneratorEnabled;
    using PleoraDetector::softwareTriggerEnabled;
    using PleoraDetector::startThread;
};

class PulseGenerator : public testing::Test {
protected:
    PulseGenerator() : pleora(std::make_shared<TimedPleora>()), detector("10.0.0.2") {
        detector.pleoraLib = pleora;
        detector.startThread = [](const auto&) { return std::make_unique<std::thread>([] {}); };
        pleora->line.registers = {{124, 5101}, {126, 1}, {9, 1}, {10, 1}, {11, 9000}};
        detector.OpenBoard();
        pleora->calls.clear();
    }
    platform::ScopedVirtualClock clock;
    std::shared_ptr<TimedPleora> pleora;
    TestDetector detector;
};

}  // namespace

TEST_F(PulseGenerator, EnablingWiresTheTimerSetsItAndMutesTheSoftwareTrigger) {
    detector.EnablePulseGenerator(100.0F);
    EXPECT_THAT(pleora->calls, ElementsAre("PLC_Q4_Operator0 = And", "PLC_Q4_Variable1 = PLC_I7",
                                           "TimerSelector = Timer1", "TimerTriggerSource = Continuous",
                                           "TimerTriggerActivation = FallingEdge", "TimerGranularityFactor = 165",
                                           "TimerDurationRaw = 1000", "TimerDelayRaw = 1000", "TimerFrequency?"));
    EXPECT_TRUE(detector.pulseGeneratorEnabled);
    pleora->calls.clear();
    detector.SoftwareTrigger();
    EXPECT_TRUE(pleora->calls.empty());
    detector.ToggleGenerator(true);
    detector.ToggleGenerator(false);
    EXPECT_THAT(pleora->calls, ElementsAre("PLC_ctrl0 = true", "PLC_ctrl0 = false"));
}

TEST_F(PulseGenerator, FactorIsWorkedOutInSinglePrecision) {
    const struct {
        float frequencyHz;
        int factor;
    } cases[] = {{500.0F, 32},  {1.0F, 16665},    {60.0F, 276},
                 {0.5F, 33332}, {0.01F, 1666665}, {1.187F, 14040}};  // in double precision the last would be 14039
    for (const auto& test : cases) {
        detector.EnablePulseGenerator(test.frequencyHz);
        EXPECT_EQ(pleora->integers["TimerGranularityFactor"], test.factor) << test.frequencyHz;
    }
}

TEST_F(PulseGenerator, ImpossibleFrequencyIsRefusedBeforeTheTimerIsSetAndDisablingIsTheCure) {
    for (const float frequencyHz : {500.1F, std::numeric_limits<float>::infinity(), 0.0F, -1.0F, 1e-7F,
                                    std::numeric_limits<float>::quiet_NaN()}) {
        pleora->calls.clear();
        const auto failure =
            expectFailure([&] { detector.EnablePulseGenerator(frequencyHz); }, tooHighText, DerrBadRequest);
        ASSERT_TRUE(failure) << frequencyHz;
        EXPECT_STREQ(failure->GetFunctionName(), "PleoraDetector::configurePGFrequency");
        EXPECT_THAT(failure->what(), HasSubstr("through PleoraDetector::EnablePulseGenerator)"));
        EXPECT_EQ(pleora->calls.size(), 5U) << "the wiring is in place by then, the timer isn't touched";
        EXPECT_FALSE(detector.softwareTriggerEnabled);
        EXPECT_FALSE(detector.pulseGeneratorEnabled);
    }
    detector.DisablePulseGenerator();
    pleora->calls.clear();
    detector.SoftwareTrigger();
    EXPECT_THAT(pleora->calls, ElementsAre("PLC_ctrl0 = true", "PLC_ctrl0 = false"));
}

TEST_F(PulseGenerator, ReportedFrequencyMayBeTwentyPerCentOff) {
    for (const double reportedHz : {80.0, 120.0}) {
        pleora->reportedHz = reportedHz;
        EXPECT_NO_THROW(detector.EnablePulseGenerator(100.0F)) << reportedHz;
    }
    for (const double reportedHz : {79.9, 120.1, 1e-300}) {
        pleora->reportedHz = reportedHz;
        expectFailure([&] { detector.EnablePulseGenerator(100.0F); }, frequencyText, DerrTransport, 0);
    }
}

TEST_F(PulseGenerator, FailedCallTellsItsResultAndLeavesALiveRunPaused) {
    const struct {
        const char* call;
        const char* text;
        const char* function;
    } cases[] = {
        {"PLC_Q4_Operator0 = And", enableText, "PleoraDetector::EnablePulseGenerator"},
        {"PLC_Q4_Variable1 = PLC_I7", enableText, "PleoraDetector::EnablePulseGenerator"},
        {"TimerSelector = Timer1", enableText, "PleoraDetector::EnablePulseGenerator"},
        {"TimerTriggerSource = Continuous", enableText, "PleoraDetector::EnablePulseGenerator"},
        {"TimerTriggerActivation = FallingEdge", enableText, "PleoraDetector::EnablePulseGenerator"},
        {"TimerGranularityFactor = 165", frequencyText, "PleoraDetector::configurePGFrequency"},
        {"TimerDurationRaw = 1000", frequencyText, "PleoraDetector::configurePGFrequency"},
        {"TimerDelayRaw = 1000", frequencyText, "PleoraDetector::configurePGFrequency"},
        {"TimerFrequency?", frequencyText, "PleoraDetector::configurePGFrequency"},
    };
    detector.GoLiveSeq();
    for (const auto& test : cases) {
        pleora->State_Start();
        pleora->calls.clear();
        pleora->failing = test.call;
        const auto failure = expectFailure([&] { detector.EnablePulseGenerator(100.0F); }, test.text, DerrTransport, 5);
        ASSERT_TRUE(failure) << test.call;
        EXPECT_STREQ(failure->GetFunctionName(), test.function);
        EXPECT_STREQ(failure->GetTransportMessage(), "scripted failure");
        EXPECT_THAT(failure->what(), HasSubstr("through PleoraDetector::EnablePulseGenerator)"));
        EXPECT_EQ(pleora->calls.front(), "State_Stop");
        EXPECT_EQ(pleora->calls.back(), test.call) << "nothing after the failure";
        EXPECT_FALSE(detector.softwareTriggerEnabled);
        EXPECT_FALSE(detector.pulseGeneratorEnabled);
    }
    pleora->failing.clear();
    pleora->calls.clear();
    detector.EnablePulseGenerator(100.0F);
    EXPECT_EQ(pleora->calls.back(), "State_Start") << "the run goes on";
    EXPECT_TRUE(detector.IsLive());
}

TEST_F(PulseGenerator, DisablingEndsTheRunWaitsFor50MsAndUnwires) {
    detector.GoLiveSeq();
    detector.EnablePulseGenerator(100.0F);
    for (const char* call : {"PLC_Q4_Operator0 = Or", "PLC_Q4_Variable1 = Zero"}) {
        pleora->failing = call;
        const auto failure = expectFailure([&] { detector.DisablePulseGenerator(); }, disableText, DerrTransport, 5);
        ASSERT_TRUE(failure);
        EXPECT_THAT(failure->what(), HasSubstr("through PleoraDetector::DisablePulseGenerator)"));
        EXPECT_FALSE(detector.IsLive());
        EXPECT_TRUE(detector.pulseGeneratorEnabled);
        EXPECT_FALSE(detector.softwareTriggerEnabled);
    }
    pleora->failing.clear();
    for (int round = 0; round < 2; ++round) {  // the second finds nothing to disable
        pleora->calls.clear();
        const platform::Time before = clock.now();
        detector.DisablePulseGenerator();
        EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(50));
        EXPECT_THAT(pleora->calls, ElementsAre("PLC_Q4_Operator0 = Or", "PLC_Q4_Variable1 = Zero"));
        EXPECT_TRUE(detector.softwareTriggerEnabled);
        EXPECT_FALSE(detector.pulseGeneratorEnabled);
    }
}

TEST_F(PulseGenerator, ClosingDisablesItFirst) {
    detector.EnablePulseGenerator(100.0F);
    pleora->calls.clear();
    detector.CloseBoard();
    ASSERT_GE(pleora->calls.size(), 3U);
    EXPECT_THAT((std::vector<std::string>(pleora->calls.begin(), pleora->calls.begin() + 3)),
                ElementsAre("PLC_Q4_Operator0 = Or", "PLC_Q4_Variable1 = Zero", "IP_Close"));
    detector.OpenBoard();
    EXPECT_TRUE(detector.softwareTriggerEnabled);
}

TEST_F(PulseGenerator, TriggerAndGateTellTheirFailuresAndNeedAnOpenBoard) {
    for (const char* call : {"PLC_ctrl0 = true", "PLC_ctrl0 = false"}) {
        pleora->failing = call;
        expectFailure([&] { detector.SoftwareTrigger(); }, "Problem Sending Software Trigger!", DerrTransport, 5);
        const auto failure = expectFailure([&] { detector.ToggleGenerator(std::string(call) == "PLC_ctrl0 = true"); },
                                           "Problem toggling pulse generator!", DerrTransport, 5);
        EXPECT_STREQ(failure->GetFunctionName(), "PleoraDetector::ToggleGenerator");
    }
    pleora->failing.clear();
    detector.CloseBoard();
    pleora->calls.clear();
    for (const auto& call : std::vector<std::function<void()>>{
             [&] { detector.SoftwareTrigger(); }, [&] { detector.ToggleGenerator(true); },
             [&] { detector.EnablePulseGenerator(1.0F); }, [&] { detector.DisablePulseGenerator(); },
             [&] { detector.configurePGFrequency(1.0F); }})
        expectFailure(call, "OpenBoard must be called before doing any detector operations.", DerrTransport);
    EXPECT_TRUE(pleora->calls.empty());
}

namespace {

class SimulatedPulses : public testing::Test {
protected:
    SimulatedPulses() : detector("sim:5101-kestrane") {
        detector.OpenBoard();
        detector.SetBinningMode(Bin4x4);
        detector.SetTriggerSource(TriggerBits5And6);
        detector.SetExposureTime(0.0F);
    }
    ~SimulatedPulses() override { detector.CloseBoard(); }

    platform::Time periodOfFeature() {
        double frequencyHz = 0.0;
        EXPECT_TRUE(detector.pleoraLib->Dev_GetFloatValue("TimerFrequency", frequencyHz).IsOK());
        return std::chrono::nanoseconds(std::llround(1e9 / frequencyHz));
    }

    struct FreshRack {
        FreshRack() { simulator::Rack::instance().reset(); }
        ~FreshRack() { simulator::Rack::instance().reset(); }
    };
    platform::ScopedVirtualClock clock;
    FreshRack rack;
    std::shared_ptr<simulator::SimulatedDetector> hardware = simulator::Rack::instance().find("sim:5101-kestrane");
    TestDetector detector;
};

}  // namespace

TEST_F(SimulatedPulses, HundredEdgesComeAtTheFrequencyOfTheFeatures) {
    for (const float frequencyHz : {1.0F, 8.0F, 60.0F, 118.1F, 500.0F}) {
        detector.EnablePulseGenerator(frequencyHz);
        const platform::Time period = periodOfFeature();
        EXPECT_NEAR(1e9 / static_cast<double>(period.count()), frequencyHz, frequencyHz * 0.011F);
        const simulator::Ledger before = hardware->ledger();
        clock.advance(10 * period);
        EXPECT_EQ(hardware->ledger().edges, before.edges) << "silent until the gate opens";
        detector.ToggleGenerator(true);
        clock.advance(100 * period);
        detector.ToggleGenerator(false);
        const simulator::Ledger running = hardware->ledger();
        EXPECT_EQ(running.edges - before.edges, 100U) << frequencyHz;
        clock.advance(std::chrono::seconds(1));
        const simulator::Ledger after = hardware->ledger();
        EXPECT_EQ(after.edges, running.edges) << "the gate holds the pulses back";
        const std::uint64_t ignored = after.edgesIgnored - before.edgesIgnored;
        EXPECT_EQ(after.exposed - before.exposed + ignored, 100U);
        const bool slowEnough = period > std::chrono::duration<float, std::milli>(detector.GetExposureTime());
        EXPECT_EQ(ignored == 0, slowEnough) << frequencyHz;
        detector.DisablePulseGenerator();
    }
}

TEST_F(SimulatedPulses, SnapsTakeTheGeneratorsFramesOnePeriodApart) {
    for (const float frequencyHz : {4.0F, 25.0F, 90.0F}) {
        detector.EnablePulseGenerator(frequencyHz);
        const platform::Time period = periodOfFeature();
        expectFailure([&] { detector.Snap(0, 300); }, "Problem Snapping Image!", DerrAcquisition, 30);
        detector.ToggleGenerator(true);
        detector.Snap(0, 1000);  // may begin with the gate, in the middle of a pulse
        detector.Snap(0, 1000);
        platform::Time last = clock.now();
        for (int frame = 0; frame < 20; ++frame) {
            detector.Snap(0, 1000);
            EXPECT_EQ(clock.now() - last, period) << frequencyHz << " frame " << frame;
            last = clock.now();
        }
        detector.DisablePulseGenerator();
        detector.ToggleGenerator(false);
    }
    const simulator::Ledger ledger = hardware->ledger();
    EXPECT_EQ(ledger.delivered, 3U * 22U);
    EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
}
