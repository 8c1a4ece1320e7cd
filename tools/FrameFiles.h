#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tool {

/// Checks that `output` can be a file. Throws `UsageError`.
void checkOutputFile(const std::string& output);
/// The same, but an existing directory does as well.
void checkOutputFileOrDirectory(const std::string& output);

/// Where the frames of a run go, one after the other. Every failure is a `std::runtime_error` that names the file.
class FrameFiles {
public:
    virtual ~FrameFiles() = default;
    /// @param number  of the frame within the run, from 0
    virtual void write(int number, const std::uint16_t* pixels, int width, int height,
                       const std::string& description) = 0;
    /// Puts what was written into place. The last call.
    virtual void commit() = 0;
};

/// Pages of one TIFF file, or files `frame_000001.tif` and so on in an existing directory.
std::unique_ptr<FrameFiles> makeFrameFiles(const std::string& output, std::uint64_t expectedBytes);

}  // namespace tool
