#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"
#include "support/LogCapture.h"
#include "support/expectFailure.h"

using support::CoreDouble;
using support::expectFailure;
using support::RegisterScript;
using testing::ElementsAre;

namespace {

constexpr const char* sensorText =
    "Invalid sensor number. The sensor number must be between 1-9 for register reads and between 0-9 for register "
    "writes!";
constexpr const char* invalidReplyText = "The response recevied from the detector is invalid!";

class SerialChannel : public testing::Test {
protected:
    SerialChannel() { CoreDouble::present(core, 6112); }

    platform::ScopedVirtualClock clock;
    CoreDouble core;
};

}  // namespace

TEST_F(SerialChannel, ReplyIsCompleteWhenAChunkEndsItAndCutToTheCallersHundredBytes) {
    core.line.hook = [](const std::string& command) -> std::vector<std::string> {
        if (command == "HELLO") return {"ab", "", "c\rd", "ef\r"};
        if (command == "LONG") return {std::string(90, 'a'), std::string(90, 'b') + "\r"};
        if (command == "R1008") return {"S123x\r"};
        return {};
    };
    EXPECT_EQ(core.SendCommand(std::string("HELLO")), "abc\rdef");
    char reply[100];
    core.SendCommand("LONG", reply);
    EXPECT_EQ(std::string(reply), std::string(90, 'a') + std::string(9, 'b'));
    expectFailure([&] { core.ReadRegister(8, 1); }, invalidReplyText, DerrTransport);
    EXPECT_THAT(core.line.commands, ElementsAre("R1129", "HELLO", "LONG", "R1008")) << "the family is asked for first";
}

TEST_F(SerialChannel, DeadLineFailsAfterASecondAndIsConfiguredAfresh) {
    core.IsKestrane();
    core.line.hook = [](const std::string&) { return RegisterScript::silence(); };
    char reply[100] = "untouched";
    const platform::Time before = clock.now();
    expectFailure([&] { core.SendCommand("RV{}", reply); }, "Problem sending serial command RV{}", DerrSerialCommand);
    EXPECT_STREQ(reply, "error");
    EXPECT_GE(clock.now() - before, std::chrono::milliseconds(1000));
    EXPECT_LT(clock.now() - before, std::chrono::milliseconds(1020));
    EXPECT_FALSE(core.commsOpen);
    EXPECT_EQ(core.serialConfigurations, 1);
    EXPECT_EQ(core.line.commands.size(), 2U) << "a time-out is not retried";
    core.line.hook = nullptr;
    core.ReadRegister(8, 1);
    EXPECT_EQ(core.serialConfigurations, 2);
    core.serialReadFails = true;
    const platform::Time failing = clock.now();
    expectFailure([&] { core.ReadRegister(8, 1); }, "Problem sending serial command R1008", DerrSerialCommand);
    EXPECT_EQ(clock.now() - failing, std::chrono::milliseconds(11)) << "a negative read ends at once";
    EXPECT_FALSE(core.commsOpen);
}

TEST_F(SerialChannel, ForeignRepliesAreAskedAgainFiveTimesAndTheFifthDoesNotCount) {
    int sends = 0;
    int goodFrom = 4;
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command != "R1008") return {};
        return {++sends >= goodFrom ? "S00007\r" : "E\r"};
    };
    EXPECT_EQ(core.ReadRegister(8, 1), 7);
    sends = 0;
    goodFrom = 5;
    const auto failure =
        expectFailure([&] { core.ReadRegister(8, 1); }, "Problem performing serial read!", DerrTransport);
    EXPECT_EQ(sends, 5);
    ASSERT_TRUE(failure);
    EXPECT_STREQ(failure->GetFunctionName(), "baseDetector::ReadRS232Cmd");
    EXPECT_THAT(failure->what(), testing::HasSubstr("through baseDetector::ReadRS232Cmd, baseDetector::ReadRegister"));
}

TEST_F(SerialChannel, NumbersOutOfRangeAreRefusedBeforeAnythingIsSent) {
    const std::string registerText = "The register you are trying to access is out of range (0-%d)!";
    const std::string valueText = "The register value you are trying to write is out of range (0-%d)!";
    expectFailure([&] { core.ReadRegister(1000, 0); }, registerText, DerrBadRequest, 1000);
    expectFailure([&] { core.ReadRegister(-1, 1); }, registerText, DerrBadRequest, -1);
    for (const int sensor : {0, 10, -1, 65537})
        expectFailure([&] { core.ReadRegister(5, sensor); }, sensorText, DerrBadRequest, 5);
    expectFailure([&] { core.WriteRegister(1000, 70000, 99); }, registerText, DerrBadRequest, 1000);
    expectFailure([&] { core.WriteRegister(5, 65536, 99); }, valueText, DerrBadRequest, 5);
    expectFailure([&] { core.WriteRegister(5, -1, 0); }, valueText, DerrBadRequest, 5);
    expectFailure([&] { core.WriteRegister(5, 1, 10); }, sensorText, DerrBadRequest, 5);
    EXPECT_TRUE(core.line.commands.empty());
    core.WriteRegister(999, 65535, 9);
    core.WriteRegister(3, 4, 0);
    EXPECT_THAT(core.line.writes(), ElementsAre("W999965535", "W000300004"));
}

TEST_F(SerialChannel, EachFormOfSendCommandHasItsOwnLengthLimit) {
    char reply[100];
    EXPECT_NO_THROW(core.SendCommand(std::string(22, 'x')));
    expectFailure([&] { core.SendCommand(std::string(23, 'x')); }, "Command length cannot exceed 22 characters!",
                  DerrBadRequest, 23);
    EXPECT_NO_THROW(core.SendCommand(std::string(23, 'x').c_str(), reply));
    expectFailure([&] { core.SendCommand(std::string(24, 'x').c_str(), reply); }, "Problem sending serial command!",
                  DerrBadRequest);
    const std::string longCommand(300, '\0');
    EXPECT_NO_THROW(core.SendCommand(longCommand.data(), longCommand.size(), reply));
    EXPECT_EQ(core.line.commands.back(), longCommand);
    expectFailure([&] { core.SendCommand(static_cast<const char*>(nullptr), reply); },
                  "Problem sending serial command!", DerrBadRequest);
}

TEST_F(SerialChannel, FlashHeldWritesPauseOnOtherElectronicsOnly) {
    core.IsKestrane();
    const auto costOf = [&](int reg) {
        const platform::Time before = clock.now();
        core.WriteRegister(reg, 1, 0);
        return clock.now() - before;
    };
    EXPECT_EQ(costOf(20), std::chrono::milliseconds(211));
    EXPECT_EQ(costOf(19), std::chrono::milliseconds(11));
}

TEST_F(SerialChannel, KestraneElectronicsPollTheFlashStatusAfterEachCommand) {
    core.line.registers[129] = 257;
    core.line.registers[418] = 0x8000;
    const platform::Time before = clock.now();
    int polls = 0;
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command != "R1418") return {};
        platform::sleepFor(std::chrono::milliseconds(100));
        return {++polls == 3 ? "S00000\r" : "S32768\r"};
    };
    core.WriteRegister(3, 1, 0);
    EXPECT_EQ(polls, 3);
    EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(311)) << "300 ms still pass, after the family read's 11";
    polls = -10;
    expectFailure([&] { core.ReadRegister(3, 1); }, "Timeout waiting for flash controller after serial command",
                  DerrTransport);
}

TEST_F(SerialChannel, EveryExchangeIsLoggedButAnIdleFlashController) {
    core.line.registers[129] = 1;
    int status = 0x8000;
    core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command == "{}") return {"A{}\r"};
        if (command != "R1418") return {};
        return {std::exchange(status, 0) != 0 ? "S32768\r" : "S00000\r"};
    };
    const support::LogCapture log;
    char reply[100];
    core.SendCommand("{}", reply);
    EXPECT_THAT(log.lines(), ElementsAre("debug|SERIAL: R1129 -> S00001", "debug|SERIAL: {} -> A{}",
                                         "debug|SERIAL: R1418 -> S32768 [flash status check]"));
}
