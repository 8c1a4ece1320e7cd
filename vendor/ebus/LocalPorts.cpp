#include "LocalPorts.h"

namespace ebus {
namespace {

constexpr const char* hostAddress = "127.0.0.1";

// The range that is free for anybody's use; 65535 stays out so that counting on can't overflow.
constexpr std::uint16_t firstPort = 49152;
constexpr std::uint16_t endPort = 65535;

}  // namespace

LocalPorts& LocalPorts::instance() {
    // Never destroyed: streams that close during the end of the process still find it.
    static LocalPorts& theInstance = *new LocalPorts;  // NOLINT
    return theInstance;
}

Endpoint LocalPorts::open(const std::shared_ptr<FrameSink>& sink) {
    const platform::MutexLock lock(mutex);
    for (int tries = firstPort; tries < endPort; ++tries) {
        // Counting on from the last one keeps late frames of a closed stream away from the next.
        lastPort =
            lastPort < firstPort || lastPort + 1 >= endPort ? firstPort : static_cast<std::uint16_t>(lastPort + 1);
        if (sinks.try_emplace(lastPort, sink).second) return {hostAddress, lastPort};
    }
    return {};
}

void LocalPorts::close(std::uint16_t port) {
    const platform::MutexLock lock(mutex);
    sinks.erase(port);
}

std::shared_ptr<FrameSink> LocalPorts::find(const Endpoint& endpoint) {
    if (endpoint.address != hostAddress) return nullptr;
    const platform::MutexLock lock(mutex);
    const auto place = sinks.find(endpoint.port);
    return place == sinks.end() ? nullptr : place->second.lock();
}

}  // namespace ebus
