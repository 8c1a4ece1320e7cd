#pragma once

#include <chrono>
#include <cstdint>

/// What a benchmark reads before and behind the work that it measures.
namespace bench {

using Seconds = std::chrono::duration<double>;

/// Of the steady clock.
inline std::chrono::nanoseconds wallTime() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

/// Processor time of all threads of this process.
std::chrono::nanoseconds processorTime();

/// Allocations of all threads since the program began; those that failed are counted as well.
std::uint64_t allocations();

/// Bytes that are allocated now, by all threads.
std::int64_t allocatedBytes();

/// A moment, as all of these see it.
struct Reading {
    std::chrono::nanoseconds wall{0};
    std::chrono::nanoseconds processor{0};
    std::uint64_t allocations = 0;

    static Reading now() { return {wallTime(), processorTime(), bench::allocations()}; }
};

}  // namespace bench
