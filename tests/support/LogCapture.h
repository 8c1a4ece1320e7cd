#pragma once

#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "logging.h"

namespace support {

/// Collects what the library logs while this object exists, as "level|text" lines.
class LogCapture {
public:
    LogCapture() : sink(std::make_shared<spdlog::sinks::ostream_sink_mt>(stream)) {
        sink->set_pattern("%l|%v");
        getQorLogger()->sinks().push_back(sink);
    }
    ~LogCapture() {
        auto& sinks = getQorLogger()->sinks();
        sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        std::istringstream text(stream.str());
        for (std::string line; std::getline(text, line);) all.push_back(line);
        return all;
    }

    /// The lines that begin with `start`.
    std::vector<std::string> linesFrom(const std::string& start) const {
        std::vector<std::string> found;
        for (const std::string& line : lines())
            if (line.rfind(start, 0) == 0) found.push_back(line);
        return found;
    }

private:
    std::ostringstream stream;
    std::shared_ptr<spdlog::sinks::ostream_sink_mt> sink;
};

}  // namespace support
