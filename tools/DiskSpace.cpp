#include "tools/DiskSpace.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t bytesOfPixel = sizeof(std::uint16_t);

std::string inWords(std::uint64_t bytes) {
    constexpr double thousand = 1000.0;
    static constexpr std::array<const char*, 5> units{" kB", " MB", " GB", " TB", " PB"};
    double amount = static_cast<double>(bytes) / thousand;
    const auto* unit = units.begin();
    for (; amount >= thousand && std::next(unit) != units.end(); ++unit) amount /= thousand;
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << amount << *unit;
    return text.str();
}

bool mayCompress(const std::string& folder) {
    constexpr unsigned zfs = 0x2FC12FC1;
    constexpr std::array<unsigned, 3> compressing{BTRFS_SUPER_MAGIC, F2FS_SUPER_MAGIC, zfs};
    struct statfs found {};
    if (statfs(folder.c_str(), &found) != 0) return true;
    return std::find(compressing.begin(), compressing.end(), static_cast<unsigned>(found.f_type)) != compressing.end();
}

}  // namespace

NeededSpace neededSpace(const Destination& output, const RunSize& run) {
    const std::uint64_t files = output.format == FileFormat::Png && !run.intoDirectory
                                    ? 1  // the last frame
                                    : static_cast<std::uint64_t>(run.frames);
    if (output.format == FileFormat::Png) return {files * run.pixels, false};
    return {files * run.pixels * bytesOfPixel, output.compression == 0};
}

Fit fitOn(const DiskSpace& disk, const NeededSpace& needed) {
    if (needed.bytes > disk.free && needed.isCertain && !disk.compresses) return Fit::DoesNotFit;
    return needed.bytes > disk.available ? Fit::MayNotFit : Fit::Fits;
}

void checkDiskSpace(const Destination& output, const RunSize& run) {
    const fs::path parent = fs::path(output.path).parent_path();
    const std::string folder = run.intoDirectory ? output.path : parent.empty() ? "." : parent.string();
    std::error_code failure;
    const fs::space_info space = fs::space(folder, failure);
    if (failure) return;
    const NeededSpace needed = neededSpace(output, run);
    const Fit fit = fitOn({space.free, space.available, mayCompress(folder)}, needed);
    if (fit == Fit::Fits) return;
    const std::string free = inWords(space.available) + " are free";
    const std::string text = output.path + ": " + std::to_string(run.frames) + " frames need " +
                             (needed.isCertain ? "" : "up to ") + inWords(needed.bytes) + ", " + free;
    if (fit == Fit::DoesNotFit)
        throw std::runtime_error(text + "; there is space for " +
                                 std::to_string(space.available / (run.pixels * bytesOfPixel)));
    if (output.warn) output.warn(text + "; if the disk fills up, the frames before that are kept");
}

}  // namespace tool
