#include "detector/xclib_real.h"

#include <xcliball.h>

#include "detector/CallTrace.h"
#include "detector/seams.h"

namespace {

template <class... Arguments>
void traceCall(const char* name, const Arguments&... arguments) {
    trace::logCall("EPIX", name, arguments...);
}

template <class Result>
Result traceResult(const char* name, const Result& result) {
    trace::logReturned("EPIX", name, result);
    return result;
}

/// Calls the function, with a log line before and after.
template <class Function, class... Arguments>
auto traced(const char* name, Function* function, const Arguments&... arguments) {
    traceCall(name, arguments...);
    return traceResult(name, function(arguments...));
}

/// Copies pixels, with a log line before and after that shows the colour space as text.
template <class Function>
int movePixels(const char* name, Function* function, pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1,
               int y1, unsigned char* data, std::size_t count, char* colourSpace) {
    const char* const colourText = colourSpace;
    traceCall(name, state, unitMap, buffer, x0, y0, x1, y1, data, count, colourText);
    return traceResult(name, function(state, unitMap, buffer, x0, y0, x1, y1, data, count, colourSpace));
}

}  // namespace

std::shared_ptr<xclib> makeXclib() {
    return std::make_shared<xclib_real>();
}

xclib::~xclib() = default;
xclib_real::~xclib_real() = default;

int xclib_real::PIXCIopen(pxdstate* state, const char* driverParameters, const char* formatName,
                          const char* formatFile) {
    return traced("pxe_PIXCIopen", pxe_PIXCIopen, state, driverParameters, formatName, formatFile);
}

void* xclib_real::eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind) {
    return traced("pxe_eventCapturedFieldCreate2", pxe_eventCapturedFieldCreate2, state, unitMap, kind);
}

void xclib_real::eventCapturedFieldClose(pxdstate* state, int unitMap, void* handle) {
    traceCall("pxe_eventCapturedFieldClose", state, unitMap, handle);
    pxe_eventCapturedFieldClose(state, unitMap, handle);
}

int xclib_real::setCameraLinkCCOut(pxdstate* state, int unitMap, int level) {
    return traced("pxe_setCameraLinkCCOut", pxe_setCameraLinkCCOut, state, unitMap, level);
}

int xclib_real::serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity,
                                int stopBits, int a, int b, int c) {
    return traced("pxe_serialConfigure", pxe_serialConfigure, state, unitMap, port, baud, dataBits, parity, stopBits, a,
                  b, c);
}

int xclib_real::mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) {
    return traced("pxe_mesgFaultText", pxe_mesgFaultText, state, unitMap, buffer, size);
}

int xclib_real::imageZdims(pxdstate* state, int unitMap) {
    return traced("pxe_imageZdims", pxe_imageZdims, state, unitMap);
}

int xclib_real::setVideoResolution(pxdstate* state, int unitMap, int width, int height, int a, int b) {
    return traced("pxe_setVideoResolution", pxe_setVideoResolution, state, unitMap, width, height, a, b);
}

int xclib_real::setPixelFormatGrey(pxdstate* state, int unitMap, int bitsPerByte, int a, int b, int taps, int c,
                                   int d) {
    return traced("pxe_setPixelFormatGrey", pxe_setPixelFormatGrey, state, unitMap, bitsPerByte, a, b, taps, c, d);
}

int xclib_real::goSnap(pxdstate* state, int unitMap, long buffer) {
    return traced("pxe_goSnap", pxe_goSnap, state, unitMap, buffer);
}

int xclib_real::capturedBuffer(pxdstate* state, int unitMap) {
    return traced("pxe_capturedBuffer", pxe_capturedBuffer, state, unitMap);
}

int xclib_real::capturedFieldCount(pxdstate* state, int unitMap) {
    return traced("pxe_capturedFieldCount", pxe_capturedFieldCount, state, unitMap);
}

int xclib_real::serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size) {
    return pxe_serialRead(state, unitMap, port, buffer, size);
}

int xclib_real::serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) {
    return pxe_serialWrite(state, unitMap, port, buffer, size);
}

int xclib_real::writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                           unsigned char* data, std::size_t count, char* colourSpace) {
    return movePixels("pxe_writeuchar", pxe_writeuchar, state, unitMap, buffer, x0, y0, x1, y1, data, count,
                      colourSpace);
}

int xclib_real::readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                          unsigned char* data, std::size_t count, char* colourSpace) {
    return movePixels("pxe_readuchar", pxe_readuchar, state, unitMap, buffer, x0, y0, x1, y1, data, count, colourSpace);
}

int xclib_real::imageXdims(pxdstate* state, int unitMap) {
    return traced("pxe_imageXdims", pxe_imageXdims, state, unitMap);
}

int xclib_real::imageYdims(pxdstate* state, int unitMap) {
    return traced("pxe_imageYdims", pxe_imageYdims, state, unitMap);
}

int xclib_real::goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count, int period) {
    return traced("pxe_goLiveSeq", pxe_goLiveSeq, state, unitMap, start, end, increment, count, period);
}

int xclib_real::goUnLive(pxdstate* state, int unitMap) {
    return traced("pxe_goUnLive", pxe_goUnLive, state, unitMap);
}

int xclib_real::goAbortLive(pxdstate* state, int unitMap) {
    return traced("pxe_goAbortLive", pxe_goAbortLive, state, unitMap);
}

int xclib_real::setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ) {
    return traced("pxe_setExsyncPrincMode", pxe_setExsyncPrincMode, state, unitMap, mode, princ);
}

int xclib_real::setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin) {
    return traced("pxe_setExsyncPrin", pxe_setExsyncPrin, state, unitMap, exsync, prin);
}

int xclib_real::imageZdim(pxdstate* state) {
    return traced("pxe_imageZdim", pxe_imageZdim, state);
}

int xclib_real::PIXCIclose(pxdstate* state) {
    return traced("pxe_PIXCIclose", pxe_PIXCIclose, state);
}

int xclib_real::videoFormatAsIncluded(pxdstate* /*state*/, int /*a*/) {
    return 0;
}

int xclib_real::videoFormatAsIncludedInit(pxdstate* /*state*/, int /*a*/) {
    return 0;
}

int xclib_real::goneLive(pxdstate* state, int unitMap) {
    return traced("pxe_goneLive", pxe_goneLive, state, unitMap, 0);
}

pxdstate* xclib_real::XCLIBinstantiate() {
    return traced("pxe_XCLIBinstantiate", pxe_XCLIBinstantiate);
}

void xclib_real::XCLIBuninstantiate(pxdstate* state) {
    traceCall("pxe_XCLIBuninstantiate", state);
    pxe_XCLIBuninstantiate(state);
}
