#pragma once

#include <qrapi/enumerations.h>

#include <optional>
#include <string>
#include <string_view>

namespace tool {

inline constexpr std::string_view defaultDetector = "ge:sim:6112-kestrane";
inline constexpr std::string_view allowedDetectors =
    "ge:<address>, such as ge:sim:6112-kestrane, or cl:<unit>, such as cl:4";

/// Where a detector is reached: what `--detector` says, taken apart.
struct DetectorAddress {
    DetectorInterface transport = TransportGE;
    int unit = 0;         ///< Camera Link: the frame grabber's number
    std::string address;  ///< GigE: the address as the library takes it

    /// Every frame grabber is one of the virtual rack.
    bool isSimulated() const;
};

/// Nothing for a text that is no address.
std::optional<DetectorAddress> parseDetectorAddress(std::string_view text);

}  // namespace tool
