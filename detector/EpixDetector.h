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
/// The grabber captures into its own frame memory, which is the ring: the library keeps no copy of a frame, and the
/// grabber knows whether a run is live. Buffers count from 0 here and from 1 in the grabber.
///
/// The board is connected as soon as the grabber has accepted the open: after a later step has failed, call
/// `CloseBoard`. A reader that lags behind by a whole ring reads a frame that is being overwritten.
class QRAPI_EXPORT EpixDetector : public camLinkDetector {
public:
    /// Makes the grabber library's state, opens nothing.
    /// @param unitNumber  which grabber
    /// @param text        stored in `boardText`, otherwise unused
    /// @param owner       the facade
    EpixDetector(int unitNumber, const char* text, QuorinDetector* owner);
    /// Closes the board, continuing after a failed step, then releases the library state. Throws nothing.
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
    int bufferXdim() override;  ///< bytes per line on the link, which holds a row of every sensor
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
    /// 0: the grabber sustains every exposure time.
    float TransportMinimumExposureTime() override;

    const std::int32_t unitMap = 1;  ///< unit 0 of the board
    pxdstate* xcState;               ///< the grabber library's state, owned
    /// `OpenBoard` had a buffer count: `numBuffers` is required then, otherwise it is what the grabber has.
    std::atomic<bool> buffersFixed{false};
    std::atomic<std::int32_t> pulseDivider{0};  ///< exposure pixel clock divide N of the pulse generator, 0 to 7

    std::atomic<bool> replyPending{false};  ///< a serial read or write failed: a late reply may arrive

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
    void setReplyPending(bool pending);
    void discardPendingReply();
    template <class RunStep>
    void tearDown(RunStep&& runStep) REQUIRES(acquisitionLock);
    void PowerSwitchDefault(bool on);
    void PowerSwitchKestrane(bool on);

    /// Takes the grabber's fault text; empty if there is none. Valid until the thread's next call.
    char* GetErrorMessage();

    /// Throws with `message`, the grabber's result and its fault text.
    [[noreturn]] void failWith(int result, const char* message, const char* function, Derr code = DerrTransport,
                               int line = __builtin_LINE(), const char* file = __builtin_FILE());
    /// As `failWith`, unless the result is 0.
    void expectZero(int result, const char* message, const char* function, Derr code = DerrTransport,
                    int line = __builtin_LINE(), const char* file = __builtin_FILE());
    /// As `failWith` if the result is negative; otherwise returns it.
    int expectCount(int result, const char* message, const char* function, int line = __builtin_LINE(),
                    const char* file = __builtin_FILE());
};
