#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "QorImage.h"
#include "detector/PleoraDetector.h"
#include "platform/Event.h"
#include "platform/VirtualClock.h"
#include "support/ScriptedPleora.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::ScriptedPleora;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr const char* openText = "Problem Opening Connection to Detector!";
constexpr const char* configureText = "Problem Configuring Detector!";
constexpr const char* serialText = "Problem Configuring Detector Serial Interface!";
constexpr const char* closeText = "Problem Closing Connection to Detector!";
constexpr const char* sizeText = "Failed to configure Pleora interface: Problem updating image parameters";

class TestDetector : public PleoraDetector {
public:
    explicit TestDetector(std::shared_ptr<ScriptedPleora> pleora, const char* address = "10.0.0.2")
        : PleoraDetector(address, nullptr) {
        pleoraLib = std::move(pleora);
    }
    using PleoraDetector::binningMode, PleoraDetector::boardText, PleoraDetector::commsOpen,
        PleoraDetector::frameCapturedEvent, PleoraDetector::handleOpen, PleoraDetector::numBuffers,
        PleoraDetector::softwareTriggerEnabled, PleoraDetector::TransportMinimumExposureTime;

    std::function<void()> meanwhile;  ///< runs once, after the next look at the frame size
    int GetBufferYdim() override {
        const int rows = PleoraDetector::GetBufferYdim();
        if (const auto change = std::exchange(meanwhile, nullptr)) change();
        return rows;
    }
};

class GigeConnection : public testing::Test {
protected:
    GigeConnection() : pleora(std::make_shared<ScriptedPleora>()), detector(pleora) {
        pleora->line.registers = {{124, 5101}, {126, 1}, {9, 1}, {10, 1}, {11, 9000}};
        pleora->frame.assign(1536 * 864 * 2, 0x5A);
    }
    platform::ScopedVirtualClock clock;
    std::shared_ptr<ScriptedPleora> pleora;
    TestDetector detector;
    baseDetector& core = detector;  ///< where the reads into images are
};

constexpr std::string_view openingText =
    "init; Dev_Connect 10.0.0.2; Stream_Open 10.0.0.2; Dev_NegotiatePacketSize; Stream_GetLocalPort; "
    "Stream_GetLocalIPAddress; Dev_SetStreamDestination 10.0.0.1 4711; stream RequestTimeout = 180000; "
    "stream FirstPacketTimeout = 180000; stream InterPacketTimeout = 180000; Uart0BaudRate = Baud115200; "
    "Uart0NumOfStopBits = One; Uart0Parity = None; Uart0Loopback = false; PixelFormat = 17825829; IP_Open 0; "
    "PayloadSize?; Pipeline_SetBufferSize 2654208; Pipeline_SetBufferCount 20; PLC_I0 = PLC_ctrl0; "
    "PLC_ctrl0 = false; PLC_ctrl1 = false; PLC_ctrl2 = false; PLC_ctrl3 = false; PLC_I7 = Timer1Out; "
    "PLC_Q4_Variable0 = PLC_I0; PLC_Q4_Operator0 = Or; PLC_Q4_Variable1 = Zero; PLC_Q4_Operator1 = Or; "
    "PLC_Q4_Variable2 = Zero; PLC_Q4_Operator2 = Or; PLC_Q4_Variable3 = Zero; TestImageSelector = Off; "
    "Uart0BaudRate = Baud115200; Uart0NumOfStopBits = One; Uart0Parity = None; Uart0Loopback = false; "
    "Width = 1536; Height = 864; Width?; Height?; PayloadSize?; Pipeline_SetBufferSize 2654208; Pipeline_Start";

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> parts;
    for (std::size_t from = 0, to = 0; to != std::string_view::npos; from = to + 2) {
        to = text.find("; ", from);
        parts.emplace_back(text.substr(from, to - from));
    }
    return parts;
}
const std::vector<std::string> openingSteps = split(openingText);

}  // namespace

TEST_F(GigeConnection, OpeningTakesItsStepsInOrder) {
    detector.OpenBoard();
    EXPECT_THAT(pleora->steps(), ElementsAreArray(openingSteps));
    EXPECT_EQ(pleora->line.commands.front(), "R1129");
    EXPECT_EQ(pleora->line.commands[1], "R1124");
    EXPECT_TRUE(detector.IsConnected());
    EXPECT_EQ(detector.GetNumBuffers(), 20);
    expectFailure([&] { detector.CreateDetectorHandle(); },
                  "Detector handle is already open. Please close before trying to re-open it!", DerrTransport);
    EXPECT_NE(detector.CloseDetectorHandle(), 0);
    expectFailure([&] { detector.CloseDetectorHandle(); }, "Detector handle is not open", DerrTransport);
    const std::string address(150, 'a');
    TestDetector other(pleora, address.c_str());
    EXPECT_EQ(std::string(other.boardText.data()), std::string(99, 'a')) << "cut, but used whole for connecting";
    pleora->calls.clear();
    other.OpenBoard();
    EXPECT_EQ(pleora->calls[1], "Dev_Connect " + address);
}

TEST_F(GigeConnection, EachFailedStepIsOneClearErrorAndTheNextOpenWorks) {
    const std::pair<const char*, const char*> texts[] = {
        {"Dev_Connect", openText},
        {"Stream_Open", openText},
        {"IP_Open", "Problem Openning Serial connection to detector!"},
        {"Pipeline_SetBufferCount", "Problem with setting up the buffer!"},
        {"Pipeline_Start", "Problem starting pipeline!"},
        {"Uart0", serialText},
        {"Width", sizeText},
        {"Height", sizeText}};
    for (const std::string& step : openingSteps) {
        if (step == "init" || step.rfind("Stream_GetLocal", 0) == 0 || step.rfind("Pipeline_SetBufferSize", 0) == 0)
            continue;  // these have no result
        pleora->calls.clear();
        pleora->failing = step;
        const char* expected = configureText;
        for (const auto& [start, text] : texts)
            if (step.rfind(start, 0) == 0) expected = text;
        const auto failure = expectFailure([&] { detector.OpenBoard(); }, expected, DerrTransport, 5);
        ASSERT_TRUE(failure) << step;
        EXPECT_STREQ(failure->GetTransportMessage(), "scripted failure");
        const std::vector<std::string> steps = pleora->steps();
        EXPECT_THAT(std::vector<std::string>(steps.end() - 4, steps.end()),
                    ElementsAre("IP_Close", "Stream_Close", "Dev_Disconnect", "deinit"))
            << step;
        EXPECT_FALSE(pleora->initialized);
        pleora->failing.clear();
        EXPECT_NO_THROW(detector.OpenBoard()) << step;
        detector.CloseBoard();
    }
}

TEST_F(GigeConnection, ClosingTakesItsStepsInOrderAndCanBeRepeated) {
    detector.OpenBoard();
    for (const char* step : {"IP_Close", "Pipeline_Stop", "Stream_Close", "Dev_Disconnect"}) {
        pleora->failing = step;
        expectFailure([&] { detector.CloseBoard(); }, closeText, DerrTransport, 5);
        EXPECT_TRUE(detector.IsConnected());
        EXPECT_TRUE(pleora->initialized);
    }
    pleora->failing.clear();
    pleora->Pipeline_Start();
    pleora->calls.clear();
    detector.CloseBoard();
    EXPECT_THAT(pleora->steps(), ElementsAre("IP_Close", "Pipeline_Stop", "Stream_Close", "Dev_Disconnect", "deinit"));
    EXPECT_FALSE(detector.handleOpen);
    pleora->calls.clear();
    detector.CloseBrd();
    EXPECT_TRUE(pleora->calls.empty()) << "a closed board is left alone";
}

TEST_F(GigeConnection, BufferCountMustBePositiveAndSizesTheRingAlone) {
    for (const int count : {0, -1})
        expectFailure([&] { detector.OpenBoard(count); },
                      "Requested number of buffers is invalid! Number of buffers must be a positive integer value.",
                      DerrBadRequest, count);
    EXPECT_TRUE(pleora->calls.empty());
    EXPECT_EQ(detector.numBuffers, 20);
    detector.OpenBoard(4);
    EXPECT_EQ(detector.GetNumBuffers(), 4);
    EXPECT_THAT(pleora->calls, testing::Contains("Pipeline_SetBufferCount 20"));
    std::vector<unsigned char> frame(1536 * 864 * 2);
    EXPECT_NO_THROW(detector.ReadBuffer(3, frame.data()));
    const char* const text = "The requested buffer is outside of the allocated range!";
    for (const int buffer : {-1, 4}) {
        expectFailure([&] { detector.ReadBuffer(buffer, frame.data()); }, text, DerrResources, buffer);
        expectFailure([&] { detector.WriteBuffer(buffer, frame.data(), 2654208); }, text, DerrResources, buffer);
    }
    expectFailure([&] { detector.WriteBuffer(0, frame.data(), 2654207); },
                  "Size of input buffer must match size of current image buffer!", DerrBadRequest, 2654207);
}

TEST_F(GigeConnection, SerialSettingsAreCheckedBeforeTheDeviceIsTouched) {
    expectFailure([&] { detector.SerialConfigure(4800, 8, 0, 1); }, "Unsupported serial communications baud rate!",
                  DerrBadRequest, 4800);
    expectFailure([&] { detector.SerialConfigure(9600, 8, 3, 1); },
                  "Unsupported serial communications parity bit setting!", DerrBadRequest, 3);
    expectFailure([&] { detector.SerialConfigure(9600, 8, 0, 3); },
                  "Unsupported serial communications stop bit setting!", DerrBadRequest, 3);
    EXPECT_TRUE(pleora->calls.empty());
}

TEST_F(GigeConnection, PersistentAddressIsWrittenAndTheBoardReconnected) {
    const char* const text = "The desired IP Address is invalid! Each byte parameter must be an integer between 0-255!";
    detector.OpenBoard();
    pleora->calls.clear();
    expectFailure([&] { detector.SetPersistentIPAddress(192, 168, 256, 1); }, text, DerrBadRequest);
    expectFailure([&] { detector.SetPersistentIPAddress(-1, 168, 0, 1); }, text, DerrBadRequest);
    EXPECT_TRUE(pleora->calls.empty());
    detector.SetPersistentIPAddress(192, 168, 0, 1);
    EXPECT_EQ(pleora->calls[0], "GevCurrentIPConfigurationPersistentIP = true");
    EXPECT_EQ(pleora->calls[1], "GevPersistentIPAddress = 3232235521");
    EXPECT_TRUE(detector.IsConnected());
    const auto closed = support::failureOf([&] { detector.WaitImage(10); });
    ASSERT_TRUE(closed);
    EXPECT_THAT(closed->what(), testing::HasSubstr("WAIT_FAILED: "));
    detector.CloseBoard();
    detector.OpenBoard();
    pleora->failing = "Dev_Connect 10.0.0.2";
    expectFailure([&] { detector.SetPersistentIPAddress(1, 2, 3, 4); }, openText, DerrTransport, 5);
    EXPECT_TRUE(detector.IsConnected());
    pleora->failing.clear();
    EXPECT_NO_THROW(detector.CloseBoard());
    EXPECT_NO_THROW(detector.OpenBoard());
}

TEST_F(GigeConnection, FrameSizeFollowsTheDeviceAndNeverOverrunsTheCaller) {
    pleora->roundWidthTo = 1000;
    detector.OpenBoard();
    EXPECT_EQ(pleora->traced["Width"], 0);
    detector.UpdateInterfaceImageSize();
    EXPECT_EQ(pleora->traced["Width"], 2000) << "the trace of a read shows what was known before";
    EXPECT_EQ(pleora->traced["Height"], 864);
    EXPECT_EQ(pleora->traced["PayloadSize"], 2000 * 864 * 2);
    EXPECT_EQ(detector.bufferXdim(), 4000);
    EXPECT_EQ(detector.bufferYdim(), 864);
    std::vector<unsigned char> frame(1536 * 864 * 2 + 64, 0xEE);
    pleora->frame.assign(2000 * 864 * 2, 0x11);
    detector.Snap(0, 100);
    detector.ReadBuffer(0, frame.data());
    EXPECT_EQ(frame[1536 * 864 * 2 - 1], 0x11);
    EXPECT_EQ(frame[1536 * 864 * 2], 0xEE);
    EXPECT_FLOAT_EQ(detector.TransportMinimumExposureTime(), 1536.0F * 864 * 16 / 670e6F * 1000);
}

TEST_F(GigeConnection, FrameBeyondTwoGigabytesIsRefused) {
    constexpr std::int64_t fourGigabytes = std::int64_t{1} << 32;
    // What the device tells at first, and what it makes of the width; the low 32 bits alone would be a small frame.
    const std::pair<std::int64_t, int> cases[] = {{fourGigabytes + 64, 1}, {64, fourGigabytes / (864 * 2) + 1}};
    for (const auto& [payload, roundWidthTo] : cases) {
        pleora->integers["PayloadSize"] = payload;
        pleora->roundWidthTo = roundWidthTo;
        expectFailure([&] { detector.OpenBoard(); }, "Insufficient Memory on system!", DerrResources);
        EXPECT_FALSE(detector.IsConnected());
    }
}

TEST_F(GigeConnection, SizeChangeInsideASizeChangeLeavesThePipelineToTheOuterOne) {
    detector.OpenBoard();
    pleora->calls.clear();
    detector.meanwhile = [&] { detector.UpdateInterfaceImageSize(); };
    detector.UpdateInterfaceImageSize();
    EXPECT_THAT(pleora->steps(),
                ElementsAre("Pipeline_Stop", "Width = 1536", "Width = 1536", "Height = 864", "Width?", "Height?",
                            "PayloadSize?", "Pipeline_SetBufferSize 2654208", "Height = 864", "Width?", "Height?",
                            "PayloadSize?", "Pipeline_SetBufferSize 2654208", "Pipeline_Start"));
}

TEST_F(GigeConnection, FailedSizeChangeIsNotRepeatedByOtherCalls) {
    detector.OpenBoard();
    pleora->failing = "Width = 768";
    expectFailure([&] { detector.SetBinningMode(Bin2x2); }, sizeText, DerrTransport, 5);
    pleora->failing.clear();
    pleora->calls.clear();
    detector.Snap(0, 10);
    EXPECT_THAT(pleora->calls, ElementsAre("State_Start", "PLC_ctrl0 = true", "PLC_ctrl0 = false",
                                           "Pipeline_RetrieveNextBuffer 10", "Pipeline_ReleaseBuffer", "State_Stop"));
}

TEST_F(GigeConnection, PipelineThatDoesNotStopIsReadOnlyAsFarAsItsBuffersReach) {
    detector.OpenBoard();
    detector.SetBinningMode(Bin4x4);
    pleora->frame.assign(384 * 216 * 2, 0x22);
    pleora->failing = "Pipeline_Stop";
    detector.SetBinningMode(Bin1x1);
    detector.ClearBuffers();
    detector.Snap(0, 10);
    std::vector<unsigned char> frame(1536 * 864 * 2);
    detector.ReadBuffer(0, frame.data());
    EXPECT_EQ(frame[384 * 216 * 2 - 1], 0x22);
    EXPECT_EQ(frame[384 * 216 * 2], 0);
}

TEST_F(GigeConnection, FrameThatGrewSinceTheImageWasMeasuredIsRefused) {
    detector.OpenBoard();
    QorImage smaller;
    detector.meanwhile = [&] { detector.SetBinningMode(Bin2x2); };
    EXPECT_NO_THROW(core.ReadBuffer(0, smaller, 0)) << "it fits";
    QorImage larger;
    detector.meanwhile = [&] { detector.SetBinningMode(Bin1x1); };
    expectFailure([&] { core.ReadBuffer(0, larger, 0); }, "Dimensions of image are not correct or supported!",
                  DerrBadRequest);
    EXPECT_EQ(static_cast<const std::uint16_t*>(larger.GetDataPointerToPlane(0))[0], 0);
}

TEST_F(GigeConnection, ReadBufferAsksTheDetectorNothing) {
    detector.OpenBoard();
    detector.binningMode.reset();
    pleora->calls.clear();
    std::vector<unsigned char> frame(1536 * 864 * 2);
    detector.ReadBuffer(0, frame.data());
    EXPECT_TRUE(pleora->calls.empty());
}

TEST_F(GigeConnection, FailedOpenLeavesChannelAndEventAsTheyAre) {
    pleora->failing = "Pipeline_Start";
    expectFailure([&] { detector.OpenBoard(); }, "Problem starting pipeline!", DerrTransport, 5);
    EXPECT_TRUE(detector.commsOpen);
    pleora->failing.clear();
    detector.OpenBoard();
    detector.CloseBoard();
    pleora->failing = "IP_Write";  // nothing is read before the event exists: the settings are cached
    EXPECT_TRUE(support::failureOf([&] { detector.OpenBoard(); }));
    EXPECT_TRUE(detector.handleOpen);
    void* const event = detector.frameCapturedEvent;
    pleora->failing.clear();
    expectFailure([&] { detector.OpenBoard(); },
                  "Detector handle is already open. Please close before trying to re-open it!", DerrTransport);
    EXPECT_EQ(detector.frameCapturedEvent, event);
}

TEST_F(GigeConnection, SnapTriggersRetrievesCopiesAndStops) {
    detector.OpenBoard();
    pleora->calls.clear();
    detector.Snap(7, 250);
    EXPECT_THAT(pleora->calls, ElementsAre("State_Start", "PLC_ctrl0 = true", "PLC_ctrl0 = false",
                                           "Pipeline_RetrieveNextBuffer 250", "Pipeline_ReleaseBuffer", "State_Stop"));
    EXPECT_EQ(detector.GetCapturedBuffer(), 7);
    EXPECT_EQ(detector.GetFieldCount(), 1);
    EXPECT_NO_THROW(detector.WaitImage(0));
    detector.softwareTriggerEnabled = false;
    pleora->calls.clear();
    detector.Snap(7, 250);
    EXPECT_EQ(pleora->calls[1], "Pipeline_RetrieveNextBuffer 250") << "no trigger beside the pulse generator";
}

TEST_F(GigeConnection, SnapFailuresTellTheResultAndWhetherTheBufferWentBack) {
    const char* const snapText = "Problem Snapping Image!";
    detector.OpenBoard();
    pleora->frameReady = false;
    expectFailure([&] { detector.Snap(0, 10); }, snapText, DerrAcquisition, 30);
    EXPECT_EQ(pleora->State_GetState(), PvAcquisitionStateLocked) << "acquisition stays started";
    pleora->frameReady = true;
    pleora->failing = "frame";
    expectFailure([&] { detector.Snap(0, 10); }, snapText, DerrAcquisition, 5);
    EXPECT_EQ(pleora->heldBuffers, 0);
    pleora->failing = "Pipeline_ReleaseBuffer";
    expectFailure([&] { detector.Snap(0, 10); }, "Problem releasing detector buffers!", DerrAcquisition, 5);
    pleora->failing.clear();
    pleora->heldBuffers = 0;
    expectFailure([&] { detector.Snap(20, 10); }, "The requested buffer is outside of the allocated range!",
                  DerrResources);
    EXPECT_EQ(pleora->heldBuffers, 1) << "a bad number leaves the pipeline's buffer held";
    EXPECT_EQ(detector.GetFieldCount(), 0);
    const std::vector<std::uint8_t> pixels = std::exchange(pleora->frame, {});
    ASSERT_EQ(pleora->Buffer_GetImagePointer(), nullptr);
    expectFailure([&] { detector.Snap(0, 10); }, snapText, DerrAcquisition);
    EXPECT_EQ(pleora->heldBuffers, 1) << "the one before went back";
    pleora->frame = pixels;
    detector.Snap(0, 10);
    EXPECT_EQ(pleora->heldBuffers, 0);
    pleora->failing = "PLC_ctrl0 = true";
    expectFailure([&] { detector.Snap(0, 10); }, "Problem Sending Software Trigger!", DerrTransport, 5);
    detector.CloseBoard();
}
