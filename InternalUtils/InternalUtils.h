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

/// A set of equal memory blocks. Locks nothing; index and sizes are checked.
class RAIIBuffer {
public:
    /// Allocates `count` blocks of `blockSize` bytes; a count of 0 allocates none.
    /// Fails with code 12 if memory is short or a number is negative; nothing stays allocated then.
    RAIIBuffer(int count, int blockSize);
    ~RAIIBuffer();
    RAIIBuffer(const RAIIBuffer&) = delete;
    RAIIBuffer& operator=(const RAIIBuffer&) = delete;

    /// The block, 0 to count - 1; null after a `ReAlloc` that failed at it. Fails with code 12 out of range.
    void* GetBuffer(int index) const;

    /// Bytes that the block really has, whatever a failed `ReAlloc` left.
    std::size_t GetBlockSize(int index) const;

    int GetCount() const { return static_cast<int>(blocks.size()); }

    /// Replaces every block; content is lost. Fails with code 12 midway: the blocks before have the new size, the
    /// failed one is null, the rest keep their old size.
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

    /// Reads up to `length` bytes and returns how many came; a short read is no failure, ask `feof`.
    /// Fails with code 10 on a file opened for writing, and on a stream error with the system's number and text.
    std::size_t read(void* buffer, int length);

    /// Non-zero once a read has met the end of the file.
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
