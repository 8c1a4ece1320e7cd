#include "detector/LogText.h"

#include <spdlog/spdlog.h>

#include "logging.h"

namespace trace {

void put(Text& to, const char* value) {
    if (value == nullptr)
        put(to, static_cast<const void*>(value));
    else
        to.add("\"", value, "\"");
}

void put(Text& to, const std::string& value) {
    to.add("\"", value, "\"");
}

void logLine(const Text& line, spdlog::level::level_enum level) {
    getQorLogger()->log(level, line.view());
}

}  // namespace trace
