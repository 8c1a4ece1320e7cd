#include <algorithm>
#include <memory>

#include "DevInfo.h"
#include "QuorinDetector.h"
#include "fuzz/CoreRun.h"
#include "simulator/Rack.h"

using fuzz::require;

namespace {

/// Fills the field of a record to its last byte, so that only the field's size ends it.
constexpr std::string_view longestAddress = "sim:an address that has no terminator in its field..";
static_assert(longestAddress.size() == sizeof(DevInfo::param));

/// How an open must end.
std::optional<Derr> endOfOpening(const DevInfo& info, const std::string& address) {
    simulator::Rack& rack = simulator::Rack::instance();
    if (info.iface == TransportCL) return rack.slot(info.unit) ? std::nullopt : std::optional(DerrGrabberSetup);
    const auto found = rack.find(address);
    require(found == rack.find(address), "an address leads to one detector", address);
    if (!found) return DerrTransport;
    const simulator::Profile& profile = found->profile();
    const bool timesKnown = profile.isKestrane() || (profile.model != 6213 && profile.model != 8131);
    return timesKnown ? std::nullopt : std::optional(DerrBadRequest);
}

void checkOpening(QuorinDetector& detector, const DevInfo& info, const std::string& address) {
    const auto failed = fuzz::failureOf([&] { detector.OpenBoard(1); });
    require(failed == endOfOpening(info, address), "what is there opens, and nothing else", address);
    require(detector.IsConnected() == !failed, "a failed open leaves nothing open", address);
    if (!detector.IsConnected()) {
        require(fuzz::failureOf([&] { detector.CloseBoard(); }) == DerrBadRequest, "there is nothing to close");
        return;
    }
    require(fuzz::failureOf([&] { detector.OpenBoard(); }) == DerrBadRequest, "a board opens once", address);
    require(!fuzz::failureOf([&] { detector.CloseBoard(); }), "a board that is open closes", address);
}

}  // namespace

/// The first line: transport, unit, grabber flag. The rest goes into the record as the address, without a terminator
/// where it fills its field.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::textOf(data, size);
    fuzz::Input input(text);
    fuzz::Numbers numbers(input.line());
    const auto info = std::make_unique<DevInfo>();
    info->iface = static_cast<DetectorInterface>(numbers.next());
    info->unit = numbers.next();
    info->grabberFlag = numbers.next();
    std::fill(std::begin(info->param), std::end(info->param), '\0');
    input.rest().copy(info->param, sizeof(info->param));
    const std::string address(info->param, strnlen(info->param, sizeof(info->param)));

    const platform::ScopedVirtualClock clock;
    simulator::Rack::instance().reset();
    simulator::Rack::instance().mount(longestAddress,
                                      simulator::SimulatedDetector::create(*simulator::findProfile("5101")));
    const bool gigE = info->iface == TransportGE && info->grabberFlag == 0;
    const bool cameraLink = info->iface == TransportCL && info->grabberFlag == 1;
    std::unique_ptr<QuorinDetector> detector;
    const auto refused = fuzz::failureOf([&] { detector = std::make_unique<QuorinDetector>(*info); });
    require(refused == (gigE || cameraLink ? std::nullopt : std::optional(DerrBadRequest)),
            "a record names one transport");
    if (detector) checkOpening(*detector, *info, address);
    detector.reset();
    simulator::Rack::instance().reset();
    return 0;
}
