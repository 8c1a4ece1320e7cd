#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "QuorinDetector.h"
#include "binningTable.h"
#include "detector/PleoraDetector.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/expectFailure.h"

/// Settings through the facade, on simulated detectors that expose on a trigger edge.

using support::expectFailure;

namespace {

using Registers = std::map<int, int>;

/// A facade on a simulated detector, with the pattern as its picture.
class Rig {
public:
    explicit Rig(const std::string& profile)
        : hardware(found("sim:" + profile)), detector(TransportGE, 0, ("sim:" + profile).c_str()) {
        hardware->setPicture(simulator::Picture::Pattern);
        hardware->writeRegister(0, edgesOnly);
    }
    ~Rig() { simulator::Rack::instance().reset(); }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    /// The registers that `expected` names, as sensor 1 and 2 hold them.
    void expectRegisters(const Registers& expected) {
        for (const int sensor : {1, 2}) {
            if (sensor > hardware->profile().sensorCount()) continue;
            Registers held;
            for (const auto& [reg, value] : expected) held[reg] = hardware->readRegister(reg, sensor);
            EXPECT_EQ(held, expected) << "sensor " << sensor;
        }
    }

    /// The newest frame has this size, and each of its pixels is where it belongs.
    void expectFrame(int width, int height) {
        EXPECT_EQ(detector.GetBufferXdim(), width);
        EXPECT_EQ(detector.GetBufferYdim(), height);
        QorImage image;
        detector.ReadBuffer(detector.GetCapturedBuffer(), image, 0);
        EXPECT_EQ(image.GetImageXdim(), width);
        EXPECT_EQ(image.GetImageYdim(), height);
        const simulator::Profile& profile = hardware->profile();
        const std::vector<std::uint16_t> expected = simulator::patternFrame(hardware->ledger().exposed, width, height,
                                                                            profile.sensorsAcross, profile.sensorsDown);
        EXPECT_EQ(std::memcmp(image.GetDataPointerToPlane(0), expected.data(), expected.size() * 2), 0)
            << width << " x " << height;
    }

    void expectSnap(int width, int height) {
        detector.Snap(++buffer % detector.GetNumBuffers(), 5000);
        expectFrame(width, height);
    }

    /// Edges until a frame comes: the one that ends a retrieval begun before a change of size is dropped.
    void expectLiveFrame(int width, int height) {
        for (int edge = 0; edge < 2; ++edge) {
            const std::uint64_t before = hardware->ledger().delivered;
            hardware->injectEdge();
            bool onItsWay = false;  // a last wait begins when the detector has delivered the frame
            for (int wait = 0; wait < 20 && !onItsWay; ++wait) {
                onItsWay = hardware->ledger().delivered != before;
                if (!support::failureOf([&] { detector.WaitImage(500); })) return expectFrame(width, height);
            }
        }
        ADD_FAILURE() << "no frame of " << width << " x " << height;
    }

    static constexpr std::uint16_t edgesOnly = 0x60;

    const std::shared_ptr<simulator::SimulatedDetector> hardware;
    QuorinDetector detector;

private:
    static std::shared_ptr<simulator::SimulatedDetector> found(const std::string& address) {
        simulator::Rack::instance().reset();
        return simulator::Rack::instance().find(address);
    }

    int buffer = 0;
};

}  // namespace

TEST(GigeSettings, FrameAndPatternFollowEveryBinningWhileIdle) {
    const platform::ScopedVirtualClock clock;
    const struct {
        const char* profile;
        int width, height;
        std::vector<bins> modes;
    } cases[] = {
        {"5101", 1536, 864, {Bin2x2, Bin4x4, Bin1x1}},
        {"6112-kestrane",
         3072,
         864,
         {Bin1x2, Bin1x4, Bin2x1, Bin2x2, Bin2x4, Bin4x1, Bin4x2, Bin4x4, Bin2x2Flagged, Bin4x4Flagged, Bin1x1}},
        {"6213-kestrane", 3072, 1944, {Bin4x4, Bin2x2Flagged, Bin1x1}},
    };
    for (const auto& test : cases) {
        Rig rig(test.profile);
        rig.detector.OpenBoard();
        for (const bins mode : test.modes) {
            const BinningMode& row = *findBinning(mode);
            rig.detector.SetBinningMode(mode);
            rig.expectRegisters(
                {{10, row.columnRegister}, {9, row.rowRegister}, {3, row.codeBits}, {1, row.flagBits}, {5, 514}});
            EXPECT_EQ(rig.detector.GetBinningMode(), mode);
            rig.expectSnap(test.width / row.columnFactor, test.height / row.rowFactor);
        }
        const simulator::Ledger ledger = rig.hardware->ledger();
        EXPECT_EQ(ledger.delivered, test.modes.size());
        EXPECT_EQ(ledger.delivered, ledger.exposed);
    }
}

TEST(GigeSettings, FrameAndPatternFollowTheRegionWhileIdle) {
    const platform::ScopedVirtualClock clock;
    Rig rig("6112-kestrane");
    rig.detector.OpenBoard();
    rig.detector.SetROIArea(3072, 128, 200);
    rig.expectSnap(3072, 864);
    const float whole = rig.detector.GetReadOutTime();
    rig.detector.SetROIEnabled(true);
    rig.expectRegisters({{1, 0x40}, {401, 0x09}, {402, 200}, {403, 128}, {404, 0}, {405, 1536}});
    EXPECT_FALSE(rig.detector.IsLegacyTimingEnabled());
    EXPECT_FALSE(rig.detector.GetSliceInterlacing());
    EXPECT_LT(rig.detector.GetReadOutTime(), whole / 4);
    rig.expectSnap(3072, 128);
    rig.detector.SetBinningMode(Bin4x4);
    rig.expectSnap(768, 32);
    rig.detector.SetROIArea(3072, 256);
    rig.expectRegisters({{402, 304}, {403, 256}});
    rig.expectSnap(768, 64);
    rig.detector.SetROIEnabled(false);
    rig.expectRegisters({{1, 0}, {401, 0x09}});
    rig.expectSnap(768, 216);
    rig.detector.CloseBoard();
    rig.detector.OpenBoard();
    rig.expectSnap(768, 216);
    rig.detector.SetBinningMode(Bin1x1);  // more than the ring was opened for
    rig.expectSnap(3072, 864);
}

TEST(GigeSettings, FrameAndPatternFollowBinningAndRegionWhileLive) {
    Rig rig("6112-kestrane");
    rig.hardware->setReadoutTimeSettleMs(2);
    rig.detector.OpenBoard();
    rig.detector.SetExposureTime(0.0F);
    rig.detector.GoLiveSeq();
    const int first = rig.detector.GetFieldCount() + 2;
    rig.expectLiveFrame(3072, 864);
    rig.detector.SetBinningMode(Bin4x4);
    rig.expectLiveFrame(768, 216);
    rig.expectLiveFrame(768, 216);
    rig.detector.SetROIArea(3072, 128);
    rig.detector.SetROIEnabled(true);
    rig.expectLiveFrame(768, 32);
    rig.detector.SetBinningMode(Bin1x1);
    rig.expectLiveFrame(3072, 128);
    EXPECT_TRUE(rig.detector.IsLive());
    EXPECT_EQ(rig.detector.GetFieldCount(), first + 4) << "the same run goes on";
    rig.detector.GoUnLive();
    const simulator::Ledger ledger = rig.hardware->ledger();
    EXPECT_EQ(ledger.delivered, ledger.exposed);
}

TEST(GigeSettings, RefusedBinningPausesALiveRunUntilTheNextChangeOfSize) {
    const platform::ScopedVirtualClock clock;
    class Paused : public PleoraDetector {
    public:
        Paused() : PleoraDetector("sim:5101", nullptr) {
            startThread = [](const auto&) { return std::make_unique<std::thread>([] {}); };
        }
        bool acquiring() { return static_cast<int>(pleoraLib->State_GetState()) == 1; }
    };
    simulator::Rack::instance().reset();
    Paused detector;
    detector.OpenBoard();
    detector.GoLiveSeq();
    EXPECT_TRUE(detector.acquiring());
    expectFailure([&] { detector.SetBinningMode(Bin1x2); },
                  "There is no readout time stored for these detector settings.", DerrBadRequest);
    EXPECT_TRUE(detector.IsLive());
    EXPECT_FALSE(detector.acquiring());
    detector.SetBinningMode(Bin2x2);
    EXPECT_TRUE(detector.acquiring());
    EXPECT_EQ(detector.bufferXdim(), 768 * 2);
    detector.CloseBoard();
    simulator::Rack::instance().reset();
}

TEST(GigeSettings, ReadoutTimeIsAwaitedWhileTheDetectorWorksItOut) {
    platform::ScopedVirtualClock clock;
    Rig rig("6112-kestrane");
    rig.detector.OpenBoard();
    rig.hardware->setReadoutTimeSettleMs(300);
    const auto told = [&] { return static_cast<float>(rig.hardware->readRegister(410)) * 0.002F; };
    const struct {
        void (*change)(QuorinDetector&);
        double ms;  ///< of the readout time afterwards, within a tenth
    } cases[] = {
        {[](auto& d) { d.SetLegacyTiming(false); }, 16.0},
        {[](auto& d) { d.SetBinningMode(Bin2x2); }, 6.05},
        {[](auto& d) { d.SetLegacyTiming(true); }, 6.4},
        {[](auto& d) { d.SetROIArea(3072, 128); }, 6.4},
        {[](auto& d) { d.SetROIEnabled(true); }, 1.3},
        {[](auto& d) { d.SetROIMarginEnabled(false); }, 1.1},
        {[](auto& d) { d.SetTriggerSource(TriggerBits5And7); }, 1.1},
    };
    for (const auto& test : cases) {
        const platform::Time before = clock.now();
        test.change(rig.detector);
        EXPECT_GE(clock.now() - before, std::chrono::milliseconds(300));
        EXPECT_NEAR(rig.detector.GetReadOutTime(), test.ms, 0.1) << &test - cases;
        clock.advance(std::chrono::seconds(1));
        EXPECT_EQ(rig.detector.GetReadOutTime(), told());
        EXPECT_GE(rig.detector.GetExposureTime(), rig.detector.GetMinimumExposureTime() - 0.1F);
    }
    EXPECT_FALSE(rig.detector.IsLegacyTimingEnabled()) << "the region has turned it off";
    rig.expectRegisters({{0, 0xA0}, {1, 0x40}, {401, 0x29}});
}

TEST(GigeSettings, ReadoutTimeThatNeverComesIsOneErrorAndTheNextSnapHasTheNewSize) {
    const platform::ScopedVirtualClock clock;
    Rig rig("6112-kestrane");
    rig.detector.OpenBoard();
    rig.hardware->setReadoutTimeSettleMs(60000);
    expectFailure([&] { rig.detector.SetBinningMode(Bin4x4); },
                  "Failed to update readout time, readout time register remained zero until timeout.",
                  DerrSerialCommand);
    rig.hardware->setReadoutTimeSettleMs(20);
    rig.expectSnap(768, 216);
}

TEST(GigeSettings, UnsoundRegionOfTheDetectorIsRepairedByTheOpen) {
    const platform::ScopedVirtualClock clock;
    Rig rig("6112-kestrane");
    rig.hardware->writeRegister(403, 128, 2);
    rig.hardware->writeRegister(1, 0x40);
    rig.detector.OpenBoard();
    rig.expectRegisters({{1, 0x40}, {402, 0}, {403, 864}, {404, 0}, {405, 1536}});
    rig.expectSnap(3072, 864);
}

TEST(GigeSettings, StayInTheDetectorAcrossReconnects) {
    const platform::ScopedVirtualClock clock;
    Rig rig("6112-kestrane");
    const float times[] = {100.0F, 200.0F};
    rig.detector.OpenBoard();
    rig.detector.SetBinningMode(Bin2x2Flagged);
    rig.detector.SetGapTime(rig.detector.GetReadOutTime() + 12.3F);
    rig.detector.SetPreProgrammedExposureTimes(times, 2);
    rig.detector.SetFullWellMode(FullWellBit2Set);
    rig.detector.SetReadoutMode(ReadoutBit3Set);
    rig.detector.SetPixelFrameCounter(true);
    rig.detector.ToggleOnBoardLinearization(false);
    rig.detector.ToggleOnBoardXTalkCorrection(true);
    rig.detector.SetTestMode(true);
    rig.detector.SetExposureMode(ExposureBit12);
    const Registers expected{{0, 0x5061}, {1, 0x8E}, {3, 4}, {9, 1}, {10, 1}, {17, 2}, {18, 123}};
    rig.expectRegisters(expected);
    rig.detector.CloseBoard();

    QuorinDetector again(TransportGE, 0, "sim:6112-kestrane");
    again.OpenBoard();
    rig.expectRegisters(expected);
    EXPECT_EQ(again.GetBinningMode(), Bin2x2Flagged);
    EXPECT_EQ(again.GetExposureMode(), ExposureBit12);
    EXPECT_EQ(again.GetNumOfExposures(), 2);
    EXPECT_NEAR(again.GetGapTime(), again.GetReadOutTime() + 12.3F, 0.001F);
    float back[4] = {};
    EXPECT_EQ(again.GetPreProgrammedExposureTimes(back, 4), 4);
    EXPECT_NEAR(back[1], 200.0F, 0.02F);
    EXPECT_NEAR(back[3], again.GetMinimumExposureTime(), 0.02F);
}
