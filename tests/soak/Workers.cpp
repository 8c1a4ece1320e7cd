#include "soak/Workers.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <thread>
#include <vector>

#include "binningTable.h"
#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "soak/Disturbance.h"

namespace soak {
namespace {

using std::chrono::milliseconds;

#if defined(QRAPI_THREAD_SANITIZER)
/// A reader that meets the copy of a frame is allowed, but told of pixel by pixel: it would take minutes.
constexpr bool readersMeetCopies = false;
constexpr bins sizes[] = {Bin4x4, Bin4x4, Bin2x2};
#else
constexpr bool readersMeetCopies = true;
constexpr bins sizes[] = {Bin1x1, Bin2x2, Bin4x4, Bin4x4};
#endif

/// One detector and the threads that use it. The one that calls `run` opens, sets, starts and stops.
class Crew {
public:
    Crew(Station stationToUse, const Plan& planToFollow, std::uint64_t seed, Report& reportToUse);
    ~Crew() { owners[place] = nullptr; }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    void run();

private:
    using Call = std::function<void()>;
    /// Makes the call, which returns or fails with one of the codes; with faults about, with any.
    bool expect(std::initializer_list<int> codes, const std::string& what, const Call& call);
    /// While this runs no other thread is in a call: open, close and destruction are the application's to keep apart.
    void alone(const Call& action);
    void work(std::uint64_t seed);
    void workOnce(Random& chance, std::vector<unsigned char>& pixels);
    static void called(int field, int buffer, QuorinDetector* who);
    void onFrame(int buffer);

    void make();
    void forbidCallbacks(const char* stop);
    void destroy();
    void open();
    void close();
    void step();
    void changeSettings();
    void snap();
    void startRun();
    void awaitEndOfRun(int fieldsBefore, int start, int stop, int frames);
    void stopRun();
    void runPulses();
    void disturb();
    void calm();
    bool awaitUntil(const std::function<bool()>& state, const char* what);
    bool isGigE() const { return station.isGigE(); }
    /// A change of size on Camera Link may cost a frame, which its fault text tells.
    int sizeCode() const { return isGigE() ? 0 : DerrTransport; }
    std::size_t frameBytes() const;
    /// The number of the frame in the buffer, 0 if that can't be told.
    std::uint64_t expectPattern(int buffer, std::uint64_t firstNumber);

    static inline std::array<std::atomic<Crew*>, 2> owners{};

    const Station station;
    const Plan& plan;
    Random random;
    Report& report;
    Disturbance disturbance;
    std::size_t place = 0;
    std::unique_ptr<QuorinDetector> detector;
    bool isOpen = false;
    bool live = false;
    bool callbackInstalled = false;
    std::uint64_t lastSnapped = 0;  ///< number of the frame that the snap before took; 0: none since the open
    bool leftovers = false;         ///< GigE: what a run didn't fetch any more is what the next snap gets
    bins binning = Bin1x1;
    int ring = 0;
    std::atomic<QuorinDetector*> address{nullptr};
    std::atomic<bool> troubled{false};  ///< faults are about, or have left their mark on the object
    std::atomic<bool> mayCall{false};   ///< the callback
    std::atomic<int> callbacksRunning{0};
    std::atomic<int> runStart{0};
    std::atomic<int> runStop{-1};
    std::atomic<bool> ended{false};
    std::atomic<bool> destroying{false};
    std::atomic<bool> closing{false};  ///< somebody wants to be alone
    platform::SharedMutex calls;       ///< held shared for a call
};

Crew::Crew(Station stationToUse, const Plan& planToFollow, std::uint64_t seed, Report& reportToUse)
    : station(std::move(stationToUse)), plan(planToFollow), random(seed), report(reportToUse), disturbance(station) {
    station.hardware->setReadoutTimeMs(1.0);
    station.hardware->setReadoutTimeSettleMs(0.0);
    station.hardware->setFlashBusyMs(0.0);
    while (owners[place] != nullptr) ++place;
    owners[place] = this;
    make();
}

std::size_t Crew::frameBytes() const {
    return std::size_t{2} * static_cast<std::size_t>(plan.profile.sensorWidth * plan.profile.sensorHeight);
}

bool Crew::expect(std::initializer_list<int> codes, const std::string& what, const Call& call) {
    const bool before = troubled;
    const Outcome outcome = report.call(what, call);
    if (outcome.returned()) return true;
    if (disturbance.inForce()) disturbance.failureSeen();
    if (before || troubled) return false;
    for (const int code : codes)
        if (code == outcome.code) return false;
    report.violation(what + " failed: " + outcome.text);
    return false;
}

void Crew::alone(const Call& action) {
    closing = true;
    {
        const platform::ExclusiveLock lock(calls);
        action();
    }
    closing = false;
}

bool Crew::awaitUntil(const std::function<bool()>& state, const char* what) {
    const platform::Time deadline = platform::now() + std::chrono::seconds(20);
    while (!state()) {
        if (platform::now() > deadline) {
            report.violation(std::string("no end of waiting for ") + what);
            return false;
        }
        platform::sleepFor(std::chrono::microseconds(300));
    }
    return true;
}

// ---- The other threads

void Crew::work(std::uint64_t seed) {
    Random chance(seed);
    std::vector<unsigned char> pixels(frameBytes());  // room for the largest frame: the size may change meanwhile
    while (!ended) {
        if (closing) {
            platform::sleepFor(std::chrono::microseconds(200));
            continue;
        }
        const platform::SharedLock lock(calls);
        if (isOpen) workOnce(chance, pixels);
    }
}

void Crew::workOnce(Random& chance, std::vector<unsigned char>& pixels) {
    QuorinDetector& user = *detector;
    const int buffer = chance.below(ring);
    const bool isFilled = isGigE() && buffer >= runStart && buffer <= runStop;
    const int timeoutMs = chance.below(20);
    switch (chance.below(12)) {
        case 0:
        case 1:
        case 2:
            return void(expect({DerrAcquisition, sizeCode()}, "WaitImage", [&] { user.WaitImage(timeoutMs); }));
        case 3:
        case 4:
            if (isFilled && !readersMeetCopies) return;
            if (chance.percent(50))
                return void(expect({sizeCode()}, "ReadBuffer", [&] { user.ReadBuffer(buffer, pixels.data()); }));
            // An image has room for one size, and the call is refused if that changes meanwhile.
            return void(expect({sizeCode(), DerrBadRequest}, "ReadBuffer into an image", [&] {
                QorImage image;
                user.ReadBuffer(buffer, image, 0);
            }));
        case 5:
            return void(expect({}, "IsLive", [&] { user.IsLive(); }));
        case 6:
            return void(expect({sizeCode()}, "CheckForLiveError", [&] { user.CheckForLiveError(); }));
        case 7:
            return void(
                expect({DerrWrapped, sizeCode()}, "CheckForCallbackError", [&] { user.CheckForCallbackError(); }));
        case 8:
            return void(expect({}, "GetFieldCount", [&] { user.GetFieldCount(), user.GetCapturedBuffer(); }));
        case 9:
            return void(expect({}, "GetBufferXdim", [&] { user.GetBufferXdim(), user.GetNumBuffers(); }));
        case 10:
            return void(expect({}, "ReadRegister", [&] { user.ReadRegister(126, 1); }));
        default:
            return void(expect({}, "IsCallbackActive", [&] { user.IsCallbackActive(); }));
    }
}

void Crew::called(int /*field*/, int buffer, QuorinDetector* who) {
    for (const std::atomic<Crew*>& each : owners)
        if (Crew* const crew = each; crew != nullptr && crew->address == who) return crew->onFrame(buffer);
}

void Crew::onFrame(int buffer) {
    thread_local std::vector<unsigned char> pixels;
    pixels.resize(frameBytes());
    const struct Running {
        std::atomic<int>& count;
        explicit Running(std::atomic<int>& toRaise) : count(toRaise) { ++count; }
        ~Running() { --count; }
    } running(callbacksRunning);
    if (!mayCall) report.violation("a callback begins after the run was stopped");
    Random chance(static_cast<std::uint64_t>(platform::now().count()));
    QuorinDetector& user = *address;
    // An object that is being destroyed has no detector any more, from any moment of the call on.
    const auto whileItLives = [&](const Call& call) {
        try {
            call();
        } catch (const QuorinException& failure) {
            if (failure.GetCode() != DerrBadRequest || !destroying) throw;
        }
    };
    if (isGigE() && runStop - runStart < 4 && !readersMeetCopies) return;
    expect({sizeCode(), DerrCallback}, "ReadBuffer in the callback",
           [&] { whileItLives([&] { user.ReadBuffer(buffer, pixels.data()); }); });
    if (chance.percent(20)) platform::sleepFor(milliseconds(chance.below(6)));
    if (chance.percent(5)) expect({}, "IsLive in the callback", [&] { whileItLives([&] { user.IsLive(); }); });
    if (chance.percent(2)) throw std::runtime_error("thrown by the application's function");
}

// ---- The thread that controls

void Crew::run() {
    std::vector<std::thread> workers;
    for (int worker = random.between(1, 3); worker > 0; --worker)
        workers.emplace_back([this, seed = static_cast<std::uint64_t>(random.below(1 << 30))] { work(seed); });
    for (int steps = plan.steps / 4; steps > 0 && report.episodeIsClean(); --steps) step();
    if (report.episodeIsClean()) calm();
    if (random.percent(50)) close();
    ended = true;
    for (std::thread& worker : workers) worker.join();
    destroy();
    awaitUntil(
        [this] {
            const simulator::Ledger ledger = station.hardware->ledger();
            return ledger.delivered + ledger.lost() == ledger.exposed;
        },
        "the frames on their way to be accounted for");
}

/// A stop has returned: from here on no callback is made, and none is running.
void Crew::forbidCallbacks(const char* stop) {
    if (callbacksRunning != 0) report.violation(std::string("a callback is running after ") + stop);
    mayCall = false;
}

void Crew::destroy() {
    destroying = true;
    report.call("destroy", [&] { detector.reset(); });
    forbidCallbacks("destruction");
    destroying = false;
}

void Crew::make() {
    detector = station.make();
    address = detector.get();
    isOpen = live = callbackInstalled = false;
    troubled = disturbance.inForce();
}

void Crew::open() {
    alone([&] {
        const int count = random.between(2, 8);
        isOpen = expect({}, "OpenBoard(" + std::to_string(count) + ")", [&] { detector->OpenBoard(count); });
        if (isOpen) {
            leftovers = false;
            lastSnapped = 0;
            ring = count;
            binning = random.pick(sizes);
            expect({}, "SetBinningMode(" + std::to_string(binning) + ")", [&] { detector->SetBinningMode(binning); });
            expect({}, "SetExposureTime(0)", [&] { detector->SetExposureTime(0.0F); });
            callbackInstalled = random.percent(60) && expect({}, "SetCallback", [&] { detector->SetCallback(called); });
        } else {
            report.call("CloseBoard of what is half open", [&] {
                if (detector->IsConnected()) detector->CloseBoard();
            });
        }
    });
}

void Crew::close() {
    alone([&] {
        if (!isOpen) return;
        if (random.percent(30) || !expect({}, "CloseBoard", [&] { detector->CloseBoard(); })) {
            destroy();
            make();
        }
        forbidCallbacks("CloseBoard");
        isOpen = live = callbackInstalled = false;
    });
}

void Crew::step() {
    if (!isOpen) return open();
    if (troubled && random.percent(30)) return calm();
    const int chance = random.below(100);
    if (chance < 30) return live ? stopRun() : startRun();
    if (chance < 60) return changeSettings();
    if (chance < 72) return live ? stopRun() : snap();
    if (chance < 78) return runPulses();
    if (chance < 84) return close();
    if (chance < 92 && plan.faults) return disturb();
    platform::sleepFor(milliseconds(random.below(30)));
}

void Crew::changeSettings() {
    const bool on = random.percent(50);
    if (random.percent(40)) {
        const bins wanted = random.pick(sizes);
        if (expect({}, "SetBinningMode(" + std::to_string(wanted) + ")", [&] { detector->SetBinningMode(wanted); }))
            binning = wanted;
        return;
    }
    bool found = !on;
    if (expect({}, "SetTestMode", [&] { detector->SetTestMode(on), found = detector->GetTestMode(); }) && !troubled &&
        found != on)
        report.violation("GetTestMode doesn't give what was set");
    expect({}, "SetExposureTime", [&] { detector->SetExposureTime(random.time(30.0F)); });
    if (live || random.percent(50)) return;
    // A limited run may not be quite over for its callback thread.
    expect({DerrCallback}, "SetCallback", [&] {
        if (callbackInstalled)
            detector->StopCallback();
        else
            detector->SetCallback(called);
        callbackInstalled = !callbackInstalled;
    });
}

std::uint64_t Crew::expectPattern(int buffer, std::uint64_t firstNumber) {
    const BinningMode& mode = *findBinning(binning);
    const int width = plan.profile.sensorWidth / mode.columnFactor;
    const int height = plan.profile.sensorHeight / mode.rowFactor;
    std::vector<std::uint16_t> pixels(frameBytes() / 2);
    if (!expect({}, "ReadBuffer(" + std::to_string(buffer) + ")",
                [&] { detector->ReadBuffer(buffer, reinterpret_cast<unsigned char*>(pixels.data())); }) ||
        troubled)
        return 0;
    pixels.resize(static_cast<std::size_t>(width * height));
    for (std::uint64_t number = station.hardware->ledger().exposed; number >= firstNumber; --number)
        if (pixels == simulator::patternFrame(number, width, height, 1, 1)) return number;
    report.violation("buffer " + std::to_string(buffer) + " holds none of the frames from number " +
                     std::to_string(firstNumber) + " on");
    return 0;
}

void Crew::snap() {
    constexpr milliseconds oldFrames{110};  // of another size, or the signal that a wait got just now
    alone([&] {
        platform::sleepFor(oldFrames);
        if (!isGigE()) {  // the signal that a run has left, which the snap would take for its own
            report.call("WaitImage(0)", [&] { detector->WaitImage(0); });
            platform::sleepFor(oldFrames);
        }
        const std::uint64_t before = station.hardware->ledger().exposed;
        const int buffer = random.below(ring);
        runStop = -1;
        if (!expect({}, "Snap(" + std::to_string(buffer) + ")", [&] { detector->Snap(buffer, 10000); }) || leftovers)
            return;
        // The detector runs free: on GigE a frame that came while the snap before ended is the next one's.
        lastSnapped = expectPattern(buffer, (isGigE() && lastSnapped != 0 ? lastSnapped : before) + 1);
    });
}

void Crew::startRun() {
    const int start = random.below(ring);
    const int stop = random.between(start, ring - 1);
    const int frames = random.percent(50) ? random.between(1, 10) : 0;
    alone([&] {
        runStart = start;
        runStop = stop;
    });
    int fields = 0;
    platform::sleepFor(milliseconds(110));  // a frame that was begun before a change of size
    if (!expect({}, "GetFieldCount", [&] { fields = detector->GetFieldCount(); })) return;
    mayCall = true;
    leftovers = isGigE();
    const std::string what =
        "GoLiveSeq(" + std::to_string(start) + ", " + std::to_string(stop) + ", " + std::to_string(frames) + ")";
    if (!expect({}, what, [&] { detector->GoLiveSeq(start, stop, frames); })) return;
    live = frames == 0;
    if (!live) awaitEndOfRun(fields, start, stop, frames);
}

void Crew::awaitEndOfRun(int fieldsBefore, int start, int stop, int frames) {
    if (troubled) {
        platform::sleepFor(milliseconds(50));
        return stopRun();
    }
    if (!awaitUntil([this] { return !detector->IsLive(); }, "a limited run to end")) return;
    int fields = 0;
    int captured = 0;
    expect({}, "GetFieldCount", [&] { fields = detector->GetFieldCount(), captured = detector->GetCapturedBuffer(); });
    if (fields != fieldsBefore + (isGigE() ? 1 : 0) + frames)
        report.violation("a run of " + std::to_string(frames) + " frames took the field count from " +
                         std::to_string(fieldsBefore) + " to " + std::to_string(fields));
    if (captured != start + (frames - 1) % (stop - start + 1))
        report.violation("the last frame of a run is said to be in buffer " + std::to_string(captured));
    alone([&] { expectPattern(captured, 1); });
}

void Crew::stopRun() {
    const bool endless = live;
    if (!expect({}, "GoUnLive", [&] { detector->GoUnLive(); })) return;
    live = false;
    // The callback of a run that ended by itself is waited for by the close alone.
    if (endless && !troubled) forbidCallbacks("GoUnLive");
}

void Crew::runPulses() {
    if (live) stopRun();
    const float hertz = random.time(200.0F) + 5.0F;
    expect({}, "EnablePulseGenerator", [&] { detector->EnablePulseGenerator(hertz); });
    expect({}, "ToggleGenerator(true)", [&] { detector->ToggleGenerator(true); });
    platform::sleepFor(milliseconds(random.below(20)));
    expect({}, "ToggleGenerator(false)", [&] { detector->ToggleGenerator(false); });
    expect({}, "DisablePulseGenerator", [&] { detector->DisablePulseGenerator(); });
}

void Crew::disturb() {
    troubled = true;
    report.remark("fault: " + disturbance.begin(random, true));
}

/// Without faults a new object finds everything in order.
void Crew::calm() {
    if (disturbance.wasFelt()) ++report.faultsFired;
    alone([&] {
        destroy();
        disturbance.end();
        report.remark("no faults");
        make();
    });
    open();
    if (isOpen) snap();
}

}  // namespace

void runWorkers(const Plan& plan, Random& random, Report& report) {
    std::vector<std::unique_ptr<Crew>> crews;
    for (int number = 0; number < plan.detectors; ++number)
        crews.push_back(std::make_unique<Crew>(plan.mount(number, random), plan,
                                               static_cast<std::uint64_t>(random.below(1 << 30)), report));
    std::vector<std::thread> others;
    for (std::size_t number = 1; number < crews.size(); ++number)
        others.emplace_back([crew = crews[number].get()] { crew->run(); });
    crews.front()->run();
    for (std::thread& other : others) other.join();
}

}  // namespace soak
