#include "SimulatorFixture.h"
#include "simulator/CommandInterpreter.h"

namespace {

using simulator::CommandAssembler;
using simulator::Fault;

class Commands : public SimulatorTest {};

TEST_F(Commands, AreAnsweredOrRefused) {
    detector->pokeRegister(200, 7, 1);
    detector->pokeRegister(200, 65535, 2);
    const struct {
        std::string_view command;
        std::string_view reply;
    } cases[] = {
        {"R1200", "S00007\r"},   {"R2200", "S65535\r"},  {"R1999", "S00000\r"}, {"W099965535", "A\r"},
        {"W200300012", "A\r"},   {"R0200", "E\r"},       {"R3200", "E\r"},      {"W300300012", "E\r"},
        {"W000365536", "E\r"},   {"W000399999", "E\r"},  {"R12000", "E\r"},     {"R120", "E\r"},
        {"W00030001", "E\r"},    {"W0003000012", "E\r"}, {"R1 20", "E\r"},      {"R12-1", "E\r"},
        {"r1200", "E\r"},        {"W0003+0012", "E\r"},  {"", "E\r"},           {"\nR1200", "E\r"},
        {{"R1200\0", 6}, "E\r"}, {"Hello", "E\r"},
    };
    for (const auto& each : cases) EXPECT_EQ(ask(each.command), each.reply) << each.command;
    EXPECT_EQ(detector->readRegister(3, 1), 0);
    EXPECT_EQ(detector->readRegister(3, 2), 12);

    for (const char byte : std::string("R1009\rR1010")) detector->serialWrite({&byte, 1});
    EXPECT_EQ(receive(Ms(1)), "S00001\r");
    EXPECT_EQ(ask(""), "S00001\r");
    detector->serialWrite(std::string(CommandAssembler::capacity, 'W'));
    EXPECT_EQ(receive(Ms(1)), "E\r") << "what has no end is dropped";
    EXPECT_EQ(ask("R1009"), "S00001\r");
}

TEST_F(Commands, SufferTheFaultsOfTheLineAndHaveTheirEffectAllTheSame) {
    const struct {
        Fault fault;
        std::string_view reply;
    } cases[] = {{Fault::SilentLine, ""}, {Fault::ShortReply, "S0153\r"}, {Fault::ForeignReply, "E\r"}};
    for (const auto& each : cases) {
        detector->faults().set(each.fault, {2, false, 0, 1.0});
        EXPECT_EQ(ask("R1008"), "S01536\r");
        EXPECT_EQ(ask("R1008"), each.reply);
        EXPECT_EQ(ask("R1008"), "S01536\r");
    }
    detector->faults().set(Fault::SilentLine);
    EXPECT_EQ(ask("W001800042"), "");
    EXPECT_EQ(detector->readRegister(18), 42);
    detector->faults().set(Fault::ChunkedReply, {1, true, 3, 1.0});
    detector->serialWrite("R1008\r");
    for (const auto& [patience, piece] : {std::pair(0.5, "S01"), {0.6, "536"}, {5.0, "\r"}})
        EXPECT_EQ(receive(Ms(patience)), piece);
}

TEST_F(Commands, TakeTheTimeOfTheirBytesAtWireSpeed) {
    detector->setWireSpeed(1000);  // a byte is 10 ms
    detector->serialWrite("R1009\r");
    EXPECT_EQ(receive(Ms(120)), "");
    EXPECT_EQ(receive(Ms(20)), "S00001\r");
    EXPECT_NEAR(elapsedMs(), 130 + 20, 0.001);
}

TEST_F(Commands, LeaveALateReplyInTheInputUntilItIsReadOrDropped) {
    detector->faults().set(Fault::LateReply, {1, false, 150, 1.0});
    EXPECT_EQ(ask("R1008"), "");
    EXPECT_EQ(ask("R1009"), "S01536\rS00001\r") << "replies keep their order";
    detector->serialWrite("R1009\r");
    detector->serialDropInput();
    EXPECT_EQ(receive(Ms(1)), "");
}

TEST_F(Commands, AreNoisyInOneByteAndTheSameForTheSameSeed) {
    const auto noisy = [this] {
        detector->faults().clearAll();
        detector->faults().seed(77);
        detector->faults().set(Fault::NoisyReply, {1, true, 0, 0.5});
        std::vector<std::string> replies(40);
        for (std::string& reply : replies) reply = ask("R1008");
        return replies;
    };
    const std::vector<std::string> first = noisy();
    EXPECT_EQ(noisy(), first);
    int hit = 0;
    for (const std::string& reply : first) {
        int differing = 0;
        ASSERT_EQ(reply.size(), 7U);
        for (std::size_t i = 0; i < reply.size(); ++i) differing += reply[i] != "S01536\r"[i] ? 1 : 0;
        EXPECT_LE(differing, 1);
        hit += differing;
    }
    EXPECT_NEAR(hit, 20, 14);
}

TEST_F(Commands, SwitchTheLinkInterfaceWhichNoPowerCycleSwitches) {
    const struct {
        const char* profile;
        const char* duringBoot;
    } cases[] = {{"6112", "A\r"}, {"6112-kestrane", ""}};
    for (const auto& test : cases) {
        use(test.profile);
        receiveFrames();
        frames.clear();
        const auto exposeOne = [this] {
            selectTrigger();
            detector->injectEdge();
            pass(200);
            return frames.size();
        };
        EXPECT_EQ(exposeOne(), 1U) << "on at first";
        EXPECT_EQ(ask("WC0"), "A\r");
        EXPECT_EQ(exposeOne(), 1U);
        EXPECT_EQ(detector->ledger().lostNoReceiver, 1U);
        EXPECT_EQ(ask("R1008"), "S01536\r") << "the serial port has nothing to do with it";
        EXPECT_EQ(ask("WP0"), "A\r");
        EXPECT_EQ(ask("WC0"), "A\r") << "answered without power";
        EXPECT_EQ(ask("WP1"), "A\r");
        EXPECT_EQ(ask("WC0"), test.duringBoot);
        pass(2000);
        EXPECT_EQ(exposeOne(), 1U);
        EXPECT_EQ(ask("WC1"), "A\r");
        EXPECT_EQ(exposeOne(), 2U);
        expectBalanced();
    }
}

}  // namespace
