#include "Library.h"

#include <utility>

namespace grabber {

Library& Library::instance() {
    // Never destroyed: a state that is released during the end of the process still finds it.
    static Library& theInstance = *new Library;  // NOLINT
    return theInstance;
}

pxdstate* Library::add(std::shared_ptr<LibraryState> state) {
    const platform::MutexLock lock(mutex);
    auto* const key = reinterpret_cast<pxdstate*>(++lastKey);  // NOLINT: a key, not an address
    states.emplace(key, std::move(state));
    return key;
}

std::shared_ptr<LibraryState> Library::find(pxdstate* key) {
    const platform::MutexLock lock(mutex);
    const auto place = states.find(key);
    return place == states.end() ? nullptr : place->second;
}

std::shared_ptr<LibraryState> Library::findByService(const void* service) {
    const platform::MutexLock lock(mutex);
    for (const auto& [key, state] : states)
        if (state->service() == service) return state;
    return nullptr;
}

std::shared_ptr<LibraryState> Library::remove(pxdstate* key) {
    const platform::MutexLock lock(mutex);
    const auto place = states.find(key);
    if (place == states.end()) return nullptr;
    std::shared_ptr<LibraryState> removed = std::move(place->second);
    states.erase(place);
    return removed;
}

}  // namespace grabber
