#include "tools/OutputFormat.h"
#include "tools/nearest.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <limits>
#include <string_view>

#include "tools/commands.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

struct NamedFormat {
    std::string_view extension;  ///< also the format's name
    FileFormat format;
};

constexpr std::array<NamedFormat, 7> namedFormats{{
    {"tif", FileFormat::Tiff},
    {"tiff", FileFormat::Tiff},
    {"raw", FileFormat::Raw},
    {"png", FileFormat::Png},
    {"h5", FileFormat::Hdf5},
    {"hdf5", FileFormat::Hdf5},
    {"nxs", FileFormat::Hdf5},
}};

constexpr int greatestCompression = 9;

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

const NamedFormat* findFormat(const std::string& name) {
    const auto* const found =
        std::find_if(namedFormats.begin(), namedFormats.end(),
                     [wanted = lowerCase(name)](const NamedFormat& format) { return format.extension == wanted; });
    return found == namedFormats.end() ? nullptr : found;
}

bool isDirectory(const fs::path& path) {
    std::error_code unseen;
    return fs::is_directory(path, unseen);
}

void checkFile(const fs::path& path) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::error_code unseen;
    if (!isDirectory(folder)) throw UsageError("--output: there is no directory " + folder.string());
    if (!path.has_filename() || isDirectory(path))
        throw UsageError("--output: " + path.string() + " is a directory; a file is needed");
    if (fs::exists(path, unseen) && !fs::is_regular_file(path, unseen))
        throw UsageError("--output: " + path.string() + " is no regular file");
}

/// The name of the first frame of an earlier run in the directory; empty if there is none.
std::string frameFileIn(const fs::path& directory) {
    constexpr std::string_view prefix = "frame_";
    std::string first;
    std::error_code unseen;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, unseen)) {
        const std::string name = entry.path().filename().string();
        const std::size_t end = name.find_first_not_of("0123456789", prefix.size());
        const bool isFrame =
            name.starts_with(prefix) && end != std::string::npos && end > prefix.size() && name[end] == '.';
        if (isFrame && (first.empty() || name < first)) first = name;
    }
    return first;
}

/// What `--format` names; otherwise what the extension says. Numbered files are TIFF unless told otherwise.
const NamedFormat& formatOf(const DestinationOptions& options) {
    if (!options.format.empty()) {
        if (const NamedFormat* const named = findFormat(options.format)) return *named;
        throw UsageError("--format: " + options.format + " is none; allowed is " + allowedFormats());
    }
    if (isDirectory(options.path)) return namedFormats.front();
    const std::string extension = fs::path(options.path).extension().string();
    if (!extension.empty())
        if (const NamedFormat* const named = findFormat(extension.substr(1))) return *named;
    throw UsageError("--output: " + options.path + " has " +
                     (extension.empty() ? "no extension" : "the extension " + extension) +
                     ", which names no format; allowed is " + allowedFormats() + ", or --format");
}

std::optional<int> greyLevel(std::string_view text) {
    int level = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    if (!whole || level < 0 || level > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
    return level;
}

GreyWindow parseWindow(const std::string& text) {
    const std::string_view all = text;
    const std::size_t comma = all.find(',');
    if (comma != std::string_view::npos) {
        const std::optional<int> low = greyLevel(all.substr(0, comma));
        const std::optional<int> high = greyLevel(all.substr(comma + 1));
        if (low && high && *low < *high) return {*low, *high};
    }
    throw UsageError("--window: " + text + " is none; allowed is LOW,HIGH with 0 <= LOW < HIGH <= 65535");
}

}  // namespace

void checkIsFile(const std::string& output) {
    if (output == "-")
        throw UsageError(
            "--output: - is refused, since files don't go to the standard output; name a file (./- for "
            "one of that name)");
}

std::vector<std::string> formatNames() {
    std::vector<std::string> names;
    names.reserve(namedFormats.size());
    for (const NamedFormat& format : namedFormats) names.emplace_back(format.extension);
    return names;
}

std::string allowedFormats() {
    return listed(formatNames());
}

std::string sideFileOf(const std::string& rawFile) {
    return fs::path(rawFile).replace_extension("json").string();
}

Destination parseDestination(const DestinationOptions& options) {
    checkIsFile(options.path);
    const bool intoDirectory = isDirectory(options.path);
    if (!intoDirectory) checkFile(options.path);
    const std::string earlier = intoDirectory ? frameFileIn(options.path) : "";
    if (!earlier.empty())
        throw UsageError("--output: " + options.path + " holds frames of an earlier run (" + earlier +
                         "), which this one would mix with its own; name another directory, or move them away");
    const NamedFormat& named = formatOf(options);
    Destination output;
    output.path = options.path;
    output.extension = named.extension;
    output.format = named.format;
    if (output.format == FileFormat::Raw && !intoDirectory) {
        const std::string sideFile = sideFileOf(output.path);
        if (sideFile == output.path)
            throw UsageError("--output: " + sideFile + " is the name of the file that describes the raw one");
        checkFile(sideFile);
    }
    if (!options.window.empty()) {
        if (output.format != FileFormat::Png) throw UsageError("--window: only png files are made with a window");
        output.window = parseWindow(options.window);
    }
    if (options.compression) {
        if (output.format != FileFormat::Hdf5)
            throw UsageError("--compress: only h5, hdf5 and nxs files can be compressed");
        if (*options.compression < 0 || *options.compression > greatestCompression)
            throw UsageError("--compress: must be 0 (none) to 9");
        output.compression = *options.compression;
    }
    return output;
}

}  // namespace tool
