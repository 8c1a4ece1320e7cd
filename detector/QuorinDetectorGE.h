#pragma once

#include "QuorinDetector.h"

/// A `QuorinDetector` that is one on GigE Vision, or fails with code 2.
///
/// The check is made at construction, at each open and at the operation that only this transport has; a detector of the
/// other transport can get in by a move through the base class. Through a `QuorinDetector&` the open without a count is
/// checked, that with a count isn't. Can't be moved.
class QRAPI_EXPORT QuorinDetectorGE : public QuorinDetector {
public:
    /// As `QuorinDetector`. Fails with code 2 for a detector of the other transport.
    explicit QuorinDetectorGE(DevInfo& info);
    /// As `QuorinDetector`. Fails with code 2 for another `transport` than `TransportGE`.
    QuorinDetectorGE(DetectorInterface transport, int unit, const char* param);
    ~QuorinDetectorGE() override;

    /// As `QuorinDetector::OpenBoard`.
    void OpenBoard() override;
    /// As `QuorinDetector::OpenBoard` with a count.
    void OpenBoard(int bufferCount);

    /// Sets the network address that the detector keeps for itself (features GevCurrentIPConfigurationPersistentIP and
    /// GevPersistentIPAddress): four bytes, most significant first, each 0 to 255 (else code 4). Reopens the connection
    /// under the address that it was built with. Fails with code 5 if not open or if a step fails; the detector is
    /// closed then if the reopening was the step.
    void SetPersistentIPAddress(int first, int second, int third, int fourth);
};
