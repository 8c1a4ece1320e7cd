#include "detector/LogText.h"

#include <spdlog/spdlog.h>

#include "logging.h"

namespace trace {

void logLine(const Text& line, spdlog::level::level_enum level) {
    getQorLogger()->log(level, line.view());
}

}  // namespace trace
