#include <qrapi/QuorinDetectorCL.h>
#include <qrapi/QuorinDetectorGE.h>
#include <qrapi/logging.h>
#include <qrapi/maintenance.h>
#include <qrapi/platform/DataFolder.h>
#include <qrapi/platform/VirtualClock.h>
#include <qrapi/simulator/Rack.h>
#include <qrapi/vendor/xclib/VirtualGrabber.h>

#include <iostream>

// Calls into each of the libraries from outside: objects, exceptions and what exists once per process are the same on
// both sides.

int main() {
    const platform::ScopedDataFolder folder("qrapi_consumer_log");
    const platform::ScopedVirtualClock clock;
    if (getQorLogger() == nullptr || getQorLogger() != getQorLogger()) return 1;

    try {
        QuorinDetectorGE wrong(TransportCL, 0, "");
        return 1;
    } catch (const QuorinException& failure) {
        std::cout << "wrong transport: " << failure.GetCode();
    }

    const auto simulated = simulator::Rack::instance().slot(0);
    grabber::Failure refusal;
    refusal.function = "pxe_goSnap";
    refusal.result = -5;
    grabber::VirtualGrabber::inSlot(0)->fail(refusal);
    QuorinDetectorCL detector(TransportCL, 0, "");
    detector.OpenBoard();
    detector.SetTriggerSource(TriggerBits5And6);
    try {
        detector.Snap(0, 1000);
        return 1;
    } catch (const QuorinException& failure) {
        std::cout << ", refused snap: " << failure.GetCode() << " (" << failure.GetTransportError() << ")";
    }
    detector.Snap(0, 1000);
    QorImage image;
    detector.ReadBuffer(0, image, 0);
    std::cout << ", image: " << image.GetImageXdim() << " x " << image.GetImageYdim()
              << ", reversed byte: " << int{ReverseBits(1)} << ", delivered: " << simulated->ledger().delivered << "\n";
}
