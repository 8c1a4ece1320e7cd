#pragma once

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/Rack.h"
#include "simulator/registerMap.h"
#include "tools/run.h"

/// What one command line of the tool answered.
struct ToolRun {
    int status = 0;
    std::string out;
    std::string err;
};

inline ToolRun runTool(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"qrapi"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    std::ostringstream out;
    std::ostringstream err;
    const int status = tool::run(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
}

/// The simulated detector of a profile, made to expose by trigger alone: each snap takes exactly one frame of it.
inline std::shared_ptr<simulator::SimulatedDetector> triggeredDetector(const std::string& profile) {
    constexpr std::uint16_t triggered = 0x60;
    auto detector = simulator::Rack::instance().find("sim:" + profile);
    detector->writeRegister(simulator::reg::mode, triggered);
    return detector;
}
