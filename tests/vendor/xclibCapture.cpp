#include "XclibRig.h"

namespace {

class XclibCapture : public XclibRig {
protected:
    XclibCapture() {
        board->setMemory(XclibUser::frameBytes * 8);
        user.use(slot);
        event = pxe_eventCapturedFieldCreate2(user.state, 1, 115);
    }

    bool signalled() const { return platform::waitForEvent(event, 0) == platform::waitSignaled; }
    int live() const { return pxe_goneLive(user.state, 1, 0); }
    int fields() const { return pxe_capturedFieldCount(user.state, 1); }

    /// Buffers of `frames` exposures, one after the other; 0 where none was captured. Checks event and pixels of each.
    std::vector<int> buffersOf(int frames) {
        std::vector<int> buffers;
        for (int i = 0; i < frames; ++i) {
            const int before = fields();
            expose();
            const bool captured = fields() > before;
            buffers.push_back(captured ? pxe_capturedBuffer(user.state, 1) : 0);
            EXPECT_EQ(signalled(), captured) << "frame " << i;
            if (captured) {
                EXPECT_EQ(user.pixels(buffers.back()), smallPattern(detector->ledger().exposed));
            }
        }
        return buffers;
    }

    void* event = nullptr;
};

TEST_F(XclibCapture, ASnapTakesTheNextFrameAndNoOther) {
    expose();
    EXPECT_EQ(pxe_capturedBuffer(user.state, 1), 0);
    ASSERT_EQ(pxe_goSnap(user.state, 1, 5), 0);
    ASSERT_EQ(pxe_goSnap(user.state, 1, 3), 0) << "replaces the open one";
    EXPECT_EQ(live(), 0);
    EXPECT_EQ(buffersOf(2), (std::vector<int>{3, 0}));
    EXPECT_EQ(user.pixels(5), std::vector<std::uint16_t>(XclibUser::frameBytes / 2));
    ASSERT_EQ(pxe_goSnap(user.state, 1, 1), 0);
    ASSERT_EQ(pxe_goAbortLive(user.state, 1), 0);
    EXPECT_EQ(buffersOf(1), (std::vector<int>{0}));
    EXPECT_EQ(detector->ledger().delivered, 1U);
    EXPECT_EQ(detector->ledger().lostNoReceiver, 3U);
    expectBalancedLedger();
}

TEST_F(XclibCapture, ASequenceGoesRoundItsBuffers) {
    const struct {
        long start, end, increment, count;
        int period;
        std::vector<int> buffers;
        bool liveAfterwards;
    } cases[] = {
        {1, 3, 1, 0, 1, {1, 2, 3, 1, 2}, true},  {3, 6, 1, 0, 1, {3, 4, 5, 6, 3}, true},
        {2, 2, 1, 0, 1, {2, 2, 2, 2, 2}, true},  {1, 8, 3, 0, 1, {1, 4, 7, 1, 4}, true},
        {4, 8, 1, 2, 1, {4, 5, 0, 0, 0}, false}, {1, 2, 1, 5, 1, {1, 2, 1, 2, 1}, false},
        {1, 8, 1, 0, 2, {1, 0, 2, 0, 3}, true},  {7, 8, 2147483647, 0, 1, {7, 7, 7, 7, 7}, true},
    };
    for (const auto& test : cases) {
        ASSERT_EQ(pxe_goLiveSeq(user.state, 1, test.start, test.end, test.increment, test.count, test.period), 0);
        EXPECT_NE(live(), 0);
        EXPECT_EQ(pxe_goLiveSeq(user.state, 1, 1, 1, 1, 0, 1), PXERBUSY);
        EXPECT_EQ(pxe_goSnap(user.state, 1, 1), PXERBUSY);
        EXPECT_EQ(buffersOf(5), test.buffers);
        EXPECT_EQ(live() != 0, test.liveAfterwards);
        ASSERT_EQ(pxe_goUnLive(user.state, 1), 0);
        EXPECT_EQ(live(), 0);
    }
    EXPECT_EQ(detector->ledger().delivered, static_cast<std::uint64_t>(fields()));
    expectBalancedLedger();
}

TEST_F(XclibCapture, RefusesBuffersThatAreNone) {
    for (const long buffer : {0L, -1L, 9L, 2147483648L}) EXPECT_EQ(pxe_goSnap(user.state, 1, buffer), PXERBADPARAM);
    const struct {
        long start, end, increment, count;
        int period;
    } wrong[] = {{0, 3, 1, 0, 1}, {4, 3, 1, 0, 1}, {1, 9, 1, 0, 1}, {1, 3, 0, 0, 1}, {1, 3, 1, -1, 1}, {1, 3, 1, 0, 0}};
    for (const auto& test : wrong)
        EXPECT_EQ(pxe_goLiveSeq(user.state, 1, test.start, test.end, test.increment, test.count, test.period),
                  PXERBADPARAM)
            << &test - wrong;
    EXPECT_EQ(live(), 0);
    EXPECT_EQ(pxe_eventCapturedFieldCreate2(user.state, 1, 114), nullptr);
}

TEST_F(XclibCapture, AnIdleGrabberLetsTheDetectorRest) {
    detector->writeRegister(0, 0);  // runs free
    clock.advance(std::chrono::milliseconds(50));
    EXPECT_EQ(detector->ledger().exposed, 0U);
    ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 1, 8, 1, 3, 1), 0);
    clock.advance(std::chrono::milliseconds(50));
    EXPECT_EQ(fields(), 3);
    EXPECT_EQ(detector->ledger().lostNoReceiver, 1U) << "the one that had begun when the sequence ended";
    EXPECT_EQ(detector->ledger().exposed, 4U);
    EXPECT_EQ(user.pixels(3), smallPattern(3));
}

TEST_F(XclibCapture, FramesThatDoNotFitAreLostWithAFaultText) {
    ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 1, 8, 1, 0, 1), 0);
    detector->faults().set(simulator::Fault::TruncatedFrame, {.first = 2});
    EXPECT_EQ(buffersOf(2), (std::vector<int>{1, 0}));
    EXPECT_NE(user.faultText().find("incomplete"), std::string::npos);
    ASSERT_EQ(pxe_setVideoResolution(user.state, 1, XclibUser::width, XclibUser::height - 1, 0, 0), 0);
    EXPECT_EQ(buffersOf(1), (std::vector<int>{0}));
    EXPECT_NE(user.faultText().find("resolution"), std::string::npos);
    EXPECT_EQ(detector->ledger().lostInFlight, 2U);
    ASSERT_EQ(pxe_setVideoResolution(user.state, 1, XclibUser::width, XclibUser::height, 0, 0), 0);
    EXPECT_EQ(buffersOf(1), (std::vector<int>{2})) << "the sequence went on";
    EXPECT_EQ(user.faultText(), "");
    expectBalancedLedger();
}

TEST_F(XclibCapture, AChangeOfSizeEndsASnapAndKeepsASequenceInItsMemory) {
    const auto resize = [&](int height) {
        ASSERT_EQ(pxe_setVideoResolution(user.state, 1, XclibUser::width, height, 0, 0), 0);
    };
    ASSERT_EQ(pxe_goSnap(user.state, 1, 1), 0);
    resize(XclibUser::height);
    EXPECT_EQ(buffersOf(1), (std::vector<int>{1})) << "no change";
    ASSERT_EQ(pxe_goSnap(user.state, 1, 2), 0);
    resize(XclibUser::height * 2);
    resize(XclibUser::height);
    EXPECT_EQ(buffersOf(1), (std::vector<int>{0}));
    EXPECT_EQ(user.pixels(1), std::vector<std::uint16_t>(XclibUser::frameBytes / 2)) << "new buffers are empty";

    ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 2, 8, 1, 0, 1), 0);
    EXPECT_EQ(buffersOf(4), (std::vector<int>{2, 3, 4, 5}));
    board->setMemory(XclibUser::frameBytes * 3);
    resize(XclibUser::height);
    EXPECT_EQ(buffersOf(3), (std::vector<int>{2, 3, 2})) << "three buffers are left";
    board->setMemory(XclibUser::frameBytes);
    resize(XclibUser::height);
    EXPECT_EQ(buffersOf(1), (std::vector<int>{0})) << "none of the sequence is left";
    EXPECT_NE(user.faultText(), "");
    EXPECT_NE(live(), 0);
    expectBalancedLedger();
}

TEST_F(XclibCapture, EndsWithTheBoard) {
    void* const foreign = platform::createAutoResetEvent();
    pxe_eventCapturedFieldClose(user.state, 1, foreign);
    EXPECT_EQ(platform::closeEvent(foreign), 1) << "not the grabber's to close";
    void* const second = pxe_eventCapturedFieldCreate2(user.state, 1, 115);
    pxe_eventCapturedFieldClose(user.state, 1, second);
    EXPECT_EQ(platform::waitForEvent(second, 0), platform::waitFailed);
    ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 1, 8, 1, 0, 1), 0);
    EXPECT_EQ(buffersOf(2), (std::vector<int>{1, 2}));
    ASSERT_EQ(pxe_PIXCIclose(user.state), 0);
    EXPECT_EQ(platform::waitForEvent(event, 0), platform::waitFailed);
    detector->injectEdge();
    clock.advance(std::chrono::milliseconds(5));
    EXPECT_EQ(detector->ledger().lostNoReceiver, 1U);
    user.use(slot);
    EXPECT_EQ(fields(), 0);
    EXPECT_EQ(pxe_capturedBuffer(user.state, 1), 0);
    EXPECT_EQ(live(), 0);
}

}  // namespace
