#include <array>
#include <limits>
#include <optional>
#include <string_view>

#include "Library.h"
#include "xcliball.h"

using grabber::Board;
using grabber::FrameBuffer;
using grabber::FrameSize;
using grabber::onFormat;
using grabber::onlyUnit;
using grabber::Rectangle;

namespace {

constexpr std::string_view onlyColourSpace = "Grey";
constexpr int toTheEdge = -1;

bool isTapCount(int taps) {
    constexpr std::array<int, 4> tapCounts{1, 2, 4, 8};
    for (const int each : tapCounts)
        if (each == taps) return true;
    return false;
}

/// The part of a frame that the corners name; nothing if they name none.
std::optional<Rectangle> rectangleIn(FrameSize size, int x0, int y0, int x1, int y1) {
    if (x1 == toTheEdge) x1 = size.width;
    if (y1 == toTheEdge) y1 = size.height;
    const bool within = x0 >= 0 && x0 < x1 && x1 <= size.width && y0 >= 0 && y0 < y1 && y1 <= size.height;
    if (!within) return std::nullopt;
    return Rectangle{static_cast<std::size_t>(x0), static_cast<std::size_t>(y0), static_cast<std::size_t>(x1),
                     static_cast<std::size_t>(y1)};
}

struct Transfer {
    pxdstate* state;
    int unitMap;
    long buffer;
    int x0;
    int y0;
    int x1;
    int y1;
    bool hasData;
    std::size_t count;
    const char* colourSpace;
};

/// Checks everything, then lets `move` copy between the buffer's rectangle and the caller. Answers the bytes.
template <typename Move>
int transfer(const char* function, const Transfer& wanted, Move move) {
    return onFormat(wanted.state, wanted.unitMap, function, [&](Board& board) -> int {
        if (!wanted.hasData || wanted.colourSpace == nullptr || wanted.colourSpace != onlyColourSpace)
            return PXERBADPARAM;
        FrameSize size;
        const std::shared_ptr<FrameBuffer> buffer = board.capture().frames().buffer(wanted.buffer, size);
        if (buffer == nullptr) return PXERBADPARAM;
        const std::optional<Rectangle> where = rectangleIn(size, wanted.x0, wanted.y0, wanted.x1, wanted.y1);
        if (!where || where->byteCount() > wanted.count) return PXERBADPARAM;
        if (where->byteCount() > std::size_t{std::numeric_limits<int>::max()}) return PXERBADPARAM;
        move(*buffer, *where);
        return static_cast<int>(where->byteCount());
    });
}

int bufferCount(Board& board) {
    const int count = board.capture().frames().bufferCount();
    return count > 0 ? count : PXERMEMORY;
}

}  // namespace

int pxe_setPixelFormatGrey(pxdstate* state, int unitMap, int bitsPerByte, int second, int third, int taps, int fifth,
                           int sixth) {
    return onFormat(state, unitMap, "pxe_setPixelFormatGrey", [&](Board&) {
        const bool valid =
            bitsPerByte == 8 && second == 0 && third == 0 && fifth == 0 && sixth == 0 && isTapCount(taps);
        return valid ? 0 : PXERBADPARAM;
    });
}

int pxe_setVideoResolution(pxdstate* state, int unitMap, int width, int height, int fifth, int sixth) {
    return onFormat(state, unitMap, "pxe_setVideoResolution", [&](Board& board) {
        return fifth == 0 && sixth == 0 ? board.setResolution({width, height}) : PXERBADPARAM;
    });
}

int pxe_imageXdims(pxdstate* state, int unitMap) {
    return onFormat(state, unitMap, "pxe_imageXdims",
                    [](Board& board) { return board.capture().frames().frameSize().width; });
}

int pxe_imageYdims(pxdstate* state, int unitMap) {
    return onFormat(state, unitMap, "pxe_imageYdims",
                    [](Board& board) { return board.capture().frames().frameSize().height; });
}

int pxe_imageZdims(pxdstate* state, int unitMap) {
    return onFormat(state, unitMap, "pxe_imageZdims", bufferCount);
}

int pxe_imageZdim(pxdstate* state) {
    return onFormat(state, onlyUnit, "pxe_imageZdim", bufferCount);
}

int pxe_readuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1, unsigned char* target,
                  std::size_t count, const char* colourSpace) {
    return transfer("pxe_readuchar", {state, unitMap, buffer, x0, y0, x1, y1, target != nullptr, count, colourSpace},
                    [target](const FrameBuffer& from, const Rectangle& where) { from.read(where, target); });
}

int pxe_writeuchar(pxdstate* state, int unitMap, long buffer, int x0, int y0, int x1, int y1,
                   const unsigned char* source, std::size_t count, const char* colourSpace) {
    return transfer("pxe_writeuchar", {state, unitMap, buffer, x0, y0, x1, y1, source != nullptr, count, colourSpace},
                    [source](FrameBuffer& to, const Rectangle& where) { to.write(where, source); });
}
