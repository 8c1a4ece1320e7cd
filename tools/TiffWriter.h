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
    void commit() override;

private:
    struct Close {
        void operator()(tiff* file) const;
    };
    /// libtiff's own words, or `otherwise` if it said nothing.
    std::string reasonOr(const std::string& otherwise) const;

    const RunFacts facts;
    PartialFile target;
    std::string libraryError;  ///< libtiff's last message
    std::unique_ptr<tiff, Close> file;
};

}  // namespace tool
