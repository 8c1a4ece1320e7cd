#include "Library.h"
#include "xcliball.h"

using grabber::Board;
using grabber::onBoard;
using grabber::onFormat;

namespace {

constexpr int capturedFieldKind = 115;

int stop(Board& board) {
    board.capture().stop();
    return 0;
}

}  // namespace

int pxe_goSnap(pxdstate* state, int unitMap, long buffer) {
    return onFormat(state, unitMap, "pxe_goSnap", [&](Board& board) { return board.capture().snap(buffer); });
}

int pxe_goLiveSeq(pxdstate* state, int unitMap, long start, long end, long increment, long count, int period) {
    return onFormat(state, unitMap, "pxe_goLiveSeq", [&](Board& board) {
        return board.capture().startSequence({start, end, increment, count, period});
    });
}

int pxe_goAbortLive(pxdstate* state, int unitMap) {
    return onBoard(state, unitMap, "pxe_goAbortLive", stop);
}

int pxe_goUnLive(pxdstate* state, int unitMap) {
    return onBoard(state, unitMap, "pxe_goUnLive", stop);
}

int pxe_goneLive(pxdstate* state, int unitMap, int) {
    return onBoard(state, unitMap, "pxe_goneLive", [](Board& board) { return board.capture().isLive() ? 1 : 0; });
}

int pxe_capturedBuffer(pxdstate* state, int unitMap) {
    return onBoard(state, unitMap, "pxe_capturedBuffer", [](Board& board) { return board.capture().capturedBuffer(); });
}

int pxe_capturedFieldCount(pxdstate* state, int unitMap) {
    return onBoard(state, unitMap, "pxe_capturedFieldCount", [](Board& board) { return board.capture().fieldCount(); });
}

void* pxe_eventCapturedFieldCreate2(pxdstate* state, int unitMap, int kind) {
    void* event = nullptr;
    onBoard(state, unitMap, "pxe_eventCapturedFieldCreate2", [&](Board& board) -> int {
        if (kind != capturedFieldKind) return PXERBADPARAM;
        event = board.capture().createEvent();
        return 0;
    });
    return event;
}

void pxe_eventCapturedFieldClose(pxdstate* state, int unitMap, void* event) {
    onBoard(state, unitMap, "pxe_eventCapturedFieldClose", [&](Board& board) {
        board.capture().closeEvent(event);
        return 0;
    });
}
