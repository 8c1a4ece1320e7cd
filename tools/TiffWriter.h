#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/FrameFiles.h"
#include "tools/PartialFile.h"

struct tiff;

namespace tool {

/// A TIFF file of 16-bit grey pages, each with a JSON description of its frame.
class TiffWriter : public FrameFiles {
public:
    /// @param expectedBytes  pixels of all pages together; beyond what 32-bit offsets reach the file becomes a BigTIFF
    TiffWriter(const std::string& path, RunFacts facts, std::uint64_t expectedBytes);
    ~TiffWriter() override;

    void write(const Frame& frame) override;
    void dropFailed() override;
    void commit() override;

private:
    struct Close {
        void operator()(tiff* file) const;
    };
    /// What libtiff reads and writes through.
    struct Stream {
        int descriptor;
        int error = 0;  ///< the system's error number at the first failure
    };
    /// The system's words, else libtiff's own, else `otherwise`.
    std::string reasonOr(const std::string& otherwise) const;
    void findNextLink();

    const RunFacts facts;
    const bool isBig;
    PartialFile target;
    Stream stream;
    std::string libraryError;  ///< libtiff's last message
    // The end of the last whole page. Its link is 0 until libtiff begins a further page.
    std::uint64_t wholeBytes = 0;
    std::uint64_t linkPosition = 0;
    std::unique_ptr<tiff, Close> file;
};

}  // namespace tool
