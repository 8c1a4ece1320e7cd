#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
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

/// @param errors  takes the standard error, as the caller's own buffer if it needs one
inline ToolRun runTool(const std::vector<std::string>& arguments, std::stringbuf&& errors = std::stringbuf()) {
    std::vector<const char*> argv{"qrapi"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    std::ostringstream out;
    std::ostream err(&errors);
    const int status = tool::run(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), errors.str()};
}

/// What a command of the shell prints on its standard output.
inline std::string printedBy(const std::string& command) {
    std::string text;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::array<char, 4096> part{};
    while (pipe != nullptr && std::fgets(part.data(), part.size(), pipe.get()) != nullptr) text += part.data();
    return text;
}

/// The simulated detector of a profile, made to expose by trigger alone: each snap takes exactly one frame of it.
inline std::shared_ptr<simulator::SimulatedDetector> triggeredDetector(const std::string& profile) {
    constexpr std::uint16_t triggered = 0x60;
    auto detector = simulator::Rack::instance().find("sim:" + profile);
    detector->writeRegister(simulator::reg::mode, triggered);
    return detector;
}
