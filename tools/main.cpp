#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "tools/run.h"

namespace {

/// Occupies the standard streams that the caller has closed, so that no file that is opened later takes their place.
/// The stand-in is open the wrong way round: using it fails, as using the closed stream would.
void occupyClosedStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

}  // namespace

int main(int argc, char** argv) {
    occupyClosedStreams();
    std::signal(SIGXFSZ, SIG_IGN);  // a file at the limit of its size is a write that fails
    return tool::run(argc, argv, std::cout, std::cerr);
}
