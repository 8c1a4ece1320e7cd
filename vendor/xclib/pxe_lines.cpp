#include <memory>

#include "Library.h"
#include "xcliball.h"

using grabber::Board;
using grabber::LibraryState;
using grabber::onBoard;
using grabber::onFormat;
using grabber::onState;
using grabber::SerialPort;

int pxe_setCameraLinkCCOut(pxdstate* state, int unitMap, int level) {
    return onFormat(state, unitMap, "pxe_setCameraLinkCCOut",
                    [&](Board& board) { return board.line().setControl(level); });
}

int pxe_setExsyncPrincMode(pxdstate* state, int unitMap, unsigned mode, unsigned princ) {
    return onFormat(state, unitMap, "pxe_setExsyncPrincMode",
                    [&](Board& board) { return board.line().setMode(mode, princ); });
}

int pxe_setExsyncPrin(pxdstate* state, int unitMap, unsigned exsync, unsigned prin) {
    return onFormat(state, unitMap, "pxe_setExsyncPrin",
                    [&](Board& board) { return board.line().setCounts(exsync, prin); });
}

int pxe_serialConfigure(pxdstate* state, int unitMap, int port, double baud, int dataBits, int parity, int stopBits,
                        int eighth, int ninth, int tenth) {
    return onBoard(state, unitMap, "pxe_serialConfigure", [&](Board& board) {
        const bool rest = eighth == 0 && ninth == 0 && tenth == 0;
        return rest ? board.serial()->configure({port, baud, dataBits, parity, stopBits}) : PXERBADPARAM;
    });
}

// Waits for the detector, so it doesn't stay on the board meanwhile.
int pxe_serialRead(pxdstate* state, int unitMap, int port, char* buffer, int size) {
    constexpr const char* here = "pxe_serialRead";
    return onState(state, [&](LibraryState& on) {
        std::shared_ptr<SerialPort> serial;
        const int result = on.call(here, unitMap, [&](Board& board) {
            serial = board.serial();
            return 0;
        });
        return serial != nullptr ? on.report(here, serial->read(port, buffer, size)) : result;
    });
}

int pxe_serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) {
    return onBoard(state, unitMap, "pxe_serialWrite",
                   [&](Board& board) { return board.serial()->write(port, buffer, size); });
}
