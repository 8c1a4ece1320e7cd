#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "benchmarks/Meters.h"

/// A frame source that costs nothing, in place of a detector's: the eBUS pipeline of every GigE detector hands over
/// buffers that were filled beforehand, with nothing but the frame's number stamped on their head.
///
/// Each thread that takes frames, so each live thread, has a lane of its own, with its own buffers.
namespace bench::source {

/// From now on frames of `frameBytes` come as fast as they are taken. `lanes` threads are going to take them; each
/// reads the meters when it asks for frame `firstFrame` and again `frames` later.
void setEndless(std::size_t frameBytes, int lanes, std::uint64_t firstFrame, std::uint64_t frames);

/// From now on a frame of `frameBytes` comes for each `give`, to one thread.
void setOnDemand(std::size_t frameBytes);
void give();

/// What a lane's meters showed.
struct Span {
    Reading begin;
    Reading end;
};
Span span(int lane);

/// The vendor buffers of a lane.
std::vector<std::uint8_t*> buffers(int lane);

}  // namespace bench::source
