#pragma once

#include <cstdint>

namespace simulator {

/// Where every exposed frame went. At rest, `delivered` plus all lost ones equal `exposed`.
struct Ledger {
    std::uint64_t edges = 0;  ///< trigger edges seen
    std::uint64_t edgesIgnored =
        0;                        ///< edges that came while a frame was in progress or without power: no exposure began
    std::uint64_t exposed = 0;    ///< frames whose exposure ended
    std::uint64_t delivered = 0;  ///< frames that the transport handed to its user
    std::uint64_t lostNoReceiver = 0;  ///< nobody was receiving: acquisition stopped, stream closed, interface off
    std::uint64_t lostNoBuffer = 0;    ///< the transport had no free buffer
    std::uint64_t lostByFault = 0;     ///< a fault took the frame
    std::uint64_t lostInFlight = 0;    ///< received by the transport, dropped before its user took it (flush at stop)

    std::uint64_t lost() const { return lostNoReceiver + lostNoBuffer + lostByFault + lostInFlight; }
};

}  // namespace simulator
