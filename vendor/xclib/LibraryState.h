#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "Board.h"
#include "FaultText.h"
#include "platform/Mutex.h"
#include "xcliball.h"

namespace grabber {

inline constexpr int onlyUnit = 1;

/// The slot that driver parameters "-DM 0x<n>" name, n as decimal; nothing for any other text.
std::optional<int> slotOf(std::string_view driverParameters);

/// What the callers hold by a `pxdstate`. Calls on the board share the gate, opening and closing have it alone, so that
/// a board is closed when nobody is in it any more.
class LibraryState {
public:
    explicit LibraryState(pxe_FormatLoad load);
    ~LibraryState();
    LibraryState(const LibraryState&) = delete;
    LibraryState& operator=(const LibraryState&) = delete;

    int open(const char* driverParameters, const char* formatName, const char* formatFile);
    int close();
    /// Whatever is set to fail.
    void shutDown();

    /// What a call on the board answers: `body`, unless the board is closed, has no such unit or is set to fail. `body`
    /// takes the board and must not wait for anybody but the detector. A negative result leaves a fault text.
    template <typename Body>
    int call(const char* function, int unitMap, Body body) {
        const platform::SharedLock lock(gate);
        if (board == nullptr) return report(function, PXERNOTOPEN);
        if (const std::optional<VirtualGrabber::Struck> struck = board->grabber().strikes(function))
            return reportStruck(function, *struck);
        return report(function, unitMap == onlyUnit ? body(*board) : PXERUNITMAP);
    }

    /// Leaves the fault text of a negative result; hands every result on.
    int report(const char* function, int result);
    FaultText& faults() { return *faultText; }

    /// The service object as callers see it: at `pxe_formatLoadOffset` it holds the function that loads a format.
    void* service() { return serviceBlock.data() + servicePlace; }

private:
    // The function's address lies at a multiple of its size, though its offset in the object is none.
    static constexpr std::size_t servicePlace = sizeof(void*) - pxe_formatLoadOffset % sizeof(void*);

    int reportStruck(const char* function, const VirtualGrabber::Struck& struck);

    const std::shared_ptr<FaultText> faultText = std::make_shared<FaultText>();
    alignas(void*) std::array<std::byte, servicePlace + pxe_formatLoadOffset + sizeof(void*)> serviceBlock{};
    platform::SharedMutex gate;
    std::unique_ptr<Board> board GUARDED_BY(gate);
};

}  // namespace grabber
