#pragma once

#include <string>
#include <utility>

#include "QuorinException.h"

/// Throws a `QuorinException`; source line and file come by themselves.
/// @param function  qualified name of the throwing function, such as "baseDetector::SetGapTime"
[[noreturn]] void fail(const char* message, Derr code, const char* function, int transportError = 0,
                       const char* transportMessage = "", int line = __builtin_LINE(),
                       const char* file = __builtin_FILE());

[[noreturn]] inline void fail(const std::string& message, Derr code, const char* function, int transportError = 0,
                              const char* transportMessage = "", int line = __builtin_LINE(),
                              const char* file = __builtin_FILE()) {
    fail(message.c_str(), code, function, transportError, transportMessage, line, file);
}

/// The part of a path behind its last slash or backslash.
const char* baseName(const char* path);

/// Runs `body`; a `QuorinException` on its way out gets the layer's name added. Others pass unchanged.
template <class Body>
decltype(auto) layer(const char* function, Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (const QuorinException& passing) {
        throw QuorinException(passing, function);
    }
}
