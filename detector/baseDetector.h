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
/// detector; a public getter asks it and refreshes the cached member, a `GetCached...` operation answers from the
/// member and asks only if it is absent.
///
/// Locks: `acquisitionLock` before `callbackMutex`, `serialLock` and the transports' own. Nobody who holds
/// `waitSection`, `serialLock`, `bufferSection` or the ring gate waits for `acquisitionLock`. `cacheMutex` is a leaf,
/// never held across serial traffic, callbacks or logging.
class QRAPI_EXPORT baseDetector {
public:
    /// Panel geometry of one model, binning mode and region, in pixels.
    struct SensorDesc {
        std::int32_t sensorCount = 0;
        std::int32_t columnGroups = 0;  ///< always 6
        std::int32_t groupWidth = 0;    ///< binned
        std::int32_t sensorWidth = 0;   ///< binned columns of one sensor
        std::int32_t sensorHeight = 0;  ///< binned rows of one sensor
        std::int32_t sensorsAcross = 0;
        std::int32_t sensorsDown = 0;
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
        std::int32_t frameHeight = 0;
    };

    /// The application's function for frames of a live sequence: field count, buffer number, facade.
    using CallbackFunction = void (*)(int, int, QuorinDetector*);

    explicit baseDetector(QuorinDetector* owner);
    baseDetector(const baseDetector&) = delete;
    baseDetector& operator=(const baseDetector&) = delete;

protected:
    /// The smallest total exposure time, in ms, that the transport keeps up with.
    virtual float TransportMinimumExposureTime() = 0;

public:
    virtual ~baseDetector();

    /// @name What the transports implement, in the order of the interface
    /// @{
    virtual void* CreateDetectorHandle() = 0;
    virtual int CloseDetectorHandle() = 0;
    virtual void SerialConfigure(double baud, int dataBits, int parity, int stopBits) = 0;
    virtual void OpenBrd(char* text, int bufferCount) = 0;
    virtual void OpenBrd(char* text) = 0;
    virtual void CloseBrd() = 0;
    virtual int GetBufferXdim();
    virtual int GetBufferYdim();
    virtual void EnablePulseGenerator(float frequencyHz) = 0;
    virtual void EnablePulseGenerator();
    virtual void ReadBuffer(int buffer, void* target) = 0;
    virtual void ReadBuffer(int buffer, QorImage& image, int plane);
    virtual DetectorInterface GetTransportMethod();
    virtual void Snap(int buffer, int timeoutMs) = 0;
    virtual int GetCapturedBuffer() = 0;
    virtual int GetFieldCount() = 0;
    virtual int SerialRead(char* buffer, int capacity) = 0;
    virtual int SerialWrite(char* buffer, int size) = 0;
    virtual void WriteBuffer(int buffer, const void* source, int size) = 0;
    virtual int bufferXdim() = 0;
    virtual int bufferYdim() = 0;
    virtual void SoftReset();
    virtual void PowerSwitch(bool on);
    virtual void GoLiveSeq() = 0;
    virtual void GoLiveSeq(int startBuffer, int stopBuffer, int frameCount);
    virtual void GoUnLive() = 0;
    virtual void SoftwareTrigger() = 0;
    virtual void DisablePulseGenerator() = 0;
    virtual void configurePGFrequency(float frequencyHz) = 0;
    virtual void ToggleGenerator(bool on) = 0;
    virtual void CheckForLiveError() = 0;
    virtual bool IsLive() = 0;
    virtual void PrepareInterfaceForImageSizeChange() = 0;
    virtual void UpdateInterfaceImageSize() = 0;
    /// @}

    /// @name Lifecycle
    /// @{
    void OpenBoard();
    void OpenBoard(int bufferCount);
    void CloseBoard();
    bool IsConnected() const;
    /// The facade that the application's callback is given.
    void SetOwner(QuorinDetector* newOwner);
    /// @}

    /// @name Serial channel
    /// @{
    int ReadRegister(int reg, int sensor);
    void WriteRegister(int reg, int value, int sensor);
    void ReadRS232Cmd(int reg, char* dst, int size, unsigned short sensor);
    void SendRS232Cmd(int reg, int value, int sensor);
    std::string SendCommand(std::string command);
    void SendCommand(const char* command, char* reply);
    void SendCommand(const char* command, std::size_t length, char* reply);
    void SendCommand1(char* command);
    void SendRS232Cmd1(char* command);
    std::string SendCommandWithoutFlashStatusCheck(const std::string& command, int delayMs);
    void SendCommandWithoutFlashStatusCheck(const char* command, std::size_t length, char* reply, int delayMs);
    void openComms();
    int getatoi(const char* reply);
    void LogSerialCommand(const std::vector<char>& sent, const std::string& received) const;
    /// @}

    /// @name Identity and capabilities
    /// @{
    int GetModelNumber();
    int GetSerialNumber();
    int GetFirmwareVersion();
    /// Model and firmware of the older form, register 127, as "model:version"; also refreshes both cached values.
    void GetFirmwareVersionOld(char* text, int size);
    void GetFirmwareBuild(int& first, int& second, int& third);
    int GetSensorVersion();
    bool IsKestrane();
    bool getSlowed();
    void SetSlowed(bool value);
    void UpdateFeaturesFlags();
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
    /// @}

    /// @name Maintenance
    /// @{
    void LoadSensorConfigFile(const char* fileName);
    void UploadFirmware(const char* fileName, int sensor, bool verbose);
    float GetDetectorTemp(int sensor);
    /// Degrees Celsius of a thermistor behind 8250 ohms, read by a converter of `bits` bits.
    float ConvertTemp(int rawReading, int bits, float referenceResistance, float referenceCelsius, int beta);
    /// @}

    /// @name Geometry
    /// @{
    SensorDesc GetSensorDesc(int model, bins binning, bool roiEnabled, const ROIArea& roi);
    SensorDesc GetSensorDesc();
    SensorDesc GetDefaultSensorDesc();
    void GetDefaultImageSize(int& width, int& height);
    unsigned short GetSensorWidth(unsigned short sensor);
    unsigned short GetSensorHeight(unsigned short sensor);
    void CheckBin(bins binning);
    /// @}

    /// @name Exposure timing, in ms
    /// @{
    float GetExposureTime();
    void SetExposureTime(float timeMs);
    void SetExposureTime2(float timeMs, int lowRegister, int highRegister);
    float GetReadOutTime();
    float GetMinimumExposureTime();
    /// @}

    /// @name Settings
    /// @{
    void SetBinningMode(bins binning);
    bins GetBinningMode();
    bins GetCachedBinningMode();
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
    void SetPreProgrammedExposureTimes(const std::vector<float>& timesMs);
    void SetPreProgrammedExposureTimes(const float* timesMs, std::size_t count);
    std::vector<float> GetPreProgrammedExposureTimes();
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
    /// @}

    /// @name Callbacks
    /// @{
    void SetCallback(CallbackFunction function);
    void SetCallbackData(void* data);
    void* GetCallbackData();
    void StopCallback();
    bool IsCallbackActive();
    void CheckForCallbackError();
    /// @}

    /// @name Region of interest
    /// @{
    void SetROIArea(int width, int height);
    void SetROIArea(int width, int height, int startRow);
    void SetROIArea(int width, int height, int startRow, int startColumn);
    void GetROIArea(int& width, int& height, int& startRow, int& startColumn);
    void SetROIEnabled(bool enable);
    bool IsROIEnabled();
    void SetROIMarginEnabled(bool enable);
    bool IsROIMarginEnabled();
    void GetMaximumROISize(int& width, int& height);
    /// @}

    /// @name Frames
    /// @{
    void WaitImage(int timeoutMs);
    /// `waiter` is 1 for the wait inside a Camera Link `Snap` and 2 for all others.
    void WaitImage(int timeoutMs, int waiter);
    void ClearBuffers();
    void ClearCameraBuffer(int buffer);
    int GetNumBuffers();
    void breakup(std::uint16_t* high, std::uint16_t* low, std::int32_t value);
    std::uint32_t stitch(std::uint16_t high, std::uint16_t low);
    /// @}

protected:
    /// A transport's `ReadBuffer` calls this before it copies `frameBytes` to `target`. If `target` is the plane of an
    /// image that this thread is reading into, throws DerrBadRequest (4) if the frame is larger than the plane: another
    /// thread may have changed the frame size since the image was measured.
    static void checkPlane(const void* target, std::int64_t frameBytes);

    /// Bytes of a frame by the cached settings, without asking the detector; empty if a setting is not cached.
    std::optional<std::int64_t> cachedFrameBytes() const;

    /// Fails with code 5 unless the board is open or `OpenBoard` runs.
    void CheckConnected() const;
    void ForceReconfiguration();

    void WaitUntilFlashReady();
    void WaitUntilFlashReady(const std::string& command);

    float GetCachedExposureTime();
    bool GetCachedLegacyTiming();
    int GetCachedModelNumber();
    ReadoutModes GetCachedReadoutMode();
    ROIArea GetCachedROIArea();
    bool GetCachedROIEnabled();
    int GetCachedSliceInterlacing();
    void SetCachedROIArea(ROIArea area);
    void SetCachedROIEnabled(bool enabled);
    void SetCachedSliceInterlacing(bool enabled);
    ROIArea GetROIArea();

    float GetNormalDetectorTemp(int sensor);
    float GetKestraneDetectorTemp(int sensor);
    float GetSensorTemp();
    float GetAuxilliaryDetectorTemp();

    /// Sends a command of power.
    void sendPlain(const char* command);

    /// Sends the command, without a pause, until it is answered; fails with `message` after 5 s.
    void sendUntilAnswered(const char* command, const char* message, const char* function);

    void InitializeExposureTime();
    /// 1.0 if the times are equal within 0.1 ms (1.0 ms from 10 s on), otherwise 0.0.
    float AreExposureTimesEqual(float first, float second) const;
    float GetExposureWindow();
    void SetExposureWindow(float window);
    /// Writes the window and reads it back, every 100 ms for up to 2 s, until `done` accepts what came back.
    float SetExposureWindowUntil(float window, const std::function<bool(float)>& done);
    float GetFirmwareMinimumExposureWindow();
    float GetMinimumExposureWindow();
    float GetMinimumExposureWindowFromLookup();
    float GetReadoutTimeFromLookup();
    float GetReadoutTimeFromDetector();
    int PollReadoutTimeRegister();
    float TransportMinimumExposureWindow();
    void UpdateReadoutTime();

    /// Starts the callback thread of a live run if a callback is installed and none runs; joins one that has ended.
    void StartCallbackThread();
    /// Ends the callback thread and joins it. On that thread itself it fails with a system error for the deadlock
    /// that the join would be; the thread ends on its own then.
    void StopCallbackThread();
    /// For destructors: as `StopCallbackThread`, but on the callback thread itself it lets go of the thread.
    void releaseCallbackThread();
    std::uint32_t CallbackCounterThread(CallbackLoop& loop);

    /// Declared ahead of the members that it guards.
    mutable platform::Mutex cacheMutex;

    std::shared_ptr<PleoraLib> pleoraLib;
    std::shared_ptr<xclib> xclibLib;
    std::atomic<QuorinDetector*> owner;
    std::atomic<bool> commsOpen{false};
    LockedOptional<FullWellModes> fullWellMode{cacheMutex};
    LockedOptional<bool> testMode{cacheMutex, false};
    LockedOptional<bins> binningMode{cacheMutex};
    LockedOptional<ExposureModes> exposureMode{cacheMutex};
    LockedOptional<ExposureTriggerSource> triggerSource{cacheMutex};
    LockedOptional<float> exposureTime{cacheMutex};
    std::atomic<float> readoutTime{-1.0F};
    std::atomic<float> minimumExposureWindow{0.0F};
    std::atomic<std::int32_t> numBuffers{0};
    LockedOptional<int> modelNumber{cacheMutex};
    LockedOptional<int> firmwareVersion{cacheMutex};
    std::int32_t unit = 0;  ///< set by the constructors alone
    std::atomic<bool> slowed{false};
    std::atomic<bool> connected{false};
    std::atomic<bool> handleOpen{false};  ///< `frameCapturedEvent` exists
    std::atomic<bool> opening{false};
    LockedOptional<std::uint16_t> numOfExposures{cacheMutex};
    std::atomic<std::int32_t> sliceInterlacing{-1};  ///< -1: not read yet
    LockedOptional<ROIArea> cachedROIArea{cacheMutex};
    LockedOptional<bool> cachedROIEnabled{cacheMutex};
    LockedOptional<ReadoutModes> readoutMode{cacheMutex};
    LockedOptional<bool> legacyTiming{cacheMutex};
    std::array<char, 100> boardText{};          ///< set by the constructors alone
    DetectorInterface transport = TransportCL;  ///< set by the constructors alone
    std::atomic<bool> pulseGeneratorEnabled{false};
    std::atomic<bool> featureBitsSeen{false};
    CapabilityFlags capabilities GUARDED_BY(cacheMutex);
    std::atomic<int> readsOwnTiming{0};
    std::atomic<std::int32_t> electronicsFamily{-1};  ///< -1 unknown, 1 Kestrane, 0 not
    /// `GetBinningMode` saw the flag bit of 4x4 while it was unknown whether the detector has that mode.
    std::atomic<bool> ignored4x4Flag{false};

    const std::shared_ptr<CallbackLoop> callbackLoop = std::make_shared<CallbackLoop>();
    mutable CriticalSection serialLock;  ///< one exchange on the serial channel, and the decision to configure it
    std::vector<char> sentCommand GUARDED_BY(serialLock);  ///< with its carriage return; kept for its memory
    StoppableLock waitSection{*callbackLoop};
    std::int32_t lastWaiter GUARDED_BY(waitSection) = 0;
    bool frameDelivered GUARDED_BY(waitSection) = false;
    std::int64_t counterFrequency;  ///< ticks per second, set by the constructor alone
    std::int64_t lastFrameTime GUARDED_BY(waitSection) = 0;

    platform::Mutex callbackMutex;                 ///< start and stop of the callback thread
    StoppableLock acquisitionLock{*callbackLoop};  ///< the live state

    std::atomic<void*> callbackData{nullptr};
    LockedOptional<QuorinException> callbackError{cacheMutex};
    std::atomic<bool>& callbackRunning = callbackLoop->running;
    std::atomic<CallbackFunction> callbackFunction{nullptr};
    std::unique_ptr<std::thread> callbackThread GUARDED_BY(callbackMutex);
    std::unique_ptr<qrapi::DetectorTimings> detectorTimings;  ///< written by `OpenBoard` alone
    std::atomic<void*> frameCapturedEvent{nullptr};

    /// How the threads of this detector are made; a system without room for one throws.
    std::function<std::unique_ptr<std::thread>(std::function<void()>)> startThread = [](std::function<void()> body) {
        return std::make_unique<std::thread>(std::move(body));
    };

private:
    void settleAfterPowerOff();
    void settleAfterPowerOn();
    void forgetSettings();
    void eraseFlash(int sensor);
    void writeFlashBlock(const std::vector<std::uint8_t>& reversedImage, std::size_t block, int sensor);
    void callbackRound(CallbackLoop& loop);
    bool goesOnCalling();
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

/// The core of every Camera Link transport.
class QRAPI_EXPORT camLinkDetector : public baseDetector {
public:
    camLinkDetector(int unitNumber, const char* text, QuorinDetector* owner);
    ~camLinkDetector() override;
    virtual void PowerCLInterface(bool on) = 0;
};

/// The core of every GigE transport.
class QRAPI_EXPORT gigEDetector : public baseDetector {
public:
    gigEDetector(const char* text, QuorinDetector* owner);
    ~gigEDetector() override;
    /// Four address bytes, most significant first.
    virtual void SetPersistentIPAddress(int first, int second, int third, int fourth) = 0;

protected:
    std::string deviceAddress;  ///< set by the constructor alone
};
