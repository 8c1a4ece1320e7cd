#include <qrapi/QuorinDetector.h>

#include <iostream>

/// What a failure tells besides its text, which is for people.
void tell(const QuorinException& failure) {
    std::cout << DerrName(failure.GetCode()) << " (" << failure.GetCode() << ") from " << failure.GetFunctionName();
    if (failure.GetTransportError() != 0)  // the transport's library had a part in it
        std::cout << ", transport error " << failure.GetTransportError() << " \"" << failure.GetTransportMessage()
                  << '"';
    std::cout << "\n";
}

/// Takes a frame, and again with twice the time if it didn't come in time. What another try can't mend passes through.
void snapPatiently(QuorinDetector& detector, int timeoutMs, int tries) {
    for (int left = tries - 1;; --left) {
        try {
            detector.Snap(0, timeoutMs);
            return;
        } catch (const QuorinException& failure) {
            if (failure.GetCode() != DerrAcquisition || left == 0) throw;
            tell(failure);
            timeoutMs *= 2;
        }
    }
}

int main() {
    try {
        QuorinDetector nowhere(TransportGE, 0, "sim:nobody");
        nowhere.OpenBoard();
    } catch (const QuorinException& failure) {
        tell(failure);  // nothing answers at this address
    }

    try {
        QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
        detector.OpenBoard();
        detector.SetExposureTime(300.0F);  // ms
        snapPatiently(detector, 200, 3);   // too short at first
        std::cout << "a frame at last\n";
        detector.SetROIArea(100, 100);  // breaks a rule: the width must be the panel's
    } catch (const QuorinException& failure) {
        tell(failure);
        std::cout << failure.what() << "\n";
        return failure.GetCode() == DerrBadRequest ? 0 : 1;
    }
    return 1;
}
