#include <atomic>
#include <thread>

#include "XclibRig.h"

namespace {

class XclibThreads : public testing::Test {
protected:
    ~XclibThreads() override { simulator::Rack::instance().reset(); }

    /// Frames follow each other as fast as the grabber takes them.
    static std::shared_ptr<simulator::SimulatedDetector> mountFreeRunning(int slot) {
        std::shared_ptr<simulator::SimulatedDetector> detector = mountSmallTriggeredDetector(slot);
        detector->setReadoutTimeMs(0.1);
        detector->writeRegister(11, 10);
        detector->writeRegister(12, 0);
        detector->writeRegister(0, 0);
        return detector;
    }
};

TEST_F(XclibThreads, TwoGrabbersAreReadWhileTheyCapture) {
    constexpr int buffers = 4;
    constexpr int wantedFrames = 40;
    const auto useGrabber = [](int slot) {
        const auto detector = mountFreeRunning(slot);
        grabber::VirtualGrabber::inSlot(slot)->setMemory(XclibUser::frameBytes * buffers);
        XclibUser user;
        user.use(slot);
        void* const event = pxe_eventCapturedFieldCreate2(user.state, 1, 115);
        ASSERT_EQ(pxe_serialConfigure(user.state, 1, 0, 115200, 8, 0, 1, 0, 0, 0), 0);
        ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 1, buffers, 1, 0, 1), 0);
        std::atomic<bool> finished{false};
        std::thread reader([&] {
            // What is read is a whole frame of one round or of another.
            for (std::uint64_t number = 1; !finished;) {
                const std::vector<std::uint16_t> pixels = user.pixels(1);
                if (pixels == std::vector<std::uint16_t>(pixels.size())) continue;
                const std::uint64_t exposed = detector->ledger().exposed;
                while (number <= exposed && pixels != smallPattern(number)) ++number;
                ASSERT_LE(number, exposed) << "a frame that is no frame";
            }
        });
        std::string command = "R1124\r";
        std::array<char, 16> reply{};
        while (pxe_capturedFieldCount(user.state, 1) < wantedFrames) {
            ASSERT_EQ(platform::waitForEvent(event, 10000), platform::waitSignaled);
            EXPECT_EQ(pxe_serialWrite(user.state, 1, 0, command.data(), 6), 6);
            EXPECT_GE(pxe_serialRead(user.state, 1, 0, reply.data(), 16), 0);
            EXPECT_NE(pxe_goneLive(user.state, 1, 0), 0);
        }
        finished = true;
        reader.join();
        ASSERT_EQ(pxe_goAbortLive(user.state, 1), 0);
        const int fields = pxe_capturedFieldCount(user.state, 1);
        EXPECT_EQ(pxe_capturedBuffer(user.state, 1), (fields - 1) % buffers + 1);
        EXPECT_EQ(detector->ledger().delivered, static_cast<std::uint64_t>(fields));
    };
    std::thread other([&] { useGrabber(10); });
    useGrabber(11);
    other.join();
}

TEST_F(XclibThreads, CapturesBeginAndEndInEveryOrder) {
    const auto detector = mountFreeRunning(10);
    XclibUser user;
    user.use(10);
    void* const event = pxe_eventCapturedFieldCreate2(user.state, 1, 115);
    std::atomic<bool> finished{false};
    std::thread resizer([&] {
        while (!finished)
            for (const int height : {XclibUser::height * 2, XclibUser::height})
                EXPECT_EQ(pxe_setVideoResolution(user.state, 1, XclibUser::width, height, 0, 0), 0);
    });
    for (int round = 0; round < 30; ++round) {
        ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 1, 2, 1, 1 + round % 3, 1), 0);
        ASSERT_EQ(platform::waitForEvent(event, 10000), platform::waitSignaled) << round;
        ASSERT_EQ(pxe_goAbortLive(user.state, 1), 0);
        EXPECT_EQ(pxe_goneLive(user.state, 1, 0), 0);
        platform::resetEvent(event);
    }
    finished = true;
    resizer.join();
    const platform::Time deadline = platform::deadlineAfterMs(20000);
    for (int round = 0; round < 200; ++round) {
        // The end of a capture, on the timeline, meets the begin of the next.
        const int before = pxe_capturedFieldCount(user.state, 1);
        ASSERT_EQ(pxe_goSnap(user.state, 1, 1), 0);
        while (pxe_capturedFieldCount(user.state, 1) == before) ASSERT_LT(platform::now(), deadline) << round;
    }
    ASSERT_EQ(pxe_PIXCIclose(user.state), 0);
    // It runs free until the close: the last frame may still be on its way into the ledger.
    const auto addsUp = [&] {
        const simulator::Ledger ledger = detector->ledger();
        return ledger.delivered + ledger.lost() == ledger.exposed;
    };
    while (!addsUp()) ASSERT_LT(platform::now(), deadline) << "frames without a fate";
}

TEST_F(XclibThreads, ReleasingAStateWaitsForItsCalls) {
    for (int round = 0; round < 20; ++round) {
        mountFreeRunning(10);
        auto user = std::make_unique<XclibUser>();
        user->use(10);
        ASSERT_EQ(pxe_goLiveSeq(user->state, 1, 1, 2, 1, 0, 1), 0);
        std::thread caller([state = user->state] {
            std::vector<unsigned char> bytes(XclibUser::frameBytes);
            while (pxe_readuchar(state, 1, 1, 0, 0, -1, -1, bytes.data(), bytes.size(), "Grey") > 0) {
            }
        });
        user.reset();
        EXPECT_EQ(XclibUser().open(10), 0);
        caller.join();
    }
}

}  // namespace
