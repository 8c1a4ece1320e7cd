#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "InternalUtils/InternalUtils.h"
#include "InternalUtils/ROIArea.h"
#include "QuorinException.h"
#include "detector/LockedOptional.h"
#include "detector/ReadoutInfo.h"
#include "detector/StoppableLock.h"
#include "detector/capabilities.h"
#include "enumerations.h"
#include "export.h"
#include "platform/Mutex.h"

class PleoraLib;
class QorImage;
class QuorinDetector;
class xclib;

/// The detector without its transport: lifecycle, serial channel, registers, geometry, timing, settings, frame wait.
///
/// It reaches the hardware only through its virtual operations, which the transports implement. Settings live in the
/// detector: a public getter reads them from there and refreshes the cached member; a `GetCached...` operation returns
/// the member and reads the detector only if the member is empty.
///
/// Threads:
/// - any thread: an application thread or the callback thread, several of them simultaneously;
/// - control thread: any thread while it opens, closes, switches the power or changes a setting. The application makes
///   these calls one after the other: no lock orders them;
/// - callback thread: the core's, runs the application's function during a live run;
/// - live thread: the transport's, fills the ring during a live run.
///
/// Lock order: `acquisitionLock` before `callbackMutex`, `serialLock` and the transport's own. A thread that holds
/// `waitSection`, `serialLock`, `bufferSection` or the ring gate never waits for `acquisitionLock`. `cacheMutex` is a
/// leaf, never held during serial traffic, callbacks or logging.
///
/// A transport is installed by the constructors of `QuorinDetector`: `makeCore` in QuorinDetector.cpp makes the class
/// for a `DetectorInterface`. A further transport needs an enumerator, a branch there and in the `DevInfo` constructor,
/// and rows in ReadoutInfo.cpp, whose times are measured for each transport. It maintains these members:
/// - `transport`, `unit` and `boardText`: set by its constructor;
/// - `numBuffers`: set before `OpenBrd` returns, and when a change of the frame size changes it;
/// - `handleOpen`: true from `CreateDetectorHandle` to `CloseDetectorHandle`;
/// - `frameCapturedEvent`: the core stores the result of `CreateDetectorHandle` in it. The transport signals it once
///   for each frame, after the frame is in the ring; in a live run also after `GetCapturedBuffer` and `GetFieldCount`
///   report that frame;
/// - `connected`: set by the core at the end of `OpenBoard`, cleared after `CloseBrd`. A transport whose connection
///   survives a failed open sets it in `OpenBrd`, so that `CloseBoard` can release the connection;
/// - `commsOpen`: set by the core after `SerialConfigure`; `CloseBrd` clears it;
/// - `pulseGeneratorEnabled`: set by `EnablePulseGenerator(float)`, cleared by `DisablePulseGenerator`.
///
/// Its destructor closes the board if `connected`, throws nothing, and calls `releaseCallbackThread` while the
/// transport's operations still exist, since the callback thread calls them: at the start if it runs on the callback
/// thread, and after the close.
class QRAPI_EXPORT baseDetector {
public:
    /// Panel geometry of one model, binning mode and region, in pixels.
    struct SensorDesc {
        std::int32_t sensorCount = 0;       ///< sensors of the panel
        std::int32_t columnGroups = 0;      ///< always 6
        std::int32_t groupWidth = 0;        ///< binned columns of one group
        std::int32_t sensorWidth = 0;       ///< binned columns of one sensor
        std::int32_t sensorHeight = 0;      ///< binned rows of one sensor
        std::int32_t sensorsAcross = 0;     ///< sensors side by side
        std::int32_t sensorsDown = 0;       ///< sensors one above the other
        std::int32_t imageWidth = 0;        ///< binned columns of the panel or region
        std::int32_t imageHeight = 0;       ///< binned rows of the panel or region
        std::int32_t baseSensorWidth = 0;   ///< unbinned, of one sensor or its share of the region
        std::int32_t baseSensorHeight = 0;  ///< unbinned, of one sensor or its share of the region
        std::int32_t baseImageWidth = 0;    ///< unbinned, of the panel or region
        std::int32_t baseImageHeight = 0;   ///< unbinned, of the panel or region
        std::int32_t baseGroupWidth = 0;    ///< unbinned sensor width divided by 6
        std::int32_t bufferWidth = 0;       ///< pixels per row of a frame buffer
        std::int32_t bufferHeight = 0;      ///< rows of a frame buffer
        std::int32_t frameWidth = 0;        ///< pixels per line as delivered, all sensors in one line
        std::int32_t frameHeight = 0;       ///< lines as delivered
    };

    /// The application's function for frames of a live run: field count, buffer number, facade.
    using CallbackFunction = void (*)(int, int, QuorinDetector*);

    /// Makes the vendor seams; touches no hardware.
    /// @param owner  the facade, not owned
    explicit baseDetector(QuorinDetector* owner);
    baseDetector(const baseDetector&) = delete;
    baseDetector& operator=(const baseDetector&) = delete;

protected:
    /// The shortest exposure time, readout included, that the transport can sustain with the current frame size, in ms;
    /// 0: no limit. Control thread, no lock held, whenever the core recomputes the timing, unless the minimum comes
    /// from the readout table. May use the serial channel.
    virtual float TransportMinimumExposureTime() = 0;

public:
    /// Ends the callback thread; throws nothing.
    virtual ~baseDetector();

    /// @name What a transport implements
    ///
    /// Unless a description says otherwise:
    /// - an operation is called on any thread, without a lock of the core;
    /// - what the facade forwards starts with `CheckConnected`, directly or in what it calls;
    /// - a failure is a `QuorinException`: the code named, else code 5 for a failed vendor call, with the vendor's
    ///   status as transport error and its text as transport message. Exceptions of other types, such as std::bad_alloc
    ///   and std::system_error, pass through to the facade. After a failure `CloseBrd` must still work;
    /// - buffers count from 0 to `numBuffers` - 1; frames are 16-bit pixels, row after row; a time-out is in ms, 0
    ///   polls and -1 waits without end.
    /// @{

    /// Creates the event that signals captured frames: auto-reset, not signalled, one that `platform::waitForEvent`
    /// accepts. Control thread: `OpenBoard`, after `OpenBrd`. Fails with code 5 if one exists. Sets `handleOpen`.
    /// @return the event, never null
    virtual void* CreateDetectorHandle() = 0;
    /// Closes the event, which ends the waits on it, and clears `handleOpen`. Called by the transport's own `CloseBrd`,
    /// under `acquisitionLock`. Fails with code 5 if there is none.
    /// @return the vendor's result; no caller reads it
    virtual int CloseDetectorHandle() = 0;
    /// Configures the serial port. The core calls it under `serialLock` before the first exchange and after one that
    /// got no answer, with 115200 baud, 8, 0, 1; `OpenBrd` may call it too. Must not use the serial channel.
    /// @param baud      bits per second
    /// @param dataBits  bits of a character
    /// @param parity    0 none, 1 odd, 2 even
    /// @param stopBits  1 or 2
    virtual void SerialConfigure(double baud, int dataBits, int parity, int stopBits) = 0;
    /// As `OpenBrd(char*)`, for a ring of `bufferCount` frames. Fails with code 4 for a count below 1, before it
    /// touches hardware.
    virtual void OpenBrd(char* text, int bufferCount) = 0;
    /// Connects. Control thread: `OpenBoard`. When it returns the serial channel works, the ring exists for the frame
    /// size of `GetBufferXdim` and `GetBufferYdim`, and frames come once an acquisition is started. The steps of
    /// `OpenBoard` that follow may fail, and `CloseBrd` does not run then unless the transport has set `connected`. So
    /// a connection left without `connected` is released here before a new one is made. A failure either releases the
    /// connection or leaves `connected` set. Fails with code 4 for an unsupported model, 5, 9 if the detector does not
    /// answer, 11 (grabber setup) or 12 (memory).
    /// @param text  "-DM 0x" and `unit`, valid during the call
    virtual void OpenBrd(char* text) = 0;
    /// Disconnects; returns if not `connected`. Control thread: `CloseBoard` and the transport's destructor, without a
    /// lock; it takes `acquisitionLock` for all of its steps. Ends a live run, joins the live thread, calls
    /// `StopCallbackThread` unless it runs on the callback thread, calls `DisablePulseGenerator` if
    /// `pulseGeneratorEnabled`, calls `CloseDetectorHandle` if `handleOpen`, clears `commsOpen`, releases the
    /// connection. After a failure the core leaves `connected` set and the call can be repeated: steps that are done
    /// are skipped. A device that no longer answers is no reason to fail.
    virtual void CloseBrd() = 0;
    /// Pixels per row of a frame as the application gets it, by the cached settings; reads those that are not cached
    /// over the serial channel. Also called under `acquisitionLock`. Fails with code 4 for a model without a geometry,
    /// 14 for an unknown binning. The transports inherit it.
    virtual int GetBufferXdim();
    /// Rows of a frame; otherwise as `GetBufferXdim`.
    virtual int GetBufferYdim();
    /// Sets the pulse generator up; pulses come after `ToggleGenerator(true)`. Sets `pulseGeneratorEnabled` once all
    /// steps are done. Fails with code 4 for a frequency that the generator cannot produce.
    virtual void EnablePulseGenerator(float frequencyHz) = 0;
    /// Calls `EnablePulseGenerator(float)` with twice the readout rate. The transports inherit it.
    virtual void EnablePulseGenerator();
    /// Copies a frame of `GetBufferXdim` x `GetBufferYdim` pixels. Ordered with `WriteBuffer`, across all detectors of
    /// the transport, by its `bufferSection`. Calls `checkPlane` before it copies. Fails with code 4 for a null target,
    /// 5 or 12 outside the ring.
    virtual void ReadBuffer(int buffer, void* target) = 0;
    /// Fills parameters, marks and one plane of the image, through `ReadBuffer(int, void*)`. The transports inherit it.
    virtual void ReadBuffer(int buffer, QorImage& image, int plane);
    /// `transport`. The transports inherit it.
    virtual DetectorInterface GetTransportMethod();
    /// Starts a capture, calls `SoftwareTrigger` and waits up to `timeoutMs` for the frame; no live run is in progress.
    /// When it returns the frame is in `buffer` and the capture has ended. Fails with code 13 if no frame or a bad one
    /// came, 12 or 13 outside the ring. A transport that waits with `WaitImage(timeoutMs, 1)` consumes the frame's
    /// signal; otherwise the signal stays for the next `WaitImage`.
    virtual void Snap(int buffer, int timeoutMs) = 0;
    /// The buffer of the newest frame. Must not take `acquisitionLock`; the callback thread calls it after each signal.
    virtual int GetCapturedBuffer() = 0;
    /// The running count of frames. Called under `waitSection` too: must not take `acquisitionLock`.
    virtual int GetFieldCount() = 0;
    /// Takes bytes that have arrived on the serial line; may wait for the first one. Under `serialLock`; the core
    /// repeats it until a carriage return has arrived, or 1000 ms have passed and the last call has returned.
    /// @param buffer    receives the bytes, without a terminator
    /// @param capacity  bytes in `buffer`
    /// @return bytes taken; 0 if none came; a negative number ends the exchange with code 9
    virtual int SerialRead(char* buffer, int capacity) = 0;
    /// Sends one command of `size` bytes, its carriage return included. Under `serialLock`. Bytes left by an earlier
    /// exchange must not pass for the reply: `SerialWrite` or a preceding `SerialConfigure` drops them.
    /// @return no caller reads it
    virtual int SerialWrite(char* buffer, int size) = 0;
    /// Replaces the content of a ring buffer. Fails with code 4 for a null source or a `size` other than `bufferXdim` x
    /// `bufferYdim` bytes, 12 outside the ring.
    virtual void WriteBuffer(int buffer, const void* source, int size) = 0;
    /// Bytes of a line as the transport delivers it, read from the device or the grabber. On Camera Link a line holds
    /// one row of every sensor, unlike a row of `GetBufferXdim`.
    virtual int bufferXdim() = 0;
    /// Lines of a frame as the transport delivers it; otherwise as `bufferXdim`.
    virtual int bufferYdim() = 0;
    /// Calls `PowerSwitch(false)`, then `PowerSwitch(true)`. The transports inherit it.
    virtual void SoftReset();
    /// Switches the detector's power over the serial channel. Control thread. A transport sends its commands first and
    /// calls this body last: it waits until the detector is ready, and after switching on clears the cached settings,
    /// calls `UpdateInterfaceImageSize` and recomputes the timing. Fails with code 5 if the detector does not come
    /// back.
    virtual void PowerSwitch(bool on);
    /// Calls `GoLiveSeq(0, numBuffers - 1, 0)`.
    virtual void GoLiveSeq() = 0;
    /// Starts a live run into the buffers `startBuffer` to `stopBuffer`, over and over, until `frameCount` frames (0:
    /// without end) or `GoUnLive`. A transport takes `acquisitionLock`, calls this body first, which fails with code 4
    /// while a run is live or if `stopBuffer` is below `startBuffer`, then starts the capture and calls
    /// `StartCallbackThread`. `IsLive` is true when it releases the lock. After any other failure no run is in
    /// progress.
    virtual void GoLiveSeq(int startBuffer, int stopBuffer, int frameCount);
    /// Ends a live run; returns if there is none. Takes `acquisitionLock`, calls `StopCallbackThread`, joins the live
    /// thread; when it returns nothing writes to the ring. On the callback thread the exception of `StopCallbackThread`
    /// passes and the run goes on.
    virtual void GoUnLive() = 0;
    /// Sends one trigger edge to the detector; none from `EnablePulseGenerator(float)` to `DisablePulseGenerator`.
    virtual void SoftwareTrigger() = 0;
    /// Restores the trigger wiring for software triggers, ends a live run, and clears `pulseGeneratorEnabled`. Also
    /// called by `CloseBrd`, under `acquisitionLock`.
    virtual void DisablePulseGenerator() = 0;
    /// Writes the generator's frequency to the hardware; called by `EnablePulseGenerator(float)`. Fails with code 4 for
    /// a frequency that the generator cannot produce.
    virtual void configurePGFrequency(float frequencyHz) = 0;
    /// Starts or stops the pulses of an enabled generator.
    virtual void ToggleGenerator(bool on) = 0;
    /// Throws the failure that ended a live run, if there is one (code 5, or the live thread's). Called under
    /// `waitSection` too: must not take `acquisitionLock`.
    virtual void CheckForLiveError() = 0;
    /// True while a live run is in progress, not during a `Snap`. Also called under `acquisitionLock` and
    /// `callbackMutex`. Takes `acquisitionLock` with `lockUnlessStopped` and answers without it if that fails.
    virtual bool IsLive() = 0;
    /// Announces a change of the frame size: control thread, before the registers are written. From here to
    /// `UpdateInterfaceImageSize` no frame of an unknown size may enter the ring; a live run may pause. If a register
    /// cannot be written, `UpdateInterfaceImageSize` is not called and the run stays paused.
    virtual void PrepareInterfaceForImageSizeChange() = 0;
    /// Adapts transport and ring to `GetBufferXdim` and `GetBufferYdim`; the ring's content is lost, a live run goes
    /// on. Control thread: after the registers have been written, and without an announcement at open and after
    /// switching the power on. Fails with code 5, 11 (grabber setup) or 12 (memory).
    virtual void UpdateInterfaceImageSize() = 0;
    /// @}

    /// @cond The operations of the facade: QuorinDetector.h describes them.
    void OpenBoard();
    void OpenBoard(int bufferCount);
    void CloseBoard();
    bool IsConnected() const;

    int ReadRegister(int reg, int sensor);
    void WriteRegister(int reg, int value, int sensor);
    void SendCommand(const char* command, char* reply);
    void SendCommand(const char* command, std::size_t length, char* reply);

    int GetModelNumber();
    int GetSerialNumber();
    int GetFirmwareVersion();
    void GetFirmwareBuild(int& first, int& second, int& third);
    int GetSensorVersion();
    void SetSlowed(bool value);
    int QueryBinningMode(bins binning);
    int QueryExposureMode(ExposureModes mode);
    int QueryTriggerSource(ExposureTriggerSource source);
    int QueryFullWellMode(FullWellModes mode);
    int QueryReadoutMode(ReadoutModes mode);
    int QueryOnBoardLinearization();
    int QueryOnBoardXTalkCorrection();
    int QueryOnBoardUnscrambling();
    int QueryDisableSliceInterlacing();
    int QueryTempReporting();
    int QueryLegacyTiming();
    int QueryPixelFrameCounter();
    int QueryROI();

    void LoadSensorConfigFile(const char* fileName);
    void UploadFirmware(const char* fileName, int sensor, bool verbose);
    float GetDetectorTemp(int sensor);

    void GetDefaultImageSize(int& width, int& height);
    unsigned short GetSensorWidth(unsigned short sensor);
    unsigned short GetSensorHeight(unsigned short sensor);

    float GetExposureTime();
    void SetExposureTime(float timeMs);
    float GetReadOutTime();
    float GetMinimumExposureTime();

    void SetBinningMode(bins binning);
    bins GetBinningMode();
    void SetExposureMode(ExposureModes mode);
    ExposureModes GetExposureMode();
    void SetTriggerSource(ExposureTriggerSource source);
    ExposureTriggerSource GetTriggerSource();
    void SetFullWellMode(FullWellModes mode);
    FullWellModes GetFullWellMode();
    void SetReadoutMode(ReadoutModes mode);
    ReadoutModes GetReadoutMode();
    void SetGapTime(float timeMs);
    float GetGapTime();
    void SetNumOfExposures(int count);
    unsigned short GetNumOfExposures();
    void SetPreProgrammedExposureTimes(const float* timesMs, std::size_t count);
    int GetPreProgrammedExposureTimes(float* timesMs, std::size_t size);
    void SetSliceInterlacing(bool enable);
    bool GetSliceInterlacing();
    void SetLegacyTiming(bool enable);
    bool IsLegacyTimingEnabled();
    void SetTestMode(bool enable);
    bool GetTestMode();
    void SetPixelFrameCounter(bool enable);
    bool IsPixelFrameCounterEnabled();
    void ToggleOnBoardLinearization(bool enable);
    bool GetOnBoardLinearizationState();
    void ToggleOnBoardXTalkCorrection(bool enable);
    bool GetOnBoardXTalkCorrectionState();

    void SetCallback(CallbackFunction function);
    void SetCallbackData(void* data);
    void* GetCallbackData();
    void StopCallback();
    bool IsCallbackActive();
    void CheckForCallbackError();

    void SetROIArea(int width, int height);
    void SetROIArea(int width, int height, int startRow);
    void SetROIArea(int width, int height, int startRow, int startColumn);
    void GetROIArea(int& width, int& height, int& startRow, int& startColumn);
    void SetROIEnabled(bool enable);
    bool IsROIEnabled();
    void SetROIMarginEnabled(bool enable);
    bool IsROIMarginEnabled();
    void GetMaximumROISize(int& width, int& height);

    void WaitImage(int timeoutMs);
    void ClearBuffers();
    void ClearCameraBuffer(int buffer);
    int GetNumBuffers();
    /// @endcond

    /// Sets the facade that is passed to the application's callback. Not owned.
    void SetOwner(QuorinDetector* newOwner);

    /// @name Serial channel
    /// One exchange, a command and its reply, holds `serialLock`. Fails with code 9 if the detector does not answer
    /// within 1 s.
    /// @{

    /// Reads a register into `dst` as the reply's text, cut to `size` - 1 characters. A reply that does not start with
    /// S is asked for again; the fifth attempt fails with code 5, whatever its reply. Fails with code 4 out of range.
    void ReadRS232Cmd(int reg, char* dst, int size, unsigned short sensor);
    /// Writes a register. Fails with code 4 out of range.
    void SendRS232Cmd(int reg, int value, int sensor);
    /// Sends a command of up to 22 characters. Fails with code 4 if it is longer.
    /// @return the reply without its carriage return
    std::string SendCommand(std::string command);
    /// Sends a command of up to 23 characters and drops the reply. Fails with code 4 if it is longer.
    void SendCommand1(char* command);
    /// As `SendCommand1`.
    void SendRS232Cmd1(char* command);
    /// Makes one exchange without the wait for the flash memory that follows other commands.
    /// @param command  without its carriage return
    /// @param delayMs  pause before each read of the reply
    /// @return the reply with its carriage return
    std::string SendCommandWithoutFlashStatusCheck(const std::string& command, int delayMs);
    /// As above for `length` bytes of any kind; `reply` holds 100 bytes. On code 9 it receives "error".
    void SendCommandWithoutFlashStatusCheck(const char* command, std::size_t length, char* reply, int delayMs);
    /// Configures the serial port, under `serialLock`, unless `commsOpen`. `OpenBrd` may call it.
    void openComms();
    /// The value in a read reply, "S", five digits and a carriage return. Fails with code 5 for any other text.
    int getatoi(const char* reply);
    /// Writes the SERIAL line of an exchange; none for a poll that finds the flash memory idle.
    void LogSerialCommand(const std::vector<char>& sent, const std::string& received) const;
    /// @}

    /// @name Identity and timing
    /// @{

    /// Model and firmware of the older form, register 127, as "model:version"; also refreshes both cached values.
    void GetFirmwareVersionOld(char* text, int size);
    /// True for Kestrane electronics; asks the detector the first time.
    bool IsKestrane();
    /// True for a detector that reads out at the slowed rate, known by model and firmware or set by `SetSlowed`.
    bool getSlowed();
    /// Reads the feature words and updates the capability flags and `readsOwnTiming`.
    void UpdateFeaturesFlags();
    /// Degrees Celsius of a thermistor in a divider with 8250 ohms, read by a converter of `bits` bits (1 to 30, else
    /// code 4).
    float ConvertTemp(int rawReading, int bits, float referenceResistance, float referenceCelsius, int beta);
    /// Writes an exposure time in ms, at least the minimum, to a pair of registers. Fails with code 8 for a time that
    /// the pair cannot hold.
    void SetExposureTime2(float timeMs, int lowRegister, int highRegister);
    /// `SetPreProgrammedExposureTimes` of the facade, from a vector.
    void SetPreProgrammedExposureTimes(const std::vector<float>& timesMs);
    /// All four pre-programmed exposure times, in ms.
    std::vector<float> GetPreProgrammedExposureTimes();
    /// `binningMode`, read from the detector if it is empty.
    bins GetCachedBinningMode();
    /// Fails with code 4 for a binning without a row in the readout table, unless the detector reports its own timing.
    void CheckBin(bins binning);
    /// @}

    /// @name Geometry and frames
    /// @{

    /// The geometry of a model. Fails with code 4 for a model without one, then with 14 for an unknown binning.
    SensorDesc GetSensorDesc(int model, bins binning, bool roiEnabled, const ROIArea& roi);
    /// The geometry by the cached settings.
    SensorDesc GetSensorDesc();
    /// The geometry of the whole panel, unbinned.
    SensorDesc GetDefaultSensorDesc();
    /// `WaitImage` of the facade, under `waitSection`. A frame that one kind of waiter got less than 50 ms ago also
    /// serves the next wait of the other kind.
    /// @param timeoutMs  0 polls, -1 waits without end
    /// @param waiter     1 for the wait inside a Camera Link `Snap`, 2 for all others
    void WaitImage(int timeoutMs, int waiter);
    /// Splits a 32-bit value into its halves.
    void breakup(std::uint16_t* high, std::uint16_t* low, std::int32_t value);
    /// Joins two halves.
    std::uint32_t stitch(std::uint16_t high, std::uint16_t low);
    /// @}

protected:
    /// A transport's `ReadBuffer` calls this before it copies `frameBytes` to `target`. If `target` is the plane of an
    /// image that this thread reads into, it fails with code 4 for a frame larger than the plane: another thread may
    /// have changed the frame size since the image was measured. Any other target passes.
    static void checkPlane(const void* target, std::int64_t frameBytes);

    /// Bytes of a frame by the cached settings; empty if one of them is not cached. Without serial traffic, so it can
    /// be called under any lock but `cacheMutex`.
    std::optional<std::int64_t> cachedFrameBytes() const;

    /// Fails with code 5 unless `connected` or `opening`. Takes no lock.
    void CheckConnected() const;

    /// Writes register 1 back unchanged, so that the detector applies what is staged in register 401.
    void ForceReconfiguration();

    /// Polls the flash memory of Kestrane electronics until it is idle; fails with code 5 after 300 ms. Returns
    /// immediately on other electronics.
    void WaitUntilFlashReady();
    /// The wait that follows `command`. On electronics other than Kestrane 200 ms after a write to a register that is
    /// kept in flash memory, otherwise none.
    void WaitUntilFlashReady(const std::string& command);

    /// @name Cached settings
    /// A getter returns the member; an empty one is first read from the detector, with the failures of a register read.
    /// @{
    float GetCachedExposureTime();                 ///< in ms
    bool GetCachedLegacyTiming();                  ///< `legacyTiming`
    int GetCachedModelNumber();                    ///< `modelNumber`
    ReadoutModes GetCachedReadoutMode();           ///< `readoutMode`
    ROIArea GetCachedROIArea();                    ///< the whole panel if the detector has no regions
    bool GetCachedROIEnabled();                    ///< false if the detector has no regions
    int GetCachedSliceInterlacing();               ///< 1 on, 0 off
    void SetCachedROIArea(ROIArea area);           ///< sets `cachedROIArea`
    void SetCachedROIEnabled(bool enabled);        ///< sets `cachedROIEnabled`
    void SetCachedSliceInterlacing(bool enabled);  ///< sets `sliceInterlacing`
    ROIArea GetROIArea();                          ///< reads the region; the whole panel if there are no regions
    /// @}

    /// @name Temperatures, in degrees Celsius
    /// @{
    float GetNormalDetectorTemp(int sensor);    ///< on electronics other than Kestrane: one thermistor for all sensors
    float GetKestraneDetectorTemp(int sensor);  ///< of a sensor, or of the probe after the last one; 0 for any other
    float GetSensorTemp();                      ///< of sensor 1; 0 if it is not ready within a second
    /// Of the auxiliary probe; 0 for a model without one. Fails with code 9 if the probe does not answer.
    float GetAuxilliaryDetectorTemp();
    /// @}

    /// Sends a command of up to 23 characters, drops the reply and waits for the flash memory. For power commands.
    void sendPlain(const char* command);

    /// Sends the command, without a pause, until it is answered; fails with code 5 and `message` after 5 s.
    void sendUntilAnswered(const char* command, const char* message, const char* function);

    /// @name Exposure and readout timing, in ms
    /// @{

    /// Raises the exposure time to the minimum if it is below.
    void InitializeExposureTime();
    /// 1.0 if the times are equal within 0.1 ms (1.0 ms from 10 s on), otherwise 0.0.
    float AreExposureTimesEqual(float first, float second) const;
    /// The window in registers 11 and 12.
    float GetExposureWindow();
    /// Writes the window to registers 11 and 12. Fails with code 8, before it writes, for one that they cannot hold.
    void SetExposureWindow(float window);
    /// Writes the window and reads it back, every 100 ms for up to 2 s, until `done` accepts what was read. Fails with
    /// code 8 after that.
    /// @return the window that was accepted
    float SetExposureWindowUntil(float window, const std::function<bool(float)>& done);
    /// The firmware's minimum window: sets windows to find it, then restores the old one. Fails with code 8.
    float GetFirmwareMinimumExposureWindow();
    float GetMinimumExposureWindow();            ///< `minimumExposureWindow`
    float GetMinimumExposureWindowFromLookup();  ///< of the readout table; code 4 without a row
    float GetReadoutTimeFromLookup();            ///< of the readout table; code 4 without a row
    float GetReadoutTimeFromDetector();          ///< register 410; code 9 if it is 0 for 10 s
    /// Register 410, a count of 0.002 ms, as soon as it is not 0; 0 after 10 s.
    int PollReadoutTimeRegister();
    /// What `TransportMinimumExposureTime` leaves beyond the readout time, 0 or more, to 0.01 ms.
    float TransportMinimumExposureWindow();
    /// Determines `readoutTime` and `minimumExposureWindow` for the current settings: from `detectorTimings`, the
    /// readout table (code 4 without a row) or the detector (codes 8 and 9).
    void UpdateReadoutTime();
    /// @}

    /// @name Callback thread
    /// @{

    /// Starts the callback thread of a live run if a function is installed and no thread runs; joins one that has
    /// ended. `GoLiveSeq` calls it under `acquisitionLock`. Throws std::system_error if the system has no thread left.
    void StartCallbackThread();
    /// Ends the callback thread and joins it: waits for a call of the application's function. `GoUnLive` and `CloseBrd`
    /// call it, under `acquisitionLock`. On the callback thread a running loop ends after the current call, and
    /// std::system_error is thrown, since the join would be a deadlock.
    void StopCallbackThread();
    /// For destructors: as `StopCallbackThread`, but on the callback thread itself it detaches the thread.
    void releaseCallbackThread();
    /// The body of the callback thread. Touches nothing of the detector once `loop.abandoned` is set.
    std::uint32_t CallbackCounterThread(CallbackLoop& loop);
    /// @}

    /// @name Members
    /// Cached settings are empty until they were read or set. Times are in ms.
    /// @{

    mutable platform::Mutex cacheMutex;  ///< a leaf; declared before the members that it guards

    std::shared_ptr<PleoraLib> pleoraLib;                    ///< the eBUS seam; only the GigE transport uses it
    std::shared_ptr<xclib> xclibLib;                         ///< the XCLIB seam; only the Camera Link transport uses it
    std::atomic<QuorinDetector*> owner;                      ///< the facade that callbacks receive; not owned
    std::atomic<bool> commsOpen{false};                      ///< the serial port is configured
    LockedOptional<FullWellModes> fullWellMode{cacheMutex};  ///< cached setting
    LockedOptional<bool> testMode{cacheMutex, false};        ///< cached setting; starts as off
    LockedOptional<bins> binningMode{cacheMutex};            ///< cached setting
    LockedOptional<ExposureModes> exposureMode{cacheMutex};  ///< cached setting
    LockedOptional<ExposureTriggerSource> triggerSource{cacheMutex};  ///< cached setting
    LockedOptional<float> exposureTime{cacheMutex};                   ///< cached setting
    std::atomic<float> readoutTime{-1.0F};                            ///< negative until it was determined
    std::atomic<float> minimumExposureWindow{0.0F};                   ///< minimum exposure time without readout
    std::atomic<std::int32_t> numBuffers{0};                          ///< frames of the ring
    LockedOptional<int> modelNumber{cacheMutex};                      ///< kept when the power is switched
    LockedOptional<int> firmwareVersion{cacheMutex};                  ///< kept when the power is switched
    std::int32_t unit = 0;                                            ///< grabber unit; only the constructors set it
    std::atomic<bool> slowed{false};                                  ///< the detector reads out at the slowed rate
    std::atomic<bool> connected{false};                               ///< the board is open
    std::atomic<bool> handleOpen{false};                              ///< `frameCapturedEvent` exists
    std::atomic<bool> opening{false};                                 ///< `OpenBoard` runs
    LockedOptional<std::uint16_t> numOfExposures{cacheMutex};         ///< cached setting
    std::atomic<std::int32_t> sliceInterlacing{-1};                   ///< -1: not read yet
    LockedOptional<ROIArea> cachedROIArea{cacheMutex};                ///< cached setting
    LockedOptional<bool> cachedROIEnabled{cacheMutex};                ///< cached setting; empty without regions
    LockedOptional<ReadoutModes> readoutMode{cacheMutex};             ///< kept when the power is switched
    LockedOptional<bool> legacyTiming{cacheMutex};                    ///< kept when the power is switched
    std::array<char, 100> boardText{};                    ///< text of the constructor; only the constructors set it
    DetectorInterface transport = TransportCL;            ///< only the constructors set it
    std::atomic<bool> pulseGeneratorEnabled{false};       ///< `CloseBrd` disables the generator
    std::atomic<bool> featureBitsSeen{false};             ///< a feature word was not 0
    CapabilityFlags capabilities GUARDED_BY(cacheMutex);  ///< what the detector can do
    std::atomic<int> readsOwnTiming{0};                   ///< 1: the detector reports its timing; 0: it is in a table
    std::atomic<std::int32_t> electronicsFamily{-1};      ///< -1 unknown, 1 Kestrane, 0 not
    /// `GetBinningMode` saw the flag bit of 4x4 while it was unknown whether the detector has that mode.
    std::atomic<bool> ignored4x4Flag{false};

    const std::shared_ptr<CallbackLoop> callbackLoop = std::make_shared<CallbackLoop>();  ///< shared with the thread
    mutable CriticalSection serialLock;  ///< one exchange on the serial channel, and the decision to configure it
    std::vector<char> sentCommand GUARDED_BY(serialLock);    ///< with its carriage return; kept for its memory
    StoppableLock waitSection{*callbackLoop};                ///< one wait for a frame
    std::int32_t lastWaiter GUARDED_BY(waitSection) = 0;     ///< kind of the last waiter
    bool frameDelivered GUARDED_BY(waitSection) = false;     ///< the last wait got a frame
    std::int64_t counterFrequency;                           ///< ticks per second; only the constructor sets it
    std::int64_t lastFrameTime GUARDED_BY(waitSection) = 0;  ///< ticks at which the last wait got its frame

    platform::Mutex callbackMutex;                 ///< start and stop of the callback thread
    StoppableLock acquisitionLock{*callbackLoop};  ///< the live state

    std::atomic<void*> callbackData{nullptr};                               ///< the application's pointer
    LockedOptional<QuorinException> callbackError{cacheMutex};              ///< last failure on the callback thread
    std::atomic<bool>& callbackRunning = callbackLoop->running;             ///< changed under `callbackMutex`
    std::atomic<CallbackFunction> callbackFunction{nullptr};                ///< null: none installed
    std::unique_ptr<std::thread> callbackThread GUARDED_BY(callbackMutex);  ///< may have ended; joined before the next
    std::unique_ptr<qrapi::DetectorTimings> detectorTimings;                ///< only `OpenBoard` writes it
    std::atomic<void*> frameCapturedEvent{nullptr};                         ///< signalled for each captured frame

    /// Makes the threads of this detector; throws std::system_error if the system has none left.
    std::function<std::unique_ptr<std::thread>(std::function<void()>)> startThread = [](std::function<void()> body) {
        return std::make_unique<std::thread>(std::move(body));
    };
    /// @}

private:
    void settleAfterPowerOff();
    void settleAfterPowerOn();
    void forgetSettings();
    void eraseFlash(int sensor);
    void writeFlashBlock(const std::vector<std::uint8_t>& reversedImage, std::size_t block, int sensor);
    void callbackRound(CallbackLoop& loop);
    bool callbacksContinue();
    void openWith(const std::function<void(char*)>& openTransport, bool pickTimings);
    int query(std::optional<Capability> capability, const char* function);
    int capabilityFlag(Capability capability) const;
    std::uint16_t readWord(int reg);
    int readForChange(int reg);
    void writeAll(int reg, int value);
    bool bitOf(int reg, int bit);
    void changeBit(int reg, int bit, bool set);
    void turnInterlacingOff();
    float exposureUnlessAt(float minimum);
    void checkReadTarget(int reg, int sensor) const;
};

/// Base of the Camera Link transports; `QuorinDetectorCL` accepts what derives from it. A transport's own constructor
/// opens nothing.
class QRAPI_EXPORT camLinkDetector : public baseDetector {
public:
    /// Sets `unit`, `boardText` and `transport`; a null text is empty.
    camLinkDetector(int unitNumber, const char* text, QuorinDetector* owner);
    ~camLinkDetector() override;
    /// Switches the detector's Camera Link interface over the serial channel. While it is off no frame arrives. Any
    /// thread, no lock. Starts with `CheckConnected`; fails with code 5, or 9 if the detector does not answer.
    virtual void PowerCLInterface(bool on) = 0;
};

/// Base of the GigE transports; `QuorinDetectorGE` accepts what derives from it. A transport's own constructor sets
/// `boardText` and a first `numBuffers`, and touches no network.
class QRAPI_EXPORT gigEDetector : public baseDetector {
public:
    /// Sets `deviceAddress` and `transport`; a null text is empty.
    gigEDetector(const char* text, QuorinDetector* owner);
    ~gigEDetector() override;
    /// Writes the address that the detector keeps for itself, most significant byte first, then closes the board and
    /// opens it again under `deviceAddress`. Control thread, no lock. Starts with `CheckConnected`; fails with code 4
    /// for a byte outside 0 to 255, with 5 if a step fails.
    virtual void SetPersistentIPAddress(int first, int second, int third, int fourth) = 0;

protected:
    std::string deviceAddress;  ///< network address of the device; only the constructor sets it
};
