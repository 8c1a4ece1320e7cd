#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/UnfinishedName.h"

namespace tool {

/// A file that comes into being as a whole.
///
/// Its bytes go to a file with a temporary name in the same folder. `commit` gives it its name; without it the
/// destructor removes it. Every failure is a `std::runtime_error` that names the file.
class PartialFile {
public:
    explicit PartialFile(std::string path);
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    void append(const void* bytes, std::size_t count);
    std::uint64_t size() const;
    /// Cuts the file; `append` goes on from there.
    void truncate(std::uint64_t bytes);
    /// Claims disk space for the bytes up to `end`, so that writing them later doesn't fail for want of it. Does
    /// nothing where the file system can't do that.
    void reserve(std::uint64_t end) const;
    /// On the disk, so that not even a power cut leaves half a file under the name that it gets.
    void sync() const;
    /// Puts the file into place, also in place of an older one. The last call, after `sync`.
    void commit();
    /// Takes the file away after all.
    void withdraw() noexcept;

    [[noreturn]] void fail(const std::string& reason) const;

    const std::string& temporaryName() const { return temporaryPath; }
    int descriptor() const { return file; }  ///< open for reading and writing, the object's own

private:
    std::string path;
    std::string temporaryPath;
    int file = -1;
    std::optional<UnfinishedName> unfinished;
    bool committed = false;
};

}  // namespace tool
