#pragma once

#include "detector/xclib.h"

/// The real seam: calls XCLIB and logs each call but serial traffic, with its result.
class QRAPI_EXPORT xclib_real : public xclib {
public:
    xclib_real() = default;
    xclib_real(const xclib_real&) = default;
    xclib_real& operator=(const xclib_real&) = default;
    ~xclib_real() override;

    int PIXCIopen(pxdstate* state, const char* driverParameters, const char* formatName,
                  const char* formatFile) override;
    void* eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind) override;
    void eventCapturedFieldClose(pxdstate* state, int unitMap, void* handle) override;
    int setCameraLinkCCOut(pxdstate* state, int unitMap, int level) override;
    int serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity, int stopBits,
                        int a, int b, int c) override;
    int mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) override;
    int imageZdims(pxdstate* state, int unitMap) override;
    int setVideoResolution(pxdstate* state, int unitMap, int width, int height, int a, int b) override;
    int setPixelFormatGrey(pxdstate* state, int unitMap, int bitsPerByte, int a, int b, int taps, int c,
                           int d) override;
    int goSnap(pxdstate* state, int unitMap, long buffer) override;
    int capturedBuffer(pxdstate* state, int unitMap) override;
    int capturedFieldCount(pxdstate* state, int unitMap) override;
    int serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size) override;
    int serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) override;
    int writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1, unsigned char* data,
                   std::size_t count, char* colourSpace) override;
    int readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1, unsigned char* data,
                  std::size_t count, char* colourSpace) override;
    int imageXdims(pxdstate* state, int unitMap) override;
    int imageYdims(pxdstate* state, int unitMap) override;
    int goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count, int period) override;
    int goUnLive(pxdstate* state, int unitMap) override;
    int goAbortLive(pxdstate* state, int unitMap) override;
    int setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ) override;
    int setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin) override;
    int imageZdim(pxdstate* state) override;
    int PIXCIclose(pxdstate* state) override;
    int videoFormatAsIncluded(pxdstate* state, int a) override;
    int videoFormatAsIncludedInit(pxdstate* state, int a) override;
    int goneLive(pxdstate* state, int unitMap) override;
    pxdstate* XCLIBinstantiate() override;
    void XCLIBuninstantiate(pxdstate* state) override;
};
