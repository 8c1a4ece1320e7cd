#include "SlotClaim.h"

#include <set>
#include <utility>

#include "platform/Mutex.h"

namespace grabber {
namespace {

struct Claims {
    platform::Mutex mutex;
    std::set<int> slots GUARDED_BY(mutex);

    static Claims& instance() {
        // Never destroyed: a board that is closed during the end of the process still finds it.
        static Claims& theInstance = *new Claims;  // NOLINT
        return theInstance;
    }
};

}  // namespace

std::unique_ptr<SlotClaim> SlotClaim::make(int slot) {
    auto claim = std::unique_ptr<SlotClaim>(new SlotClaim);  // NOLINT: private constructor
    Claims& claims = Claims::instance();
    const platform::MutexLock lock(claims.mutex);
    if (claims.slots.insert(slot).second) claim->slot = slot;
    return claim->slot ? std::move(claim) : nullptr;
}

SlotClaim::~SlotClaim() {
    if (!slot) return;
    Claims& claims = Claims::instance();
    const platform::MutexLock lock(claims.mutex);
    claims.slots.erase(*slot);
}

}  // namespace grabber
