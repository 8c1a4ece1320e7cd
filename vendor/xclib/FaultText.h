#pragma once

#include <cstddef>
#include <string>

#include "platform/Mutex.h"

namespace grabber {

/// What went wrong last, until somebody takes it. Any thread may call; the lock is a leaf.
class FaultText {
public:
    void put(std::string text);
    void clear() { put({}); }
    /// Copies as much as fits, with its zero byte. False if there is none; then the buffer is an empty text. `size` is
    /// at least 1.
    bool take(char* buffer, std::size_t size);

private:
    platform::Mutex mutex;
    std::string last GUARDED_BY(mutex);
};

/// "function: what the error means".
std::string errorText(const char* function, int error);

}  // namespace grabber
