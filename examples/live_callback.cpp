#include <qrapi/QuorinDetector.h>
#include <qrapi/simulator/Rack.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <future>
#include <iostream>
#include <thread>

/// What the callback fills. It runs on a thread of the library, so the main thread reads atomics.
struct Count {
    std::atomic<int> calls{0};
    std::atomic<int> newestFieldCount{0};
};

void onFrame(int fieldCount, int /*buffer*/, QuorinDetector* detector) {
    // One call may stand for several frames: the field count tells how many there are, the calls don't.
    auto* const count = static_cast<Count*>(detector->GetCallbackData());
    ++count->calls;
    count->newestFieldCount = fieldCount;
}

/// Takes the frames of one live run and returns how many came. Throws what ended the run early.
int takeFrames(const char* address, int frames) {
    Count count;
    QuorinDetector detector(TransportGE, 0, address);
    detector.OpenBoard();
    detector.SetExposureTime(50.0F);  // ms
    detector.SetCallbackData(&count);
    detector.SetCallback(onFrame);
    const int fieldCountBefore = detector.GetFieldCount();
    detector.GoLiveSeq(0, frames - 1, frames);  // ends by itself
    while (detector.IsLive()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        detector.CheckForLiveError();  // a run that failed stays live until it is stopped
    }
    detector.CheckForLiveError();
    detector.CheckForCallbackError();
    // The first frame of a run adds 2 to the field count, each further one 1.
    const int taken = detector.GetFieldCount() - fieldCountBefore - 1;
    detector.CloseBoard();  // returns after the last callback
    return count.calls > 0 && count.newestFieldCount == taken + 1 ? taken : 0;
}

/// Takes the frames in spite of up to two failures. Each try has a new object: a live error stays with the old one,
/// over a close and an open too.
int takeFramesPatiently(const char* address, int frames) {
    for (int triesLeft = 2;; --triesLeft) {
        try {
            return takeFrames(address, frames);
        } catch (const QuorinException& failure) {
            if (triesLeft == 0) throw;
            std::cout << "again after transport error " << failure.GetTransportError() << ": ";
        }
    }
}

int main() {
    using simulator::Fault;
    constexpr int frames = 10;
    constexpr const char* address = "sim:6112-kestrane";
    const auto simulated = simulator::Rack::instance().find(address);
    try {
        int taken = takeFramesPatiently(address, frames);
        std::cout << taken << " frames\n";

        simulated->faults().set(Fault::TruncatedFrame, {3});  // the third frame, once
        taken += takeFramesPatiently(address, frames);
        std::cout << taken << " frames\n";

        const auto before = simulated->ledger().delivered;
        const auto cable = std::async(std::launch::async, [&] {
            for (int ms = 0; ms < 10000 && simulated->ledger().delivered < before + 3; ++ms)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            simulated->faults().set(Fault::Unplugged);  // pulled and put back
        });
        taken += takeFramesPatiently(address, frames);
        std::cout << taken << " frames\n";
        return taken == 3 * frames ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
        return 1;
    }
}
