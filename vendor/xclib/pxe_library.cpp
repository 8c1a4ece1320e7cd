#include <exception>
#include <memory>

#include "Library.h"
#include "VirtualGrabber.h"
#include "xcliball.h"

using grabber::Board;
using grabber::Library;
using grabber::LibraryState;
using grabber::onBoard;
using grabber::onlyUnit;
using grabber::onState;

namespace {

/// What stands in the service object. Finds its state by the object's address.
int loadFormat(void* service, int argument, int kind, const void* root) noexcept {
    try {
        const void* const object = static_cast<const std::byte*>(service) - pxe_formatLoadAddend;
        const std::shared_ptr<LibraryState> state = Library::instance().findByService(object);
        if (state == nullptr) return PXERNOTOPEN;
        return state->call(grabber::formatLoad.data(), onlyUnit, [&](Board& board) {
            const bool valid = argument == 0 && kind == pxe_formatLoadKind && board.isEscaping();
            const int result = valid ? board.load(root) : PXERBADPARAM;
            board.noteLoad(result);
            return result;
        });
    } catch (...) {
        return PXERMEMORY;
    }
}

}  // namespace

pxdstate* pxe_XCLIBinstantiate() {
    try {
        if (grabber::VirtualGrabber::instantiationFails()) return nullptr;
        return Library::instance().add(std::make_shared<LibraryState>(loadFormat));
    } catch (...) {
        return nullptr;
    }
}

void pxe_XCLIBuninstantiate(pxdstate* state) {
    // Calls that are in it still hold it; none of them is on the board after this.
    if (const std::shared_ptr<LibraryState> removed = Library::instance().remove(state)) removed->shutDown();
}

int pxe_PIXCIopen(pxdstate* state, const char* driverParameters, const char* formatName, const char* formatFile) {
    return onState(state, [&](LibraryState& on) { return on.open(driverParameters, formatName, formatFile); });
}

int pxe_PIXCIclose(pxdstate* state) {
    return onState(state, [](LibraryState& on) { return on.close(); });
}

int pxe_infoUnits(pxdstate* state) {
    return onBoard(state, onlyUnit, "pxe_infoUnits", [](Board&) { return 1; });
}

// Also answers while the board is closed, so that a failed opening can be asked for its reason.
int pxe_mesgFaultText(pxdstate* state, int unitMap, char* buffer, std::size_t size) {
    if (buffer == nullptr || size == 0) return PXERBADPARAM;
    *buffer = '\0';
    return onState(state, [&](LibraryState& on) -> int {
        if (unitMap != onlyUnit) return PXERUNITMAP;
        return on.faults().take(buffer, size) ? 1 : 0;
    });
}

void* pxe_xclibEscape(pxdstate* state, int, int, int) {
    void* service = nullptr;
    onState(state, [&](LibraryState& on) {
        return on.call("pxe_xclibEscape", onlyUnit, [&](Board& board) {
            board.beginEscape();
            service = on.service();
            return 0;
        });
    });
    return service;
}

int pxe_xclibEscaped(pxdstate* state, int, int, int) {
    return onBoard(state, onlyUnit, "pxe_xclibEscaped", [](Board& board) { return board.endEscape(); });
}
