#include <atomic>
#include <thread>

#include "EbusRig.h"

namespace {

TEST(EbusThreads, StoppingEverythingWaitsForNoRetrieval) {
    constexpr const char* address = "sim:threads";
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
