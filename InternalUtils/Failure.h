#pragma once

#include <string>
#include <utility>

#include "QuorinException.h"

/// Throws a `QuorinException`.
/// @param message           the plain message
/// @param code              error code
/// @param function          qualified name of the throwing function, such as "baseDetector::SetGapTime"
/// @param transportError    status of the vendor library, or the value that was refused
/// @param transportMessage  text of the vendor library
/// @param line              of the caller, by default
/// @param file              of the caller, by default
[[noreturn]] void fail(const char* message, Derr code, const char* function, int transportError = 0,
                       const char* transportMessage = "", int line = __builtin_LINE(),
                       const char* file = __builtin_FILE());

[[noreturn]] inline void fail(const std::string& message, Derr code, const char* function, int transportError = 0,
                              const char* transportMessage = "", int line = __builtin_LINE(),
                              const char* file = __builtin_FILE()) {
    fail(message.c_str(), code, function, transportError, transportMessage, line, file);
}

/// The part of a path after its last slash or backslash.
const char* baseName(const char* path);

/// Runs `body` and adds the layer's name to a `QuorinException` that passes. Others pass unchanged.
template <class Body>
decltype(auto) layer(const char* function, Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (const QuorinException& passing) {
        throw QuorinException(passing, function);
    }
}
