#pragma once

#include <memory>
#include <optional>

namespace grabber {

/// The right to a slot's board, which one library state has at a time; it ends with the object. Any thread may call.
class SlotClaim {
public:
    /// Null if somebody has the slot.
    static std::unique_ptr<SlotClaim> make(int slot);
    ~SlotClaim();
    SlotClaim(const SlotClaim&) = delete;
    SlotClaim& operator=(const SlotClaim&) = delete;

private:
    SlotClaim() = default;
    std::optional<int> slot;
};

}  // namespace grabber
