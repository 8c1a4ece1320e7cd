#pragma once

#include <cstddef>

#include "export.h"

struct pxdstate;

/// Everything that the Camera Link transport asks of XCLIB, the frame grabber's library: the seam at which its logic
/// runs without the grabber.
///
/// Each operation is the `pxe_` function of the same name. Common arguments: `state` is a result of `XCLIBinstantiate`;
/// `unitMap` is a bit mask of grabber units, always 1; `port` is always 0; a buffer number counts from 1; arguments
/// without a name are 0.
///
/// Results: nothing throws. Unless a description says otherwise, 0 is success and any other result a failure. The
/// transport throws the failure, with the result and the text of `mesgFaultText`.
///
/// Threads, in the words of `baseDetector`: library state and board are for the control thread, serial calls come under
/// `serialLock`, pixel transfers under the lock that all Camera Link detectors share, start and end of a sequence under
/// `acquisitionLock`. Anything else comes from any thread, without a lock, so an implementation tolerates simultaneous
/// calls. It calls no operation of a detector. While it captures it fills the buffers itself and signals the event of
/// `eventCapturedFieldCreate2`: no thread of the library takes part.
///
/// To load a video format the transport calls `pxe_infoUnits`, `pxe_goAbortLive`, `pxe_xclibEscape` and
/// `pxe_xclibEscaped` directly, not through this seam. "Open." and "Close." name the step of the transport that makes a
/// call.
class QRAPI_EXPORT xclib {
public:
    /// @cond an interface without data
    xclib() = default;
    xclib(const xclib&) = default;
    xclib& operator=(const xclib&) = default;
    /// @endcond
    virtual ~xclib();

    /// Opens the board. Open.
    /// @param state             not opened yet
    /// @param driverParameters  "-DM 0x" and the unit number
    /// @param formatName        "": the format is loaded afterwards
    /// @param formatFile        ""
    virtual int PIXCIopen(pxdstate* state, const char* driverParameters, const char* formatName,
                          const char* formatFile) = 0;
    /// Makes an auto-reset event that `platform::waitForEvent` accepts and that is signalled at each captured field;
    /// null is failure. `kind` is 115. Open.
    virtual void* eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind) = 0;
    /// Closes the event, which ends the waits on it. Close.
    virtual void eventCapturedFieldClose(pxdstate* state, int unitMap, void* handle) = 0;
    /// Sets the camera control line to `level`, 0 or 1. A software trigger: 1, then 0 after 1 ms.
    virtual int setCameraLinkCCOut(pxdstate* state, int unitMap, int level) = 0;
    /// Configures the serial port and drops what has arrived: 115200 baud, 8 data bits, parity 0 (none), 1 stop bit.
    virtual int serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity,
                                int stopBits, int, int, int) = 0;
    /// Takes the pending fault text, cut to `size` bytes. After a failed call; in `CheckForLiveError`, thus under
    /// `waitSection` too.
    /// @return not 0 if there was one; 0 leaves the content of `buffer` without meaning
    virtual int mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) = 0;
    virtual int imageZdims(pxdstate* state, int unitMap) = 0;  ///< buffers available; negative is failure
    /// Sets the size of a frame on the link: `width` in bytes, `height` in lines. Open and each change of the frame
    /// size; a running sequence goes on with the new size.
    virtual int setVideoResolution(pxdstate* state, int unitMap, int width, int height, int, int) = 0;
    /// Sets the pixel format. `bitsPerByte` is 8, `taps` the pixels per clock on the link (2, 4 or 8, by model). Called
    /// before each `setVideoResolution`.
    virtual int setPixelFormatGrey(pxdstate* state, int unitMap, int bitsPerByte, int, int, int taps, int, int) = 0;
    /// Captures the next frame into the buffer. `Snap`; it does not wait for the frame.
    virtual int goSnap(pxdstate* state, int unitMap, long buffer) = 0;
    virtual int capturedBuffer(pxdstate* state, int unitMap) = 0;      ///< of the last capture; 0 before the first
    virtual int capturedFieldCount(pxdstate* state, int unitMap) = 0;  ///< fields captured since the board was opened
    /// Takes what has arrived, up to `size` bytes, without waiting for more.
    /// @return bytes read; negative is failure
    virtual int serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size) = 0;
    /// Sends `size` bytes.
    /// @return bytes written; negative is failure
    virtual int serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) = 0;
    /// Copies `count` bytes from `data` into a rectangle of a buffer: from column x0 (in bytes) and line y0 up to x1
    /// and y1, which are excluded; -1 is the edge of the frame. The transport moves whole frames. `colourSpace` is
    /// "Grey". `data` is not changed.
    /// @return bytes moved; the transport takes any number but `count` as a failure
    virtual int writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                           unsigned char* data, std::size_t count, char* colourSpace) = 0;
    /// As `writeuchar`, from the buffer into `data`.
    virtual int readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                          unsigned char* data, std::size_t count, char* colourSpace) = 0;
    virtual int imageXdims(pxdstate* state, int unitMap) = 0;  ///< width in bytes; negative is failure
    virtual int imageYdims(pxdstate* state, int unitMap) = 0;  ///< height in lines; negative is failure
    /// Captures a sequence: each `period`th frame into the next buffer, from `start` in steps of `increment` to `end`
    /// and again from `start`, until `count` frames (0: without end) or `goAbortLive`. Increment and period are 1.
    virtual int goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count,
                          int period) = 0;
    virtual int goUnLive(pxdstate* state, int unitMap) = 0;  ///< ends a sequence; not called by the library
    /// Ends a sequence or a pending snap; no frame is written once it has returned.
    virtual int goAbortLive(pxdstate* state, int unitMap) = 0;
    /// Controls the pulse generator: `mode` 0; `princ` has bit 1 to run and the clock divide N from bit 7 on, 0 stops.
    virtual int setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ) = 0;
    /// Sets the generator's pulse (`exsync`) and pause (`prin`), each below 65535 counts of 2^(N + 10) periods of 80
    /// MHz.
    virtual int setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin) = 0;
    virtual int imageZdim(pxdstate* state) = 0;  ///< as `imageZdims`; not called by the library
    /// Ends a capture and closes the board. Close; called again if it failed.
    virtual int PIXCIclose(pxdstate* state) = 0;
    virtual int videoFormatAsIncluded(pxdstate* state, int) = 0;      ///< returns 0; not called by the library
    virtual int videoFormatAsIncludedInit(pxdstate* state, int) = 0;  ///< returns 0; not called by the library
    /// Not 0 while a sequence runs; a pending snap does not count. Under `acquisitionLock`, except on the callback
    /// thread while it is being stopped.
    virtual int goneLive(pxdstate* state, int unitMap) = 0;
    /// Makes a library state, at construction of the detector and, if that got none, at open; null is failure.
    virtual pxdstate* XCLIBinstantiate() = 0;
    /// Releases a state, null included, and closes its board. At destruction of the detector.
    virtual void XCLIBuninstantiate(pxdstate* state) = 0;
};
