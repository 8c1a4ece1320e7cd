#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "support/TransportRig.h"
#include "support/Watchdog.h"

/// Which calls each state allows, walked on a simulated detector and compared with docs/states.md.

using support::failureOf;

namespace {

/// The columns of the table.
enum State { Closed, Open, OpenCallback, Live, LiveCallback, Stopping, Moved, StateCount };

constexpr std::array<const char*, StateCount> stateNames{{"closed", "open", "open, function installed", "live",
                                                          "live, function installed", "in a callback being stopped",
                                                          "moved from"}};

/// How a call ends: the cell of the table and, for a refusal, what it says.
struct Outcome {
    const char* cell;
    Derr code;
    const char* text;
};

constexpr Outcome allowed{"yes", Derr{}, nullptr};
constexpr Outcome notWalked{"-", Derr{}, nullptr};  ///< it is documented not to be made in this state
constexpr Outcome notOpen{"5", DerrTransport, "OpenBoard must be called before doing any detector operations."};
constexpr Outcome closedAlready{"4a", DerrBadRequest,
                                "The connection to the board is not open! Cannot close connection that isn't open!"};
constexpr Outcome openAlready{
    "4b", DerrBadRequest,
    "The connection to the board is already open! Please close the connection before attempting to re-open!"};
constexpr Outcome liveAlready{"4c", DerrBadRequest,
                              "Live thread already active! Please exit live mode before trying to enter again!"};
constexpr Outcome noCallback{
    "4d", DerrBadRequest,
    "Callback thread is not active! Please make sure callbacks are active before trying to stop them!"};
constexpr Outcome movedFrom{"4e", DerrBadRequest, "This object was moved from and has no detector."};
constexpr Outcome noFrame{"13", DerrAcquisition, "Image did not arrive within the timeout."};
constexpr Outcome setInRun{"17a", DerrCallback, "Cannot set callback during acquisition."};
constexpr Outcome dataInRun{"17b", DerrCallback, "Cannot set callback data acquisition."};
constexpr Outcome stopInRun{"17c", DerrCallback, "Cannot stop callback during acquisition."};
constexpr Outcome installedAlready{
    "17d", DerrCallback, "Callback thread already active! Please stop current callbacks before launching new one!"};
constexpr Outcome beingStopped{"17e", DerrCallback,
                               "The callback is being stopped: this operation cannot be done from inside it."};

constexpr std::array<Outcome, 13> refusals{{notOpen, closedAlready, openAlready, liveAlready, noCallback, movedFrom,
                                            noFrame, setInRun, dataInRun, stopInRun, installedAlready, beingStopped,
                                            notWalked}};

struct Row {
    const char* name;
    std::function<void(QuorinDetector&)> call;
    std::array<Outcome, StateCount> outcomes;
    bool waitsOnGigEAlone = false;  ///< asks for the acquisition state there; Camera Link leaves it to the grabber
};

using D = QuorinDetector;

/// A question or a setting that only needs an open board.
constexpr std::array<Outcome, StateCount> whenOpen{{notOpen, allowed, allowed, allowed, allowed, allowed, movedFrom}};
/// What also asks for the acquisition state.
constexpr std::array<Outcome, StateCount> withState{
    {notOpen, allowed, allowed, allowed, allowed, beingStopped, movedFrom}};

void function(int /*fieldCount*/, int /*buffer*/, QuorinDetector* /*detector*/) {}

const std::vector<Row>& table() {
    static std::vector<unsigned char> frame(std::size_t{1536} * 864 * 2);
    static const std::vector<Row> rows{
        {"OpenBoard",
         [](D& d) { d.OpenBoard(); },
         {{allowed, openAlready, openAlready, openAlready, openAlready, openAlready, movedFrom}}},
        {"CloseBoard",
         [](D& d) { d.CloseBoard(); },
         {{closedAlready, allowed, allowed, allowed, allowed, beingStopped, movedFrom}}},
        {"IsConnected",
         [](D& d) { d.IsConnected(); },
         {{allowed, allowed, allowed, allowed, allowed, allowed, movedFrom}}},
        {"GetModelNumber", [](D& d) { d.GetModelNumber(); }, whenOpen},
        {"SetBinningMode", [](D& d) { d.SetBinningMode(Bin1x1); }, withState, true},
        {"SetTriggerSource", [](D& d) { d.SetTriggerSource(TriggerBitsClear); }, whenOpen},
        {"SetTestMode", [](D& d) { d.SetTestMode(false); }, whenOpen},
        {"SetExposureTime", [](D& d) { d.SetExposureTime(20.0F); }, whenOpen},
        {"GetExposureTime", [](D& d) { d.GetExposureTime(); }, whenOpen},
        {"Snap",
         [](D& d) { d.Snap(0, 5000); },
         {{notOpen, allowed, allowed, notWalked, notWalked, notWalked, movedFrom}}},
        {"GoLiveSeq",
         [](D& d) { d.GoLiveSeq(); },
         {{notOpen, allowed, allowed, liveAlready, liveAlready, beingStopped, movedFrom}}},
        {"GoUnLive", [](D& d) { d.GoUnLive(); }, withState},
        {"IsLive", [](D& d) { d.IsLive(); }, whenOpen},
        {"SoftwareTrigger", [](D& d) { d.SoftwareTrigger(); }, whenOpen},
        {"CheckForLiveError", [](D& d) { d.CheckForLiveError(); }, whenOpen},
        {"GetFieldCount", [](D& d) { d.GetFieldCount(); }, whenOpen},
        {"WaitImage",
         [](D& d) {
             if (!d.IsLive()) {  // consume the signals of frames that are still on their way
                 while (!failureOf([&] { d.WaitImage(200); })) continue;
                 d.WaitImage(0);
             } else {
                 d.WaitImage(5000);
             }
         },
         {{notOpen, noFrame, noFrame, allowed, notWalked, notWalked, movedFrom}}},
        {"ReadBuffer", [](D& d) { d.ReadBuffer(0, frame.data()); }, whenOpen},
        {"ClearCameraBuffer", [](D& d) { d.ClearCameraBuffer(0); }, whenOpen},
        {"SetCallback",
         [](D& d) { d.SetCallback(function); },
         {{notOpen, allowed, installedAlready, setInRun, installedAlready, beingStopped, movedFrom}}},
        {"SetCallbackData",
         [](D& d) { d.SetCallbackData(d.GetCallbackData()); },
         {{notOpen, allowed, allowed, dataInRun, dataInRun, beingStopped, movedFrom}}},
        {"StopCallback",
         [](D& d) { d.StopCallback(); },
         {{notOpen, noCallback, allowed, noCallback, stopInRun, beingStopped, movedFrom}}},
        {"IsCallbackActive", [](D& d) { d.IsCallbackActive(); }, whenOpen},
        {"CheckForCallbackError", [](D& d) { d.CheckForCallbackError(); }, whenOpen},
        {"EnablePulseGenerator", [](D& d) { d.EnablePulseGenerator(20.0F); }, withState, true},
        {"ToggleGenerator", [](D& d) { d.ToggleGenerator(false); }, whenOpen},
        {"DisablePulseGenerator", [](D& d) { d.DisablePulseGenerator(); }, withState, true},
    };
    return rows;
}

void expectOutcome(const Row& row, State state, QuorinDetector& detector, DetectorInterface transport) {
    const bool waits = transport == TransportGE || !row.waitsOnGigEAlone;
    const Outcome& expected = state == Stopping && !waits ? allowed : row.outcomes[state];
    SCOPED_TRACE(std::string(row.name) + ", " + stateNames[state]);
    if (std::string(expected.cell) == notWalked.cell) return;
    if (expected.text != nullptr)
        support::expectFailure([&] { row.call(detector); }, expected.text, expected.code,
                               expected.code == DerrAcquisition ? 258 : 0);
    else
        EXPECT_NO_THROW(row.call(detector));
}

/// On the real clock, with a detector that runs free.
class StateTable : public support::RoadTest {
protected:
    StateTable() { hardware->writeRegister(0, 0); }

    /// From whatever the last call has left.
    void bringTo(State state) {
        const bool shouldBeOpen = state != Closed;
        const bool shouldBeLive = state == Live || state == LiveCallback;
        const bool shouldHaveCallback = state == OpenCallback || state == LiveCallback;
        if (!shouldBeOpen) {
            if (detector->IsConnected()) detector->CloseBoard();
            return;
        }
        if (!detector->IsConnected()) detector->OpenBoard();
        if (detector->IsLive() && shouldBeLive && detector->IsCallbackActive() == shouldHaveCallback) return;
        detector->GoUnLive();
        if (detector->IsCallbackActive() && !shouldHaveCallback) detector->StopCallback();
        if (!detector->IsCallbackActive() && shouldHaveCallback) detector->SetCallback(function);
        if (shouldBeLive) goLive();
    }

    /// Without buffer 0, so that reading and clearing that one meets no frame on its way into it.
    void goLive() { detector->GoLiveSeq(1, detector->GetNumBuffers() - 1, 0); }

    const support::Watchdog watchdog;
};

TEST_P(StateTable, AllowsOrRefusesEachCall) {
    for (const State state : {Closed, Open, OpenCallback, Live, LiveCallback}) {
        for (const Row& row : table()) {
            bringTo(state);
            expectOutcome(row, state, *detector, road.transport);
        }
    }
    QuorinDetector taker(std::move(*detector));
    for (const Row& row : table()) expectOutcome(row, Moved, *detector, road.transport);  // NOLINT: what is tested
}

TEST_P(StateTable, InACallbackThatIsBeingStoppedNothingWaitsForTheStop) {
    struct Walk {
        std::atomic<bool> done{false};
        support::Gate entered;
    } walk;
    detector->OpenBoard();
    detector->SetExposureTime(40.0F);
    detector->SetCallbackData(&walk);
    detector->SetCallback([](int /*fieldCount*/, int /*buffer*/, QuorinDetector* inside) {
        Walk& state = *static_cast<Walk*>(inside->GetCallbackData());
        if (state.done) return;
        state.entered.open();
        // Refused already for the run that is live; for the stop once that is pending.
        support::until([&] {
            const auto failure = failureOf([&] { inside->SetCallbackData(nullptr); });
            return failure && std::string(failure->what()).rfind(beingStopped.text, 0) == 0;
        });
        for (const Row& row : table()) expectOutcome(row, Stopping, *inside, inside->GetTransportMethod());
        state.done = true;
    });
    goLive();
    walk.entered.pass();
    detector->GoUnLive();
    EXPECT_TRUE(walk.done);
    EXPECT_FALSE(detector->IsLive());
    EXPECT_NO_THROW(detector->CheckForCallbackError());
}

INSTANTIATE_TEST_SUITE_P(Road, StateTable, testing::ValuesIn(support::roads({"5101"})),
                         testing::PrintToStringParamName());

/// The page's table holds what is walked here, row for row in this order, and the texts of all refusals.
TEST(StatePage, SaysWhatIsWalked) {
    const auto path = std::filesystem::path(QRAPI_SOURCE_DIR) / "docs/states.md";
    std::ifstream file(path);
    ASSERT_TRUE(file) << path;
    const std::string page((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::ostringstream expected;
    expected << "| Call |";
    for (const char* name : stateNames) expected << " " << name << " |";
    expected << "\n|---|---|---|---|---|---|---|---|\n";
    for (const Row& row : table()) {
        expected << "| `" << row.name << "` |";
        for (const Outcome& outcome : row.outcomes) expected << " " << outcome.cell << " |";
        expected << "\n";
    }
    EXPECT_NE(page.find(expected.str()), std::string::npos) << "docs/states.md lacks\n" << expected.str();
    for (const Outcome& refusal : refusals) {
        if (refusal.text == nullptr) continue;
        std::ostringstream line;
        line << "| " << refusal.cell << " | " << static_cast<int>(refusal.code) << " | " << refusal.text << " |";
        EXPECT_NE(page.find(line.str()), std::string::npos) << "docs/states.md lacks " << line.str();
    }
}

}  // namespace
