#include "sweep/Application.h"

#include <algorithm>
#include <string_view>
#include <thread>

#include "QorImage.h"
#include "detector/EpixDetector.h"
#include "detector/PleoraDetector.h"
#include "platform/Clock.h"
#include "sweep/MeteredPleora.h"
#include "sweep/MeteredXclib.h"

namespace sweep {
namespace {

/// What is hidden in a detector.
struct Hidden : baseDetector {
    static auto& threadMaker(baseDetector& core) { return core.*(&Hidden::startThread); }
    static auto& waits(baseDetector& core) { return core.*(&Hidden::waitSection); }
    static auto& acquisition(baseDetector& core) { return core.*(&Hidden::acquisitionLock); }
    static auto& callbacks(baseDetector& core) { return core.*(&Hidden::callbackMutex); }
    static auto& pleora(baseDetector& core) { return core.*(&Hidden::pleoraLib); }
    static auto& grabber(baseDetector& core) { return core.*(&Hidden::xclibLib); }
};
struct Facade : QuorinDetector {
    static baseDetector& core(QuorinDetector& facade) { return (facade.*(&Facade::detector))(); }
};

constexpr std::uint16_t edgesOnly = 0x60;

template <class Lock>
bool isFree(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
    if (!lock.try_lock()) return false;
    lock.unlock();
    return true;
}

}  // namespace

const char* Road::name() const {
    if (isGigE()) return kestrane ? "GigE, Kestrane" : "GigE, plain";
    return kestrane ? "Camera Link, Kestrane" : "Camera Link, plain";
}

Application::Application(const Road& onRoad, Meter& callMeter)
    : road(onRoad), hardware(makeHardware(onRoad)), meter(callMeter) {
    callbackCalls = 0;
    meter.unplug = [this] { hardware->faults().set(simulator::Fault::Unplugged, {1, true}); };
    MeteredXclib::watch(meter);
    construct();
}

void Application::construct() {
    attempt("QuorinDetector", [this] {
        if (road.isGigE())
            detector = std::make_unique<QuorinDetectorGE>(TransportGE, 0, address);
        else
            detector = std::make_unique<QuorinDetectorCL>(TransportCL, slot, "");
    });
    if (detector != nullptr) meterTheSeams();
}

Application::~Application() {
    destroy();
    grabber::VirtualGrabber::setWatcher({});
    simulator::Rack::instance().mountSlot(slot, nullptr);
    grabber::VirtualGrabber::inSlot(slot);  // forgets the board as well
}

std::shared_ptr<simulator::SimulatedDetector> Application::makeHardware(const Road& road) {
    simulator::Profile profile = *simulator::findProfile(road.kestrane ? "6112-kestrane" : "6112");
    profile.link = road.isGigE() ? simulator::Link::GigE : simulator::Link::CameraLink;
    auto made = simulator::SimulatedDetector::create(profile);
    simulator::Rack& rack = simulator::Rack::instance();
    if (road.isGigE())
        rack.mount(address, made);
    else
        rack.mountSlot(slot, made);
    made->setPicture(simulator::Picture::Pattern);
    // Binned 4x4, for small frames, which come on a trigger edge alone.
    constexpr std::pair<int, std::uint16_t> start[] = {{0, edgesOnly}, {10, 4}, {9, 4}, {5, 514}, {11, 1000}, {12, 0}};
    for (const auto& [reg, value] : start) made->writeRegister(reg, value);
    return made;
}

void Application::meterTheSeams() {
    baseDetector& inner = core();
    if (road.isGigE()) {
        auto& seam = Hidden::pleora(inner);
        pleora = std::make_shared<MeteredPleora>(seam, meter);
        seam = pleora;
    } else {
        auto& seam = Hidden::grabber(inner);
        grabber = std::make_shared<MeteredXclib>(seam, meter);
        seam = grabber;
    }
    auto& maker = Hidden::threadMaker(inner);
    maker = [plain = maker, started = std::make_shared<int>(0)](std::function<void()> body) {
        return plain([number = ++*started, body = std::move(body)] { Meter::runAs(number, body); });
    };
}

baseDetector& Application::core() {
    return Facade::core(*detector);
}

bool Application::make(const std::string& operation, const std::function<void()>& body) {
    Outcome outcome;
    outcome.operation = operation;
    meter.setOperation(operation);
    const std::int64_t start = platform::tickCountMs();
    try {
        body();
    } catch (const QuorinException& failure) {
        outcome.failure = failure;
    } catch (const std::exception& foreign) {
        complaints.push_back(operation + " let out an exception of another type: " + foreign.what());
    } catch (...) {
        complaints.push_back(operation + " let out what is no exception");
    }
    outcome.elapsedMs = platform::tickCountMs() - start;
    outcome.strikes = meter.takeStrikes();
    // A failure may leave one; the next capture gives it back. The live thread has one for a moment.
    if (pleora != nullptr) expect(pleora->heldBuffers() <= 1, "frames go back to the pipeline");
    if (callsAtStop && *callsAtStop != callbackCalls) complaints.push_back("a callback came after the stop");
    outcomes.push_back(outcome);
    return !outcome.failure;
}

bool Application::attempt(const std::string& operation, const std::function<void()>& body) {
    return make(operation, body);
}

void Application::call(const std::string& operation, const std::function<void()>& body) {
    if (detector == nullptr || !make(operation, body)) throw Ended();
}

void Application::expect(bool holds, const std::string& what) {
    if (!holds) complaints.push_back("not so: " + what);
}

void Application::expectNewestFrame(int buffer) {
    const int width = hardware->frameWidth();
    const int height = hardware->frameHeight();
    const std::vector<std::uint16_t> pattern = simulator::patternFrame(
        hardware->ledger().exposed, width, height, hardware->profile().sensorsAcross, hardware->profile().sensorsDown);
    std::vector<std::uint16_t> pixels(pattern.size());
    call("ReadBuffer", [&] {
        if (detector->GetBufferXdim() != width || detector->GetBufferYdim() != height) {
            expect(false, "the library knows the size of the frame");
            return;
        }
        detector->ReadBuffer(buffer, reinterpret_cast<unsigned char*>(pixels.data()));
        expect(pixels == pattern, "the frame is the newest one, pixel by pixel");
    });
}

void Application::proveItWorks(bool powerMayBeOff) {
    constexpr std::chrono::seconds boot{2};
    hardware->faults().clearAll();
    hardware->serialWrite("\r");  // ends half a command
    for (const char* command : {"WP1\r", "WC1\r"}) {
        if (!powerMayBeOff) break;
        hardware->serialWrite(command);
        platform::sleepFor(boot);
    }
    hardware->serialDropInput();
    hardware->writeRegister(0, edgesOnly);
    try {
        if (detector == nullptr) throw Ended();
        if (detector->IsConnected()) call("CloseBoard", [&] { detector->CloseBoard(); });
        reopen();
        // What a half-done change has left is set anew, as an application does.
        call("DisablePulseGenerator", [&] { detector->DisablePulseGenerator(); });
        if (detector->QueryROI() == 1) call("SetROIEnabled", [&] { detector->SetROIEnabled(false); });
        call("SetBinningMode", [&] { detector->SetBinningMode(Bin4x4); });
        call("Snap", [&] { detector->Snap(1, waitMs); });
        expectNewestFrame(1);
        if (pleora != nullptr) expect(pleora->heldBuffers() == 0, "every frame went back to the pipeline");
        for (const std::string& lock : heldLocks()) expect(false, lock + " is free");
        call("CloseBoard", [&] { detector->CloseBoard(); });
    } catch (const Ended&) {
        complaints.push_back("it doesn't work any more: " + (outcomes.empty() ? "" : outcomes.back().operation) + ": " +
                             (detector != nullptr && outcomes.back().failure ? outcomes.back().failure->what() : "-"));
    }
}

/// An open that failed may leave its event, on GigE: the next open is refused then, and a new object is the way.
void Application::reopen() {
    const bool failedBefore = std::any_of(outcomes.begin(), outcomes.end(), [](const Outcome& outcome) {
        return outcome.operation == "OpenBoard" && outcome.failure;
    });
    const auto open = [this] { detector->OpenBoard(2); };
    if (attempt("OpenBoard", open)) return;
    const bool eventLeft =
        std::string_view(outcomes.back().failure->what()).rfind("Detector handle is already", 0) == 0;
    if (!eventLeft || !failedBefore || !road.isGigE()) throw Ended();
    outcomes.pop_back();
    destroy();
    construct();
    call("OpenBoard", open);
}

bool Application::awaitCallbacks(int number) {
    constexpr std::chrono::seconds patience{5};
    const platform::Time deadline = platform::now() + patience;
    while (callbackCalls < number && platform::now() < deadline) platform::sleepFor(std::chrono::milliseconds(2));
    return callbackCalls >= number;
}

void Application::noteStop() {
    callsAtStop = callbackCalls.load();
}

void Application::callback(int /*field*/, int /*buffer*/, QuorinDetector* /*detector*/) {
    ++callbackCalls;
}

void Application::onCall(std::function<void(const std::string&)> action) {
    meter.atEachCall = std::move(action);
}

void Application::destroy() {
    if (detector == nullptr) return;
    make("~QuorinDetector", [this] { detector.reset(); });
}

std::vector<std::string> Application::heldLocks() {
    baseDetector& inner = core();
    std::vector<std::string> held;
    const auto look = [&] {
        if (!isFree(Hidden::waits(inner))) held.emplace_back("waitSection");
        if (!isFree(Hidden::acquisition(inner))) held.emplace_back("acquisitionLock");
        if (!isFree(Hidden::callbacks(inner))) held.emplace_back("callbackMutex");
        if (!held.empty()) return;
        std::vector<unsigned char> pixels(2 * static_cast<std::size_t>(inner.GetBufferXdim() * inner.GetBufferYdim()));
        inner.ReadBuffer(0, pixels.data());
        inner.ReadRegister(1, 1);
    };
    // Recursive locks tell only another thread; and those that can't be tried show in a call that takes them, where the
    // watchdog finds it.
    std::thread([&] {
        try {
            look();
        } catch (const std::exception& failure) {
            complaints.push_back(std::string("another thread's call failed: ") + failure.what());
        }
    }).join();
    return held;
}

int Application::heldVendorObjects() const {
    return (pleora != nullptr ? pleora->heldBuffers() : 0) + (grabber != nullptr ? grabber->openEvents() : 0);
}

}  // namespace sweep
