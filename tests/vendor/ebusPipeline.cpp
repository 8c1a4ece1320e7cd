#include <cstring>

#include "EbusRig.h"

namespace {

class EbusPipeline : public EbusRig {
protected:
    PvResult retrieve(std::uint32_t timeoutMs = 0) {
        return user.pipeline.RetrieveNextBuffer(&buffer, timeoutMs, &frameResult);
    }

    static std::vector<std::uint16_t> pixelsOf(PvBuffer& of) {
        std::vector<std::uint16_t> pixels(std::size_t{of.GetImage()->GetWidth()} * of.GetImage()->GetHeight());
        std::memcpy(pixels.data(), of.GetImage()->GetDataPointer(), pixels.size() * sizeof(std::uint16_t));
        return pixels;
    }

    static std::vector<std::uint16_t> pattern(std::uint64_t frame) {
        return simulator::patternFrame(frame, width, height, 2, 1);
    }

    PvBuffer* buffer = nullptr;
    PvResult frameResult;
};

TEST_F(EbusPipeline, RetrievalEndsWithTheFrameOrWithCode30AtTheTimeout) {
    connectAndRun(4);
    const platform::Time before = clock.now();
    EXPECT_EQ(retrieve(100).GetCode(), 30U);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(100));
    user.pulse();
    EXPECT_TRUE(retrieve(0xFFFFFFFF).IsOK());
    EXPECT_EQ(clock.now() - before, std::chrono::milliseconds(102));
    ASSERT_TRUE(user.pipeline.Stop().IsOK());
    EXPECT_EQ(retrieve(50).GetCode(), 30U) << "stopped";
}

TEST_F(EbusPipeline, FramesAreLostWhileTheUserHoldsAllBuffers) {
    connectAndRun(2);
    expose(3);
    EXPECT_EQ(detector->ledger().lostNoBuffer, 1U);
    ASSERT_TRUE(retrieve().IsOK());
    PvBuffer* const first = buffer;
    ASSERT_TRUE(retrieve().IsOK());
    expose();
    EXPECT_EQ(detector->ledger().lostNoBuffer, 2U);
    ASSERT_TRUE(user.pipeline.ReleaseBuffer(first).IsOK());
    expose();
    ASSERT_TRUE(retrieve().IsOK());
    EXPECT_EQ(pixelsOf(*buffer), pattern(5));
    ASSERT_TRUE(user.stream.QueueBuffer(buffer).IsOK()) << "the stream takes a buffer back as well";
    EXPECT_EQ(detector->ledger().delivered, 3U);
    expectBalancedLedger();
}

TEST_F(EbusPipeline, StoppingDropsWhatWaitsAndTheLedgerKnows) {
    connectAndRun(4);
    expose(3);
    ASSERT_TRUE(retrieve().IsOK());
    ASSERT_TRUE(user.pipeline.Stop().IsOK());
    EXPECT_EQ(user.pipeline.Stop().GetCode(), PvResult::StateError);
    EXPECT_EQ(detector->ledger().lostInFlight, 2U);
    ASSERT_TRUE(user.pipeline.Start().IsOK());
    EXPECT_EQ(retrieve().GetCode(), 30U);
    expose();
    ASSERT_TRUE(user.stream.Close().IsOK());
    EXPECT_EQ(detector->ledger().lostInFlight, 3U) << "closing the stream drops as well";
    expectBalancedLedger();
}

TEST_F(EbusPipeline, ABufferInTheUsersHandsOutlivesStopAndNewSizes) {
    connectAndRun(1);
    expose();
    ASSERT_TRUE(retrieve().IsOK());
    PvBuffer* const held = buffer;
    ASSERT_TRUE(user.pipeline.Stop().IsOK());
    user.pipeline.SetBufferSize(8);
    ASSERT_TRUE(user.pipeline.SetBufferCount(2).IsOK());
    ASSERT_TRUE(user.pipeline.Start().IsOK());
    expose();
    EXPECT_EQ(pixelsOf(*held), pattern(1));
    EXPECT_TRUE(user.pipeline.ReleaseBuffer(held).IsOK());
    EXPECT_EQ(user.pipeline.ReleaseBuffer(held).GetCode(), PvResult::NotFound) << "released twice";
    PvBuffer foreign;
    EXPECT_EQ(user.pipeline.ReleaseBuffer(&foreign).GetCode(), PvResult::NotFound);
    EXPECT_EQ(user.pipeline.ReleaseBuffer(nullptr).GetCode(), PvResult::NotFound);
    expose(2);
    EXPECT_EQ(detector->ledger().lostNoBuffer, 1U) << "the old buffer is not a third one of the new run";
}

TEST_F(EbusPipeline, AFrameThatOutgrewItsBufferIsHandedOverCutAndMarked) {
    user.connect(address);
    user.wireControlBit();
    user.pipeline.SetBufferSize(width * 2 * 3 + 10);
    ASSERT_TRUE(user.pipeline.Start().IsOK());
    ASSERT_TRUE(user.acquisition.Start().IsOK());
    expose();
    ASSERT_TRUE(retrieve().IsOK());
    EXPECT_EQ(frameResult.GetCode(), PvResult::BufferTooSmall);
    EXPECT_EQ(buffer->GetImage()->GetHeight(), 3U);
    std::vector<std::uint16_t> expected = pattern(1);
    expected.resize(width * 3);
    EXPECT_EQ(pixelsOf(*buffer), expected);
}

TEST_F(EbusPipeline, TheDeviceGrabsItsOwnWidthAndHeight) {
    constexpr std::uint32_t grabbedWidth = width + 6;
    constexpr std::uint32_t grabbedHeight = height - 4;
    user.connect(address);
    user.wireControlBit();
    user.features().SetIntegerValue("Width", grabbedWidth);
    user.features().SetIntegerValue("Height", grabbedHeight);
    user.run(2);
    expose();
    ASSERT_TRUE(retrieve().IsOK());
    EXPECT_TRUE(frameResult.IsOK());
    const std::vector<std::uint16_t> detectorFrame = pattern(1);
    std::vector<std::uint16_t> expected(grabbedWidth * grabbedHeight);
    for (std::size_t row = 0; row < grabbedHeight; ++row)
        std::copy_n(&detectorFrame[row * width], width, &expected[row * grabbedWidth]);
    EXPECT_EQ(pixelsOf(*buffer), expected);
}

TEST_F(EbusPipeline, DamagedFramesAreHandedOverWithAFailedResult) {
    connectAndRun(4);
    detector->faults().set(simulator::Fault::TruncatedFrame, {.first = 1});
    detector->faults().set(simulator::Fault::FailedFrame, {.first = 2});
    detector->faults().set(simulator::Fault::LostFrame, {.first = 3});
    expose(4);
    std::string fates;
    while (retrieve().IsOK()) {
        fates += frameResult.IsOK() ? "good " : std::string(frameResult.GetCodeString().GetAscii()) + ' ';
        EXPECT_EQ(buffer->GetImage()->GetHeight(), height);
    }
    EXPECT_EQ(fates, "FRAME_INCOMPLETE FRAME_INCOMPLETE good ");
    EXPECT_EQ(detector->ledger().lostByFault, 1U);
    expectBalancedLedger();
}

TEST_F(EbusPipeline, FramesNeedTheWholeRoad) {
    connectAndRun(2);
    const std::uint16_t port = user.stream.GetLocalPort();
    const PvString host = user.stream.GetLocalIPAddress();
    const struct {
        const char* what;
        std::function<PvResult()> breakIt;
        std::function<PvResult()> mendIt;
    } links[] = {
        {"destination", [&] { return user.device.SetStreamDestination(host, static_cast<std::uint16_t>(port + 1)); },
         [&] { return user.device.SetStreamDestination(host, port); }},
        {"host", [&] { return user.device.SetStreamDestination("10.0.0.1", port); },
         [&] { return user.device.SetStreamDestination(host, port); }},
        {"acquisition", [&] { return user.acquisition.Stop(); }, [&] { return user.acquisition.Start(); }},
        {"pipeline", [&] { return user.pipeline.Stop(); }, [&] { return user.pipeline.Start(); }},
    };
    std::uint64_t lost = 0;
    for (const auto& link : links) {
        ASSERT_TRUE(link.breakIt().IsOK()) << link.what;
        expose();
        EXPECT_EQ(detector->ledger().lostNoReceiver, ++lost) << link.what;
        ASSERT_TRUE(link.mendIt().IsOK()) << link.what;
        expose();
        ASSERT_TRUE(retrieve().IsOK()) << link.what;
        ASSERT_TRUE(user.pipeline.ReleaseBuffer(buffer).IsOK());
    }
    expectBalancedLedger();
}

}  // namespace
