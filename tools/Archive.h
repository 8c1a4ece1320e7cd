#pragma once

#include <string>

struct archive;

namespace tool {

/// A gzipped tar file that comes into being as a whole.
///
/// It is written under a temporary name in the same folder; `commit` gives it its name, without it the destructor
/// removes it. Every failure is a `std::runtime_error` that names the file.
class Archive {
public:
    explicit Archive(std::string path);
    ~Archive();
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    /// Appends a file of this name and content.
    void add(const std::string& name, const std::string& content);

    /// Puts the archive into place, also in place of an older one. The last call.
    void commit();

private:
    /// Ends with the failure that libarchive tells.
    void expect(int result) const;
    [[noreturn]] void failWriting(const std::string& reason) const;

    std::string path;
    std::string temporaryPath;
    int descriptor = -1;
    archive* writer = nullptr;
};

}  // namespace tool
