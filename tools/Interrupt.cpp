#include "tools/Interrupt.h"

#include <atomic>

namespace tool {
namespace {

std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

void request(int /*signal*/) {
    requested = true;
}

}  // namespace

Interrupt::Interrupt() {
    requested = false;
    sigaction(SIGINT, nullptr, &previous);
    if (previous.sa_handler == SIG_IGN) return;
    struct sigaction once {};
    once.sa_handler = request;
    once.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &once, nullptr);
}

Interrupt::~Interrupt() {
    sigaction(SIGINT, &previous, nullptr);
}

bool Interrupt::isRequested() const {
    return requested;
}

}  // namespace tool
