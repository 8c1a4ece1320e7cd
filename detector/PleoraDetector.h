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
/// The ring gate: copies into and out of the ring hold it shared. An exclusive section stores new sizes, replaces the
/// blocks and increments the generation, at open too. A thread reads the generation before it retrieves a frame; a
/// frame of an earlier generation is released without being copied and counted in `staleFrames`. So no freed block and
/// no stale size is used. A reader that lags behind by a whole ring sees a block being overwritten.
///
/// Locks: `acquisitionLock` and `bufferSection` before the ring gate.
class QRAPI_EXPORT PleoraDetector : public gigEDetector {
public:
    /// Touches no network.
    /// @param address  the detector's network address
    /// @param owner    the facade
    PleoraDetector(const char* address, QuorinDetector* owner);
    /// Closes the board and releases what a failed open or close has left. Throws nothing.
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
    /// The time in ms that the link needs for one frame.
    float TransportMinimumExposureTime() override;

    /// What counts as success of an eBUS call.
    enum class Test {
        IsOK,        ///< `PvResult::IsOK`
        NotFailure,  ///< not `PvResult::IsFailure`
    };

    /// Throws with `message` and the result's code and description.
    [[noreturn]] static void failWith(const PvResult& result, const char* message, const char* function,
                                      Derr code = DerrTransport, int line = __builtin_LINE(),
                                      const char* file = __builtin_FILE());

    /// As `failWith` if the result fails the test.
    static void check(Test test, const PvResult& result, const char* message, const char* function,
                      Derr code = DerrTransport, int line = __builtin_LINE(), const char* file = __builtin_FILE());

    /// Stores the result in `lastResult`, then checks it. Not for the live thread.
    void expect(Test test, const PvResult& result, const char* message, const char* function, Derr code = DerrTransport,
                int line = __builtin_LINE(), const char* file = __builtin_FILE());

    LockedOptional<QuorinException> liveError{cacheMutex};                ///< failure that ended the live thread
    std::unique_ptr<std::thread> liveThread GUARDED_BY(acquisitionLock);  ///< may have ended; joined before the next
    std::shared_ptr<RAIIBuffer> frameBuffers GUARDED_BY(ringGate);        ///< the ring
    PvResult lastResult GUARDED_BY(cacheMutex);   ///< of the last eBUS call made for a public operation
    PvResult operationResult;                     ///< of the frame that `Snap` retrieved; only its thread uses it
    std::atomic<std::int32_t> capturedBuffer{0};  ///< buffer of the newest frame
    std::atomic<std::int32_t> fieldCount{0};      ///< running count of frames
    std::int64_t imageWidth GUARDED_BY(acquisitionLock) = 0;   ///< device feature "Width", pixels
    std::int64_t imageHeight GUARDED_BY(acquisitionLock) = 0;  ///< device feature "Height", rows
    std::int64_t payloadSize GUARDED_BY(ringGate) = 0;         ///< device feature "PayloadSize": bytes of one frame
    std::atomic<bool> live{false};                             ///< a live run is in progress
    std::atomic<bool> softwareTriggerEnabled{true};            ///< false while the pulse generator is set up
    std::atomic<bool> stopRequested{false};                    ///< ends the live thread's loop
    std::atomic<bool> stopping{false};  ///< a stop holds `acquisitionLock`: the live thread must not wait for it

    platform::SharedMutex ringGate;                                 ///< see the class
    std::uint64_t ringGeneration GUARDED_BY(ringGate) = 0;          ///< see the class
    std::int64_t frameSize GUARDED_BY(ringGate) = 0;                ///< bytes of the frame that the core requested
    std::int64_t pipelineSize GUARDED_BY(ringGate) = 0;             ///< least bytes of a pipeline buffer
    std::atomic<std::uint64_t> staleFrames{0};                      ///< frames released without being copied
    static constexpr std::uint64_t notWaiting = ~std::uint64_t{0};  ///< value of `awaitedGeneration`
    std::atomic<std::uint64_t> awaitedGeneration{notWaiting};       ///< of the frame that the live thread waits for

    std::atomic<bool> frameHeld{false};  ///< a retrieved frame was not released yet

private:
    static constexpr const char* noPixelsText = "The frame came without pixels.";
    static const std::int32_t MAX_DATA_RATE = 670000000;  ///< bits per second

    void StartAcq();
    void StopAcq();
    std::uint32_t LiveThread(int start, int stop, int limit);
    /// Copies the next frame of a live run into the ring; false if none came or it was stale.
    bool takeLiveFrame(int start, int stop);
    void rollBackLive() REQUIRES(acquisitionLock);
    void joinLiveThread() REQUIRES(acquisitionLock);
    void endLiveThread() NO_THREAD_SAFETY_ANALYSIS;  ///< for the destructor, when no call is in progress
    void ConfigurePLC();
    void PowerSwitchDefault(bool on);
    void PowerSwitchKestrane(bool on);
    void updateImageParams();

    void bringUp();
    void buildRing(std::int64_t blockBytes);
    /// The bytes of a ring block for a payload; for one that no block can hold a size that `RAIIBuffer` refuses.
    static std::int32_t blockBytesFor(std::int64_t payload);
    void releaseConnection();
    void disableGeneratorForClose();
    void setEnum(Test test, const char* feature, const char* value, const char* message, const char* function);
    /// Reads an integer feature into `value`; the trace shows its old content.
    void readFeature(const char* feature, std::int64_t& value, const char* message, const char* function);
    std::uint64_t currentGeneration();
    std::int64_t currentPayload();
    void waitUntilLiveThreadSees(std::uint64_t generation);
    /// Returns the retrieved frame to the pipeline, unless that has been done.
    PvResult releaseFrame();
    /// As `releaseFrame`, after a failure: otherwise the pipeline would lose its buffers one by one. Throws nothing.
    void releaseHeldFrame();
    /// Copies the next frame of a `Snap` into the ring; false for a stale one.
    bool retrieveInto(int buffer, int timeoutMs);
    bool copyIntoRing(int buffer, const std::uint8_t* source, std::uint64_t generation);
    void* ringBlock(int buffer, std::int64_t bytes) REQUIRES_SHARED(ringGate);

    /// The eBUS objects exist. A close without them has nothing to disconnect: an earlier close failed at its last
    /// step, or a reconnection failed.
    std::atomic<bool> broughtUp{false};
};
