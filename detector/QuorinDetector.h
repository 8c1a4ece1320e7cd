#pragma once

#include <atomic>
#include <cstddef>

#include "DevInfo.h"
#include "QorImage.h"
#include "QuorinException.h"
#include "enumerations.h"
#include "export.h"

class baseDetector;

/// One detector, from construction to destruction.
///
/// Calling order: construction, `OpenBoard`, settings and acquisition, `CloseBoard`, destruction; opening and closing
/// can repeat. Until the board is open nearly every operation fails with code 5. Every failure is a `QuorinException`
/// and leaves one EXCEPTION line in the log; each call leaves an ENTER and an EXIT line.
///
/// Times are milliseconds. A frame is `GetBufferXdim` by `GetBufferYdim` pixels of 16 bits, row after row. Buffer
/// numbers count from 0 to `GetNumBuffers` - 1.
///
/// Any thread may call. One exchange on the serial channel, the waits for frames and the changes of the acquisition
/// state are ordered by the library; the application keeps `OpenBoard`, `CloseBoard`, settings and destruction apart.
///
/// A live error on GigE and a callback error stay with the object, over `CloseBoard` and `OpenBoard` too. After one of
/// them, end the run, destroy the object and open a new one.
///
/// Errors that any operation on an open detector can meet: 4 bad argument or moved-from object, 5 not open, or a call
/// to the transport failed (`GetTransportError` has the vendor's status), 9 the detector did not answer within 1 s.
///
/// On Camera Link the ring is the grabber's frame memory, and the grabber does a live run by itself. So a change of the
/// frame size takes effect immediately, also in a live run. It can fail with code 11 (grabber setup) or 12 (memory)
/// after the registers have been written, and so can `PowerSwitch(true)`. A fault text of the grabber is reported once,
/// as a live error (code 5).
class QRAPI_EXPORT QuorinDetector {
public:
    /// Builds the detector of the record's transport; touches no hardware.
    /// Fails with code 4 unless `iface` and `grabberFlag` are `TransportCL` and 1, or `TransportGE` and 0.
    explicit QuorinDetector(DevInfo& info);

    /// Builds a detector of the given transport. `unit` is the frame grabber's number on Camera Link and unused on
    /// GigE; `param` is the network address on GigE. Fails with code 4 for another transport.
    QuorinDetector(DetectorInterface transport, int unit, const char* param);

    QuorinDetector(const QuorinDetector&) = delete;
    QuorinDetector& operator=(const QuorinDetector&) = delete;
    /// Takes the other's detector; every later call on the other fails with code 4. Move only while no acquisition
    /// runs.
    QuorinDetector(QuorinDetector&& other) noexcept;
    /// Swaps the two detectors.
    QuorinDetector& operator=(QuorinDetector&& other) noexcept;

    /// Closes the board if it is open. Lets no failure out and always returns.
    virtual ~QuorinDetector();

    /// @name Connection
    /// @{

    /// Connects, reads what the detector is and can do, and raises the exposure to its minimum if it lies below.
    /// Fails with code 4 if open already or for a model without a geometry or timing on this transport, with 5 for a
    /// step of the connection, 8 or 9 if the exposure or readout time isn't known, 12 if the system refuses the memory
    /// of the frame ring. A system that promises memory before it has it, as Linux does, refuses little: a ring larger
    /// than the machine's memory can pass here and end the process when frames fill it.
    /// On Camera Link the ring is as many frames as the grabber holds, code 11 is a refused board or grabber setup, and
    /// a failure after the grabber has been opened leaves the board open: `IsConnected` is true; call `CloseBoard`.
    virtual void OpenBoard();
    /// The same with a ring of `bufferCount` frames (at least 1, else code 4). GigE has 20 until a count was given; the
    /// count stays for later opens. On Camera Link it demands that much memory of the grabber, for every later frame
    /// size too, until the next open. This form leaves the timing table as it is, which matters for model 6213 on
    /// Camera Link alone.
    void OpenBoard(int bufferCount);
    /// Ends an acquisition and disconnects. Fails with code 4 if not open, with 5 if a step fails: the detector stays
    /// open then and the call can be repeated. Settings stay in the detector.
    void CloseBoard();
    /// True while the board is open, on Camera Link also after an open that failed once the grabber was open. Fails on
    /// a moved-from object only.
    bool IsConnected() const;
    /// Switches the power off and on again. See `PowerSwitch`.
    void SoftReset();
    /// Switches the detector's power: on Kestrane electronics false means low power. Blocks for 4 to 20 s. Switching on
    /// clears the cached settings, applies the frame size and determines the timing again. Fails with code 5 if the
    /// detector doesn't come back. Keep other operations away meanwhile.
    void PowerSwitch(bool on);
    /// @}

    /// @name Identity and geometry
    /// @{
    int GetModelNumber() const;                                        ///< register 124 modulo 10000, for example 6112
    int GetSerialNumber() const;                                       ///< register 125
    int GetFirmwareVersion() const;                                    ///< register 126
    void GetFirmwareBuild(int& first, int& second, int& third) const;  ///< registers 38, 39, 40
    int GetSensorVersion() const;                                      ///< 2 on Kestrane electronics, otherwise 1
    /// Degrees Celsius of sensor 1 to the number of sensors, on Kestrane electronics one more for the auxiliary probe.
    /// Electronics other than Kestrane have one thermistor for all. 0 for another sensor, and for a sensor that isn't
    /// ready within a second. Fails with code 9 if the probe doesn't answer.
    float GetDetectorTemp(int sensor) const;
    DetectorInterface GetTransportMethod() const;                 ///< what the object was built for
    unsigned short GetSensorWidth(unsigned short sensor) const;   ///< columns of sensor 1 to 9, register 8
    unsigned short GetSensorHeight(unsigned short sensor) const;  ///< rows of sensor 1 to 9, register 7
    void GetDefaultImageSize(int& width, int& height) const;      ///< the full panel, unbinned
    int GetBufferXdim() const;  ///< pixels per row of a frame under the current binning and region
    int GetBufferYdim() const;  ///< rows of a frame under the current binning and region
    /// @}

    /// @name Capabilities
    /// Each answers 1 (supported), 0 (not supported) or -1 (not reported by this detector, or no such value), from the
    /// feature words in registers 36, 37 and 130 as read by `OpenBoard`.
    /// @{
    int QueryBinningMode(bins binning) const;                    ///< this binning mode
    int QueryExposureMode(ExposureModes mode) const;             ///< this exposure mode
    int QueryFullWellMode(FullWellModes mode) const;             ///< this full well mode
    int QueryReadoutMode(ReadoutModes mode) const;               ///< this readout mode
    int QueryTriggerSource(ExposureTriggerSource source) const;  ///< this trigger source
    int QueryDisableSliceInterlacing() const;                    ///< reading without slice interlacing
    int QueryLegacyTiming() const;                               ///< the choice of the legacy timing
    int QueryOnBoardLinearization() const;                       ///< linearization in the detector
    int QueryOnBoardUnscrambling() const;                        ///< pixels put in order by the detector
    int QueryOnBoardXTalkCorrection() const;                     ///< cross-talk correction in the detector
    int QueryPixelFrameCounter() const;                          ///< a frame counter in the pixels
    int QueryROI() const;                                        ///< a region of interest
    int QueryTempReporting() const;                              ///< temperature readings
    /// @}

    /// @name Settings
    /// They live in the detector's registers until they are changed or power is cycled; a getter asks the detector.
    /// Nothing refuses a setting during a live run: one that changes the frame size pauses it on GigE.
    /// @{

    /// Sets the binning (registers 10, 9, 3, 1, then 514 to register 5) and re-applies the exposure time; one that was
    /// at the readout time goes to the new minimum. Fails with code 4 if no readout time is known for the mode: before
    /// anything is written, but after the registers where there is a measured timing table (model 6213 on Camera Link,
    /// firmware 11138). A live run on GigE stays paused then until it is stopped or a size is set.
    void SetBinningMode(bins binning);
    bins GetBinningMode() const;  ///< registers 10, 9, 1 and 3
    /// Register 0, bits 3, 4, 12, 13. Re-applies the exposure time.
    void SetExposureMode(ExposureModes mode);
    ExposureModes GetExposureMode() const;  ///< register 0
    /// Register 3, bit 2, then 514 to register 5.
    void SetFullWellMode(FullWellModes mode);
    FullWellModes GetFullWellMode() const;  ///< register 3
    /// Register 1, bit 3.
    void SetReadoutMode(ReadoutModes mode);
    ReadoutModes GetReadoutMode() const;  ///< register 1
    /// Register 0, bits 5 to 8. Fails with code 4 for another source.
    void SetTriggerSource(ExposureTriggerSource source);
    ExposureTriggerSource GetTriggerSource() const;  ///< register 0
    /// Register 17: 1 to 65535, else code 4.
    void SetNumOfExposures(int count);
    int GetNumOfExposures() const;  ///< register 17
    /// Register 401, bit 3 (set means off), on Kestrane electronics; does nothing on others. Re-applies the exposure
    /// time. Fails with code 4 when enabling with the region of interest on.
    void SetLegacyTiming(bool enable);
    bool IsLegacyTimingEnabled() const;  ///< register 401; false on other than Kestrane electronics
    /// Register 1, bit 7, on Kestrane electronics; does nothing on others.
    void SetPixelFrameCounter(bool enable);
    bool IsPixelFrameCounterEnabled() const;  ///< register 1; false on other than Kestrane electronics
    /// Register 401, bit 0 (set means off); does nothing without the capability. Fails with code 4 when enabling with
    /// the region of interest on.
    void SetSliceInterlacing(bool enable);
    bool GetSliceInterlacing() const;  ///< register 401; true without the capability
    /// Register 0, bit 0.
    void SetTestMode(bool enable);
    bool GetTestMode() const;  ///< register 0
    /// Register 1, bit 2 (set means off).
    void ToggleOnBoardLinearization(bool enable);
    bool GetOnBoardLinearizationState() const;  ///< register 1; true while it is on
    /// Register 0, bit 14.
    void ToggleOnBoardXTalkCorrection(bool enable);
    bool GetOnBoardXTalkCorrectionState() const;  ///< register 0
    /// @}

    /// @name Exposure timing
    /// Exposure time = exposure window (registers 11 and 12) + readout time.
    /// @{

    /// Sets the exposure time in ms and reads it back until the detector has taken it. A time below
    /// `GetMinimumExposureTime`, or not a number, selects the minimum. Fails with code 8 if the detector doesn't take
    /// it within 2 s, with 9 if its readout time stays 0 for 10 s afterwards (Kestrane electronics).
    void SetExposureTime(float timeMs);
    float GetExposureTime() const;         ///< ms, as the detector holds it
    float GetMinimumExposureTime() const;  ///< ms, for the current settings
    float GetReadOutTime() const;          ///< ms, for the current settings
    /// Time between exposures in ms, readout time included (register 18, 0.1 ms). A time below the readout time is the
    /// shortest. Fails with code 4 above 1638.3 ms, on Kestrane electronics above 6553.5 ms, plus the readout time.
    void SetGapTime(float timeMs);
    float GetGapTime() const;  ///< ms, register 18 plus the readout time
    /// Sets 2 to 4 exposure times in ms (registers 27 to 34) and their number (register 17); the rest become the
    /// minimum. Fails with code 4 for another count.
    void SetPreProgrammedExposureTimes(const float* timesMs, std::size_t count);
    /// Fills 4 exposure times in ms and returns 4; with a null pointer it only returns 4. Fails with code 4 for a
    /// `size` below 4.
    int GetPreProgrammedExposureTimes(float* timesMs, std::size_t size) const;
    /// @}

    /// @name Region of interest
    /// @{

    /// Sets the region in pixels: the full width, a height of 128 to the panel's in steps of 8, a start row so that it
    /// fits, start column 0; where they are left out it is centred. It takes effect when it is turned on. Fails with
    /// code 4 for a region that breaks a rule, and without the capability; nothing is written then.
    void SetROIArea(int width, int height);
    void SetROIArea(int width, int height, int startRow);                   ///< @copydoc SetROIArea(int,int)
    void SetROIArea(int width, int height, int startRow, int startColumn);  ///< @copydoc SetROIArea(int,int)
    /// The region: width and height in pixels, start row and column. A region that the detector's sensors don't agree
    /// on is replaced by the whole panel, which is written to the detector. Fails with code 4 without the capability.
    void GetROIArea(int& width, int& height, int& startRow, int& startColumn) const;
    /// True while the region is on (register 1 bit 6); false without the capability.
    bool IsROIEnabled() const;
    /// Turns the region on or off (register 1 bit 6). Turning it on turns legacy timing and slice interlacing off.
    /// Fails with code 4 without the capability.
    void SetROIEnabled(bool enable);
    /// Margin around the region, register 401 bit 5 (set means off). Fails with code 4 without the capability.
    void SetROIMarginEnabled(bool enable);
    bool IsROIMarginEnabled() const;                        ///< fails with code 4 without the capability
    void GetMaximumROISize(int& width, int& height) const;  ///< pixels; fails with code 4 without the capability
    /// @}

    /// @name Acquisition
    /// @{

    /// Takes one frame into the buffer and waits for it up to `timeoutMs` (-1: without end): it is there when the call
    /// returns. Not during a live run: on GigE the call isn't refused then and stops the acquisition, so the run gets
    /// no further frame, reports no error and stays live until `GoUnLive`. Fails with code 13 if no frame came
    /// (transport error 30 on GigE, 258 on Camera Link) or a bad one, for a buffer outside the ring with 12 on GigE and
    /// 13 on Camera Link; with the live error if there is one by then. On GigE the frame's signal remains for the next
    /// `WaitImage`. On Camera Link the call waits for that signal itself. It returns before its frame is there if a
    /// signal of an earlier frame has not been consumed, or if a `WaitImage` got a frame less than 50 ms before: call
    /// `WaitImage(0)` after a run and leave 50 ms.
    void Snap(int buffer, int timeoutMs);
    /// Takes frames without end into the whole ring, over and over, until `GoUnLive`.
    void GoLiveSeq();
    /// Takes `frameCount` frames (0: without end) into the buffers `startBuffer` to `stopBuffer`, over and over, until
    /// `GoUnLive` or its own end. Fails with code 4 while a run is live or if `stopBuffer` is below `startBuffer`. A
    /// buffer beyond the ring ends the run when it gets there on GigE (see `CheckForLiveError`) and is refused with
    /// code 5 on Camera Link.
    void GoLiveSeq(int startBuffer, int stopBuffer, int frameCount);
    /// Ends a live run and its callbacks; waits for a callback that runs. Nothing happens without a run. From inside
    /// the callback it fails with code 15: the callbacks end, the run goes on.
    void GoUnLive();
    bool IsLive() const;  ///< true while a live run is in progress
    /// Sends one trigger edge by software.
    void SoftwareTrigger();
    /// Throws the failure that ended a live run, on GigE at each call for the life of the object: neither another run
    /// nor another open clears it, a new object has none. On Camera Link the grabber's fault text, once. Returns if
    /// there was none.
    void CheckForLiveError() const;
    int GetCapturedBuffer() const;  ///< the buffer that holds the newest frame; on Camera Link -1 before the first
    /// Running count of frames: for the life of the object on GigE, where the first frame of a live run adds 2; from
    /// each open on Camera Link.
    int GetFieldCount() const;
    /// Waits for the next frame's signal and takes it: up to `timeoutMs`, 0 polls, -1 waits without end. Waits of one
    /// detector run one after the other. Fails with code 13 (transport error 258: time-out), or with the live
    /// error: on GigE that of any earlier run of the object, whenever no frame came.
    void WaitImage(int timeoutMs);
    int GetNumBuffers() const;           ///< buffers of the ring
    void ClearBuffers();                 ///< zeroes every buffer of the ring
    void ClearCameraBuffer(int buffer);  ///< zeroes one buffer; code 4 outside the ring
    /// Copies a frame to `target`, which has room for `GetBufferXdim` x `GetBufferYdim` x 2 bytes: if another thread
    /// changes the binning or the region meanwhile, for the largest of the frames. Outside the ring code 12 on GigE and
    /// 5 on Camera Link.
    void ReadBuffer(int buffer, unsigned char* target) const;
    /// Copies a frame into plane `plane` of the image, with parameters and marks. An empty image is built to fit,
    /// missing planes are added; an image of another geometry fails with code 4, as does one for which the geometry
    /// changes in another thread during the call.
    void ReadBuffer(int buffer, QorImage& image, int plane) const;
    /// Replaces a buffer's content; `size` is the bytes of one frame, else code 4. Code 12 outside the ring.
    void WriteBuffer(int buffer, const unsigned char* source, int size);
    /// @}

    /// @name Callbacks
    /// One function that is called for the frames of live runs, on a thread of the library, with field count, buffer
    /// number and this object. Calls never overlap. Frames that arrive during a call lead to one further call: jumps of
    /// the field count tell what was skipped. Between the end of a run and the return of its last call the operations
    /// that need the acquisition state fail with code 17 inside it.
    /// @{

    /// Installs the function; null installs none. Fails with code 17 if one is installed or a run is live.
    void SetCallback(void (*function)(int fieldCount, int buffer, QuorinDetector* detector));
    /// Stores a pointer for the application's use. Fails with code 17 while a run is live.
    void SetCallbackData(void* data);
    void* GetCallbackData() const;  ///< the stored pointer, null until one was stored
    /// Removes the function. Fails with code 4 if there is none, 17 while a run is live.
    void StopCallback();
    bool IsCallbackActive() const;  ///< true while a function is installed
    /// Throws the last exception of the callback thread, be it the library's or the function's, at each call for the
    /// life of the object; returns if there was none.
    void CheckForCallbackError() const;
    /// @}

    /// @name Pulse generator
    /// @{

    /// Sets the generator up at twice the readout rate. See the form with a frequency.
    void EnablePulseGenerator();
    /// Sets the generator up; pulses come once `ToggleGenerator` lets them through. Software triggers send nothing
    /// until `DisablePulseGenerator`, also when this fails. On GigE a live run pauses meanwhile; the call fails with
    /// code 4 above 500 Hz or for no usable frequency, with 5 if the device can't come within 20 per cent. On Camera
    /// Link it ends a live run and fails with code 4 above 499.99997 Hz and below 0.0093 Hz.
    void EnablePulseGenerator(float frequencyHz);
    /// Ends a live run, takes the generator out of the trigger's way and lets software triggers through again.
    void DisablePulseGenerator();
    /// Lets the pulses through, or holds them back.
    void ToggleGenerator(bool on);
    /// @}

    /// @name Service
    /// @{

    /// Reads a register (0 to 999) of a sensor (1 to 9). Fails with code 4 out of range, 5 for a bad reply.
    int ReadRegister(int reg, int sensor) const;
    /// Writes a register (0 to 999) of a sensor (1 to 9, or 0 for all) with 0 to 65535. Fails with code 4 out of range.
    void WriteRegister(int reg, int value, int sensor);
    /// Sends a command of up to 23 characters, without its carriage return; the reply, of up to 99 characters with its
    /// carriage return, goes into `reply`, which has room for 100. Code 4 if longer.
    void SendCommand(const char* command, char* reply);
    /// The same with a command of `length` bytes of any kind.
    void SendCommand(const char* command, std::size_t length, char* reply);
    /// Replays a sensor configuration file: a serial command a line, with a pause of 100 ms after each. Fails with code
    /// 10 if the file can't be read, with 9 at a line that is no command; the lines before it are in effect then.
    void LoadSensorConfigFile(const char* fileName);
    /// Erases the flash memory of a sensor (0 to 9) and writes a firmware image into it. Blocks for 6 s and more;
    /// writes its progress to the standard output, with `verbose` for each block. Fails with code 4 before anything is
    /// sent (file, sensor number), with 5 for a refused or endless erase or a bad checksum, with 9 if the detector
    /// falls silent. After a failure that follows the erase the flash is erased or partly written: upload again.
    void UploadFirmware(const char* fileName, int sensor, bool verbose);
    /// Tells the library that this detector reads out at the slowed rate.
    void SetSlowed(bool slowed);
    /// @}

protected:
    /// The core. Fails with code 4 on a moved-from object.
    baseDetector& detector() const;

private:
    void adopt() noexcept;

    std::atomic<baseDetector*> core{nullptr};  ///< owned; null only in a moved-from object
};
