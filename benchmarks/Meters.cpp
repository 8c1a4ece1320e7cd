#include "benchmarks/Meters.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>

namespace {

std::atomic<std::uint64_t> allocationCount{0};
std::atomic<std::int64_t> liveBytes{0};

void* noted(void* block) {
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    liveBytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
    return block;
}

void forget(void* block) {
    liveBytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
}

}  // namespace

// The program's own allocation functions stand in front of the C library's: `operator new` of every library ends here
// too.
// NOLINTBEGIN: the C library's names
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) {
    return noted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
    return noted(__libc_calloc(count, size));
}
void* realloc(void* block, std::size_t size) {
    forget(block);
    return noted(__libc_realloc(block, size));
}
void* memalign(std::size_t alignment, std::size_t size) {
    return noted(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return noted(__libc_memalign(alignment, size));
}
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* const made = __libc_memalign(alignment, size);
    if (made == nullptr) return ENOMEM;
    *block = noted(made);
    return 0;
}
void free(void* block) {
    forget(block);
    __libc_free(block);
}

}  // extern "C"
// NOLINTEND

namespace bench {

std::chrono::nanoseconds processorTime() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::uint64_t allocations() {
    return allocationCount.load(std::memory_order_relaxed);
}

std::int64_t allocatedBytes() {
    return liveBytes.load(std::memory_order_relaxed);
}

}  // namespace bench
