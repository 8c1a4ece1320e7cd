#pragma once

#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

#include <memory>
#include <utility>

#include "detector/CallTrace.h"
#include "fuzz/fuzz.h"
#include "logging.h"
#include "platform/VirtualClock.h"
#include "support/CoreDouble.h"

namespace fuzz {

/// One input's core on a scripted line, on the virtual clock. Log lines are made, since they are made of what came over
/// the line, and written nowhere.
class CoreRun {
public:
    CoreRun(DetectorInterface transport, int model, int family) : core(transport) {
        static const bool logged = [] {
            getQorLogger()->sinks() = {std::make_shared<spdlog::sinks::null_sink_mt>()};
            getQorLogger()->set_level(spdlog::level::debug);
            return true;
        }();
        (void)logged;
        support::CoreDouble::present(core, model, family);
        core.IsKestrane();
        core.line.commands.clear();
    }

    /// As the application sees the call: through the frame of the public methods.
    template <class Call>
    static std::optional<Derr> failureOf(Call&& call) {
        return fuzz::failureOf([&] { callFrame("fuzz::CoreRun", std::forward<Call>(call)); });
    }

    platform::ScopedVirtualClock clock;
    support::CoreDouble core;
};

}  // namespace fuzz
