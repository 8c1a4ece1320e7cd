#include "detector/attempt.h"

#include <spdlog/spdlog.h>

#include <exception>

#include "logging.h"

void logSwallowed(const char* where) {
    try {
        throw;
    } catch (const std::exception& failure) {
        getQorLogger()->error("EXCEPTION: {}", failure.what());
    } catch (...) {
        getQorLogger()->error("EXCEPTION: unknown, {}", where);
    }
}
