// What the library costs, each figure as a ratio to the work that can't be avoided, so that it means the same on every
// machine. A ratio over its bound fails the program.

#include <sys/prctl.h>

#include <cstdlib>
#include <exception>
#include <iostream>

#include "benchmarks/ScratchLog.h"
#include "benchmarks/allFigures.h"

int main(int argc, char** argv) {
    try {
        prctl(PR_SET_TIMERSLACK, 1UL);  // the simulated serial line answers when it is due, not up to 50 us later
        const bench::ScratchLog log;
        bench::addFrameFigures();
        bench::addHandoverFigures();
        bench::addCallFigures();
        const int over = bench::runFigures(argc, argv);
        return over == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
        return EXIT_FAILURE;
    }
}
