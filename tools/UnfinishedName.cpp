#include "tools/UnfinishedName.h"

#include <unistd.h>

#include <array>
#include <cstddef>

namespace tool {
namespace {

constexpr std::size_t pathRoom = 4096;
constexpr std::size_t mostFiles = 16;  // a run has two open, a raw file and its side file

enum class Use : int { Free, Taken, Listed };
static_assert(std::atomic<Use>::is_always_lock_free, "a signal handler reads it");

}  // namespace

/// Static memory, which a signal handler can read at any time.
struct UnfinishedName::Slot {
    static std::array<Slot, mostFiles> all;

    std::atomic<Use> use{Use::Free};
    std::array<char, pathRoom> path{};
};

std::array<UnfinishedName::Slot, mostFiles> UnfinishedName::Slot::all;

UnfinishedName::Slot* UnfinishedName::takeSlot() {
    // In turn, so that a handler that still reads a name does not see the next one being written over it.
    static std::atomic<std::size_t> next{0};
    for (std::size_t attempt = 0; attempt < mostFiles; ++attempt) {
        Slot& slot = Slot::all[next++ % mostFiles];
        Use expected = Use::Free;
        if (slot.use.compare_exchange_strong(expected, Use::Taken)) return &slot;
    }
    return nullptr;
}

UnfinishedName::UnfinishedName(const std::string& path) {
    if (path.size() >= pathRoom) return;
    slot = takeSlot();
    if (slot == nullptr) return;
    path.copy(slot->path.data(), path.size());
    slot->path[path.size()] = '\0';
    slot->use = Use::Listed;
}

UnfinishedName::~UnfinishedName() {
    if (slot != nullptr) slot->use = Use::Free;
}

void removeUnfinishedFiles() noexcept {
    for (const UnfinishedName::Slot& slot : UnfinishedName::Slot::all)
        if (slot.use == Use::Listed) unlink(slot.path.data());
}

}  // namespace tool
