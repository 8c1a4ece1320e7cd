#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <system_error>
#include <thread>

#include "QuorinDetector.h"
#include "detector/xclib_real.h"
#include "support/BoardRig.h"
#include "support/expectFailure.h"

/// Frames, pulses and power on a frame grabber, by what reaches the grabber and the serial line.

using support::BoardRig;
using support::expectFailure;
using support::failureOf;
using support::GrabberCalls;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char* moveText = "Error in writing to buffer!";
constexpr const char* timeoutText = "Image did not arrive within the timeout.";
constexpr std::uint16_t edgesOnly = 0x60;

void noCall(int, int, QuorinDetector*) {}

/// Answers the second question for the fault text, not the first.
class LateFault : public xclib_real {
public:
    int mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) override {
        return ++asked == 1 ? 0 : xclib_real::mesgFaultText(state, unitMap, buffer, size);
    }
    int asked = 0;
};

/// Says that there is a fault text and fills all of the buffer.
class EndlessFault : public xclib_real {
public:
    explicit EndlessFault(char letterToFillWith) : letter(letterToFillWith) {}
    int mesgFaultText(pxdstate*, int, char* buffer, std::size_t size) override {
        std::fill(buffer, buffer + size, letter);
        return 1;
    }

private:
    const char letter;
};

}  // namespace

TEST(EpixAcquisition, BuffersCountFromZeroHereAndFromOneThere) {
    BoardRig rig;
    rig->OpenBoard();
    const GrabberCalls calls;
    rig->Snap(0, 1000);
    EXPECT_EQ(rig->GetCapturedBuffer(), 0);
    rig->Snap(3, 1000);
    EXPECT_EQ(rig->GetCapturedBuffer(), 3);
    EXPECT_EQ(rig->GetFieldCount(), 2);
    rig->GoLiveSeq(2, 5, 0);
    rig->GoUnLive();
    rig->GoUnLive();  // nothing to do
    EXPECT_THAT(calls.of("goSnap"), ElementsAre("1, 1", "1, 4"));
    EXPECT_THAT(calls.of("goLiveSeq"), ElementsAre("1, 3, 6, 1, 0, 1"));
    EXPECT_THAT(calls.of("goAbortLive"), ElementsAre("1"));
}

TEST(EpixAcquisition, FailedSnapsTellTheFaultTextAndTheCodeOfTheirFailure) {
    BoardRig rig;
    rig->OpenBoard();
    rig.hardware->writeRegister(0, edgesOnly);
    rig.grabber->fail({"pxe_goSnap", -5, 1, false, "no such buffer"});
    auto failure = expectFailure([&] { rig->Snap(0, 50); }, "Problem Snapping Image!", DerrAcquisition, -5);
    EXPECT_STREQ(failure->GetTransportMessage(), "no such buffer");
    EXPECT_THAT(failure->what(), HasSubstr("EpixDetector::Snap"));

    rig.hardware->faults().set(simulator::Fault::LostFrame, {1, true});
    failure = expectFailure([&] { rig->Snap(0, 500); }, timeoutText, DerrAcquisition, 258);
    EXPECT_STREQ(failure->GetTransportMessage(), "");

    rig.grabber->placeFaultText("lost the link");
    failure = expectFailure([&] { rig->Snap(0, 500); }, "An error occured in the Live thread!", DerrTransport);
    EXPECT_STREQ(failure->GetTransportMessage(), "lost the link");
    EXPECT_NO_THROW(rig->CheckForLiveError()) << "told once";

    rig->xclibLib = std::make_shared<LateFault>();
    rig.grabber->placeFaultText("lost it late");
    failure = support::failureOf([&] { rig->Snap(0, 500); });
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->what(), testing::StartsWith(timeoutText));
    EXPECT_EQ(failure->GetCode(), DerrAcquisition);
    EXPECT_EQ(failure->GetTransportError(), 258);
    EXPECT_STREQ(failure->GetTransportMessage(), "lost it late");
    EXPECT_STREQ(failure->GetFunctionName(), "EpixDetector::Snap");

    rig.hardware->faults().clearAll();
    rig->Snap(0, 500);

    for (const char letter : {'x', char{0}}) {
        rig->xclibLib = std::make_shared<EndlessFault>(letter);
        failure =
            expectFailure([&] { rig->CheckForLiveError(); }, "An error occured in the Live thread!", DerrTransport);
        EXPECT_EQ(failure->GetTransportMessage(), std::string(letter == 0 ? 0 : 1023, letter));
    }
}

TEST(EpixAcquisition, FrameSignalRemainsUntilAWaitConsumesIt) {
    BoardRig rig;
    rig->OpenBoard();
    rig->SetExposureTime(100.0F);
    const auto leaveASignal = [&] {
        rig->GoLiveSeq(0, 3, 1);
        platform::sleepFor(std::chrono::seconds(1));
        EXPECT_FALSE(rig->IsLive());
    };
    leaveASignal();
    rig.grabber->fail({"pxe_goSnap"});
    EXPECT_TRUE(failureOf([&] { rig->Snap(2, 1000); }));
    EXPECT_NO_THROW(rig->WaitImage(0)) << "after a refused snap";
    leaveASignal();
    rig->GoLiveSeq();
    EXPECT_NO_THROW(rig->WaitImage(0)) << "in the next run";
    rig->GoUnLive();
    leaveASignal();
    const platform::Time before = platform::now();
    rig->Snap(2, 1000);
    EXPECT_LT(platform::now() - before, std::chrono::milliseconds(50)) << "the snap takes the signal for its own";
}

TEST(EpixAcquisition, FrameThatGrewSinceTheImageWasMeasuredIsRefused) {
    BoardRig rig;
    rig->OpenBoard();
    QorImage smaller;
    rig->meanwhile = [&] { rig->SetBinningMode(Bin2x2); };
    EXPECT_NO_THROW(rig->core().ReadBuffer(0, smaller, 0)) << "it fits";
    QorImage larger;
    rig->meanwhile = [&] { rig->SetBinningMode(Bin1x1); };
    expectFailure([&] { rig->core().ReadBuffer(0, larger, 0); }, "Dimensions of image are not correct or supported!",
                  DerrBadRequest);
    EXPECT_EQ(static_cast<const std::uint16_t*>(larger.GetDataPointerToPlane(0))[0], 0);
}

TEST(EpixAcquisition, RefusedLiveRunsLeaveNothingBehind) {
    BoardRig rig;
    rig->OpenBoard();
    {
        const GrabberCalls calls;
        expectFailure([&] { rig->GoLiveSeq(5, 2, 0); },
                      "The stop parameter cannot be greater than the start parameter!", DerrBadRequest);
        EXPECT_TRUE(calls.all().empty());
    }
    bool freeElsewhere = false;
    std::thread([&] { freeElsewhere = !support::failureOf([&] { rig->IsLive(); }); }).join();
    EXPECT_TRUE(freeElsewhere) << "the lock is free";
    for (const auto& [start, stop, count] : {std::array{-1, 3, 0}, std::array{0, 101, 0}, std::array{0, 3, -1}})
        expectFailure([&, s = start, e = stop, c = count] { rig->GoLiveSeq(s, e, c); }, "Problem starting live mode!",
                      DerrTransport, -5);
    rig->GoLiveSeq(0, 3, 0);
    expectFailure([&] { rig->GoLiveSeq(0, 3, 0); },
                  "Live thread already active! Please exit live mode before trying to enter again!", DerrBadRequest);
    expectFailure([&] { rig->Snap(0, 50); }, "Problem Snapping Image!", DerrAcquisition, -8);
    rig.grabber->fail({"pxe_goAbortLive", -2});
    expectFailure([&] { rig->GoUnLive(); }, "Problem exiting live mode!", DerrTransport, -2);
    EXPECT_TRUE(rig->IsLive());
    rig->GoUnLive();

    // A run that nobody would be called back for doesn't begin.
    rig->SetCallback(noCall);
    rig->startThread = [](const auto&) -> std::unique_ptr<std::thread> {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    };
    EXPECT_THROW(rig->GoLiveSeq(0, 3, 0), std::system_error);
    EXPECT_FALSE(rig->IsLive());
}

TEST(EpixAcquisition, PixelsMoveWholeFramesOrFail) {
    BoardRig rig;
    rig->OpenBoard(4);
    rig->SetBinningMode(Bin4x4);
    const int size = rig->GetBufferXdim() * rig->GetBufferYdim() * 2;
    std::vector<unsigned char> frame(static_cast<std::size_t>(size));
    for (std::size_t byte = 0; byte < frame.size(); ++byte) frame[byte] = static_cast<unsigned char>(byte * 7);
    rig->WriteBuffer(3, frame.data(), size);
    std::vector<unsigned char> back(frame.size());
    const GrabberCalls calls;
    rig->ReadBuffer(3, back.data());
    EXPECT_EQ(back, frame);
    EXPECT_THAT(calls.of("readuchar").front(), testing::StartsWith("1, 4, 0, 0, -1, -1, 0x"));
    EXPECT_THAT(calls.of("readuchar").front(), testing::EndsWith(", " + std::to_string(size) + ", \"Grey\""));
    rig->ClearCameraBuffer(3);
    rig->ReadBuffer(3, back.data());
    EXPECT_EQ(back, std::vector<unsigned char>(frame.size()));

    for (const int buffer : {-1, 4})
        expectFailure([&] { rig->WriteBuffer(buffer, frame.data(), size); },
                      "The requested buffer is outside of the allocated range!", DerrResources);
    for (const int bytes : {0, size - 2, size + 2})
        expectFailure([&] { rig->WriteBuffer(0, frame.data(), bytes); },
                      "Size of input buffer must match size of current image buffer!", DerrBadRequest);
    for (const char* function : {"pxe_readuchar", "pxe_writeuchar"}) rig.grabber->fail({function, size - 1});
    expectFailure([&] { rig->ReadBuffer(0, back.data()); }, moveText, DerrTransport, size - 1);
    expectFailure([&] { rig->WriteBuffer(0, frame.data(), size); }, moveText, DerrTransport, size - 1);
    expectFailure([&] { rig->ReadBuffer(100000, back.data()); }, moveText, DerrTransport, -5);
    expectFailure([&] { rig->ReadBuffer(0, nullptr); }, "The frame needs a place to go to: the pointer is null!",
                  DerrBadRequest);
    EXPECT_NO_THROW(rig->ReadBuffer(0, back.data())) << "the critical section is free";
}

TEST(EpixPulses, FrequencyBecomesTwoCountsAndADivide) {
    BoardRig rig;
    rig->OpenBoard();
    const struct {
        float hz;
        int divide, width, pause;
    } settings[] = {{499.99997F, 0, 156, 0}, {499.9F, 0, 156, 0},  {10.0F, 0, 156, 7656},
                    {1.0F, 1, 78, 38984},    {0.2F, 3, 20, 48809}, {0.01F, 7, 1, 61034}};
    for (const auto& test : settings) {
        SCOPED_TRACE(test.hz);
        const GrabberCalls calls;
        rig->configurePGFrequency(test.hz);
        EXPECT_THAT(calls.of("setExsyncPrin"),
                    ElementsAre("1, " + std::to_string(test.width) + ", " + std::to_string(test.pause)));
        EXPECT_EQ(rig->pulseDivider, test.divide);
    }
    const GrabberCalls calls;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const struct {
        float hz;
        const char* text;
    } refused[] = {
        {500.0F, "500 Hz is too high. It must be less than 499.99997 Hz."},
        {infinity, "inf Hz is too high. It must be less than 499.99997 Hz."},
        {0.001F, "0.001 Hz is too low. Exposure Pixel Clock Divide N is 11, but it must be between 0 and 7."},
        {1e-45F, "1e-45 Hz is too low. Exposure Pixel Clock Divide N is 8, but it must be between 0 and 7."},
        {0.0F, "0 Hz is too low. Exposure Pixel Clock Divide N is 8, but it must be between 0 and 7."},
        {-1.0F, "-1 Hz is too low. Exposure Pixel Clock Divide N is 8, but it must be between 0 and 7."},
        {nan, "nan Hz is too low. Exposure Pixel Clock Divide N is 8, but it must be between 0 and 7."},
    };
    for (const auto& test : refused)
        expectFailure([&] { rig->configurePGFrequency(test.hz); },
                      std::string("Pulse generator frequency ") + test.text, DerrBadRequest);
    EXPECT_TRUE(calls.all().empty());
    rig.grabber->fail({"pxe_setExsyncPrin", -5});
    expectFailure([&] { rig->configurePGFrequency(1.0F); }, "Problem enabling pulse generator!", DerrTransport, -5);
    EXPECT_EQ(rig->pulseDivider, 7) << "a refusal keeps the old one";
}

TEST(EpixPulses, FormatIsExchangedAndTheGeneratorSwitched) {
    BoardRig rig;
    rig->OpenBoard();
    rig->GoLiveSeq();
    const std::vector<std::string> reload{"setPixelFormatGrey(S, 1, 8, 0, 0, 4, 0, 0)",
                                          "setVideoResolution(S, 1, 6144, 864, 0, 0)", "imageZdims(S, 1)"};
    {
        std::vector<std::string> expected = reload;
        expected.insert(expected.end(), {"setExsyncPrin(S, 1, 20, 48809)", "setExsyncPrincMode(S, 1, 0, 386)",
                                         "setExsyncPrincMode(S, 1, 0, 0)"});
        const GrabberCalls calls;
        rig->EnablePulseGenerator(0.2F);
        EXPECT_FALSE(rig->IsLive()) << "the run is aborted without GoUnLive";
        rig->ToggleGenerator(true);
        rig->ToggleGenerator(false);
        EXPECT_EQ(calls.all(), expected);
        EXPECT_TRUE(rig->pulseGeneratorEnabled);
    }
    rig.grabber->fail({"pxe_setExsyncPrincMode", -1});
    expectFailure([&] { rig->ToggleGenerator(true); }, "Problem toggling pulse generator!", DerrTransport, -1);
    rig.grabber->fail({"pxe_setExsyncPrincMode", -1});
    expectFailure([&] { rig->DisablePulseGenerator(); }, "Problem disabling pulse generator!", DerrTransport, -1);
    EXPECT_TRUE(rig->pulseGeneratorEnabled);
    {
        std::vector<std::string> expected = reload;
        expected.emplace_back("setExsyncPrincMode(S, 1, 0, 0)");
        const GrabberCalls calls;
        rig->DisablePulseGenerator();
        EXPECT_EQ(calls.all(), expected);
        EXPECT_FALSE(rig->pulseGeneratorEnabled);
    }
    for (const char* function : {"formatLoad", "pxe_setExsyncPrin"}) {
        rig.grabber->fail({function, -6});
        const auto failure = support::failureOf([&] { rig->EnablePulseGenerator(10.0F); });
        ASSERT_TRUE(failure);
        EXPECT_THAT(failure->what(), HasSubstr("EpixDetector::EnablePulseGenerator"));
        EXPECT_FALSE(rig->pulseGeneratorEnabled) << function;
    }
    rig->DisablePulseGenerator();
    rig->Snap(0, 1000);  // the line is the software's again
}

TEST(EpixPower, CommandsOfBothElectronics) {
    const struct {
        int slot;
        std::vector<std::string> off, on;
    } cases[] = {{3, {"WC0", "WP0"}, {"WP1", "WC1"}}, {4, {"WC0", "WP0", "RV"}, {"WP1", "R1124", "WC1"}}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.slot);
        BoardRig rig(test.slot);
        rig->OpenBoard();
        rig->Snap(0, 1000);
        const auto begin = [](std::vector<std::string> commands, std::size_t count) {
            commands.resize(std::min(count, commands.size()));
            return commands;
        };
        {
            const GrabberCalls calls;
            rig->PowerSwitch(false);
            EXPECT_EQ(begin(calls.serialCommands(), test.off.size()), test.off);
        }
        const GrabberCalls calls;
        rig->PowerSwitch(true);
        EXPECT_EQ(begin(calls.serialCommands(), test.on.size()), test.on);
        EXPECT_EQ(calls.of("setVideoResolution").size(), 1U) << "the frame size is taken up";
        rig->Snap(0, 1000);
    }
}

TEST(EpixPower, OffWaitsForTheFlashMemoryOfKestraneElectronics) {
    BoardRig rig(4);
    rig->OpenBoard();
    rig.hardware->faults().set(simulator::Fault::BusyFlash, {1, true});
    const GrabberCalls calls;
    const auto failure = support::failureOf([&] { rig->PowerSwitch(false); });
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->what(), testing::StartsWith("Timeout waiting for flash controller"));
    EXPECT_THAT(calls.serialCommands(), testing::Each("R1418")) << "nothing is cut off";
}

TEST(EpixPower, FailedPowerOnIsIgnoredOnlyWithoutKestraneElectronics) {
    {
        BoardRig rig(3);
        rig->OpenBoard();
        rig->PowerSwitch(false);
        rig.hardware->faults().set(simulator::Fault::SilentLine);
        const GrabberCalls calls;
        rig.hardware->setBootTimeMs(0);
        EXPECT_NO_THROW(rig->PowerSwitch(true));
        EXPECT_EQ(calls.serialCommands().front(), "WC1") << "the first that was answered";
    }
    BoardRig rig(4);
    rig->OpenBoard();
    rig->PowerSwitch(false);
    const GrabberCalls calls;
    const platform::Time before = platform::now();
    rig.hardware->faults().set(simulator::Fault::SilentLine, {2, true});
    const auto failure =
        expectFailure([&] { rig->PowerSwitch(true); }, "Detector was not responsive after power-on.", DerrTransport);
    EXPECT_THAT(failure->what(), HasSubstr("EpixDetector::PowerSwitchKestrane"));
    EXPECT_GE(platform::now() - before, std::chrono::seconds(5));
    EXPECT_THAT(calls.serialCommands(), testing::Not(testing::Contains("WC1")));
    rig.hardware->faults().clearAll();
    rig.hardware->faults().set(simulator::Fault::SilentLine);
    expectFailure([&] { rig->PowerSwitch(true); }, "Problem sending serial command WP1", DerrSerialCommand);
}

TEST(EpixPower, InterfaceAloneLosesFramesOnly) {
    BoardRig rig;
    rig->OpenBoard();
    rig->PowerCLInterface(false);
    EXPECT_EQ(rig->GetModelNumber(), 6112);
    expectFailure([&] { rig->Snap(0, 500); }, timeoutText, DerrAcquisition, 258);
    const simulator::Ledger lost = rig.hardware->ledger();
    EXPECT_GT(lost.exposed, 0U);
    EXPECT_EQ(lost.lost(), lost.exposed);
    rig->PowerCLInterface(true);
    rig->Snap(0, 500);
}
