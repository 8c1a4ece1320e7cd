#include "benchmarks/Meters.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <ctime>

namespace {

std::atomic<std::uint64_t> allocationCount{0};

}  // namespace

// The program's own allocation functions stand in front of the C library's: `operator new` of every library ends here
// too.
extern "C" {

void* __libc_malloc(std::size_t size);                           // NOLINT: the C library's name
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT
void* __libc_realloc(void* block, std::size_t size);             // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT

void* malloc(std::size_t size) {  // NOLINT
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {  // NOLINT
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {  // NOLINT
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {  // NOLINT
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}

}  // extern "C"

namespace bench {

std::chrono::nanoseconds processorTime() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::uint64_t allocations() {
    return allocationCount.load(std::memory_order_relaxed);
}

std::uint64_t allocatedBytes() {
    const struct mallinfo2 all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

}  // namespace bench
