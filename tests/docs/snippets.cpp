#include <qrapi/QuorinDetector.h>
#include <qrapi/QuorinDetectorCL.h>
#include <qrapi/QuorinDetectorGE.h>
#include <qrapi/simulator/Rack.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <string_view>
#include <thread>
#include <vector>

/// Runs a snippet of the documentation, by name, with an open detector.

namespace {

struct Snippet {
    const char* name;
    void (*run)(QuorinDetector& detector);
};

// A snippet ends before it uses all that it names.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-variable"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#include "snippets.inc"
#pragma GCC diagnostic pop

}  // namespace

int main(int argc, char** argv) {
    for (const Snippet& snippet : snippets) {
        if (argc != 2 || std::string_view(argv[1]) != snippet.name) {
            if (argc == 1) std::cout << snippet.name << "\n";
            continue;
        }
        try {
            QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
            detector.OpenBoard();
            snippet.run(detector);
            return 0;
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << "\n";
            return 1;
        }
    }
    return argc == 1 ? 0 : 2;
}
