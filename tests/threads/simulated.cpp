#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "QuorinDetector.h"
#include "simulator/Rack.h"
#include "support/LiveRig.h"

/// The whole road under several threads: facade, transport, vendor stand-in and simulated detector.

using support::Gate;
using support::until;

namespace {

/// Simulated detectors with exposures of a few milliseconds.
class Simulated : public testing::Test {
protected:
    Simulated() { simulator::Rack::instance().reset(); }
    ~Simulated() override {
        current = nullptr;
        simulator::Rack::instance().reset();
    }

    static std::shared_ptr<simulator::SimulatedDetector> hardware(const char* address) {
        const auto found = simulator::Rack::instance().find(address);
        found->setReadoutTimeMs(1.0);
        found->setMinimumWindowMs(0.0);
        found->setReadoutTimeSettleMs(0.0);
        found->setFlashBusyMs(0.0);
        return found;
    }
    static std::unique_ptr<QuorinDetector> open(const char* address, bins binning = Bin4x4) {
        hardware(address);
        auto detector = std::make_unique<QuorinDetector>(TransportGE, 0, address);
        detector->OpenBoard();
        detector->SetBinningMode(binning);
        detector->SetExposureTime(0.0F);
        return detector;
    }

    /// What the application's function does; one for all detectors of a test.
    std::function<void(int field, int buffer, QuorinDetector* detector)> onFrame;
    std::atomic<int> calls{0};
    void install(QuorinDetector& detector) {
        current = this;
        detector.SetCallback([](int field, int buffer, QuorinDetector* who) {
            Simulated* const test = current;
            ++test->calls;
            const auto action = test->onFrame;  // the test may go on to the next one during the call
            if (action) action(field, buffer, who);
        });
    }
    void awaitCalls(int number) {
        until([&] { return calls >= number; });
    }

    const support::Watchdog watchdog;
    const support::QuietLog quiet;

private:
    static inline std::atomic<Simulated*> current{nullptr};
};

constexpr const char* fast = "sim:5101-kestrane";
constexpr const char* plain = "sim:5101";

}  // namespace

TEST_F(Simulated, SizeChangesMeetLiveCopiesAndReaders) {
    const auto detector = open(fast);
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
            if (support::failureOf([&] { detector->WaitImage(10); })) continue;
            detector->ReadBuffer(settled(detector->GetCapturedBuffer()), pixels.data());
            ++reads;
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
    EXPECT_NO_THROW(detector->CheckForLiveError());
    EXPECT_EQ(detector->GetBufferXdim(), 384);
    QorImage image;
    EXPECT_NO_THROW(detector->ReadBuffer(detector->GetCapturedBuffer(), image, 0));
    EXPECT_EQ(image.GetImageXdim(), 384);
    detector->CloseBoard();
    const simulator::Ledger ledger = hardware(fast)->ledger();
    EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
}

TEST_F(Simulated, EightUsersShareTheSerialLine) {
    const auto detector = open(plain);
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

TEST_F(Simulated, SoftwareTriggerMeetsTheGeneratorsToggle) {
    const auto detector = open(fast);
    const auto device = hardware(fast);
    detector->SetTriggerSource(TriggerBits5And6);
    std::thread toggler([&] {
        for (int round = 0; round < 100; ++round) detector->ToggleGenerator(round % 2 == 0);
    });
    for (int round = 0; round < 50; ++round) EXPECT_NO_THROW(detector->SoftwareTrigger());
    toggler.join();
    detector->ToggleGenerator(false);
    const std::uint64_t edges = device->ledger().edges;
    detector->SoftwareTrigger();
    EXPECT_EQ(device->ledger().edges, edges + 1);
    detector->Snap(0, 5000);
    EXPECT_EQ(device->ledger().edges, edges + 2);
}

TEST_F(Simulated, MoveMeetsTheCallback) {
    std::unique_ptr<QuorinDetector> first = open(fast);
    QuorinDetector second(TransportGE, 0, "sim:6112-kestrane");
    std::atomic<int> strangers{0};
    std::atomic<QuorinDetector*> last{nullptr};
    onFrame = [&](int /*field*/, int /*buffer*/, QuorinDetector* who) {
        if (who != first.get() && who != &second) ++strangers;
        last = who;
        // A call on the object that was just moved from fails, and nothing worse.
        const auto refusal = support::failureOf([&] { who->IsLive(); });
        EXPECT_TRUE(!refusal || refusal->GetCode() == DerrTransport) << refusal->what();
    };
    install(*first);
    first->GoLiveSeq();
    for (int round = 0; round < 20; ++round) {
        second = std::move(*first);
        QuorinDetector* const now = &second;
        const int before = calls;
        awaitCalls(before + 2);  // the call that ran during the move is over
        EXPECT_EQ(last, now);
        *first = std::move(second);
        awaitCalls(calls + 1);
    }
    EXPECT_EQ(strangers, 0);
    EXPECT_TRUE(first->IsLive());
    first->GoUnLive();
    EXPECT_NO_THROW(first->CheckForCallbackError());
}

TEST_F(Simulated, TwoDetectorsRunAtOnceEachWithItsOwnFrames) {
    const char* const addresses[] = {"sim:5101-kestrane", "sim:5101-kestrane#2"};
    std::unique_ptr<QuorinDetector> detectors[2];
    std::atomic<int> counts[2] = {};
    std::atomic<int> outOfOrder{0};
    int lastField[2] = {0, 0};
    onFrame = [&](int field, int /*buffer*/, QuorinDetector* who) {
        const int index = who == detectors[0].get() ? 0 : 1;
        if (field <= lastField[index]) ++outOfOrder;
        lastField[index] = field;
        ++counts[index];
    };
    for (int index = 0; index < 2; ++index) {
        detectors[index] = open(addresses[index]);
        install(*detectors[index]);
    }
    for (int round = 0; round < 5; ++round) {
        for (auto& detector : detectors) detector->GoLiveSeq();
        until([&] { return counts[0] > round * 3 && counts[1] > round * 3; });
        for (auto& detector : detectors) detector->GoUnLive();
    }
    EXPECT_EQ(outOfOrder, 0);
    for (auto& detector : detectors) EXPECT_NO_THROW(detector->CheckForCallbackError());
}

TEST_F(Simulated, StopRefusedInTheCallbackIsAnErrorOfTheLibrary) {
    const auto detector = open(fast);
    std::optional<QuorinException> refusal;
    Gate asked;
    onFrame = [&](int /*field*/, int /*buffer*/, QuorinDetector* who) {
        refusal = support::failureOf([&] { who->GoUnLive(); });
        asked.open();
    };
    install(*detector);
    detector->GoLiveSeq();
    asked.pass();
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->GetCode(), DerrWrapped);
    EXPECT_TRUE(detector->IsLive());
    detector->GoUnLive();
    EXPECT_EQ(calls, 1);
}

TEST_F(Simulated, DestructionEndsRunsOfEveryKind) {
    enum class Ending { InCallback, AfterACall, AtOnce };
    for (int round = 0; round < 9; ++round) {
        std::unique_ptr<QuorinDetector> detector = open(fast);
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
