#include <gtest/gtest.h>

#include <atomic>
#include <set>

#include "support/FacadeCalls.h"
#include "support/LiveRig.h"
#include "support/TransportRig.h"

/// The application's function calls back into its detector, and detectors go in the midst of a run.

using simulator::Fault;
using support::FacadeCall;
using support::Gate;
using support::until;

namespace {

/// A detector that runs free with exposures of a few milliseconds.
class HostileCallbacks : public support::RoadTest {
protected:
    HostileCallbacks() {
        hardware->setReadoutTimeMs(1.0);
        hardware->setReadoutTimeSettleMs(0.0);
        hardware->setFlashBusyMs(0.0);
        hardware->writeRegister(0, 0);
    }
    void open() {
        detector->OpenBoard(4);
        detector->SetBinningMode(Bin4x4);
        detector->SetExposureTime(3.0F);
    }
    void expectRunWithFrames() {
        hardware->writeRegister(0, 0);
        detector->GoLiveSeq();
        for (int frame = 0; frame < 2; ++frame) EXPECT_NO_THROW(detector->WaitImage(5000));
        detector->GoUnLive();
    }

    const support::Watchdog watchdog;
    const support::QuietLog quiet;
};

/// What the first call of a run is to do, and how it went.
struct Inside {
    explicit Inside(const FacadeCall& callToMake) : call(&callToMake) {}

    const FacadeCall* call;
    std::atomic<bool> begun{false};
    Gate done;
    std::optional<QuorinException> failure;
};

void makeTheCall(int /*fieldCount*/, int /*buffer*/, QuorinDetector* detector) {
    auto& inside = *static_cast<Inside*>(detector->GetCallbackData());
    if (inside.begun.exchange(true)) return;
    inside.failure = support::failureOf([&] { inside.call->make(*detector); });
    inside.done.open();
}

/// A stop would have to wait for the callback that asks for it.
const std::set<std::string> stops{"CloseBoard", "GoUnLive", "DisablePulseGenerator"};
/// Not to be made in a live run: both would use the one frame that the vendor's library has handed out.
constexpr const char* notInARun = "Snap";

}  // namespace

TEST_P(HostileCallbacks, MayMakeEveryCall) {
    open();
    for (const FacadeCall& call : support::facadeCalls()) {
        if (call.switchesPower || call.name == std::string(notInARun)) continue;
        SCOPED_TRACE(call.name);
        // What the call before has left would take its time with each frame.
        if (detector->GetBufferXdim() == panelWidth()) detector->SetBinningMode(Bin4x4);
        if (detector->GetExposureTime() > 10.0F) detector->SetExposureTime(3.0F);
        Inside inside(call);
        detector->SetCallbackData(&inside);
        detector->SetCallback(makeTheCall);
        hardware->writeRegister(0, 0);
        detector->GoLiveSeq(1, 3, 0);
        inside.done.pass();
        if (inside.failure) {
            EXPECT_EQ(inside.failure->GetCode() == DerrWrapped, stops.count(call.name) > 0) << inside.failure->what();
        }
        EXPECT_NO_THROW(detector->GoUnLive());
        EXPECT_NO_THROW(detector->StopCallback());
    }
    EXPECT_NO_THROW(detector->DisablePulseGenerator());
    expectRunWithFrames();
    EXPECT_NO_THROW(detector->CloseBoard());
}

TEST_P(HostileCallbacks, DestructionInARunThatIsInTroubleLeavesTheHardwareToTheNext) {
    const std::function<void()> troubles[] = {
        [] {},
        [this] { hardware->faults().set(Fault::Unplugged, {.onward = true}); },
        [this] { hardware->faults().set(Fault::SilentLine, {.onward = true}); },
        [this] { hardware->faults().set(Fault::FailedFrame, {.onward = true}); },
        [this] { detector->EnablePulseGenerator(100.0F); },
    };
    open();
    for (const auto& trouble : troubles)
        for (const bool withCallback : {false, true}) {
            if (withCallback) detector->SetCallback(support::ignoreFrame);
            detector->GoLiveSeq();
            EXPECT_NO_THROW(detector->WaitImage(5000));
            trouble();
            detector.reset();
            hardware->faults().clearAll();
            detector = road.make();
            open();
            expectRunWithFrames();
        }
}

INSTANTIATE_TEST_SUITE_P(Road, HostileCallbacks, testing::ValuesIn(support::roads({"5101-kestrane"})),
                         testing::PrintToStringParamName());
