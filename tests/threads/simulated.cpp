#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "detector/logPath.h"
#include "support/LiveRig.h"
#include "support/TransportRig.h"

/// The whole road under several threads: facade, transport, vendor stand-in and simulated detector, on each transport.

using support::failureOf;
using support::Gate;
using support::Road;
using support::until;

namespace {

/// A detector that runs free with exposures of a few milliseconds.
class OnThreads : public support::RoadTest {
protected:
    OnThreads() {
        hurry(*hardware);
        hardware->writeRegister(0, 0);
    }
    ~OnThreads() override { current = nullptr; }

    static void hurry(simulator::SimulatedDetector& device) {
        device.setReadoutTimeMs(1.0);
        device.setMinimumWindowMs(0.0);
        device.setReadoutTimeSettleMs(0.0);
        device.setFlashBusyMs(0.0);
    }
    static void open(QuorinDetector& detector, bins binning = Bin4x4) {
        detector.OpenBoard(20);
        detector.SetBinningMode(binning);
        detector.SetExposureTime(0.0F);
    }

    /// What the application's function does; one for all detectors of a test.
    std::function<void(int field, int buffer, QuorinDetector* detector)> onFrame;
    std::atomic<int> calls{0};
    void install(QuorinDetector& user) {
        current = this;
        user.SetCallback([](int field, int buffer, QuorinDetector* who) {
            OnThreads* const test = current;
            ++test->calls;
            const auto action = test->onFrame;  // the test may go on to the next one during the call
            if (action) action(field, buffer, who);
        });
    }
    void awaitCalls(int number) {
        until([&] { return calls >= number; });
    }

    /// A frame may be on its way when the board is closed: it is exposed first and accounted for then.
    void awaitBalancedLedger() {
        until([&] {
            const simulator::Ledger ledger = hardware->ledger();
            return ledger.delivered + ledger.lost() == ledger.exposed;
        });
    }

    void expectLiveFrame(int width, int height) {
        const std::uint64_t before = hardware->ledger().delivered;
        hardware->injectEdge();
        bool onItsWay = false;  // a last wait begins when the detector has delivered the frame
        for (int wait = 0; wait < 60 && !onItsWay; ++wait) {
            onItsWay = hardware->ledger().delivered != before;
            if (!failureOf([&] { detector->WaitImage(500); }))
                return expectFrame(detector->GetCapturedBuffer(), width, height);
        }
        ADD_FAILURE() << "no frame of " << width << " x " << height;
    }

    const support::Watchdog watchdog;
    const support::QuietLog quiet;

private:
    static inline std::atomic<OnThreads*> current{nullptr};
};

using EveryPanelLive = OnThreads;
using Kestrane6112Live = OnThreads;

}  // namespace

TEST_P(EveryPanelLive, LimitedRunEndsWithItsLastFrameAndTheLedgerKnowsAll) {
    constexpr int frames = 5;
    open(*detector, Bin1x1);
    const int fields = detector->GetFieldCount();
    detector->GoLiveSeq(1, 3, frames);
    until([&] { return !detector->IsLive(); });
    EXPECT_EQ(detector->GetFieldCount(), fields + road.fieldsOfFirstFrame() + frames - 1);
    EXPECT_EQ(detector->GetCapturedBuffer(), 1 + (frames - 1) % 3);
    EXPECT_NO_THROW(detector->CheckForLiveError());
    QorImage image;
    EXPECT_NO_THROW(detector->ReadBuffer(detector->GetCapturedBuffer(), image, 0));
    EXPECT_EQ(image.GetImageXdim(), panelWidth());
    detector->GoUnLive();
    detector->CloseBoard();
    awaitBalancedLedger();
    EXPECT_GE(hardware->ledger().delivered, static_cast<std::uint64_t>(frames));
}

INSTANTIATE_TEST_SUITE_P(Road, EveryPanelLive, testing::ValuesIn(support::everyRoad()),
                         testing::PrintToStringParamName());

TEST_P(Kestrane6112Live, FrameAndPatternFollowBinningAndRegion) {
    hardware->writeRegister(0, edgesOnly);
    open(*detector, Bin1x1);
    detector->GoLiveSeq();
    const int first = detector->GetFieldCount() + road.fieldsOfFirstFrame();
    expectLiveFrame(3072, 864);
    detector->SetBinningMode(Bin4x4);
    expectLiveFrame(768, 216);
    expectLiveFrame(768, 216);
    detector->SetROIArea(3072, 128);
    detector->SetROIEnabled(true);
    expectLiveFrame(768, 32);
    detector->SetBinningMode(Bin1x1);
    expectLiveFrame(3072, 128);
    EXPECT_TRUE(detector->IsLive());
    EXPECT_EQ(detector->GetFieldCount(), first + 4) << "the same run goes on";
    detector->EnablePulseGenerator(50.0F);
    EXPECT_EQ(detector->IsLive(), !road.pulsesEndARun());
    detector->DisablePulseGenerator();
    EXPECT_FALSE(detector->IsLive());
    const simulator::Ledger ledger = hardware->ledger();
    EXPECT_EQ(ledger.delivered, ledger.exposed);
}

INSTANTIATE_TEST_SUITE_P(Road, Kestrane6112Live, testing::ValuesIn(support::roads({"6112-kestrane"})),
                         testing::PrintToStringParamName());

TEST_P(OnThreads, SizeChangesMeetLiveCopiesAndReaders) {
    open(*detector);
    detector->SetExposureTime(10.0F);
    // The newest block may be about to be filled: what can be read in peace is the one before.
    const int blocks = detector->GetNumBuffers();
    const auto settled = [blocks](int newest) { return (newest + blocks - 1) % blocks; };
    onFrame = [&](int /*field*/, int buffer, QuorinDetector* who) {
        QorImage image;
        who->ReadBuffer(settled(buffer), image, 0);
    };
    install(*detector);
    detector->GoLiveSeq();
    std::atomic<bool> enough{false};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        // Room for the largest frame: the size may change between the question and the copy.
        std::vector<unsigned char> pixels(1536 * 864 * 2);
        while (!enough) {
            if (failureOf([&] { detector->WaitImage(10); })) continue;
            const auto refusal =
                failureOf([&] { detector->ReadBuffer(settled(detector->GetCapturedBuffer()), pixels.data()); });
            EXPECT_TRUE(!refusal || (!road.sizeChangesAreSeamless() && refusal->GetCode() == DerrTransport));
            if (!refusal) ++reads;
        }
    });
    for (int round = 0; round < 6; ++round) {
        const int before = calls;
        const int readsBefore = reads;
        detector->SetBinningMode(round % 2 == 0 ? Bin2x2 : Bin4x4);
        awaitCalls(before + 3);
        until([&] { return reads >= readsBefore + 3; });
        EXPECT_TRUE(detector->IsLive());
    }
    enough = true;
    reader.join();
    detector->GoUnLive();
    EXPECT_TRUE(!failureOf([&] { detector->CheckForLiveError(); }) || !road.sizeChangesAreSeamless());
    QorImage image;
    EXPECT_NO_THROW(detector->ReadBuffer(detector->GetCapturedBuffer(), image, 0));
    EXPECT_EQ(image.GetImageXdim(), 384);
    detector->CloseBoard();
    awaitBalancedLedger();
}

TEST_P(OnThreads, EightUsersShareTheSerialLine) {
    open(*detector);
    install(*detector);
    detector->GoLiveSeq();
    std::vector<std::thread> users;
    std::atomic<int> wrong{0};
    for (int user = 0; user < 8; ++user)
        users.emplace_back([&, user] {
            constexpr int firstFreeRegister = 600;
            for (int round = 0; round < 10; ++round) {
                const int value = user * 1000 + round;
                detector->WriteRegister(firstFreeRegister + user, value, 0);
                if (detector->ReadRegister(firstFreeRegister + user, 1) != value) ++wrong;
            }
        });
    for (std::thread& user : users) user.join();
    EXPECT_EQ(wrong, 0);
    awaitCalls(3);
    detector->GoUnLive();
    EXPECT_NO_THROW(detector->CheckForCallbackError());
}

TEST_P(OnThreads, SoftwareTriggerMeetsTheGeneratorsToggle) {
    open(*detector);
    detector->SetTriggerSource(TriggerBits5And6);
    std::thread toggler([&] {
        for (int round = 0; round < 100; ++round) detector->ToggleGenerator(round % 2 == 0);
    });
    for (int round = 0; round < 50; ++round) EXPECT_NO_THROW(detector->SoftwareTrigger());
    toggler.join();
    detector->ToggleGenerator(false);
    const std::uint64_t edges = hardware->ledger().edges;
    detector->SoftwareTrigger();
    EXPECT_EQ(hardware->ledger().edges, edges + 1);
    detector->Snap(0, 5000);
    EXPECT_EQ(hardware->ledger().edges, edges + 2);
}

TEST_P(OnThreads, MoveMeetsTheCallbackWhichMayNotStopTheRun) {
    open(*detector);
    const auto second = Road{road.transport, "6112-kestrane"}.make();
    std::atomic<int> strangers{0};
    std::atomic<QuorinDetector*> last{nullptr};
    std::atomic<bool> stopIsDue{false};
    Gate stopRefused;
    onFrame = [&](int /*field*/, int /*buffer*/, QuorinDetector* who) {
        if (who != detector.get() && who != second.get()) ++strangers;
        last = who;
        // A call on the object that was just moved from fails, and nothing worse.
        const auto refusal = failureOf([&] { who->IsLive(); });
        EXPECT_TRUE(!refusal || refusal->GetCode() == DerrTransport) << refusal->what();
        if (!stopIsDue) return;
        const auto stop = failureOf([&] { who->GoUnLive(); });
        EXPECT_TRUE(stop && stop->GetCode() == DerrWrapped);
        stopRefused.open();
    };
    install(*detector);
    detector->GoLiveSeq();
    for (int round = 0; round < 20; ++round) {
        *second = std::move(*detector);
        const int before = calls;
        awaitCalls(before + 2);  // the call that ran during the move is over
        EXPECT_EQ(last, second.get());
        *detector = std::move(*second);
        awaitCalls(calls + 1);
    }
    EXPECT_EQ(strangers, 0);
    EXPECT_NO_THROW(detector->CheckForCallbackError());
    stopIsDue = true;
    stopRefused.pass();
    EXPECT_TRUE(detector->IsLive()) << "a stop from inside the callback is refused";
    detector->GoUnLive();
}

TEST_P(OnThreads, TwoDetectorsRunAndStopEachWithItsOwnFrames) {
    const Road other{road.transport, road.profile, 2};
    hurry(*other.hardware());
    const auto neighbour = other.make();
    QuorinDetector* const detectors[] = {detector.get(), neighbour.get()};
    std::atomic<int> counts[2] = {};
    std::atomic<int> outOfOrder{0};
    int lastField[2] = {0, 0};
    onFrame = [&](int field, int /*buffer*/, QuorinDetector* who) {
        const int index = who == detectors[0] ? 0 : 1;
        // The same twice is right: the count is read behind the wait, when the next frame may have come.
        if (field < lastField[index]) ++outOfOrder;
        lastField[index] = field;
        ++counts[index];
    };
    for (QuorinDetector* each : detectors) {
        open(*each);
        install(*each);
    }
    neighbour->GoLiveSeq();
    for (int round = 0; round < 5; ++round) {
        detector->GoLiveSeq();
        const int before = counts[1];
        until([&] { return counts[0] > round * 3 && counts[1] > before + 3; });
        detector->GoUnLive();
        EXPECT_TRUE(neighbour->IsLive()) << "a stop leaves another detector alone";
    }
    neighbour->GoUnLive();
    EXPECT_EQ(outOfOrder, 0);
    for (QuorinDetector* each : detectors) EXPECT_NO_THROW(each->CheckForCallbackError());
}

TEST_P(OnThreads, DestructionEndsRunsOfEveryKind) {
    enum class Ending { InCallback, AfterACall, AtOnce };
    for (int round = 0; round < 9; ++round) {
        detector = road.make();
        open(*detector);
        Gate gone;
        const auto ending = static_cast<Ending>(round % 3);
        const bool inCallback = ending == Ending::InCallback;
        if (inCallback)
            onFrame = [&](int /*field*/, int /*buffer*/, QuorinDetector* /*who*/) {
                detector.reset();
                gone.open();
            };
        else
            onFrame = nullptr;
        const int before = calls;
        install(*detector);
        // Only a run without end is sure to bring a call.
        detector->GoLiveSeq(0, 3, ending == Ending::AtOnce ? round % 2 : 0);
        if (inCallback) {
            gone.pass();
            EXPECT_EQ(detector, nullptr);
        } else {
            if (ending == Ending::AfterACall) awaitCalls(before + 1);
            detector.reset();
        }
        const int after = calls;
        std::this_thread::yield();
        EXPECT_EQ(calls, after) << "called after destruction";
    }
}

TEST_P(OnThreads, RefusedBinningKeepsTheFramesOfTheRunAndTheBoardCanBeClosed) {
    open(*detector);
    detector->GoLiveSeq(0, 3, 0);
    until([&] { return hardware->ledger().delivered > 2; });
    EXPECT_EQ(failureOf([&] { detector->SetBinningMode(BinUnknown); })->GetCode(), DerrBinning);
    hardware->writeRegister(0, edgesOnly);
    awaitBalancedLedger();
    const auto frameInBuffer = [&](int buffer) {
        std::vector<unsigned char> pixels(384 * 216 * 2);
        detector->ReadBuffer(buffer, pixels.data());
        return pixels;
    };
    if (road.isGigE()) {  // Camera Link reads by the binning that the detector now has, which is none
        const std::vector<unsigned char> recorded = frameInBuffer(0);
        EXPECT_NE(recorded, std::vector<unsigned char>(recorded.size()));
        EXPECT_NO_THROW(detector->GoUnLive());
        EXPECT_EQ(frameInBuffer(0), recorded);
    }
    EXPECT_NO_THROW(detector->CloseBoard());
}

namespace {

/// Ends the process with success if a detector that was destroyed before this object has logged its last call.
struct LastLine {
    std::string path;  ///< of the log; empty: nothing is asked
    std::string text;
    LastLine() = default;
    LastLine(const LastLine&) = delete;
    LastLine& operator=(const LastLine&) = delete;
    ~LastLine() {
        if (path.empty()) return;
        getQorLogger()->flush();
        std::ifstream file(path);
        const std::string log((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const auto dataFolder = std::filesystem::path(path).parent_path().parent_path().parent_path();
        std::filesystem::remove_all(dataFolder);
        std::_Exit(log.find(text) == std::string::npos ? EXIT_FAILURE : EXIT_SUCCESS);
    }
};

// Older than the logger, so destroyed after what is created by then.
LastLine lastLine;
std::unique_ptr<QuorinDetector> staticDetector;

}  // namespace

TEST_P(OnThreads, StaticObjectMayOwnADetector) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto leaveWithAnOpenDetector = [this] {
        staticDetector = std::move(detector);
        staticDetector->OpenBoard(2);
        lastLine.path = getLogPath();
        lastLine.text = road.isGigE() ? "pvDeviceGEV()->Disconnect" : "pxe_XCLIBuninstantiate";
        getQorLogger()->set_level(spdlog::level::debug);
        std::exit(EXIT_FAILURE);  // unless what is destroyed now decides otherwise
    };
    EXPECT_EXIT(leaveWithAnOpenDetector(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

INSTANTIATE_TEST_SUITE_P(Road, OnThreads, testing::ValuesIn(support::roads({"5101-kestrane"})),
                         testing::PrintToStringParamName());
