#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"
#include "support/expectFailure.h"

using support::CoreDouble;
using support::expectFailure;
using testing::ElementsAre;

namespace {

class Lifecycle : public testing::Test {
protected:
    Lifecycle() {
        CoreDouble::present(core, 6112, 0, 5);
        core.connected = false;
    }

    platform::ScopedVirtualClock clock;
    CoreDouble core;
};

}  // namespace

TEST_F(Lifecycle, OpeningAsksTheDetectorInOrder) {
    core.unit = 10;
    core.line.registers[11] = 5000;
    core.OpenBoard();
    EXPECT_TRUE(core.IsConnected());
    EXPECT_FALSE(core.opening);
    EXPECT_EQ(core.openText, "-DM 0x10");
    EXPECT_THAT(core.transportCalls, ElementsAre("OpenBrd", "CreateDetectorHandle"));
    EXPECT_THAT(core.line.commands, ElementsAre("R1129", "R1124", "R1126", "R1036", "R1037", "R1130", "R1126", "R1010",
                                                "R1009", "R1001", "R1011", "R1012"));
    expectFailure([&] { core.OpenBoard(); },
                  "The connection to the board is already open! Please close the connection before attempting to "
                  "re-open!",
                  DerrBadRequest);
    EXPECT_TRUE(core.IsConnected());
    EXPECT_EQ(core.transportCalls.size(), 2U);
}

TEST_F(Lifecycle, ClosingNeedsAnOpenBoardAndForgetsOnlyTheConnection) {
    const char* const text = "The connection to the board is not open! Cannot close connection that isn't open!";
    EXPECT_FALSE(core.IsConnected());
    expectFailure([&] { core.CloseBoard(); }, text, DerrBadRequest);
    EXPECT_TRUE(core.transportCalls.empty());
    core.OpenBoard();
    core.CloseBoard();
    EXPECT_FALSE(core.IsConnected());
    EXPECT_FALSE(core.commsOpen);
    EXPECT_EQ(core.modelNumber.get(), 6112);
    expectFailure([&] { core.CloseBoard(); }, text, DerrBadRequest);
}

TEST_F(Lifecycle, FailedOpenClearsOpeningWhateverWasThrown) {
    core.line.hook = [](const std::string&) { return support::RegisterScript::silence(); };
    const auto failure =
        expectFailure([&] { core.OpenBoard(); }, "Problem sending serial command R1129", DerrSerialCommand);
    EXPECT_FALSE(core.opening);
    EXPECT_FALSE(core.IsConnected());
    EXPECT_THAT(failure->what(), testing::HasSubstr("baseDetector::getSlowed, baseDetector::OpenBoard"));
    core.line.hook = [](const std::string&) -> std::vector<std::string> { throw std::runtime_error("foreign"); };
    EXPECT_THROW(core.OpenBoard(), std::runtime_error);
    EXPECT_FALSE(core.opening);
}

TEST(TimingTableChoice, OpenWithoutCountPicksTheTableAndOpenWithCountLeavesIt) {
    const platform::ScopedVirtualClock clock;
    CoreDouble core(TransportCL);
    CoreDouble::present(core, 6213, 1, 11138);
    core.connected = false;
    core.line.registers[410] = 8000;
    core.OpenBoard(10);
    EXPECT_EQ(core.detectorTimings, nullptr);
    EXPECT_EQ(core.GetReadOutTime(), 16.0F) << "the detector's own word";
    core.CloseBoard();
    core.OpenBoard();
    EXPECT_EQ(core.GetReadOutTime(), 37.77F) << "the table";
    core.CloseBoard();
    core.OpenBoard(10);
    EXPECT_NE(core.detectorTimings, nullptr);
}

TEST_F(Lifecycle, PulseGeneratorDefaultsToTwiceTheReadoutRate) {
    core.OpenBoard();
    core.EnablePulseGenerator();
    EXPECT_FLOAT_EQ(core.pulseFrequency, 2.0F / (16.93F * 0.001F));
}
