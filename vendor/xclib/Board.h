#pragma once

#include <memory>
#include <optional>

#include "Capture.h"
#include "FaultText.h"
#include "SerialPort.h"
#include "SlotClaim.h"
#include "TriggerLine.h"
#include "VirtualGrabber.h"
#include "platform/Mutex.h"
#include "videoFormat.h"

namespace grabber {

/// An open board: the grabber of a slot as one library state uses it, from its opening to its closing. Any thread may
/// call.
///
/// Locks: `setupMutex` is taken before those of capture and line; the frame receiver takes neither it nor the line's.
class Board {
public:
    Board(std::unique_ptr<SlotClaim> slotClaim, std::shared_ptr<VirtualGrabber> grabber,
          const std::shared_ptr<FaultText>& faultText);
    /// Ends a capture, the pulse generator and all events. Returns when no frame is being captured any more.
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    VirtualGrabber& grabber() { return *hardware; }
    Capture& capture() { return *frameCapture; }
    TriggerLine& line() { return *triggerLine; }
    const std::shared_ptr<SerialPort>& serial() const { return serialPort; }

    bool hasFormat() const;
    /// Takes the frame's resolution from the format and switches the generator off. A format that is refused leaves all
    /// as it was.
    int load(const void* root);
    int setResolution(FrameSize size);

    /// @name The escape around a load
    /// @{
    void beginEscape();
    bool isEscaping() const;
    void noteLoad(int result);
    /// The result of the load.
    int endEscape();
    /// @}

private:
    const std::unique_ptr<SlotClaim> claim;  // goes last
    const std::shared_ptr<VirtualGrabber> hardware;
    const std::shared_ptr<Capture> frameCapture;
    const std::shared_ptr<TriggerLine> triggerLine;
    const std::shared_ptr<SerialPort> serialPort;
    mutable platform::Mutex setupMutex;
    std::optional<VideoFormat> format GUARDED_BY(setupMutex);
    std::optional<int> escape GUARDED_BY(setupMutex);  ///< while one is under way: the result of its load, or 0
};

}  // namespace grabber
