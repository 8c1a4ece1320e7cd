#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "GigeDevice.h"
#include "platform/Mutex.h"

namespace ebus {

/// The receiving ports of this host, as far as simulated devices send to them. Any thread may call.
class LocalPorts {
public:
    static LocalPorts& instance();

    /// A free port whose frames go to the sink; port 0 if there is none left.
    Endpoint open(const std::shared_ptr<FrameSink>& sink);
    void close(std::uint16_t port);
    /// Who receives at the endpoint; null if nobody.
    std::shared_ptr<FrameSink> find(const Endpoint& endpoint);

private:
    platform::Mutex mutex;
    std::map<std::uint16_t, std::weak_ptr<FrameSink>> sinks GUARDED_BY(mutex);
    std::uint16_t lastPort GUARDED_BY(mutex) = 0;
};

}  // namespace ebus
