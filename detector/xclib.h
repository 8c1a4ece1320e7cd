#pragma once

#include <cstddef>

#include "export.h"

struct pxdstate;

/// Everything that the Camera Link transport asks of XCLIB, the frame grabber's library: the seam at which its logic
/// runs without the grabber.
///
/// Each operation is the `pxe_` function of the same name. `state` is what `XCLIBinstantiate` gave, `unitMap` a bit
/// mask of grabber units, a buffer number counts from 1. A failed call is no error here: the result is handed back.
/// Nothing locks and nothing throws; callers serialise access to the serial port and to the pixels.
class QRAPI_EXPORT xclib {
public:
    xclib() = default;
    xclib(const xclib&) = default;
    xclib& operator=(const xclib&) = default;
    virtual ~xclib();

    virtual int PIXCIopen(pxdstate* state, const char* driverParameters, const char* formatName,
                          const char* formatFile) = 0;  ///< 0 is success
    /// An event handle, signalled at each captured field; null is failure.
    virtual void* eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind) = 0;
    virtual void eventCapturedFieldClose(pxdstate* state, int unitMap, void* handle) = 0;
    virtual int setCameraLinkCCOut(pxdstate* state, int unitMap, int level) = 0;  ///< 0 is success
    virtual int serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity,
                                int stopBits, int, int, int) = 0;  ///< 0 is success
    /// Not 0: the buffer holds a fault text.
    virtual int mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) = 0;
    virtual int imageZdims(pxdstate* state, int unitMap) = 0;  ///< buffers available; negative is failure
    /// Width in bytes and height in lines; 0 is success.
    virtual int setVideoResolution(pxdstate* state, int unitMap, int width, int height, int, int) = 0;
    virtual int setPixelFormatGrey(pxdstate* state, int unitMap, int bitsPerByte, int, int, int taps, int,
                                   int) = 0;                            ///< 0 is success
    virtual int goSnap(pxdstate* state, int unitMap, long buffer) = 0;  ///< 0 is success
    virtual int capturedBuffer(pxdstate* state, int unitMap) = 0;       ///< of the last capture, counted from 1
    virtual int capturedFieldCount(pxdstate* state, int unitMap) = 0;   ///< running count of captured fields
    virtual int serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size) = 0;   ///< bytes read
    virtual int serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) = 0;  ///< bytes written
    /// x1 and y1 of -1 mean the whole frame; the number of bytes moved.
    virtual int writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                           unsigned char* data, std::size_t count, char* colourSpace) = 0;
    virtual int readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                          unsigned char* data, std::size_t count, char* colourSpace) = 0;
    virtual int imageXdims(pxdstate* state, int unitMap) = 0;  ///< width in bytes; negative is failure
    virtual int imageYdims(pxdstate* state, int unitMap) = 0;  ///< height in lines; negative is failure
    /// `count` 0 is without end; 0 is success.
    virtual int goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count,
                          int period) = 0;
    virtual int goUnLive(pxdstate* state, int unitMap) = 0;
    virtual int goAbortLive(pxdstate* state, int unitMap) = 0;                                        ///< 0 is success
    virtual int setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ) = 0;  ///< 0 is success
    virtual int setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin) = 0;      ///< 0 is success
    virtual int imageZdim(pxdstate* state) = 0;
    virtual int PIXCIclose(pxdstate* state) = 0;                      ///< 0 is success
    virtual int videoFormatAsIncluded(pxdstate* state, int) = 0;      ///< calls nothing: 0
    virtual int videoFormatAsIncludedInit(pxdstate* state, int) = 0;  ///< calls nothing: 0
    virtual int goneLive(pxdstate* state, int unitMap) = 0;           ///< not 0 while live
    virtual pxdstate* XCLIBinstantiate() = 0;
    virtual void XCLIBuninstantiate(pxdstate* state) = 0;
};
