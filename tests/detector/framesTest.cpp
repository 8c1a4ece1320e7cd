#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QorImage.h"
#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"
#include "support/LogCapture.h"
#include "support/expectFailure.h"

using std::chrono::milliseconds;
using support::CoreDouble;
using support::expectFailure;

namespace {

constexpr int snapWaiter = 1;
constexpr const char* timeoutText = "Image did not arrive within the timeout.";

class Frames : public testing::Test {
protected:
    Frames() {
        CoreDouble::present(core, 5101);
        core.frameCapturedEvent = platform::createAutoResetEvent();
    }
    void frameArrives() { platform::signalEvent(core.frameCapturedEvent); }
    bool timesOut(int waiter) {
        return support::failureOf([&] { core.WaitImage(10, waiter); }).has_value();
    }

    platform::ScopedVirtualClock clock;
    CoreDouble core;
};

}  // namespace

TEST_F(Frames, WaitTakesOneSignalAndTimesOutWithoutOne) {
    frameArrives();
    frameArrives();
    EXPECT_NO_THROW(core.WaitImage(0));
    expectFailure([&] { core.WaitImage(0); }, timeoutText, DerrAcquisition, 258);
    const platform::Time before = clock.now();
    expectFailure([&] { core.WaitImage(250); }, timeoutText, DerrAcquisition, 258);
    EXPECT_EQ(clock.now() - before, milliseconds(250));
    platform::schedule(clock.now() + std::chrono::hours(1), [this] { frameArrives(); });
    EXPECT_NO_THROW(core.WaitImage(-1)) << "-1 waits without end";
    platform::closeEvent(core.frameCapturedEvent);
    const auto failure = support::failureOf([&] { core.WaitImage(-1); });
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->what(), testing::StartsWith("Error while waiting for image: WAIT_FAILED: 9: "));
    EXPECT_EQ(failure->GetCode(), DerrAcquisition);
}

TEST_F(Frames, OtherKindOfWaiterSharesAFrameOnceAndOnlyWithinFiftyMs) {
    frameArrives();
    core.WaitImage(10, snapWaiter);
    clock.advance(milliseconds(49));
    EXPECT_NO_THROW(core.WaitImage(0));
    EXPECT_TRUE(timesOut(2)) << "the short cut counts once";
    frameArrives();
    core.WaitImage(10, snapWaiter);
    clock.advance(milliseconds(50));
    EXPECT_TRUE(timesOut(2));
    frameArrives();
    core.WaitImage(10);
    EXPECT_TRUE(timesOut(2)) << "the same waiter shares nothing with itself";
    frameArrives();
    core.WaitImage(10);
    EXPECT_NO_THROW(core.WaitImage(0, snapWaiter)) << "the rule is symmetrical";
}

TEST_F(Frames, LiveErrorOutranksTheTimeOutAndIsAWarningBesideAFrame) {
    core.liveFailure = QuorinException("live broke", DerrTransport, 1, "f.cpp", "f", 7, "m");
    expectFailure([&] { core.WaitImage(10); }, "live broke", DerrTransport, 7);
    core.fields = 12;
    frameArrives();
    const support::LogCapture log;
    EXPECT_NO_THROW(core.WaitImage(10));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "debug|FRAME_EVENT: Frame captured event was signaled");
    EXPECT_THAT(lines[1], testing::StartsWith(
                              "warning|EXCEPTION: WaitImage: frame received, but there was a live error: live broke"));
    EXPECT_EQ(lines[2], "info|WaitImage: frame received with field count 12");
}

TEST_F(Frames, ReadFillsAnEmptyImageAndAddsPlanes) {
    core.frame.resize(1536 * 864 * 2);
    for (std::size_t at = 0; at < core.frame.size(); ++at)
        core.frame[at] = static_cast<unsigned char>(at * 7 + at / 251);
    QorImage image;
    image.SetDarkCorrectedFlag(true);
    core.ReadBuffer(0, image, 3);
    EXPECT_EQ(image.GetImageDepth(), 4);
    EXPECT_EQ(image.GetImageXdim(), 1536);
    EXPECT_EQ(image.GetImageYdim(), 864);
    EXPECT_EQ(std::memcmp(image.GetDataPointerToPlane(3), core.frame.data(), core.frame.size()), 0);
    EXPECT_EQ(*static_cast<std::uint16_t*>(image.GetDataPointerToPlane(2)), 0);
    EXPECT_EQ(image.GetImageModel(), 5101);
    EXPECT_EQ(image.GetImageBinning(), Bin1x1);
    EXPECT_EQ(image.GetImageParameters().frameCount, 1);
    EXPECT_FALSE(image.GetImageMarks().darkCorrected);
    EXPECT_FALSE(image.GetImageMarks().sorted) << "without the capability a detector counts as interlaced";
    core.sliceInterlacing = 0;
    core.ReadBuffer(0, image, 0);
    EXPECT_TRUE(image.GetImageMarks().sorted) << "one sensor, read without interlacing";
    image.Build(100, 100, 1, PixelU16);
    expectFailure([&] { core.ReadBuffer(0, image, 1); }, "Dimensions of image are not correct or supported!",
                  DerrBadRequest);
    EXPECT_EQ(image.GetImageDepth(), 1);
    expectFailure([&] { core.ReadBuffer(0, image, -1); }, "The plane number must be 0 or greater!", DerrBadRequest, -1);
}

TEST_F(Frames, ClearingWritesZerosToEachBufferInRange) {
    for (const int buffer : {-1, 4})
        expectFailure([&] { core.ClearCameraBuffer(buffer); },
                      "The requested buffer is outside of the allocated range!", DerrBadRequest, buffer);
    core.ClearBuffers();
    ASSERT_EQ(core.written.size(), 4U);
    for (int buffer = 0; buffer < 4; ++buffer)
        EXPECT_EQ(core.written[static_cast<std::size_t>(buffer)], std::pair(buffer, std::vector<unsigned char>(24, 0)));
    core.written.clear();
    core.numBuffers = 0;
    core.ClearBuffers();
    EXPECT_TRUE(core.written.empty());
}
