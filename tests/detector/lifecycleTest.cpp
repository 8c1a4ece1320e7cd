#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"
#include "support/expectFailure.h"

using support::CoreDouble;
using support::expectFailure;

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
    core.line.hook = nullptr;
    core.unit = 10;
    core.OpenBoard();
    EXPECT_EQ(core.openText, "-DM 0x10");
    core.EnablePulseGenerator();
    EXPECT_FLOAT_EQ(core.pulseFrequency, 2.0F / (16.93F * 0.001F)) << "twice the readout rate";
    core.CloseBoard();
    EXPECT_FALSE(core.commsOpen);
    EXPECT_EQ(core.modelNumber.get(), 6112) << "only the connection is forgotten";
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
