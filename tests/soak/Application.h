#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "soak/Disturbance.h"
#include "soak/Model.h"
#include "soak/Report.h"

namespace soak {

/// One application with one detector, all of whose calls one thread makes: random calls, each of which has to do what
/// the model says.
class Application {
public:
    Application(Station stationToUse, const Plan& plan, Random& random, Report& report);

    void step();
    /// Without faults the detector has to be what it was: opens, takes a frame, and every frame is accounted for.
    void finish();

private:
    using Call = std::function<void()>;
    struct Action {
        int weight;
        void (Application::*run)();
    };
    static const std::vector<Action> actions;

    /// Makes the call, which has to end with the code; under a fault it may fail with any. True if it returned.
    bool expect(int code, const std::string& what, const Call& call);
    bool judge(int code, const std::string& what, const Outcome& outcome);
    /// Makes a call that changes a setting. `inModel` is the same change of the model and tells the code.
    bool change(Setting setting, const std::string& what, const Call& call, const std::function<int()>& inModel);
    void expectValue(const std::string& what, double found, double expected, double tolerance = 0.0);
    bool readsAreTrue() const { return !disturbance.deceives(); }
    bool sizeKnown() const { return isOpen && model.knowsSize() && !disturbance.inForce(); }

    void make();
    void open();
    void closeBoard();
    void reopen();
    void destroy();
    void callWhileClosed();
    void disturb();
    void calm();
    void restoreSettings();
    void restoreRegion();

    void changeSetting();
    void changeTo(const SettingCall& call, int value);
    void askSetting();
    void ask(const SettingCall& call);
    void changeExposure();
    void changeGap();
    void changeProgrammed();
    void askTimes();
    void refuseBinning(int value);
    void changeRegion();
    void setRegion(const Region& region, int arguments);
    void askRegion();
    void askIdentity();
    void askTemperature();
    void useRegisters();
    void loadConfiguration();
    void uploadFirmware();
    void cyclePower();

    void snap();
    void snapInto(int buffer, int timeoutMs, int code);
    void snapTakesSignal();
    void takeSignal();
    void expectPattern(int buffer, std::uint64_t firstNumber);
    void expectCounts();
    void waitImage();
    void useBuffers();
    void runPulses();
    void runLive();
    void trigger();
    /// Lets a frame that is on its way come: what follows must not meet it.
    void letFramesPass();
    void keepFrameTime();
    int frameMs() const;
    int ring() const;    ///< `GetNumBuffers`
    int places() const;  ///< buffers that frames can be taken into: on Camera Link a count doesn't limit them
    int randomBuffer() { return random.below(std::min(ring(), 1000)); }

    const Station station;
    Random& random;
    Report& report;
    Model model;
    Disturbance disturbance;
    const bool faultsWanted;
    std::unique_ptr<QuorinDetector> detector;
    bool isOpen = false;
    int ringAsked = 0;            ///< 0: no count was given
    std::optional<int> fields;    ///< field count
    std::optional<int> captured;  ///< newest buffer
    bool signalled = false;       ///< a frame was signalled and no wait has consumed it
    bool signalUnknown = false;   ///< Camera Link: after a failed snap a frame may or may not have been signalled
    bool openFailed = false;      ///< GigE: the object may have kept the event of a failed open, and refuse the next
    bool staleFrames = false;     ///< a snap that failed has left frames in the pipeline
    bool pulsesPrepared = false;
    int pendingMs = 0;  ///< the longest that a frame on its way can take
};

}  // namespace soak
