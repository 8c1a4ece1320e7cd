#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"
#include "support/expectFailure.h"

using support::CoreDouble;
using support::expectFailure;
using testing::ElementsAre;

namespace {

class Exposure : public testing::Test {
protected:
    Exposure() {
        CoreDouble::present(core, 5309);
        core.readoutTime = 37.78F;
        core.minimumExposureWindow = 32.89F;
    }

    /// The firmware's clamp: a smaller window reads back as `counts`.
    void clampWindowTo(CoreDouble& detector, int counts) {
        detector.line.hook = [&detector, counts](const std::string& command) -> std::vector<std::string> {
            auto& registers = detector.line.registers;
            if (command.rfind("W0012", 0) != 0) return {};
            registers[12] = std::stoi(command.substr(5));
            if (registers[12] == 0 && registers[11] < counts) registers[11] = counts;
            return {"A\r"};
        };
    }

    platform::ScopedVirtualClock clock;
    CoreDouble core;
};

}  // namespace

TEST_F(Exposure, TimesWriteTheirWindowAsTwoHalves) {
    const struct {
        float time;
        const char* low;
        const char* high;
    } cases[] = {
        {100.0F, "W001106222", "W001200000"},   {0.0F, "W001103289", "W001200000"},
        {-5.0F, "W001103289", "W001200000"},    {std::numeric_limits<float>::quiet_NaN(), "W001103289", "W001200000"},
        {1037.78F, "W001134464", "W001200001"},  // 100000 = 0x1 86A0
    };
    for (const auto& test : cases) {
        core.line.commands.clear();
        core.SetExposureTime(test.time);
        EXPECT_THAT(core.line.writes(), ElementsAre(test.low, test.high)) << test.time;
    }
    EXPECT_FLOAT_EQ(core.GetExposureTime(), 1037.78F);
    EXPECT_FLOAT_EQ(core.GetMinimumExposureTime(), 70.67F);
    core.line.commands.clear();
    for (const float time : {3e7F, 1e30F, std::numeric_limits<float>::infinity()})
        expectFailure([&] { core.SetExposureTime(time); }, "Failed to set exposure time.", DerrExposure);
    EXPECT_TRUE(core.line.writes().empty()) << "an impossible time is refused without half a write";
    core.InitializeExposureTime();
    EXPECT_TRUE(core.line.writes().empty()) << "above the minimum it is left alone";
    core.exposureTime.reset();
    core.line.registers[11] = 100;
    core.line.registers[12] = 0;
    core.InitializeExposureTime();
    EXPECT_THAT(core.line.writes(), ElementsAre("W001103289", "W001200000"));
}

TEST_F(Exposure, EqualityWidensWithTheSmallerOfTheTimes) {
    const struct {
        float first, second, equal;
    } cases[] = {{1.0F, 1.1F, 0.0F},        {1.0F, 1.09F, 1.0F},       {12000.0F, 12000.5F, 1.0F},
                 {5000.0F, 5000.5F, 0.0F},  {9999.5F, 10000.0F, 0.0F}, {10000.0F, 10000.99F, 1.0F},
                 {10000.0F, 10001.0F, 0.0F}};
    for (const auto& test : cases) {
        EXPECT_EQ(core.AreExposureTimesEqual(test.first, test.second), test.equal) << test.first << " " << test.second;
        EXPECT_EQ(core.AreExposureTimesEqual(test.second, test.first), test.equal);
    }
}

TEST_F(Exposure, DetectorThatKeepsItsWindowFailsAfterTwoSecondsAndTheCacheTellsTheTruth) {
    core.line.registers[11] = 500;
    core.line.hook = [](const std::string& command) -> std::vector<std::string> {
        if (command.rfind("W001", 0) == 0) return {"A\r"};
        return {};
    };
    const platform::Time before = clock.now();
    const auto failure =
        expectFailure([&] { core.SetExposureTime(100.0F); }, "Failed to set exposure time.", DerrExposure);
    EXPECT_GT(clock.now() - before, std::chrono::milliseconds(2000));
    EXPECT_LT(clock.now() - before, std::chrono::milliseconds(2200));
    ASSERT_TRUE(core.exposureTime.get());
    EXPECT_FLOAT_EQ(*core.exposureTime.get(), 5.0F + 37.78F);
    EXPECT_EQ(core.line.writes().size(), 2 * 15U) << "each pass writes again, 100 ms behind the one before";
    core.line.hook = [](const std::string&) { return support::RegisterScript::silence(); };
    expectFailure([&] { core.SetExposureTime(100.0F); }, "Problem sending serial command R1011", DerrSerialCommand);
}

TEST_F(Exposure, KestraneElectronicsMustReportAReadoutTimeAfterwards) {
    CoreDouble kestrane;
    CoreDouble::present(kestrane, 6112, 1);
    kestrane.readoutTime = 16.0F;
    int polls = 0;
    kestrane.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command == "R1410") {
            platform::sleepFor(std::chrono::milliseconds(100));
            ++polls;
        }
        return {};
    };
    const platform::Time before = clock.now();
    expectFailure([&] { kestrane.SetExposureTime(100.0F); },
                  "After setting exposure time, readout time remained zero until timeout.", DerrSerialCommand);
    EXPECT_EQ(polls, 100);
    EXPECT_GE(clock.now() - before, std::chrono::seconds(10));
    kestrane.line.registers[410] = 8000;
    EXPECT_NO_THROW(kestrane.SetExposureTime(100.0F));
}

TEST_F(Exposure, ReadoutTimeComesFromTheDetectorWithAProbeOfItsClamp) {
    CoreDouble kestrane;
    CoreDouble::present(kestrane, 6112, 1);
    kestrane.readsOwnTiming = 1;
    kestrane.line.registers[410] = 8000;
    kestrane.line.registers[11] = 4400;
    clampWindowTo(kestrane, 50);
    kestrane.transportMinimumMs = 16.255F;
    kestrane.UpdateReadoutTime();
    EXPECT_EQ(kestrane.readoutTime, 16.0F);
    EXPECT_EQ(kestrane.minimumExposureWindow, 0.5F);
    EXPECT_THAT(kestrane.line.writes(),
                ElementsAre("W001134464", "W001200001", "W001100000", "W001200000", "W001104400", "W001200000"));
    kestrane.transportMinimumMs = 63.376F;
    kestrane.UpdateReadoutTime();
    EXPECT_EQ(kestrane.minimumExposureWindow, RoundToDecimals(63.376F - 16.0F, 2));
    kestrane.line.registers[410] = 0;
    kestrane.line.hook = [](const std::string& command) -> std::vector<std::string> {
        if (command == "R1410") platform::sleepFor(std::chrono::seconds(1));
        return {};
    };
    expectFailure([&] { kestrane.UpdateReadoutTime(); },
                  "Failed to update readout time, readout time register remained zero until timeout.",
                  DerrSerialCommand);
}

TEST_F(Exposure, ProbeFailsWhenTheWindowDoesNotLeaveItsTestValue) {
    core.line.hook = [this](const std::string& command) -> std::vector<std::string> {
        core.line.registers[11] = 0x86A0;
        core.line.registers[12] = 1;
        return command.rfind('W', 0) == 0 ? std::vector<std::string>{"A\r"} : std::vector<std::string>{};
    };
    const platform::Time before = clock.now();
    expectFailure([&] { core.GetFirmwareMinimumExposureWindow(); }, "Failed to get firmware minimum exposure window",
                  DerrExposure);
    EXPECT_GT(clock.now() - before, std::chrono::seconds(2));
}
