#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include "QuorinDetector.h"
#include "binningTable.h"
#include "platform/Event.h"
#include "support/BoardRig.h"
#include "support/expectFailure.h"

/// Opening, sizes and closing on a frame grabber, by what reaches the grabber.

using support::BoardRig;
using support::expectFailure;
using support::GrabberCalls;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int memoryBytes = 512 << 20;
constexpr const char* memoryText =
    "Frame Grabber does not have sufficient amount of memory allocated for the requested number of buffers!";

std::string number(int value) {
    return std::to_string(value);
}

}  // namespace

TEST(EpixConnection, OpenSetsTheGrabberUpForEachModel) {
    const struct {
        int slot, taps, lineBytes, lines;
    } cases[] = {{0, 2, 3072, 864},  {1, 2, 3072, 864},  {2, 2, 3072, 1944},  {3, 4, 6144, 864},   {4, 4, 6144, 864},
                 {5, 4, 6144, 1944}, {6, 4, 6144, 1944}, {7, 8, 12288, 1944}, {8, 8, 12288, 1944}, {9, 8, 12288, 1536}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.slot);
        BoardRig rig(test.slot);
        const GrabberCalls calls;
        rig->OpenBoard();
        const int buffers = memoryBytes / (test.lineBytes * test.lines);
        EXPECT_EQ(rig->GetBufferXdim() * rig->GetBufferYdim() * 2, test.lineBytes * test.lines);
        EXPECT_EQ(rig->bufferXdim(), test.lineBytes);
        EXPECT_EQ(rig->bufferYdim(), test.lines);
        EXPECT_EQ(rig->GetNumBuffers(), buffers);
        EXPECT_THAT(calls.all(), ElementsAre("PIXCIopen(S, \"-DM 0x" + number(test.slot) + "\", \"\", \"\")",
                                             "serialConfigure(S, 1, 0, 115200, 8, 0, 1, 0, 0, 0)",
                                             "setPixelFormatGrey(S, 1, 8, 0, 0, " + number(test.taps) + ", 0, 0)",
                                             "setVideoResolution(S, 1, " + number(test.lineBytes) + ", " +
                                                 number(test.lines) + ", 0, 0)",
                                             "imageZdims(S, 1)", "eventCapturedFieldCreate2(S, 1, 115)"));
    }
}

TEST(EpixConnection, ResolutionAndRingFollowTheBinning) {
    for (const int slot : {1, 4, 6}) {
        BoardRig rig(slot);
        rig->OpenBoard();
        const int lineBytes = rig->bufferXdim();
        const int lines = rig->bufferYdim();
        for (const bins mode : {Bin1x2, Bin1x4, Bin2x1, Bin2x2, Bin2x4, Bin4x1, Bin4x2, Bin4x4, Bin1x1}) {
            const BinningMode& row = *findBinning(mode);
            if (rig->QueryBinningMode(mode) != 1) continue;
            rig->SetBinningMode(mode);
            EXPECT_EQ(rig->bufferXdim(), lineBytes / row.columnFactor) << slot << " mode " << mode;
            EXPECT_EQ(rig->bufferYdim(), lines / row.rowFactor) << slot << " mode " << mode;
            EXPECT_EQ(rig->GetNumBuffers(), memoryBytes / (rig->bufferXdim() * rig->bufferYdim()));
        }
    }
}

TEST(EpixConnection, FailedStepsTellTheGrabbersResultAndCanBeClosedAndRepeated) {
    const struct {
        const char* function;
        int result;
        const char* text;
        Derr code;
        bool halfOpen;
    } cases[] = {
        {"pxe_PIXCIopen", -3, "Problem Opening Connection to Detector!", DerrGrabberSetup, false},
        {"formatLoad", -6, "Problem Loading FMT file!", DerrTransport, true},
        {"pxe_serialConfigure", 7, "Problem Configuring Detector Serial Interface!", DerrTransport, true},
        {"pxe_serialWrite", -9, "Problem performing serial write!", DerrTransport, true},
        {"pxe_setPixelFormatGrey", 3, "Problem Reconfiguring Frame Grabber Tap Count!", DerrGrabberSetup, true},
        {"pxe_setVideoResolution", -5, "Problem Setting Frame-Grabber Video Resolution!", DerrGrabberSetup, true},
        {"pxe_imageZdims", -1, "Problem reading number of buffers!", DerrTransport, true},
        {"pxe_eventCapturedFieldCreate2", 0, "Problem creating handle to detector!", DerrTransport, true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.function);
        BoardRig rig;
        rig.grabber->fail({test.function, test.result, 1, true, "a fault"});
        const auto failure = expectFailure([&] { rig->OpenBoard(); }, test.text, test.code, test.result);
        ASSERT_TRUE(failure);
        EXPECT_STREQ(failure->GetTransportMessage(), "a fault");
        EXPECT_EQ(rig->IsConnected(), test.halfOpen);
        if (test.halfOpen) {
            expectFailure([&] { rig->OpenBoard(); },
                          "The connection to the board is already open! Please close the connection before attempting "
                          "to re-open!",
                          DerrBadRequest);
            rig->CloseBoard();
        }
        rig.grabber->clearFailures();
        rig->OpenBoard();
        rig->Snap(0, 1000);
    }
}

TEST(EpixConnection, NumberOfBuffersIsAResultOrADemand) {
    BoardRig rig;
    expectFailure([&] { rig->OpenBoard(0); },
                  "Requested number of buffers is invalid! Number of buffers must be a positive integer value.",
                  DerrBadRequest, 0);
    EXPECT_FALSE(rig->IsConnected());

    const int most = memoryBytes / (3072 * 864 * 2);
    const auto tooMany = expectFailure([&] { rig->OpenBoard(most + 1); }, memoryText, DerrResources, most);
    EXPECT_THAT(tooMany->what(), HasSubstr("EpixDetector::reconfigureFG"));
    EXPECT_TRUE(rig->IsConnected());
    rig->CloseBoard();

    // The second look at the memory is on its own.
    rig.grabber->fail({"pxe_imageZdims", 3, 2});
    expectFailure([&] { rig->OpenBoard(4); }, memoryText, DerrResources, 3);
    rig->CloseBoard();

    rig->OpenBoard(most);
    EXPECT_EQ(rig->GetNumBuffers(), most);
    rig->SetBinningMode(Bin2x2);
    EXPECT_EQ(rig->GetNumBuffers(), most) << "a demand stays";
    rig->CloseBoard();
    rig->OpenBoard(most + 1);
    expectFailure([&] { rig->SetBinningMode(Bin1x1); }, memoryText, DerrResources, most);
    rig->CloseBoard();
    rig->OpenBoard();
    EXPECT_EQ(rig->GetNumBuffers(), most);
}

TEST(EpixConnection, GrabberWithoutRoomForAFrameStaysClosable) {
    BoardRig rig;
    rig.grabber->setMemory(1 << 20);
    expectFailure([&] { rig->OpenBoard(); }, "Problem Setting Frame-Grabber Video Resolution!", DerrGrabberSetup, -7);
    rig->CloseBoard();
    EXPECT_FALSE(rig->IsConnected());
    rig.grabber->setMemory(64 << 20);
    rig->OpenBoard();
    EXPECT_EQ(rig->GetNumBuffers(), (64 << 20) / (3072 * 864 * 2));
}

TEST(EpixConnection, ModelWithoutTapsAndOpenTexts) {
    BoardRig rig;
    simulator::Profile profile = *simulator::findProfile("6112");
    profile.model = 6318;
    simulator::Rack::instance().mountSlot(12, simulator::SimulatedDetector::create(profile));
    support::OpenEpix board(12);
    const GrabberCalls calls;
    const auto failure =
        expectFailure([&] { board.OpenBoard(); }, "CameraLink taps for this model are unknown", DerrBadRequest);
    EXPECT_THAT(failure->what(), HasSubstr("`anonymous-namespace'::getTaps"));
    EXPECT_THAT(calls.all().front(), HasSubstr("\"-DM 0x12\""));
    EXPECT_TRUE(board.IsConnected());
    board.CloseBoard();
}

TEST(EpixConnection, StateThatTheLibraryRefusedTheObjectIsMadeByTheOpen) {
    BoardRig rig;
    rig.board.reset();
    grabber::VirtualGrabber::failInstantiation(1);
    rig.board = std::make_unique<support::OpenEpix>(4);
    ASSERT_EQ(rig->xcState, nullptr);
    rig->OpenBoard();
    rig->Snap(0, 1000);
}

TEST(EpixConnection, ReplyThatAFailedReadLeftIsNotTakenForTheNextOne) {
    constexpr int freeRegister = 600;
    BoardRig rig;
    rig->OpenBoard();
    rig.hardware->writeRegister(freeRegister, 70);
    rig.hardware->writeRegister(freeRegister + 1, 71);
    rig.grabber->fail({"pxe_serialRead", -9});
    EXPECT_TRUE(support::failureOf([&] { rig->ReadRegister(freeRegister, 1); }));
    EXPECT_EQ(rig->ReadRegister(freeRegister + 1, 1), 71);
}

TEST(EpixConnection, HandleIsCreatedAndClosedOnce) {
    BoardRig rig;
    rig->OpenBoard();
    expectFailure([&] { rig->core().CreateDetectorHandle(); },
                  "Detector handle is already open. Please close before trying to re-open it!", DerrTransport);
    EXPECT_EQ(rig->core().CloseDetectorHandle(), 0);
    expectFailure([&] { rig->core().CloseDetectorHandle(); }, "Detector handle is not open", DerrTransport);
    expectFailure([&] { rig->WaitImage(10); }, "Error while waiting for image: WAIT_FAILED: 9: Bad file descriptor",
                  DerrAcquisition);
}

TEST(EpixConnection, CloseTakesEverythingDownInOrder) {
    BoardRig rig;
    rig->core().CloseBrd();  // not connected: nothing happens
    rig->OpenBoard();
    {
        const GrabberCalls calls;
        rig->GoLiveSeq();
        rig->CloseBoard();
        EXPECT_THAT(calls.all(), ElementsAre("goLiveSeq(S, 1, 1, 101, 1, 0, 1)", "goAbortLive(S, 1)",
                                             HasSubstr("eventCapturedFieldClose(S, 1, 0x"), "PIXCIclose(S)"));
    }
    rig->OpenBoard();
    rig->EnablePulseGenerator(10.0F);
    const GrabberCalls calls;
    rig->CloseBoard();
    const std::vector<std::string> all = calls.all();
    ASSERT_GE(all.size(), 3U);
    EXPECT_EQ(all[all.size() - 3], "setExsyncPrincMode(S, 1, 0, 0)");
    EXPECT_EQ(all.back(), "PIXCIclose(S)");
    EXPECT_FALSE(rig->pulseGeneratorEnabled);

    // A close that fails leaves the board open and can be repeated; so can a destruction end one.
    rig->OpenBoard();
    rig.grabber->fail({"pxe_PIXCIclose", -4});
    expectFailure([&] { rig->CloseBoard(); }, "Problem Closing Connection to Detector!", DerrTransport, -4);
    EXPECT_TRUE(rig->IsConnected());
    rig->CloseBoard();
    EXPECT_FALSE(rig->IsConnected());
}

TEST(EpixConnection, DestructionTakesDownEverythingWhateverFails) {
    for (const char* function : {"pxe_goAbortLive", "formatLoad", "pxe_setExsyncPrincMode", "pxe_PIXCIclose"}) {
        SCOPED_TRACE(function);
        BoardRig rig;
        rig->OpenBoard();
        rig->EnablePulseGenerator(10.0F);
        rig->GoLiveSeq();
        void* const event = rig->frameCapturedEvent;
        rig.grabber->fail({function, -9, 1, true});
        rig.board.reset();
        EXPECT_EQ(platform::waitForEvent(event, 0), platform::waitFailed) << "the event is closed";
        rig.grabber->clearFailures();
        support::OpenEpix next(4);
        next.OpenBoard();  // the slot is free
        next.Snap(0, 1000);
    }
}

TEST(EpixConnection, SoftwareTriggerIsAnEdgeOfAMillisecond) {
    BoardRig rig;
    rig->OpenBoard();
    const GrabberCalls calls;
    const platform::Time before = platform::now();
    rig->SoftwareTrigger();
    EXPECT_EQ(platform::now() - before, std::chrono::milliseconds(1));
    EXPECT_THAT(calls.all(), ElementsAre("setCameraLinkCCOut(S, 1, 1)", "setCameraLinkCCOut(S, 1, 0)"));
    for (const int nth : {1, 2}) {
        rig.grabber->fail({"pxe_setCameraLinkCCOut", -9, nth});
        expectFailure([&] { rig->SoftwareTrigger(); }, "Problem Sending Software Trigger!", DerrTransport, -9);
    }
}

TEST(XclibSeam, CallsAndResultsAreTracedSerialTrafficIsNot) {
    BoardRig rig;
    const support::LogCapture log;
    xclib& library = *rig->xclibLib;
    pxdstate* const state = library.XCLIBinstantiate();
    const std::string name = fmt::format("{}", static_cast<void*>(state));
    char text[8] = "Grey";
    unsigned char pixels[4] = {};
    library.PIXCIopen(state, "-DM 0x2", "", "");
    library.serialConfigure(state, 1, 0, 115200.0, 8, 0, 1, 0, 0, 0);
    library.serialWrite(state, 1, 0, text, 1);
    library.serialRead(state, 1, 0, text, 1);
    library.goneLive(state, 1);
    library.readuchar(state, 1, 2, 0, 0, -1, -1, pixels, 4, text);
    library.setExsyncPrincMode(state, 1, 0, 386);
    EXPECT_EQ(library.videoFormatAsIncluded(state, 1) + library.videoFormatAsIncludedInit(state, 1), 0);
    library.XCLIBuninstantiate(state);
    std::vector<std::string> expected{"pxe_XCLIBinstantiate()",
                                      "pxe_XCLIBinstantiate returned " + name,
                                      "pxe_PIXCIopen(" + name + ", \"-DM 0x2\", \"\", \"\")",
                                      "pxe_PIXCIopen returned 0",
                                      "pxe_serialConfigure(" + name + ", 1, 0, 115200, 8, 0, 1, 0, 0, 0)",
                                      "pxe_serialConfigure returned 0",
                                      "pxe_goneLive(" + name + ", 1, 0)",
                                      "pxe_goneLive returned 0",
                                      "pxe_readuchar(" + name + ", 1, 2, 0, 0, -1, -1, " +
                                          fmt::format("{}", static_cast<void*>(pixels)) + ", 4, \"Grey\")",
                                      "pxe_readuchar returned -6",
                                      "pxe_setExsyncPrincMode(" + name + ", 1, 0, 386)",
                                      "pxe_setExsyncPrincMode returned -6",
                                      "pxe_XCLIBuninstantiate(" + name + ")"};
    for (std::string& line : expected) line.insert(0, "info|EPIX: ");
    EXPECT_EQ(log.linesFrom("info|EPIX: "), expected);
}
