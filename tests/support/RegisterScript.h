#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"

namespace support {

/// The other end of a serial line, as a script: registers that answer, a list of what came, and a hook that can answer
/// anything else instead. Writes reach every sensor.
class RegisterScript {
public:
    /// Register content by number, for every sensor; `perSensor` goes first.
    std::map<int, int> registers;
    std::map<std::pair<int, int>, int> perSensor;  ///< (sensor, register)

    /// Commands as they came, without their carriage return.
    std::vector<std::string> commands;

    /// Chunks to answer with, in order, instead of the register's content; return nothing to let the registers answer.
    /// An empty chunk is a read that brings nothing.
    std::function<std::vector<std::string>(const std::string& command)> hook;

    void write(const std::string& bytes) {
        const std::string command = bytes.substr(0, bytes.size() - 1);
        commands.push_back(command);
        waiting.clear();
        if (hook) waiting = hook(command);
        if (waiting.empty()) waiting = {answer(command)};
    }

    /// The next chunk; a silent line lets 5 ms pass.
    std::string read() {
        if (waiting.empty() || waiting.front().empty()) {
            platform::sleepFor(std::chrono::milliseconds(5));
            if (!waiting.empty()) waiting.erase(waiting.begin());
            return {};
        }
        std::string chunk = std::move(waiting.front());
        waiting.erase(waiting.begin());
        return chunk;
    }

    /// The commands that write, in order.
    std::vector<std::string> writes() const {
        std::vector<std::string> found;
        for (const std::string& command : commands)
            if (command.front() == 'W') found.push_back(command);
        return found;
    }

    bool wasSent(const std::string& command) const {
        for (const std::string& sent : commands)
            if (sent == command) return true;
        return false;
    }

    /// Silence for every command: what a hook returns for a dead line.
    static std::vector<std::string> silence() { return std::vector<std::string>(1000); }

private:
    std::string answer(const std::string& command) {
        int sensor = 0;
        int reg = 0;
        int value = 0;
        if (std::sscanf(command.c_str(), "R%1d%3d", &sensor, &reg) == 2) {  // NOLINT: numbers of a fixed width
            const auto own = perSensor.find({sensor, reg});
            value = own != perSensor.end() ? own->second : registers[reg];
            char reply[16];
            std::snprintf(reply, sizeof(reply), "S%05d\r", value);
            return reply;
        }
        if (std::sscanf(command.c_str(), "W%1d%3d%5d", &sensor, &reg, &value) == 3) {  // NOLINT
            registers[reg] = value;
            return "A\r";
        }
        return "E\r";
    }

    std::vector<std::string> waiting;
};

}  // namespace support
