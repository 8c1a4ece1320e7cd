#pragma once

#include "benchmarks/Figures.h"

/// The figures, by what they are about.
namespace bench {

void addFrameFigures();     ///< copies and allocations
void addHandoverFigures();  ///< from one thread to another
void addCallFigures();      ///< the trace, the serial channel, opening

}  // namespace bench
