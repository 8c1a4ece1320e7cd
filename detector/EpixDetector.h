#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "InternalUtils/InternalUtils.h"
#include "detector/baseDetector.h"
#include "detector/xclib.h"

class VideoFormat;

/// The detector on a Camera Link frame grabber, through `xclib`.
///
/// The grabber captures on its own into its frame memory, which is the ring: no copy of a frame exists in the library,
/// and whether a run is live is the grabber's own state. Buffers count from 0 here and from 1 there.
///
/// The board is connected from the moment the grabber accepts the open: when a later step of the open fails,
/// `CloseBoard` is the way out. A reader that lags a whole ring behind reads a frame that is being overwritten.
class QRAPI_EXPORT EpixDetector : public camLinkDetector {
public:
    /// @param unitNumber  which grabber; the text is kept and not read. Makes the grabber library's state, opens
    /// nothing.
    EpixDetector(int unitNumber, const char* text, QuorinDetector* owner);
    /// Closes the board and takes down whatever a failed close leaves, then releases the library state. Lets no failure
    /// out.
    ~EpixDetector() override;

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
    int bufferXdim() override;  ///< bytes per line on the link, all sensors in one line: not what `GetBufferXdim` gives
    int bufferYdim() override;  ///< lines on the link
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
    void PowerCLInterface(bool on) override;

protected:
    /// The grabber keeps up with every exposure time: 0.
    float TransportMinimumExposureTime() override;

    const std::int32_t unitMap = 1;  ///< unit 0 of the board
    pxdstate* xcState;               ///< the grabber library's state, owned
    /// `OpenBoard` was given a number of buffers: `numBuffers` is a demand then, otherwise what the grabber has.
    std::atomic<bool> buffersFixed{false};
    std::atomic<std::int32_t> pulseDivider{0};  ///< exposure pixel clock divide N of the pulse generator, 0 to 7

    std::atomic<bool> replyLeft{false};  ///< a read or write of the serial line failed

private:
    static const std::uint32_t PRINC_EPCD_MAXVAL = 7;  ///< largest N
    static const std::uint32_t PRINC_EPCD_POS = 7;     ///< position of N in the generator's mode word

    void* CreateDetectorHandle() override;
    int CloseDetectorHandle() override;
    void SerialConfigure(double baud, int dataBits, int parity, int stopBits) override;
    void OpenBrd(char* text, int bufferCount) override;
    void OpenBrd(char* text) override;
    void CloseBrd() override;

    void connect(const char* text);
    void loadFormat(const VideoFormat& format, const char* function);
    void reconfigureFG();
    std::int64_t frameBytes();
    void leaveReply(bool left);
    void dropReplyLeft();
    template <class RunStep>
    void tearDown(RunStep&& runStep) REQUIRES(acquisitionLock);
    void PowerSwitchDefault(bool on);
    void PowerSwitchKestrane(bool on);

    /// The grabber's fault text, or an empty one. Valid until the thread's next call.
    char* GetErrorMessage();

    /// Throws with `message`, the grabber's result and its fault text.
    [[noreturn]] void failWith(int result, const char* message, const char* function, Derr code = DerrTransport,
                               int line = __builtin_LINE(), const char* file = __builtin_FILE());
    /// Throws so unless the result is 0.
    void expectZero(int result, const char* message, const char* function, Derr code = DerrTransport,
                    int line = __builtin_LINE(), const char* file = __builtin_FILE());
    /// Throws so if the result is negative, otherwise hands it on.
    int expectCount(int result, const char* message, const char* function, int line = __builtin_LINE(),
                    const char* file = __builtin_FILE());
};
