#pragma once

#include <new>
#include <utility>

#include "QuorinException.h"

/// Logs the exception in flight as one that is not let out of `where`. Call it in a catch clause.
void logSwallowed(const char* where);

/// Runs a step of taking something down; what it throws goes to the log and no further.
template <class Step>
void attempt(const char* where, Step&& step) {
    try {
        std::forward<Step>(step)();
    } catch (...) {
        logSwallowed(where);
    }
}

/// Runs what writes a line of the log. One that there is no memory for is left out: no call fails, or counts as not
/// made, for its trace.
template <class Write>
void logIfThereIsMemory(Write&& write) {
    try {
        std::forward<Write>(write)();
    } catch (const std::bad_alloc&) {
        return;
    }
}

/// The exception with a layer's name added; unchanged if there is no memory for the name.
QuorinException named(const QuorinException& failure, const char* layerName);

/// What is told of a failure when there is no memory to tell what it was. Made when the library is loaded.
const QuorinException& outOfMemory() noexcept;

/// The exception that `make` makes, or `outOfMemory`: for the last handler that an exception comes to.
template <class Make>
QuorinException madeOrOutOfMemory(Make&& make) {
    try {
        return std::forward<Make>(make)();
    } catch (const std::bad_alloc&) {
        return outOfMemory();
    }
}
