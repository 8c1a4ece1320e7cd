#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "../platform/Clock.h"
#include "../platform/export.h"
#include "Faults.h"
#include "Ledger.h"
#include "Profile.h"

/// The simulated detector: what the library can tell apart from hardware, and nothing about either transport.
namespace simulator {

/// What a frame shows.
enum class Picture {
    Pattern,  ///< every pixel encodes frame number, sensor, row and column
    Phantom,  ///< a plausible radiograph
};

/// One frame as the detector puts it on the wire.
struct Frame {
    std::uint64_t number = 0;           ///< counts exposed frames from 1
    int width = 0;                      ///< pixels per row of the panel image
    int height = 0;                     ///< rows
    bool complete = true;               ///< false: truncated or failed on the way
    std::vector<std::uint16_t> pixels;  ///< row after row
};

/// What became of a frame that the transport was handed.
enum class FrameFate { Delivered, NoReceiver, NoBuffer, InFlight };

/// The pixel of the `Pattern` picture: a mix of its four arguments in which a change of any one of them by one
/// changes the value, in the 14 bits that the detector delivers. Row and column count output pixels within the sensor.
QRAPI_EXPORT std::uint16_t patternPixel(std::uint64_t frameNumber, int sensor, int row, int column);

/// The whole `Pattern` frame for a panel of `sensorsAcross` by `sensorsDown` sensors and an image of `width` by
/// `height` output pixels, sensors counted from 1 along the rows of the panel.
QRAPI_EXPORT std::vector<std::uint16_t> patternFrame(std::uint64_t frameNumber, int width, int height,
                                                     int sensorsAcross, int sensorsDown);

/// A detector: registers, command interpreter behind a serial port, exposure and readout timing, frame source.
///
/// Owns no thread: its timeline runs on platform/Clock.h. Any thread may call any member; the frame receiver is
/// called without a lock held, from the timeline, one frame at a time.
/// Make it with `create`, since its timeline holds weak references to it.
class QRAPI_EXPORT SimulatedDetector {
public:
    /// Throws std::invalid_argument for a profile without a panel, or with more sensors than a command can name.
    static std::shared_ptr<SimulatedDetector> create(const Profile& profile);
    ~SimulatedDetector();
    SimulatedDetector(const SimulatedDetector&) = delete;
    SimulatedDetector& operator=(const SimulatedDetector&) = delete;

    const Profile& profile() const;  ///< what it was made as

    /// @name Registers, past the serial port
    /// `sensor` 0 in a write reaches all sensors, n that one; a read of a sensor that the panel lacks gives -1. Faults
    /// of registers strike here too. Settings of the whole panel take force with writes that reach sensor 1.
    /// @{
    int readRegister(int reg, int sensor = 1);                         ///< as a read command does
    void writeRegister(int reg, std::uint16_t value, int sensor = 0);  ///< as a write command does
    /// Sets what the register holds without the effects of a write, also on read-only registers. Register 410 then
    /// reads the value in place of the time that was worked out (0 puts that back), and 418 the value beside its busy
    /// bit.
    void pokeRegister(int reg, std::uint16_t value, int sensor = 0);
    /// @}

    /// @name Serial port
    /// Bytes in, bytes out; commands end with a carriage return. Replies come at once, or at the wire speed, and in the
    /// order of the commands. While the readout time or the flash memory is being worked on, a read of its status is
    /// answered after 1 ms. Whatever becomes of the reply, the command has had its effect.
    /// @{
    void serialWrite(std::string_view bytes);  ///< bytes from the host, whole commands or parts of them
    /// Takes up to `capacity` bytes; waits until `deadline` for the first. Returns how many came.
    std::size_t serialRead(char* buffer, std::size_t capacity, platform::Time deadline);
    /// Drops what has arrived and not been read.
    void serialDropInput();
    /// 0 (the start value) answers as fast as it can; 115200 takes 10 bits a byte both ways.
    void setWireSpeed(int baud);
    /// @}

    /// @name Frames
    /// @{
    void setTriggerInput(bool level);  ///< the level of the trigger input; its rising edge triggers
    /// An edge of the detector's own external trigger connector.
    void injectEdge();
    /// Who takes the frames. It answers what became of the frame; without one frames are lost for no receiver, and
    /// the detector doesn't run free. The frame is only valid during the call; the receiver must not throw.
    /// Returns when no call into the old receiver is running any more, except from within the receiver itself; so the
    /// caller must hold no lock that the receiver takes.
    /// A transport that drops a frame later reports it with `reportDropped`.
    void setFrameReceiver(std::function<FrameFate(const Frame&)> receiver);
    /// Moves `count` frames of the ledger from `delivered` to `lostInFlight`.
    void reportDropped(std::uint64_t count);
    void setPicture(Picture picture);  ///< from the next frame on
    int frameWidth() const;            ///< output pixels per row under the active binning and region of interest
    int frameHeight() const;           ///< rows under the active binning and region of interest
    double exposureWindowMs() const;   ///< of the active configuration
    double readoutTimeMs() const;      ///< of the active configuration
    Ledger ledger() const;             ///< where every frame went
    /// @}

    Faults& faults();  ///< what is made to go wrong

    /// The flash memory of a sensor's controller, up to the highest byte ever written; bytes that hold nothing are 255.
    /// Bits are in the order in which the packets brought them. Empty for a sensor that the panel lacks.
    std::vector<std::uint8_t> flashContent(int sensor) const;

    /// @name Settable behaviour, with the start values
    /// @{
    void setMinimumWindowMs(double window);    ///< the firmware's clamp of the exposure window; 0.5 on Kestrane
                                               ///< electronics but those of model 6213 with firmware 11138, else 0
    void setReadoutTimeSettleMs(double time);  ///< how long register 410 reads 0 after a change; 20
    void setFlashBusyMs(double time);          ///< how long register 418 shows busy after a flash write; 30
    void setBootTimeMs(double time);           ///< silence on the line after power-on; 1000
    void setEraseTimeMs(double time);          ///< how long an erase of the flash memory is reported as running; 3000
    void setTemperatures(double sensorCelsius, double auxiliaryCelsius);  ///< 35 and 32 degrees Celsius
    void setReadoutTimeMs(double time);  ///< replaces the readout time that the configuration gives; 0 puts it back
    /// @}

private:
    struct State;
    explicit SimulatedDetector(const Profile& profile);
    std::shared_ptr<State> state;
};

}  // namespace simulator
