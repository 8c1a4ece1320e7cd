#include "SimulatorFixture.h"

namespace {

using simulator::Fault;

class Registers : public SimulatorTest {
protected:
    int windowCount() { return detector->readRegister(12) * 65536 + detector->readRegister(11); }
};

TEST_F(Registers, ClampTheWindowWhenItsHighHalfIsWritten) {
    EXPECT_EQ(detector->exposureWindowMs(), 100.0);
    detector->writeRegister(11, 0x86A0);
    EXPECT_EQ(detector->exposureWindowMs(), 100.0) << "not before the high half";
    detector->writeRegister(12, 1);
    EXPECT_EQ(detector->exposureWindowMs(), 1000.0);
    setWindowCount(0);
    EXPECT_EQ(windowCount(), 50);
    detector->setMinimumWindowMs(32.89);
    setWindowCount(3288);
    EXPECT_EQ(windowCount(), 3289);
    EXPECT_EQ(detector->readRegister(11, 2), 3289);
    use("6213-kestrane");
    setWindowCount(0);
    EXPECT_EQ(windowCount(), 0) << "what was measured of this firmware knows of no clamp";
}

TEST_F(Registers, TakeForceWithTheirCommitOnly) {
    detector->writeRegister(10, 4);
    detector->writeRegister(5, 513);
    EXPECT_EQ(detector->frameWidth(), 3072);
    detector->writeRegister(5, 514);
    EXPECT_EQ(detector->frameWidth(), 768);
    use("6112-kestrane");
    const double legacy = detector->readoutTimeMs();
    detector->writeRegister(401, 8);
    EXPECT_EQ(detector->readoutTimeMs(), legacy) << "held back until register 1 is written";
    detector->writeRegister(1, 0);
    EXPECT_NEAR(detector->readoutTimeMs(), 16.0, 0.05);
    detector->writeRegister(403, 128);
    EXPECT_EQ(detector->frameHeight(), 864);
    detector->writeRegister(1, 64);
    EXPECT_EQ(detector->frameHeight(), 128);
    detector->writeRegister(402, 800);
    EXPECT_EQ(detector->frameHeight(), 864) << "a region that leaves the sensor";
    detector->writeRegister(124, 1234);
    EXPECT_EQ(detector->readRegister(124, 2), 6112) << "what it is can't be written";
    EXPECT_EQ(detector->readRegister(7, 3), -1) << "there are two sensors";
}

TEST_F(Registers, WorkTheReadoutTimeOutAfterEveryChangeThatMovesIt) {
    const auto settled = [this] { return detector->readRegister(410) == 8468; };  // legacy timing, 16.935 ms
    EXPECT_FALSE(settled()) << "power-on";
    pass(20);
    const struct {
        int reg;
        std::uint16_t value;
        bool moves;
    } writes[] = {{1, 0, false},    {401, 1, false},   {1, 0, true},   {1, 0, false},  {1, 4, false},
                  {1, 12, true},    {1, 4, true},      {10, 1, false}, {5, 514, true}, {5, 513, false},
                  {11, 9, false},   {12, 0, true},     {402, 0, true}, {405, 9, true}, {0, 0x60, true},
                  {0, 0x61, false}, {0, 0x1061, true}, {18, 3, false}};
    for (const auto& write : writes) {
        detector->writeRegister(write.reg, write.value);
        EXPECT_EQ(settled(), !write.moves) << write.reg << " " << write.value;
        pass(20);
        EXPECT_TRUE(settled());
    }
    detector->setReadoutTimeSettleMs(500);
    setWindowCount(100);
    int polls = 0;  // a host that polls without a pause gets ahead in time
    for (std::string reply = "S00000\r"; reply == "S00000\r"; ++polls) {
        detector->serialWrite("R1410\r");
        reply.resize(100);
        reply.resize(detector->serialRead(reply.data(), reply.size(), platform::deadlineAfterMs(1000)));
    }
    EXPECT_NEAR(polls, 500, 2);
    EXPECT_TRUE(settled());
    use("6112");
    EXPECT_EQ(ask("R1410"), "S00000\r");
}

TEST_F(Registers, ShowTheFlashBusyAfterWritesToIt) {
    const auto busy = [this] { return detector->readRegister(418) != 0; };
    for (const int reg : {20, 26, 116, 125, 200, 203, 418}) {
        EXPECT_FALSE(busy());
        detector->writeRegister(reg, 5);
        EXPECT_TRUE(busy()) << reg;
        EXPECT_EQ(ask("R1418", Ms(2)), "S32768\r");
        pass(30);
        EXPECT_FALSE(busy());
    }
    detector->writeRegister(27, 5);
    EXPECT_FALSE(busy());
    use("6112");
    detector->writeRegister(200, 5);
    EXPECT_FALSE(busy());
}

TEST_F(Registers, SufferTheirFaults) {
    pass(20);
    detector->faults().set(Fault::StuckRegister, {2, true, 18, 1.0});
    for (const int value : {11, 12, 13}) detector->writeRegister(18, static_cast<std::uint16_t>(value));
    detector->writeRegister(17, 9);
    EXPECT_EQ(detector->readRegister(18), 11);
    EXPECT_EQ(detector->readRegister(17), 9);

    detector->faults().set(Fault::RefusedExposure);
    setWindowCount(500);
    EXPECT_EQ(windowCount(), 10000);
    setWindowCount(500);
    EXPECT_EQ(windowCount(), 500);

    pass(20);
    detector->faults().set(Fault::ZeroReadoutTime);
    EXPECT_EQ(detector->readRegister(410), 0);
    EXPECT_NE(detector->readRegister(410), 0);
    detector->faults().set(Fault::BusyFlash, {1, true, 0, 1.0});
    EXPECT_EQ(detector->readRegister(418), 0x8000);
    detector->faults().clear(Fault::BusyFlash);
    EXPECT_EQ(detector->readRegister(418), 0);
}

}  // namespace
