#pragma once

#include <optional>
#include <utility>

#include "platform/Mutex.h"

/// A value that may be empty, shared by threads. All values of a detector share one leaf mutex, which is held only for
/// the copy: never during serial traffic, callbacks or logging.
template <class T>
class LockedOptional {
public:
    explicit LockedOptional(platform::Mutex& leafMutex) : leaf(leafMutex) {}
    LockedOptional(platform::Mutex& leafMutex, T start) : leaf(leafMutex), value(std::move(start)) {}

    std::optional<T> get() const {
        const platform::MutexLock lock(leaf);
        return value;
    }

    LockedOptional& operator=(T newValue) {
        const platform::MutexLock lock(leaf);
        value = std::move(newValue);
        return *this;
    }

    void reset() {
        const platform::MutexLock lock(leaf);
        value.reset();
    }

private:
    platform::Mutex& leaf;
    std::optional<T> value GUARDED_BY(leaf);
};
