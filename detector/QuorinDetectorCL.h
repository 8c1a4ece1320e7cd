#pragma once

#include "QuorinDetector.h"

/// A `QuorinDetector` that is one on Camera Link, or fails with code 2.
///
/// The check is made at construction, at each open and at the operation that only this transport has; a detector of the
/// other transport can get in by a move through the base class. Through a `QuorinDetector&` the open without a count is
/// checked, that with a count isn't. Can't be moved.
class QRAPI_EXPORT QuorinDetectorCL : public QuorinDetector {
public:
    /// As `QuorinDetector`. Fails with code 2 for a detector of the other transport.
    explicit QuorinDetectorCL(DevInfo& info);
    /// As `QuorinDetector`. Fails with code 2 for another `transport` than `TransportCL`.
    QuorinDetectorCL(DetectorInterface transport, int unit, const char* param);
    ~QuorinDetectorCL() override;

    /// As `QuorinDetector::OpenBoard`.
    void OpenBoard() override;
    /// As `QuorinDetector::OpenBoard` with a count.
    void OpenBoard(int bufferCount);

    /// Switches the detector's Camera Link interface on or off (commands WC1 and WC0). While it is off the serial
    /// channel works and no frame arrives. Fails with code 5 if not open or if the detector's flash memory stays busy,
    /// with 9 if the detector doesn't answer within 1 s.
    void PowerCLInterface(bool on);
};
