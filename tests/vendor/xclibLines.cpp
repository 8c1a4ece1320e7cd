#include <limits>

#include "XclibRig.h"

namespace {

using Variant = FormatTree::Variant;

class XclibLines : public XclibRig {
protected:
    XclibLines() { user.use(slot); }

    std::uint64_t edgesIn(std::chrono::nanoseconds time) {
        const std::uint64_t before = detector->ledger().edges;
        clock.advance(time);
        return detector->ledger().edges - before;
    }
    int run(unsigned princ) const { return pxe_setExsyncPrincMode(user.state, 1, 0, princ); }
    static constexpr unsigned runBit = 2;
};

TEST_F(XclibLines, TheControlLineTriggersUnderTheStandardFormatOnly) {
    ASSERT_EQ(pxe_setCameraLinkCCOut(user.state, 1, 1), 0);
    ASSERT_EQ(pxe_setCameraLinkCCOut(user.state, 1, 1), 0);
    EXPECT_EQ(detector->ledger().edges, 1U);
    ASSERT_EQ(pxe_setCameraLinkCCOut(user.state, 1, 0), 0);
    EXPECT_EQ(pxe_setCameraLinkCCOut(user.state, 1, 2), PXERBADPARAM);
    ASSERT_EQ(pxe_setExsyncPrin(user.state, 1, 10, 10), 0);
    ASSERT_EQ(run(runBit), 0);
    EXPECT_EQ(edgesIn(std::chrono::seconds(1)), 0U) << "the generator is not on the line";
    ASSERT_EQ(user.load(Variant::Pulse), 0);
    user.trigger();
    EXPECT_EQ(edgesIn(std::chrono::seconds(1)), 0U) << "the line is the generator's, and it is off";
    ASSERT_EQ(user.load(Variant::Standard), 0);
    user.trigger();
    EXPECT_EQ(detector->ledger().edges, 2U);
}

TEST_F(XclibLines, TheGeneratorPulsesAtItsRateWithoutDrift) {
    const struct {
        unsigned exsync, prin, divide;
        std::chrono::nanoseconds cycle;
    } cases[] = {
        {156, 6094, 0, std::chrono::nanoseconds(80'002'000)},  {156, 0, 0, std::chrono::nanoseconds(1'998'800)},
        {78, 38984, 1, std::chrono::nanoseconds(999'989'200)}, {1, 65535, 7, std::chrono::nanoseconds(107'374'184'400)},
        {1, 0, 0, std::chrono::nanoseconds(14'800)},
    };
    ASSERT_EQ(user.load(Variant::Pulse), 0);
    for (const auto& test : cases) {
        ASSERT_EQ(pxe_setExsyncPrin(user.state, 1, test.exsync, test.prin), 0);
        const std::uint64_t before = detector->ledger().edges;
        ASSERT_EQ(run(runBit | test.divide << 7U), 0);
        EXPECT_EQ(detector->ledger().edges - before, 1U) << "the first pulse comes at once";
        constexpr int cycles = 1000;
        EXPECT_EQ(edgesIn(test.cycle * cycles - std::chrono::nanoseconds(1)), cycles - 1U) << test.prin;
        EXPECT_EQ(edgesIn(std::chrono::nanoseconds(1)), 1U) << test.prin;
        EXPECT_EQ(edgesIn(test.cycle / 2), 0U);
        EXPECT_EQ(run(runBit | test.divide << 7U), 0) << "changes nothing";
        EXPECT_EQ(edgesIn(test.cycle - test.cycle / 2), 1U);
        ASSERT_EQ(run(0), 0);
        EXPECT_EQ(edgesIn(test.cycle * 3), 0U);
    }
}

TEST_F(XclibLines, TheGeneratorStopsWithItsFormatAndWithTheBoard) {
    ASSERT_EQ(user.load(Variant::Pulse), 0);
    ASSERT_EQ(run(runBit), 0);
    EXPECT_EQ(edgesIn(std::chrono::seconds(1)), 0U) << "no pulse width was ever set";
    ASSERT_EQ(pxe_setExsyncPrin(user.state, 1, 10, 10), 0);
    EXPECT_GT(edgesIn(std::chrono::seconds(1)), 1U) << "it was running";
    ASSERT_EQ(user.load(Variant::Pulse), 0);
    EXPECT_EQ(edgesIn(std::chrono::seconds(1)), 0U);
    ASSERT_EQ(run(runBit), 0);
    ASSERT_EQ(pxe_PIXCIclose(user.state), 0);
    EXPECT_EQ(edgesIn(std::chrono::seconds(1)), 0U);
    const std::uint64_t before = detector->ledger().edges;
    detector->setTriggerInput(true);
    EXPECT_EQ(detector->ledger().edges, before + 1) << "closed in the middle of a pulse, the line is low";
}

TEST_F(XclibLines, TheGeneratorRefusesWhatItCannotDo) {
    for (const std::pair<unsigned, unsigned>& counts : {std::pair{0U, 1U}, {65536U, 1U}, {1U, 65536U}})
        EXPECT_EQ(pxe_setExsyncPrin(user.state, 1, counts.first, counts.second), PXERBADPARAM);
    EXPECT_EQ(pxe_setExsyncPrincMode(user.state, 1, 1, 0), PXERBADPARAM);
    for (const unsigned princ : {1U, 4U, 64U, 1U << 10U, 0x80000000U}) EXPECT_EQ(run(princ), PXERBADPARAM) << princ;
    EXPECT_EQ(run(386), 0);
    EXPECT_EQ(run(7U << 7U), 0);
}

TEST_F(XclibLines, TheSerialPortCarriesCommandsAndReplies) {
    std::string command = "R1124\r";
    std::array<char, 16> reply{};
    const auto write = [&](int port, int size) { return pxe_serialWrite(user.state, 1, port, command.data(), size); };
    const auto read = [&](int size) { return pxe_serialRead(user.state, 1, 0, reply.data(), size); };
    const auto configure = [&](double baud, int dataBits, int parity, int stopBits, int port = 0) {
        return pxe_serialConfigure(user.state, 1, port, baud, dataBits, parity, stopBits, 0, 0, 0);
    };
    EXPECT_EQ(write(0, 6), PXERIO);
    EXPECT_EQ(read(16), PXERIO);
    const struct {
        double baud;
        int dataBits, parity, stopBits, port;
    } wrong[] = {{115201, 8, 0, 1, 0}, {115200, 9, 0, 1, 0}, {115200, 8, 3, 1, 0},
                 {115200, 8, 0, 0, 0}, {115200, 8, 0, 1, 1}, {std::numeric_limits<double>::quiet_NaN(), 8, 0, 1, 0}};
    for (const auto& test : wrong)
        EXPECT_EQ(configure(test.baud, test.dataBits, test.parity, test.stopBits, test.port), PXERBADPARAM);
    detector->serialWrite("R1126\r");
    ASSERT_EQ(configure(115200, 8, 0, 1), 0) << "drops the reply that nobody has read";
    for (const int refused : {write(1, 6), write(0, -1), pxe_serialRead(user.state, 1, 0, nullptr, 4),
                              pxe_serialWrite(user.state, 1, 0, nullptr, 4)})
        EXPECT_EQ(refused, PXERBADPARAM);
    const platform::Time before = clock.now();
    EXPECT_EQ(read(16), 0);
    EXPECT_EQ(clock.now() - before, std::chrono::microseconds(100)) << "so that a host that polls gets on";
    ASSERT_EQ(write(0, 4), 4);
    ASSERT_EQ(pxe_serialWrite(user.state, 1, 0, command.data() + 4, 2), 2);
    EXPECT_EQ(read(4), 4);
    EXPECT_EQ(read(16), 3);
    EXPECT_EQ(std::string(reply.data(), 3), "12\r");
    EXPECT_EQ(read(0), 0);
}

}  // namespace
