#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool {

enum class FileFormat { Tiff, Raw, Png, Hdf5 };

/// The grey levels that an 8-bit picture shows as black and as white.
struct GreyWindow {
    int low = 0;
    int high = 0;
};

/// What the command line said of the frames' files.
struct DestinationOptions {
    std::string path;
    std::string format;              ///< empty: as the file's extension says
    std::string window;              ///< LOW,HIGH; empty: as each frame's grey levels are spread
    std::optional<int> compression;  ///< of gzip
};

/// Where frames go, and in which form.
struct Destination {
    std::string path;               ///< a file, or an existing directory for a file of each frame
    std::string extension = "tif";  ///< of the files in a directory, without the dot
    FileFormat format = FileFormat::Tiff;
    std::optional<GreyWindow> window;  ///< PNG; without it the 1st to 99th percentile of the frame
    int compression = 0;               ///< HDF5: 1 to 9 of gzip, or 0 for none
    /// Takes what the user should know before the run; null drops it.
    std::function<void(const std::string&)> warn = nullptr;
};

/// The allowed names of formats, which are the extensions of their files, as texts list them.
std::string allowedFormats();
std::vector<std::string> formatNames();

/// The file that describes a raw file: the same name with the extension `json`.
std::string sideFileOf(const std::string& rawFile);

/// Throws `UsageError` for "-", which other programs take as the standard output.
void checkIsFile(const std::string& output);

/// Checks what was said, and that the path can be written as far as can be told before. Throws `UsageError`.
Destination parseDestination(const DestinationOptions& options);

}  // namespace tool
