#pragma once

#include <new>
#include <utility>

#include "QuorinException.h"

/// Logs the exception that is being handled and goes no further. Call it in a catch clause.
/// @param where  part of the line if the exception is of an unknown type
void logSwallowed(const char* where);

/// Runs a step of a teardown; logs what it throws.
template <class Step>
void attempt(const char* where, Step&& step) {
    try {
        std::forward<Step>(step)();
    } catch (...) {
        logSwallowed(where);
    }
}

/// Runs code that writes a line of the log; without memory the line is left out, so that tracing fails no call.
template <class Write>
void logIfThereIsMemory(Write&& write) {
    try {
        std::forward<Write>(write)();
    } catch (const std::bad_alloc&) {
        return;
    }
}

/// The exception with a layer's name added; without memory the exception unchanged.
QuorinException named(const QuorinException& failure, const char* layerName);

/// The exception that replaces another for lack of memory. Made when the library is loaded.
const QuorinException& outOfMemory() noexcept;

/// The exception that `make` makes, or `outOfMemory`. For the last handler of an exception.
template <class Make>
QuorinException madeOrOutOfMemory(Make&& make) {
    try {
        return std::forward<Make>(make)();
    } catch (const std::bad_alloc&) {
        return outOfMemory();
    }
}
