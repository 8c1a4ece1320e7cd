#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct tiff;

namespace tool {

/// A TIFF file of 16-bit grey pages that comes into being as a whole.
///
/// Pages go to a file with a temporary name in the same folder. `commit` gives it its name; without it the destructor
/// removes it. Every failure is a `std::runtime_error` that names the file.
class TiffWriter {
public:
    /// @param expectedBytes  pixels of all pages together; beyond what 32-bit offsets reach the file becomes a BigTIFF
    TiffWriter(std::string path, std::uint64_t expectedBytes);
    ~TiffWriter();
    TiffWriter(const TiffWriter&) = delete;
    TiffWriter& operator=(const TiffWriter&) = delete;

    /// Appends a page of `width` by `height` pixels, row after row.
    void writePage(const std::uint16_t* pixels, int width, int height, const std::string& description);

    /// Puts the file into place, also in place of an older one. The last call.
    void commit();

private:
    struct Close {
        void operator()(tiff* file) const;
    };
    [[noreturn]] void failWriting(const std::string& reason) const;
    /// libtiff's own words, or `otherwise` if it said nothing.
    std::string reasonOr(const std::string& otherwise) const;

    std::string path;
    std::string temporaryPath;
    std::string libraryError;  ///< libtiff's last message
    bool committed = false;
    std::unique_ptr<tiff, Close> file;
};

}  // namespace tool
