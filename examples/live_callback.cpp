#include <qrapi/QuorinDetector.h>

#include <atomic>
#include <chrono>
#include <exception>
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

int main() {
    constexpr int frames = 10;
    try {
        Count count;
        QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
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
        detector.CheckForCallbackError();
        // The first frame of a run adds 2 to the field count, each further one 1.
        const int taken = detector.GetFieldCount() - fieldCountBefore - 1;
        detector.CloseBoard();  // returns after the last callback
        std::cout << taken << " frames, the last callback at field count " << count.newestFieldCount << "\n";
        return taken == frames && count.calls > 0 ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
        return 1;
    }
}
