#include <stdexcept>

#include "XclibRig.h"

namespace {

class XclibBoard : public XclibRig {};

TEST_F(XclibBoard, OpensWhatTheDriverParametersName) {
    simulator::Rack::instance().mountSlot(5, nullptr);
    const struct {
        const char* parameters;
        const char* name;
        const char* file;
        int result;
    } cases[] = {{"-DM 0x0", "", "", 0},
                 {"-DM 0x10", "", "", 0},
                 {nullptr, "", "", PXERBADPARAM},
                 {"-DM 0x0", nullptr, "", PXERBADPARAM},
                 {"-DM 0x0", "", nullptr, PXERBADPARAM},
                 {"-DM 0x0", "default", "", PXERFORMAT},
                 {"-DM 0x0", "", "x.fmt", PXERFORMAT}};
    for (const auto& test : cases) {
        const char* const label = test.parameters == nullptr ? "null" : test.parameters;
        EXPECT_EQ(pxe_PIXCIopen(user.state, test.parameters, test.name, test.file), test.result) << label;
        EXPECT_EQ(user.faultText().empty(), test.result == 0) << label;
        EXPECT_EQ(pxe_PIXCIclose(user.state), test.result == 0 ? 0 : PXERNOTOPEN) << label;
    }
    for (const char* none : {"-DM 0x5", "-DM 0x11", "-DM 0xA", "-DM 0x", "-DM 0x-1", "-DM 0x+1", "-DM 0x1 ",
                             "-DM 0x99999999999", "-DM 1", " -DM 0x1", ""})
        EXPECT_EQ(pxe_PIXCIopen(user.state, none, "", ""), PXERNOBOARD) << none;
}

TEST_F(XclibBoard, BelongsToOneStateAtATime) {
    XclibUser other;
    ASSERT_EQ(user.open(slot), 0);
    EXPECT_EQ(user.open(slot), PXERALREADYOPEN);
    EXPECT_EQ(user.open(0), PXERALREADYOPEN) << "a state has one board";
    EXPECT_EQ(other.open(slot), PXERALREADYOPEN);
    EXPECT_EQ(pxe_PIXCIclose(other.state), PXERNOTOPEN);
    ASSERT_EQ(pxe_PIXCIclose(user.state), 0);
    ASSERT_EQ(other.open(slot), 0);
    {
        XclibUser third;
        ASSERT_EQ(third.open(0), 0);
    }
    EXPECT_EQ(user.open(0), 0) << "releasing a state closes its board";
}

TEST_F(XclibBoard, RefusesStatesThatAreNone) {
    pxdstate* const released = pxe_XCLIBinstantiate();
    pxe_XCLIBuninstantiate(released);
    pxe_XCLIBuninstantiate(released);
    pxe_XCLIBuninstantiate(nullptr);
    EXPECT_NE(pxe_XCLIBinstantiate(), released);
    std::array<char, 8> text{"old"};
    for (pxdstate* state : {static_cast<pxdstate*>(nullptr), released, user.state}) {
        EXPECT_EQ(pxe_infoUnits(state), PXERNOTOPEN);
        EXPECT_EQ(pxe_goSnap(state, 1, 1), PXERNOTOPEN);
        EXPECT_EQ(pxe_serialRead(state, 1, 0, text.data(), 1), PXERNOTOPEN);
        EXPECT_EQ(pxe_xclibEscape(state, 0, 0, 0), nullptr);
        EXPECT_EQ(pxe_eventCapturedFieldCreate2(state, 1, 115), nullptr);
        pxe_eventCapturedFieldClose(state, 1, nullptr);
        const bool known = state == user.state;
        EXPECT_EQ(pxe_mesgFaultText(state, 1, text.data(), text.size()), known ? 1 : PXERNOTOPEN);
        EXPECT_EQ(text[0] != '\0', known);
    }
    user.use(slot);
    EXPECT_EQ(pxe_infoUnits(user.state), 1);
    for (const int unitMap : {0, 2, 3, -1}) EXPECT_EQ(pxe_goSnap(user.state, unitMap, 1), PXERUNITMAP) << unitMap;
}

TEST_F(XclibBoard, KeepsTheLastFaultTextUntilItIsTaken) {
    ASSERT_EQ(user.open(slot), 0);
    EXPECT_TRUE(board->placeFaultText("first"));
    EXPECT_TRUE(board->placeFaultText("second"));
    std::array<char, 4> small{};
    EXPECT_EQ(pxe_mesgFaultText(user.state, 1, nullptr, 4), PXERBADPARAM);
    EXPECT_EQ(pxe_mesgFaultText(user.state, 1, small.data(), 0), PXERBADPARAM);
    EXPECT_EQ(pxe_mesgFaultText(user.state, 1, small.data(), small.size()), 1);
    EXPECT_STREQ(small.data(), "sec");
    EXPECT_EQ(pxe_mesgFaultText(user.state, 1, small.data(), small.size()), 0);
    EXPECT_STREQ(small.data(), "");
    EXPECT_EQ(pxe_goSnap(user.state, 1, 1), PXERFORMAT);
    EXPECT_NE(user.faultText().find("pxe_goSnap"), std::string::npos);

    EXPECT_TRUE(board->placeFaultText("stale"));
    ASSERT_EQ(pxe_PIXCIclose(user.state), 0);
    EXPECT_FALSE(board->placeFaultText("nobody is there"));
    ASSERT_EQ(user.open(slot), 0);
    EXPECT_EQ(user.faultText(), "") << "opening takes an old text away";
}

TEST_F(XclibBoard, FailsAsItIsToldTo) {
    board->fail({.function = "pxe_PIXCIopen", .result = -77, .first = 2});
    board->fail({.function = "pxe_PIXCIclose", .result = -5, .faultText = "stuck"});
    ASSERT_EQ(user.open(slot), 0);
    EXPECT_EQ(pxe_PIXCIclose(user.state), -5);
    EXPECT_EQ(user.faultText(), "stuck");
    ASSERT_EQ(pxe_PIXCIclose(user.state), 0) << "once";
    EXPECT_EQ(user.open(slot), -77) << "what is set survives closing";
    EXPECT_EQ(user.faultText(), "pxe_PIXCIopen: error -77");
    ASSERT_EQ(user.open(slot), 0);
    board->fail({.function = grabber::formatLoad, .result = -3});
    EXPECT_EQ(user.load(FormatTree::Variant::Standard), -3);
    user.faultText();
    board->fail({.function = "pxe_xclibEscaped", .result = -4, .faultText = ""});
    EXPECT_EQ(user.load(FormatTree::Variant::Standard), -4);
    EXPECT_EQ(user.faultText(), "");
    board->fail({.function = "pxe_xclibEscape"});
    EXPECT_EQ(pxe_xclibEscape(user.state, 0, 0, 0), nullptr);
    board->fail({.function = "pxe_infoUnits", .result = 31, .onward = true});
    for (int call = 0; call < 2; ++call) EXPECT_EQ(pxe_infoUnits(user.state), 31);
    board->clearFailures();
    EXPECT_EQ(pxe_infoUnits(user.state), 1);
    EXPECT_THROW(board->fail({.function = "pxe_goSnapp"}), std::invalid_argument);

    board->fail({.function = "pxe_infoUnits", .onward = true});
    mountSmallTriggeredDetector(slot);
    EXPECT_NE(grabber::VirtualGrabber::inSlot(slot), board) << "another detector, another grabber";
    EXPECT_EQ(grabber::VirtualGrabber::inSlot(11), nullptr);
    EXPECT_EQ(pxe_infoUnits(user.state), -1) << "an open board stays";

    grabber::VirtualGrabber::failInstantiation(1);
    EXPECT_EQ(pxe_XCLIBinstantiate(), nullptr);
    EXPECT_NE(XclibUser().state, nullptr);
}

TEST_F(XclibBoard, OpensWithoutADetectorAtTheCableButNotOnARefusal) {
    detector->faults().set(simulator::Fault::RefusedConnect);
    EXPECT_EQ(user.open(slot), PXERIO);
    user.use(slot);
    detector->faults().set(simulator::Fault::Unplugged, {.onward = true});
    ASSERT_EQ(pxe_serialConfigure(user.state, 1, 0, 115200, 8, 0, 1, 0, 0, 0), 0);
    std::array<char, 6> command{"R1124"};
    command[5] = '\r';
    EXPECT_EQ(pxe_serialWrite(user.state, 1, 0, command.data(), 6), 6);
    const platform::Time before = clock.now();
    EXPECT_EQ(pxe_serialRead(user.state, 1, 0, command.data(), 6), 0);
    EXPECT_EQ(clock.now() - before, std::chrono::microseconds(100));
    ASSERT_EQ(pxe_goSnap(user.state, 1, 1), 0);
    expose();
    EXPECT_EQ(detector->ledger().edges, 0U);
    detector->injectEdge();
    clock.advance(std::chrono::milliseconds(5));
    EXPECT_EQ(detector->ledger().lostNoReceiver, 1U);
    detector->faults().clearAll();
    expose();
    EXPECT_EQ(pxe_capturedFieldCount(user.state, 1), 1);
    expectBalancedLedger();
}

}  // namespace
