#pragma once

#include <cstdint>
#include <string>

#include "tools/OutputFormat.h"

namespace tool {

/// What a run writes, as far as it decides the space on the disk.
struct RunSize {
    int frames = 0;
    std::uint64_t pixels = 0;  ///< of one frame
    bool intoDirectory = false;
};

/// Bytes of a disk.
struct DiskSpace {
    std::uint64_t free = 0;       ///< no program gets more
    std::uint64_t available = 0;  ///< without those that are reserved for root
    bool compresses = false;      ///< the file system may store fewer bytes than are written
};

/// The most that the run's pixels take, and whether they take as much for certain.
struct NeededSpace {
    std::uint64_t bytes = 0;
    bool isCertain = false;
};
NeededSpace neededSpace(const Destination& output, const RunSize& run);

enum class Fit { Fits, MayNotFit, DoesNotFit };
Fit fitOn(const DiskSpace& disk, const NeededSpace& needed);

/// Throws a `std::runtime_error` if the run doesn't fit on the disk of its output, and calls `output.warn` if it may
/// not. Does nothing where the system doesn't report the space.
void checkDiskSpace(const Destination& output, const RunSize& run);

}  // namespace tool
