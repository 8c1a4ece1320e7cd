#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "detector/PleoraDetector.h"
#include "platform/VirtualClock.h"
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
    bool unplugged = false;

    using ScriptedPleora::Dev_SetEnumValue;
    bool Dev_IsConnected() override { return !unplugged && ScriptedPleora::Dev_IsConnected(); }
    PvResult Dev_SetEnumValue(PvString name, PvString value) override {
        return unplugged ? failed(failWith) : ScriptedPleora::Dev_SetEnumValue(name, value);
    }
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
    using PleoraDetector::pleoraLib, PleoraDetector::pulseGeneratorEnabled, PleoraDetector::softwareTriggerEnabled,
        PleoraDetector::startThread;
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
    for (const double reportedHz : {79.9, 120.1, 1e-300, std::numeric_limits<double>::quiet_NaN()}) {
        pleora->reportedHz = reportedHz;
        expectFailure([&] { detector.EnablePulseGenerator(100.0F); }, frequencyText, DerrTransport, 0);
    }
}

TEST_F(PulseGenerator, FailedCallTellsItsResultAndLeavesALiveRunPaused) {
    using Call = void (*)(PleoraDetector&);
    const Call enable = [](PleoraDetector& d) { d.EnablePulseGenerator(100.0F); };
    const Call disable = [](PleoraDetector& d) { d.DisablePulseGenerator(); };
    const struct {
        const char* step;
        Call call;
        const char* text;
        const char* function;
    } cases[] = {{"PLC_Q4_Operator0 = And", enable, enableText, "EnablePulseGenerator"},
                 {"TimerGranularityFactor = 165", enable, frequencyText, "configurePGFrequency"},
                 {"TimerFrequency?", enable, frequencyText, "configurePGFrequency"},
                 {"PLC_Q4_Operator0 = Or", disable, disableText, "DisablePulseGenerator"},
                 {"PLC_Q4_Variable1 = Zero", disable, disableText, "DisablePulseGenerator"}};
    for (const auto& test : cases) {
        detector.GoUnLive();
        detector.GoLiveSeq();
        pleora->failing = test.step;
        pleora->calls.clear();
        const auto failure = expectFailure([&] { test.call(detector); }, test.text, DerrTransport, 5);
        ASSERT_TRUE(failure) << test.step;
        EXPECT_EQ(failure->GetFunctionName(), std::string("PleoraDetector::") + test.function);
        EXPECT_STREQ(failure->GetTransportMessage(), "scripted failure");
        EXPECT_EQ(pleora->calls.front() == "State_Stop", test.call == enable);
        EXPECT_EQ(pleora->calls.back(), test.step) << "nothing after the failure";
        EXPECT_FALSE(detector.softwareTriggerEnabled);
        EXPECT_EQ(detector.IsLive(), test.call == enable) << "disabling ends a run";
    }
    pleora->failing.clear();
    detector.GoLiveSeq();
    detector.EnablePulseGenerator(100.0F);
    EXPECT_EQ(pleora->calls.back(), "State_Start") << "the run goes on";
    EXPECT_TRUE(detector.IsLive());
    const platform::Time before = clock.now();
    pleora->calls.clear();
    detector.DisablePulseGenerator();
    EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(50));
    EXPECT_THAT(pleora->calls, ElementsAre("PLC_Q4_Operator0 = Or", "PLC_Q4_Variable1 = Zero"));
    EXPECT_TRUE(detector.softwareTriggerEnabled);
    for (const bool level : {true, false}) {
        pleora->failing = level ? "PLC_ctrl0 = true" : "PLC_ctrl0 = false";
        expectFailure([&] { detector.SoftwareTrigger(); }, "Problem Sending Software Trigger!", DerrTransport, 5);
        expectFailure([&] { detector.ToggleGenerator(level); }, "Problem toggling pulse generator!", DerrTransport, 5);
    }
}

TEST_F(PulseGenerator, OfADeviceThatIsGoneDoesNotStandInTheWayOfTheClose) {
    detector.EnablePulseGenerator(100.0F);
    pleora->unplugged = true;
    pleora->failing = "Stream_Close";
    expectFailure([&] { detector.CloseBoard(); }, "Problem Closing Connection to Detector!", DerrTransport, 5);
    EXPECT_TRUE(detector.IsConnected());
    pleora->failing.clear();
    EXPECT_NO_THROW(detector.CloseBoard());
    EXPECT_FALSE(detector.IsConnected());
    pleora->unplugged = false;
    detector.OpenBoard();
    EXPECT_FALSE(detector.pulseGeneratorEnabled);
    pleora->calls.clear();
    detector.SoftwareTrigger();
    EXPECT_THAT(pleora->calls, ElementsAre("PLC_ctrl0 = true", "PLC_ctrl0 = false"));
}
