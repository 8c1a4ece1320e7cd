#pragma once

#include <utility>

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
