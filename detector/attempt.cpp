#include "detector/attempt.h"

#include <spdlog/spdlog.h>

#include <exception>

#include "logging.h"

namespace {

const QuorinException preallocated("Caught a std::exception: std::bad_alloc", DerrWrapped, __LINE__, "attempt.cpp",
                                   "outOfMemory", 0, "");

}  // namespace

QuorinException named(const QuorinException& failure, const char* layerName) {
    try {
        return {failure, layerName};
    } catch (const std::bad_alloc&) {
        return failure;
    }
}

const QuorinException& outOfMemory() noexcept {
    return preallocated;
}

void logSwallowed(const char* where) {
    try {
        throw;
    } catch (const std::exception& failure) {
        getQorLogger()->error("EXCEPTION: {}", failure.what());
    } catch (...) {
        getQorLogger()->error("EXCEPTION: unknown, {}", where);
    }
}
