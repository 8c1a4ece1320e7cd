#include "tools/Interrupt.h"

#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <ostream>
#include <utility>

#include "platform/Clock.h"
#include "tools/UnfinishedName.h"

namespace tool {
namespace {

constexpr platform::Time sameRequest = std::chrono::milliseconds(500);
constexpr platform::Time::rep notRequested = platform::never.count();

// The signal handler's data.
std::atomic<platform::Time::rep> requestedAt{notRequested};
static_assert(std::atomic<platform::Time::rep>::is_always_lock_free, "a signal handler writes it");
sem_t announcement;

/// The signal handler. `platform::now` takes no lock.
void request(int signal) {
    const int errorBefore = errno;
    const platform::Time now = platform::now();
    platform::Time::rep first = notRequested;
    if (requestedAt.compare_exchange_strong(first, now.count())) {
        sem_post(&announcement);
    } else if (signal != SIGHUP && now - platform::Time(first) >= sameRequest) {
        removeUnfinishedFiles();
        struct sigaction standard {};
        standard.sa_handler = SIG_DFL;
        sigaction(signal, &standard, nullptr);
        raise(signal);  // takes effect when this handler returns
    }
    errno = errorBefore;
}

}  // namespace

Interrupt::Interrupt() {
    sem_init(&announcement, 0, 0);
    install();
}

Interrupt::Interrupt(std::ostream& err, std::function<std::string()> notice) {
    sem_init(&announcement, 0, 0);
    announcer = std::thread([this, &err, notice = std::move(notice)] {
        while (sem_wait(&announcement) != 0 && errno == EINTR) continue;
        if (isRequested()) err << notice() + "\n" << std::flush;
    });
    struct sigaction ignored {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, &previousPipe);
    install();
}

void Interrupt::install() {
    requestedAt = notRequested;
    struct sigaction noted {};
    noted.sa_handler = request;
    noted.sa_flags = SA_RESTART;
    for (const int signal : signals) sigaddset(&noted.sa_mask, signal);
    for (std::size_t index = 0; index < signals.size(); ++index) {
        sigaction(signals[index], nullptr, &previous[index]);
        if (previous[index].sa_handler != SIG_IGN) sigaction(signals[index], &noted, nullptr);
    }
}

Interrupt::~Interrupt() {
    for (std::size_t index = 0; index < signals.size(); ++index) sigaction(signals[index], &previous[index], nullptr);
    if (announcer.joinable()) {
        sem_post(&announcement);
        announcer.join();
        sigaction(SIGPIPE, &previousPipe, nullptr);
    }
    sem_destroy(&announcement);
}

bool Interrupt::isRequested() const {
    return requestedAt != notRequested;
}

}  // namespace tool
