#include <atomic>
#include <limits>
#include <thread>

#include "EbusRig.h"

namespace {

constexpr const char* address = "sim:threads";

TEST(EbusThreads, FramesTriggersAndSerialTrafficRunSideBySide) {
    constexpr std::uint64_t wantedFrames = 30;
    constexpr std::uint32_t moreBuffersThanFrames = 64;
    constexpr int mostTimeouts = 500;
    const std::shared_ptr<simulator::SimulatedDetector> detector = makeSmallTriggeredDetector();
    simulator::Rack::instance().mount(address, detector);
    EbusUser user;
    user.connect(address);
    user.wireControlBit();
    user.run(moreBuffersThanFrames);

    std::atomic<std::uint64_t> expected{std::numeric_limits<std::uint64_t>::max()};
    std::atomic<std::uint64_t> taken{0};
    std::atomic<bool> finished{false};
    std::thread live([&] {
        for (int timeouts = 0; taken < expected && timeouts < mostTimeouts;) {
            PvBuffer* buffer = nullptr;
            PvResult frame;
            const PvResult result = user.pipeline.RetrieveNextBuffer(&buffer, 20, &frame);
            if (result.GetCode() == PvResult::Timeout) {
                ++timeouts;
                continue;
            }
            EXPECT_TRUE(result.IsOK() && frame.IsOK());
            EXPECT_TRUE(user.pipeline.ReleaseBuffer(buffer).IsOK());
            ++taken;
        }
    });
    std::thread serial([&] {
        const std::string command = "R1124\r";
        while (!finished) {
            std::uint32_t count = 0;
            EXPECT_TRUE(user.serial.FlushRxBuffer().IsOK());
            EXPECT_TRUE(user.serial.Write(reinterpret_cast<const std::uint8_t*>(command.data()), 6, count).IsOK());
            std::uint8_t first = 0;
            EXPECT_TRUE(user.serial.Read(&first, 1, count, 1000).IsOK());
            EXPECT_EQ(first, 'S');
        }
    });

    const auto begun = [&] { return detector->ledger().edges - detector->ledger().edgesIgnored; };
    while (begun() < wantedFrames) user.pulse();
    expected = begun();
    live.join();
    finished = true;
    serial.join();
    EXPECT_EQ(taken, wantedFrames);
    EXPECT_EQ(detector->ledger().lost(), 0U);
    simulator::Rack::instance().reset();
}

TEST(EbusThreads, StoppingEverythingWaitsForNoRetrieval) {
    simulator::Rack::instance().mount(address, makeSmallTriggeredDetector());
    EbusUser user;
    user.connect(address);
    user.wireControlBit();
    user.run(2);
    std::atomic<bool> retrieved{false};
    std::thread live([&] {
        PvBuffer* buffer = nullptr;
        PvResult frame;
        // Without end: only a frame of the second run gets it out.
        EXPECT_TRUE(user.pipeline.RetrieveNextBuffer(&buffer, 0xFFFFFFFF, &frame).IsOK());
        retrieved = true;
        EXPECT_TRUE(user.pipeline.ReleaseBuffer(buffer).IsOK());
    });
    EXPECT_TRUE(user.acquisition.Stop().IsOK());
    EXPECT_TRUE(user.pipeline.Stop().IsOK());
    EXPECT_FALSE(retrieved);
    user.run(2);
    user.pulse();
    live.join();
    simulator::Rack::instance().reset();
}

}  // namespace
