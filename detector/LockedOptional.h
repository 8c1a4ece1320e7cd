#pragma once

#include <optional>
#include <utility>

#include "platform/Mutex.h"

/// A value that is absent or present, touched by several threads. All of one detector stand under one leaf mutex,
/// which is held for the copy alone: never across serial traffic, callbacks or logging.
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
