#include "LibraryState.h"

#include <charconv>
#include <cstring>
#include <utility>

namespace grabber {

std::optional<int> slotOf(std::string_view driverParameters) {
    constexpr std::string_view prefix = "-DM 0x";
    if (driverParameters.substr(0, prefix.size()) != prefix) return std::nullopt;
    const std::string_view digits = driverParameters.substr(prefix.size());
    int slot = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), slot);
    if (error != std::errc() || end != digits.data() + digits.size() || slot < 0 || digits.front() == '-')
        return std::nullopt;
    return slot;
}

LibraryState::LibraryState(pxe_FormatLoad load) {
    std::memcpy(serviceBlock.data() + servicePlace + pxe_formatLoadOffset, &load, sizeof(load));
}

LibraryState::~LibraryState() {
    shutDown();
}

int LibraryState::report(const char* function, int result) {
    if (result < 0) faultText->put(errorText(function, result));
    return result;
}

int LibraryState::reportStruck(const char* function, const VirtualGrabber::Struck& struck) {
    if (!struck.faultText) return report(function, struck.result);
    if (!struck.faultText->empty()) faultText->put(*struck.faultText);
    return struck.result;
}

int LibraryState::open(const char* driverParameters, const char* formatName, const char* formatFile) {
    constexpr const char* here = "pxe_PIXCIopen";
    const platform::ExclusiveLock lock(gate);
    if (board != nullptr) return report(here, PXERALREADYOPEN);
    if (driverParameters == nullptr || formatName == nullptr || formatFile == nullptr)
        return report(here, PXERBADPARAM);
    if (*formatName != '\0' || *formatFile != '\0') return report(here, PXERFORMAT);
    const std::optional<int> wanted = slotOf(driverParameters);
    const std::shared_ptr<VirtualGrabber> grabber = wanted ? VirtualGrabber::inSlot(*wanted) : nullptr;
    if (grabber == nullptr) return report(here, PXERNOBOARD);
    if (const std::optional<VirtualGrabber::Struck> struck = grabber->strikes(here)) return reportStruck(here, *struck);
    if (grabber->detector()->faults().strikes(simulator::Fault::RefusedConnect)) return report(here, PXERIO);
    std::unique_ptr<SlotClaim> claim = SlotClaim::make(*wanted);
    if (claim == nullptr) return report(here, PXERALREADYOPEN);
    board = std::make_unique<Board>(std::move(claim), grabber, faultText);
    faultText->clear();
    return 0;
}

int LibraryState::close() {
    constexpr const char* here = "pxe_PIXCIclose";
    const platform::ExclusiveLock lock(gate);
    if (board == nullptr) return report(here, PXERNOTOPEN);
    if (const std::optional<VirtualGrabber::Struck> struck = board->grabber().strikes(here))
        return reportStruck(here, *struck);
    board.reset();
    return 0;
}

void LibraryState::shutDown() {
    const platform::ExclusiveLock lock(gate);
    board.reset();
}

}  // namespace grabber
