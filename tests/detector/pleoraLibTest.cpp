#include <PvResult.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "detector/PleoraLib_real.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/LogCapture.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::LogCapture;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

class EbusSeam : public testing::Test {
protected:
    EbusSeam() { simulator::Rack::instance().reset(); }
    platform::ScopedVirtualClock clock;
    PleoraLib_real lib;
};

}  // namespace

TEST_F(EbusSeam, NothingIsCalledWithoutObjects) {
    const std::vector<std::function<void()>> calls{
        [&] { lib.Dev_Connect("sim:5101"); },    [&] { lib.Stream_IsOpen(); },
        [&] { lib.Pipeline_SetBufferSize(1); },  [&] { lib.State_GetState(); },
        [&] { lib.IP_FlushRxBuffer(); },         [&] { lib.System_GetDeviceInfo(0); },
        [&] { lib.Stream_QueueBuffer(nullptr); }};
    const auto refused = [&] {
        for (const auto& call : calls) {
            const auto failure =
                expectFailure(call, "Cannot make Pleora call, classes are not initialized.", DerrTransport);
            EXPECT_STREQ(failure->GetFunctionName(), "PleoraLib_real::getClasses");
        }
    };
    refused();
    lib.init();
    ASSERT_TRUE(lib.Dev_Connect("sim:5101").IsOK());
    lib.init();
    EXPECT_TRUE(lib.Dev_IsConnected()) << "a second init keeps the objects";
    lib.deinit();
    refused();
    lib.init();
    EXPECT_FALSE(lib.Dev_IsConnected());
}

TEST_F(EbusSeam, CallsAreTracedByTheirFamilies) {
    lib.init();
    const LogCapture log;
    lib.Dev_Connect("sim:5101");
    lib.Dev_SetBooleanValue("PLC_ctrl0", false);
    lib.Dev_IsConnected();
    lib.Pipeline_SetBufferSize(64);
    lib.State_GetState();
    std::int64_t value = 41;
    lib.Dev_GetIntegerValue("Nonsense", value);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            "info|PLEORA: pvDeviceGEV()->Connect(sim:5101)",
            "info|PLEORA: pvDeviceGEV()->GetParameters()->SetBooleanValue(PLC_ctrl0, false)",
            "info|PLEORA: pvDeviceGEV()->IsConnected()", "info|PLEORA: pvDeviceGEV()->IsConnected returned true",
            "info|PLEORA: pvPipeline()->SetBufferSize(64)", "info|PLEORA: pvAcquisitionStateManager()->GetState()",
            "info|PLEORA: pvAcquisitionStateManager()->GetState returned 0",
            "info|PLEORA: pvDeviceGEV()->GetParameters()->GetIntegerValue(Nonsense, 41)",
            StartsWith("info|PLEORA: pvDeviceGEV()->GetParameters()->GetIntegerValue returned PvResult(")));
    EXPECT_THAT(FormatPvResult(PvResult(30)),
                MatchesRegex("PvResult\\(.* \\(30\\): .*\\. Internal code 0\\. OS code 0\\)"));
}

TEST_F(EbusSeam, SerialTrafficIsTracedOnlyWhereItFails) {
    lib.init();
    lib.Dev_Connect("sim:5101");
    lib.IP_Open(PvDeviceSerial0);
    std::uint32_t count = 0;
    std::uint8_t reply[100];
    const LogCapture log;
    const std::string command = "R1124\r";
    lib.IP_FlushRxBuffer();
    lib.IP_Write(reinterpret_cast<const std::uint8_t*>(command.data()), 6, count);
    lib.IP_Read(reply, sizeof(reply), count, 1000);
    EXPECT_EQ(std::string(reply, reply + count), "S05101\r");
    EXPECT_TRUE(lib.IP_Read(reply, sizeof(reply), count).IsOK());
    EXPECT_EQ(count, 0U);
    EXPECT_TRUE(log.lines().empty());
    lib.IP_Close();
    lib.IP_Write(reinterpret_cast<const std::uint8_t*>(command.data()), 6, count);
    EXPECT_THAT(log.lines().back(), StartsWith("info|PLEORA: pvDeviceSerialPort()->Write returned PvResult("));
}

TEST_F(EbusSeam, DiscoveryIsNarrowedAndBadIndicesLeaveNothingBehind) {
    expectFailure([&] { lib.DevInfo_GetIPAddress(); },
                  "Cannot get Pleora device IP address, device info pointer is null", DerrNullPointer);
    expectFailure([&] { lib.Interface_GetDeviceInfo(0); }, "Cannot get device info, network adapter pointer is null",
                  DerrTransport);
    lib.init();
    lib.System_SetDetectionTimeout(100);
    ASSERT_TRUE(lib.System_Find().IsOK());
    ASSERT_GE(lib.System_GetDeviceCount(), 8U);
    ASSERT_EQ(lib.System_GetInterfaceCount(), 1U);
    lib.System_GetInterface(0);
    EXPECT_EQ(lib.Interface_GetDeviceCount(), lib.System_GetDeviceCount());
    lib.Interface_GetDeviceInfo(1);
    EXPECT_THAT(lib.DevInfo_GetIPAddress().GetAscii(), StartsWith("sim:"));
    expectFailure([&] { lib.Interface_GetDeviceInfo(999); }, "The desired index is out of bounds!", DerrBadRequest,
                  999);
    lib.System_GetDeviceInfo(0);
    expectFailure([&] { lib.System_GetDeviceInfo(999); }, "Pleora device index is invalid", DerrBadRequest, 999);
    expectFailure([&] { lib.DevInfo_GetIPAddress(); },
                  "Cannot get Pleora device IP address, device info pointer is null", DerrNullPointer);
    expectFailure([&] { lib.System_GetInterface(9); }, "Cannot get interface from PvSystem", DerrBadRequest, 9);
}
