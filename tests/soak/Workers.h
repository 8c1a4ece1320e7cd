#pragma once

#include "soak/Plan.h"
#include "soak/Report.h"

namespace soak {

/// An episode on the real clock: one thread sets and starts and stops, others wait, read and ask, a callback reads.
void runWorkers(const Plan& plan, Random& random, Report& report);

}  // namespace soak
