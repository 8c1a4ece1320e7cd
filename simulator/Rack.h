#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../platform/export.h"
#include "SimulatedDetector.h"

namespace simulator {

/// Where the simulated detectors of this process are reached. Any thread may call.
///
/// GigE: the address text `sim:<profile>`, with `#2`, `#3` ... behind it for further ones of the same profile. Camera
/// Link: slots, of which 0 to 9 hold the named profiles in their order. A detector is made at the first look at its
/// address or slot and lives as long as the process: its registers survive reconnects as hardware's do.
class QRAPI_EXPORT Rack {
public:
    static Rack& instance();  ///< the one of this process

    /// The detector at the address; made if the address names a profile. Null if there is none.
    std::shared_ptr<SimulatedDetector> find(std::string_view address);

    /// Puts a detector of any mix at an address of the form `sim:<anything>`, in place of what was there. Throws
    /// std::invalid_argument for an address of another form and for no detector.
    void mount(std::string_view address, std::shared_ptr<SimulatedDetector> detector);

    /// The addresses `sim:<profile>` of all profiles with a GigE road, then those mounted or made besides.
    std::vector<std::string> gigeAddresses() const;

    /// The detector in the slot; made at the first look at one of 0 to 9. Null if the slot is empty.
    std::shared_ptr<SimulatedDetector> slot(int number);

    /// Puts a detector of any mix into a slot from 0 on, in place of what was there; null leaves it empty. Throws
    /// std::invalid_argument for a number below 0.
    void mountSlot(int number, std::shared_ptr<SimulatedDetector> detector);

    /// The numbers of the occupied slots, in their order.
    std::vector<int> slots() const;

    /// Takes everything out of the rack, so that the next look makes new detectors. For tests; one that exchanges the
    /// clock needs it, since a detector's timeline does not follow from one clock to another.
    void reset();

private:
    Rack();
    ~Rack();
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace simulator
