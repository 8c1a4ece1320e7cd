#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "LibraryState.h"
#include "platform/Mutex.h"
#include "xcliball.h"

namespace grabber {

/// The library states of this process. A `pxdstate*` is a key, never an address, and
/// never given twice: one that was released, or never existed, is recognised. Any thread may call; the lock is a leaf.
class Library {
public:
    static Library& instance();

    pxdstate* add(std::shared_ptr<LibraryState> state);
    std::shared_ptr<LibraryState> find(pxdstate* key);
    std::shared_ptr<LibraryState> findByService(const void* service);
    std::shared_ptr<LibraryState> remove(pxdstate* key);

private:
    platform::Mutex mutex;
    std::uintptr_t lastKey GUARDED_BY(mutex) = 0;
    std::map<pxdstate*, std::shared_ptr<LibraryState>> states GUARDED_BY(mutex);
};

/// Runs `body` on the state behind the key; `PXERNOTOPEN` for a key that is none. What throws is a lack of memory.
template <typename Body>
int onState(pxdstate* key, Body body) noexcept {
    try {
        const std::shared_ptr<LibraryState> state = Library::instance().find(key);
        return state != nullptr ? body(*state) : PXERNOTOPEN;
    } catch (...) {
        return PXERMEMORY;
    }
}

/// Runs `body` on the open board of the state, as `LibraryState::call` does.
template <typename Body>
int onBoard(pxdstate* key, int unitMap, const char* function, Body body) noexcept {
    return onState(key, [&](LibraryState& state) { return state.call(function, unitMap, body); });
}

/// The same for what needs a video format.
template <typename Body>
int onFormat(pxdstate* key, int unitMap, const char* function, Body body) noexcept {
    return onBoard(key, unitMap, function, [&](Board& board) { return board.hasFormat() ? body(board) : PXERFORMAT; });
}

}  // namespace grabber
