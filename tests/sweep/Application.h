#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "QuorinDetectorCL.h"
#include "QuorinDetectorGE.h"
#include "detector/baseDetector.h"
#include "simulator/Rack.h"
#include "sweep/Meter.h"

namespace sweep {

class MeteredPleora;
class MeteredXclib;

/// A transport and electronics: where a scenario is run.
struct Road {
    DetectorInterface transport;
    bool kestrane;

    bool isGigE() const { return transport == TransportGE; }
    const char* name() const;
};
inline constexpr std::array<Road, 4> roads{
    {{TransportGE, false}, {TransportGE, true}, {TransportCL, false}, {TransportCL, true}}};

/// One call of the public interface: what it threw, and what was made to go wrong for it.
struct Outcome {
    std::string operation;
    std::optional<QuorinException> failure;
    std::vector<Strike> strikes;
    std::int64_t elapsedMs = 0;
};

/// Ends an application after a call that failed.
struct Ended {};

/// An application on a detector whose vendor calls are metered.
class Application {
public:
    Application(const Road& road, Meter& meter);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// Makes the detector; the constructor did, so this is for one that was destroyed.
    void construct();
    /// Makes a public call. One that fails ends the application with `Ended`.
    void call(const std::string& operation, const std::function<void()>& body);
    /// The same, and goes on after a failure. True: it returned.
    bool attempt(const std::string& operation, const std::function<void()>& body);
    /// What must hold if nothing was reported.
    void expect(bool holds, const std::string& what);

    /// The buffer holds the newest exposed frame, as a fresh read shows it.
    void expectNewestFrame(int buffer);
    /// Opens, takes a frame and looks at it, closes: nothing of what went wrong before may stand in the way.
    void proveItWorks(bool powerMayBeOff);
    /// Waits until the callback was called `number` times in all, or for 5 s.
    bool awaitCallbacks(int number);
    /// From here on no callback may come.
    void noteStop();

    /// For the oracle's own test: what a broken double does at each vendor call.
    void onCall(std::function<void(const std::string&)> action);
    void destroy();
    /// The locks that somebody still holds, by name, and whether another thread gets a frame read.
    std::vector<std::string> heldLocks();
    int heldVendorObjects() const;
    baseDetector& core();

    const Road road;
    const std::shared_ptr<simulator::SimulatedDetector> hardware;
    std::unique_ptr<QuorinDetector> detector;
    std::vector<Outcome> outcomes;
    std::vector<std::string> complaints;

    inline static std::atomic<int> callbackCalls{0};
    static void callback(int field, int buffer, QuorinDetector* detector);

    std::shared_ptr<MeteredPleora> pleora;  ///< on GigE
    std::shared_ptr<MeteredXclib> grabber;  ///< on Camera Link

    static constexpr int waitMs = 10000;
    static constexpr int slot = 40;
    static constexpr const char* address = "sim:sweep";

private:
    static std::shared_ptr<simulator::SimulatedDetector> makeHardware(const Road& road);
    void meterTheSeams();
    void reopen();
    bool make(const std::string& operation, const std::function<void()>& body);

    Meter& meter;
    std::optional<int> callsAtStop;
};

}  // namespace sweep
