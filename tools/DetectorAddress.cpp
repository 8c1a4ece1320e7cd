#include "tools/DetectorAddress.h"

#include <charconv>

namespace tool {
namespace {

constexpr std::string_view gigePrefix = "ge:";
constexpr std::string_view cameraLinkPrefix = "cl:";
constexpr std::string_view simulatedPrefix = "sim:";

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::optional<int> parseUnit(std::string_view digits) {
    int unit = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, unit);
    if (error != std::errc() || stop != end || unit < 0 || startsWith(digits, "-")) return std::nullopt;
    return unit;
}

}  // namespace

bool DetectorAddress::isSimulated() const {
    return transport == TransportCL || startsWith(address, simulatedPrefix);
}

std::optional<DetectorAddress> parseDetectorAddress(std::string_view text) {
    if (startsWith(text, gigePrefix)) {
        const std::string_view address = text.substr(gigePrefix.size());
        if (address.empty()) return std::nullopt;
        return DetectorAddress{TransportGE, 0, std::string(address)};
    }
    if (startsWith(text, cameraLinkPrefix)) {
        const std::optional<int> unit = parseUnit(text.substr(cameraLinkPrefix.size()));
        if (!unit) return std::nullopt;
        return DetectorAddress{TransportCL, *unit, ""};
    }
    return std::nullopt;
}

}  // namespace tool
