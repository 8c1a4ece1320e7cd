#pragma once

#include <string>
#include <vector>

#include "sweep/Application.h"

namespace sweep {

struct Scenario {
    std::string name;
    bool beginsClosed;  ///< the calls of its own open are swept
    bool destroysOpen;  ///< ends without `CloseBoard`
    /// Needs a second thread on GigE, or on both transports: not on the virtual clock then.
    enum { Alone, ThreadsOnGigE, Threads } threads;
    void (*run)(Application& app);

    bool needsThreads(const Road& road) const {
        return threads == Threads || (threads == ThreadsOnGigE && road.isGigE());
    }
};

const std::vector<Scenario>& scenarios();

}  // namespace sweep
