#pragma once

#include <cstddef>

#include "platform/export.h"

/// The frame grabber's library in its re-entrant form, over a virtual rack: unit 0 of a state that was opened with the
/// driver parameters "-DM 0x<n>" is slot n of `simulator::Rack`.
///
/// A result below zero is one of `pxe_error`. Every call that fails leaves a fault text, which stays until it is asked
/// for. A call on no state, on one whose board is not open, or for a unit that the board lacks fails with the error of
/// that name. Any thread may call; no function throws. `VirtualGrabber.h` sets up and disturbs the board of a slot.

/// Library state: made by `pxe_XCLIBinstantiate`, released by `pxe_XCLIBuninstantiate`.
struct pxdstate;

/// What the functions answer when they fail.
enum pxe_error : int {
    PXERNOTOPEN = -1,      ///< no state, or its board is not open
    PXERALREADYOPEN = -2,  ///< the state's board is open, or another state has the slot
    PXERNOBOARD = -3,      ///< nothing in the slot, or the driver parameters name none
    PXERUNITMAP = -4,      ///< a unit that the board doesn't have
    PXERBADPARAM = -5,     ///< an argument outside its range
    PXERFORMAT = -6,       ///< not a video format, or none has been loaded
    PXERMEMORY = -7,       ///< not one frame fits into the frame memory
    PXERBUSY = -8,         ///< not while a sequence is running
    PXERIO = -9,           ///< the link to the detector doesn't work
};

/// @name Library and board
/// @{
QRAPI_EXPORT pxdstate* pxe_XCLIBinstantiate();
/// Closes the board if it is open. Returns when nothing of the state runs any more.
QRAPI_EXPORT void pxe_XCLIBuninstantiate(pxdstate* state);
/// The digits behind "-DM 0x" are read as decimal. Format name and format file are empty texts: the format is loaded
/// afterwards. Takes away an old fault text.
QRAPI_EXPORT int pxe_PIXCIopen(pxdstate* state, const char* driverParameters, const char* formatName,
                               const char* formatFile);
/// Ends a capture, the pulse generator, and all events.
QRAPI_EXPORT int pxe_PIXCIclose(pxdstate* state);
/// How many units the open board has: 1.
QRAPI_EXPORT int pxe_infoUnits(pxdstate* state);
/// Takes the fault text away and copies as much as fits, with its zero byte. 0: there is none. Answers on a closed
/// board too, where the text of a failed open is waiting.
QRAPI_EXPORT int pxe_mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size);
/// @}

/// @name Video format
/// The load of a format: `pxe_xclibEscape(state, 0, 0, 0)` gives the address of the library's service object. At byte
/// `pxe_formatLoadOffset` of it stands a function, to be called with the object's address plus `pxe_formatLoadAddend`,
/// 0, `pxe_formatLoadKind` and the root record. `pxe_xclibEscaped(state, 0, 0, 0)` ends the escape. Both answer 0, or
/// an error if no escape is under way or the format is not one; the end of an escape answers what its load did. A
/// format that is refused leaves the former one in force. Not while a sequence is running.
///
/// Each record begins with a 32-bit word: type in the high half, size in bytes in the low half. Behind the root's word
/// and four unused bytes stand the addresses of the eleven other records.
/// @{
inline constexpr std::size_t pxe_formatLoadOffset = 996;
inline constexpr std::size_t pxe_formatLoadAddend = 924;
inline constexpr int pxe_formatLoadKind = 0x7A00;
using pxe_FormatLoad = int (*)(void* service, int, int kind, const void* root);
QRAPI_EXPORT void* pxe_xclibEscape(pxdstate* state, int, int, int);
QRAPI_EXPORT int pxe_xclibEscaped(pxdstate* state, int, int, int);
/// @}

/// @name Frame geometry and frame memory
/// @{
/// `taps` is 1, 2, 4 or 8 pixels per clock; the other arguments are 8, 0, 0 before it and 0, 0 behind.
QRAPI_EXPORT int pxe_setPixelFormatGrey(pxdstate* state, int unitMap, int bitsPerByte, int, int, int taps, int, int);
/// Width in bytes and height in lines of a frame on the link, and of each buffer: 1 to 65535, the width an even number.
/// A change ends an open snap and empties the buffers; a sequence goes on in the new ones. A frame of another number of
/// bytes, or one that comes incomplete, is not captured and leaves a fault text.
QRAPI_EXPORT int pxe_setVideoResolution(pxdstate* state, int unitMap, int width, int height, int, int);
QRAPI_EXPORT int pxe_imageXdims(pxdstate* state, int unitMap);
QRAPI_EXPORT int pxe_imageYdims(pxdstate* state, int unitMap);
/// How many buffers there are: frame memory divided by the size of a frame.
QRAPI_EXPORT int pxe_imageZdims(pxdstate* state, int unitMap);
QRAPI_EXPORT int pxe_imageZdim(pxdstate* state);
/// Copies a part of a buffer, counted from 1, out of frame memory or into it: columns, in bytes, from x0 up to x1 and
/// lines from y0 up to y1, which don't belong to it; -1 for x1 or y1 is the edge of the frame. `count` is at least the
/// size of the part. The colour space is "Grey". Answers the bytes that were moved: all, or none and an error.
QRAPI_EXPORT int pxe_readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                               unsigned char* target, std::size_t count, const char* colourSpace);
QRAPI_EXPORT int pxe_writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                                const unsigned char* source, std::size_t count, const char* colourSpace);
/// @}

/// @name Capture
/// @{
/// The next frame goes to the buffer. A snap still open is replaced. Not while a sequence is running.
QRAPI_EXPORT int pxe_goSnap(pxdstate* state, int unitMap, long buffer);
/// The first frame and each `period`th after it go to the next buffer, from `start` in steps of `increment` to `end`
/// and round again, until `count` were captured; 0 is without end. Frames between them are lost. Not while a sequence
/// is running.
QRAPI_EXPORT int pxe_goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count,
                               int period);
/// Ends a sequence, or an open snap, at once. When it returns no frame is being captured.
QRAPI_EXPORT int pxe_goAbortLive(pxdstate* state, int unitMap);
QRAPI_EXPORT int pxe_goUnLive(pxdstate* state, int unitMap);
/// Not 0 while a sequence is running; an open snap is none.
QRAPI_EXPORT int pxe_goneLive(pxdstate* state, int unitMap, int);
/// Buffer of the last capture, counted from 1; 0 before the first.
QRAPI_EXPORT int pxe_capturedBuffer(pxdstate* state, int unitMap);
/// Fields captured since the board was opened.
QRAPI_EXPORT int pxe_capturedFieldCount(pxdstate* state, int unitMap);
/// An auto-reset event of platform/Event.h, signalled at each captured field. `kind` is 115. Null if it can't be made.
QRAPI_EXPORT void* pxe_eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind);
QRAPI_EXPORT void pxe_eventCapturedFieldClose(pxdstate* state, int unitMap, void* event);
/// @}

/// @name Lines to the detector
/// @{
/// Level of the camera control line, 0 or 1. It reaches the detector under the standard format; under the pulse format
/// the line belongs to the generator.
QRAPI_EXPORT int pxe_setCameraLinkCCOut(pxdstate* state, int unitMap, int level);
/// `mode` 0, and in `princ` bit 1 to run and bits 7 to 9 the clock divide N. A format load switches it off; pulses come
/// under the pulse format only.
QRAPI_EXPORT int pxe_setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ);
/// Pulse of `exsync` counts, at least 1, then a pause of `prin` counts, each up to 65535. A count takes 2^(N + 10)
/// periods of 80 MHz; a cycle takes 2 microseconds more.
QRAPI_EXPORT int pxe_setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin);
/// Port 0. Drops what has arrived and not been read. Before it, the port neither reads nor writes.
QRAPI_EXPORT int pxe_serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity,
                                     int stopBits, int, int, int);
/// Takes what has arrived, up to `size` bytes; 0 if nothing comes within 0.1 ms.
QRAPI_EXPORT int pxe_serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size);
QRAPI_EXPORT int pxe_serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size);
/// @}
