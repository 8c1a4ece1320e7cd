#include <qrapi/QuorinDetector.h>
#include <qrapi/platform/DataFolder.h>
#include <qrapi/platform/VirtualClock.h>
#include <qrapi/simulator/Rack.h>

#include <cstdlib>
#include <iostream>

// How an application tests itself: its own function runs against a simulated detector that loses frames.

/// The application's function: one frame into buffer 0, with a second and a third try. Returns the tries it took.
int takeFrame(QuorinDetector& detector) {
    for (int tries = 1;; ++tries) {
        try {
            detector.Snap(0, 5000);
            return tries;
        } catch (const QuorinException& failure) {
            if (failure.GetCode() != DerrAcquisition || tries == 3) throw;
        }
    }
}

void check(bool holds, const char* what) {
    if (holds) return;
    std::cerr << "error: " << what << "\n";
    std::exit(1);
}

int main() {
    const platform::ScopedDataFolder folder("qrapi_example_log");  // where the library's log goes meanwhile
    const platform::ScopedVirtualClock clock;  // time-outs cost no time; for tests in which one thread makes all calls
    const auto simulated = simulator::Rack::instance().find("sim:5309");
    QuorinDetector detector(TransportGE, 0, "sim:5309");
    detector.OpenBoard();
    detector.SetTriggerSource(TriggerBits5And6);  // a frame for each Snap, none on its own

    check(takeFrame(detector) == 1, "an undisturbed frame needs one try");

    simulated->faults().set(simulator::Fault::LostFrame);  // the next one, once
    check(takeFrame(detector) == 2, "a lost frame is taken again");

    simulator::When always;
    always.onward = true;
    simulated->faults().set(simulator::Fault::LostFrame, always);
    bool gaveUp = false;
    try {
        takeFrame(detector);
    } catch (const QuorinException& failure) {
        gaveUp = failure.GetCode() == DerrAcquisition;
    }
    check(gaveUp, "a detector that loses every frame is given up");

    const simulator::Ledger ledger = simulated->ledger();
    check(ledger.delivered == 2 && ledger.lostByFault == 4, "no try is left out and none is made in vain");
    std::cout << "all checks hold: " << ledger.delivered << " frames delivered, " << ledger.lostByFault << " lost\n";
}
