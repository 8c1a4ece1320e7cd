#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/threadSafety.h"

inline constexpr const char* bufferRangeText = "The requested buffer is outside of the allocated range!";
inline constexpr const char* noMemoryText = "Insufficient Memory on system!";

/// A set of equal memory blocks. No lock; indexes and sizes are checked.
class RAIIBuffer {
public:
    /// Allocates `count` blocks of `blockSize` bytes; 0 blocks are allowed. Fails with code 12, and keeps no memory, if
    /// memory is short or a number is negative.
    RAIIBuffer(int count, int blockSize);
    ~RAIIBuffer();
    RAIIBuffer(const RAIIBuffer&) = delete;
    RAIIBuffer& operator=(const RAIIBuffer&) = delete;

    /// Block `index`, 0 to count - 1; null if a `ReAlloc` failed at it. Fails with code 12 out of range.
    void* GetBuffer(int index) const;

    /// Actual bytes of a block, also after a failed `ReAlloc`. Fails with code 12 out of range.
    std::size_t GetBlockSize(int index) const;

    int GetCount() const { return static_cast<int>(blocks.size()); }

    /// Replaces every block; content is lost. Fails with code 12 at the first block without memory: that one is null,
    /// those before it have the new size, those after it keep the old one.
    void ReAlloc(int newBlockSize);

private:
    struct Free {
        void operator()(void* block) const;
    };
    struct Block {
        std::unique_ptr<void, Free> memory;
        std::size_t size = 0;
        bool allocate(int bytes);
    };
    const Block& at(int index) const;

    std::vector<Block> blocks;
    int blockSize;
};

/// A buffered file stream for reading or writing raw bytes.
class RAIIFile {
public:
    /// Opens the file; fails with code 10.
    RAIIFile(const char* path, bool write);
    ~RAIIFile();
    RAIIFile(const RAIIFile&) = delete;
    RAIIFile& operator=(const RAIIFile&) = delete;

    /// Reads up to `length` bytes. A short read is no failure: see `feof`. Fails with code 10 on a file opened for
    /// writing, and on a stream error, with the system's number and text.
    /// @return bytes read
    std::size_t read(void* buffer, int length);

    /// Not 0 once a read has reached the end of the file.
    int feof() const;

private:
    struct Close {
        void operator()(std::FILE* stream) const;
    };
    std::unique_ptr<std::FILE, Close> file;
    bool forWriting;
};

/// A recursive lock.
class CAPABILITY("mutex") CriticalSection {
public:
    void Enter() ACQUIRE() { mutex.lock(); }
    void Leave() RELEASE() { mutex.unlock(); }

private:
    std::recursive_mutex mutex;
};

/// Holds a `CriticalSection` for a scope.
class SCOPED_CAPABILITY CriticalSectionLock {
public:
    explicit CriticalSectionLock(CriticalSection& toHold) ACQUIRE(toHold) : section(toHold) { section.Enter(); }
    ~CriticalSectionLock() RELEASE() { section.Leave(); }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

private:
    CriticalSection& section;
};

/// The calling thread's last system error as "number: text"; empty if it is 0.
std::string GetLastErrorText();

/// Rounds to `places` decimals, halves up, in single precision throughout.
float RoundToDecimals(float value, int places);
