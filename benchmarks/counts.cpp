// Does one thing a given number of times, for somebody who counts its instructions: the difference between two numbers
// of times is free of what the program does besides.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>

#include "benchmarks/Board.h"
#include "benchmarks/FrameSource.h"
#include "benchmarks/InstantLine.h"
#include "benchmarks/ScratchLog.h"

namespace {

void tracedCalls(int times) {
    bench::Board board({TransportGE, "5101"});
    for (int call = 0; call < times; ++call) (void)board.facade->GetReadOutTime();
}

void exchanges(int times) {
    bench::InstantLine line;
    for (int exchange = 0; exchange < times; ++exchange) line.exchange();
}

void liveFrames(int times) {
    bench::Board board(bench::Board::smallestFrames());
    bench::source::setEndless(board.frameBytes(), 1, 0, 1);
    board.runLive(times);
}

struct Subject {
    std::string_view name;
    void (*run)(int times);
};
constexpr Subject subjects[] = {
    {"traced-call", tracedCalls}, {"serial-exchange", exchanges}, {"live-frame", liveFrames}};

int run(std::string_view name, int times) {
    for (const Subject& subject : subjects) {
        if (subject.name != name) continue;
        const bench::ScratchLog log;
        subject.run(times);
        return EXIT_SUCCESS;
    }
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 1) {
            for (const Subject& subject : subjects) std::cout << subject.name << "\n";
            return EXIT_SUCCESS;
        }
        const int times = argc == 3 ? std::atoi(argv[2]) : 0;  // NOLINT: what is no number is refused as 0
        if (times > 0 && run(argv[1], times) == EXIT_SUCCESS) return EXIT_SUCCESS;
        std::cerr << "usage: qrapi_counts            lists what can be counted\n"
                     "       qrapi_counts NAME TIMES  does it so many times\n";
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
    }
    return EXIT_FAILURE;
}
