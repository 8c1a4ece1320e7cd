#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

#include "InternalUtils/InternalUtils.h"
#include "detector/PleoraLib.h"
#include "detector/baseDetector.h"

/// The detector on GigE Vision, through `PleoraLib`.
///
/// Frames come from the eBUS pipeline and are copied once, into the local ring `frameBuffers`.
///
/// The ring gate: copies into and out of the ring hold it shared. New sizes are stored and blocks replaced, at open
/// too, in one exclusive section that raises the generation. Whoever retrieves a frame notes the generation before;
/// a frame of an earlier one is released uncopied and counted in `staleFrames`. So no freed block and no stale size is
/// ever touched. A reader that lags a whole ring behind sees a block being overwritten.
///
/// Locks: `acquisitionLock` and `bufferSection` before the ring gate.
class QRAPI_EXPORT PleoraDetector : public gigEDetector {
public:
    /// @param address  the detector's network address, as the eBUS device connects to it. Touches no network.
    PleoraDetector(const char* address, QuorinDetector* owner);
    /// Closes the board; releases what a failed open or close has left. Lets no failure out.
    ~PleoraDetector() override;

    void* CreateDetectorHandle() override;
    int CloseDetectorHandle() override;
    void SerialConfigure(double baud, int dataBits, int parity, int stopBits) override;
    void OpenBrd(char* text, int bufferCount) override;
    void OpenBrd(char* text) override;
    void CloseBrd() override;
    using baseDetector::EnablePulseGenerator;
    void EnablePulseGenerator(float frequencyHz) override;
    using baseDetector::ReadBuffer;
    void ReadBuffer(int buffer, void* target) override;
    void Snap(int buffer, int timeoutMs) override;
    int GetCapturedBuffer() override;
    int GetFieldCount() override;
    int SerialRead(char* buffer, int capacity) override;
    int SerialWrite(char* buffer, int size) override;
    void WriteBuffer(int buffer, const void* source, int size) override;
    int bufferXdim() override;
    int bufferYdim() override;
    void PowerSwitch(bool on) override;
    void GoLiveSeq() override;
    void GoLiveSeq(int startBuffer, int stopBuffer, int frameCount) override;
    void GoUnLive() override;
    void SoftwareTrigger() override;
    void DisablePulseGenerator() override;
    void configurePGFrequency(float frequencyHz) override;
    void ToggleGenerator(bool on) override;
    void CheckForLiveError() override;
    bool IsLive() override;
    void PrepareInterfaceForImageSizeChange() override;
    void UpdateInterfaceImageSize() override;
    void SetPersistentIPAddress(int first, int second, int third, int fourth) override;

protected:
    /// The time that the link needs for one frame, in ms.
    float TransportMinimumExposureTime() override;

    /// What counts as success of an eBUS call: some are tested for being OK, some for not being a failure.
    enum class Test { IsOK, NotFailure };

    /// Throws with `message` and what the result says.
    [[noreturn]] static void failWith(const PvResult& result, const char* message, const char* function,
                                      Derr code = DerrTransport, int line = __builtin_LINE(),
                                      const char* file = __builtin_FILE());

    /// Throws with `message` if the result fails the test.
    static void check(Test test, const PvResult& result, const char* message, const char* function,
                      Derr code = DerrTransport, int line = __builtin_LINE(), const char* file = __builtin_FILE());

    /// Stores the result of an operation's eBUS call in `lastResult`, then checks it. Not for the live thread.
    void expect(Test test, const PvResult& result, const char* message, const char* function, Derr code = DerrTransport,
                int line = __builtin_LINE(), const char* file = __builtin_FILE());

    LockedOptional<QuorinException> liveError{cacheMutex};
    std::unique_ptr<std::thread> liveThread GUARDED_BY(acquisitionLock);
    std::shared_ptr<RAIIBuffer> frameBuffers GUARDED_BY(ringGate);
    PvResult lastResult GUARDED_BY(cacheMutex);  ///< of the last eBUS call made for a public operation
    PvResult operationResult;                    ///< frame result of `Snap`'s retrieval; `Snap`'s thread alone
    std::atomic<std::int32_t> capturedBuffer{0};
    std::atomic<std::int32_t> fieldCount{0};
    std::int64_t imageWidth GUARDED_BY(acquisitionLock) = 0;   ///< device feature "Width", pixels
    std::int64_t imageHeight GUARDED_BY(acquisitionLock) = 0;  ///< device feature "Height", rows
    std::int64_t payloadSize GUARDED_BY(ringGate) = 0;         ///< device feature "PayloadSize": bytes of one frame
    std::atomic<bool> live{false};
    std::atomic<bool> softwareTriggerEnabled{true};
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> stopping{false};

    platform::SharedMutex ringGate;
    std::uint64_t ringGeneration GUARDED_BY(ringGate) = 0;
    std::int64_t frameSize GUARDED_BY(ringGate) = 0;     ///< bytes of the frame that the core asked the device for
    std::int64_t pipelineSize GUARDED_BY(ringGate) = 0;  ///< bytes that each buffer of the pipeline has at least
    std::atomic<std::uint64_t> staleFrames{0};
    static constexpr std::uint64_t notWaiting = ~std::uint64_t{0};
    std::atomic<std::uint64_t> awaitedGeneration{notWaiting};  ///< of the frame that the live thread waits for

    std::atomic<bool> frameHeld{false};  ///< a frame was retrieved from the pipeline and not released

private:
    static constexpr const char* noPixelsText = "The frame came without pixels.";
    static const std::int32_t MAX_DATA_RATE = 670000000;  ///< bits per second

    void StartAcq();
    void StopAcq();
    std::uint32_t LiveThread(int start, int stop, int limit);
    /// Takes the next frame of a live run into the ring; false if there was none to keep.
    bool takeLiveFrame(int start, int stop);
    void rollBackLive() REQUIRES(acquisitionLock);
    void joinLiveThread() REQUIRES(acquisitionLock);
    void endLiveThread() NO_THREAD_SAFETY_ANALYSIS;  ///< for the destructor, which nobody runs beside
    void ConfigurePLC();
    void PowerSwitchDefault(bool on);
    void PowerSwitchKestrane(bool on);
    void updateImageParams();

    void bringUp();
    void buildRing(std::int64_t blockBytes);
    /// The size of a ring block for a payload, in bytes; one that is refused if there can be no such block.
    static std::int32_t blockBytesFor(std::int64_t payload);
    void releaseConnection();
    void disableGeneratorOrLetItGo();
    void setEnum(Test test, const char* feature, const char* value, const char* message, const char* function);
    /// Reads an integer feature into `value`, whose old content goes into the trace.
    void readFeature(const char* feature, std::int64_t& value, const char* message, const char* function);
    std::uint64_t currentGeneration();
    std::int64_t currentPayload();
    void letLiveThreadSeeNewSize(std::uint64_t generation);
    /// Gives the frame back that was taken from the pipeline, unless that is done.
    PvResult releaseFrame();
    /// The same for one that a failure has left, or the pipeline would run out of buffers one by one.
    void giveBackHeldFrame();
    /// Takes the next frame of a `Snap` into the ring; false for a frame of an earlier generation.
    bool retrieveInto(int buffer, int timeoutMs);
    bool copyIntoRing(int buffer, const std::uint8_t* source, std::uint64_t generation);
    void* ringBlock(int buffer, std::int64_t bytes) REQUIRES_SHARED(ringGate);

    /// The eBUS objects exist. A close that finds none has nothing to close: an earlier one failed at its last step, or a
    /// reconnection failed.
    std::atomic<bool> broughtUp{false};
};
