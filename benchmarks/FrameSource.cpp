#include "benchmarks/FrameSource.h"

#include <PvBuffer.h>
#include <PvPipeline.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>

namespace bench::source {
namespace {

constexpr std::size_t buffersOfALane = 4;

struct Lane {
    std::vector<std::unique_ptr<PvBuffer>> buffers;
    std::uint64_t taken = 0;
    Span span;
};

struct Source {
    std::vector<std::unique_ptr<Lane>> lanes;
    std::size_t frameBytes = 0;
    bool endless = true;
    std::uint64_t firstFrame = 0;
    std::uint64_t lastFrame = 0;
    std::atomic<std::size_t> claimed{0};
    std::atomic<std::uint64_t> setting{0};  ///< counts the settings; a thread claims its lane anew at each

    std::mutex mutex;
    std::condition_variable given;
    std::uint64_t onDemand = 0;  ///< under `mutex`
};

Source& source() {
    static Source& theSource = *new Source;  // NOLINT: outlives every thread that takes frames
    return theSource;
}

/// Lanes of the size are used again.
void set(std::size_t frameBytes, std::size_t lanes) {
    Source& all = source();
    if (all.lanes.size() != lanes || all.frameBytes != frameBytes) {
        all.lanes.clear();
        all.frameBytes = frameBytes;
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            all.lanes.push_back(std::make_unique<Lane>());
            for (std::size_t buffer = 0; buffer < buffersOfALane; ++buffer) {
                auto filled = std::make_unique<PvBuffer>();
                filled->Alloc(static_cast<std::uint32_t>(frameBytes));
                std::memset(filled->GetImage()->GetDataPointer(), 0x5A, frameBytes);
                all.lanes.back()->buffers.push_back(std::move(filled));
            }
        }
    }
    for (const auto& lane : all.lanes) {
        lane->taken = 0;
        lane->span = {};
    }
    all.claimed = 0;
    all.onDemand = 0;
    ++all.setting;
}

Lane* laneOfThisThread() {
    thread_local Lane* lane = nullptr;
    thread_local std::uint64_t setting = 0;
    Source& all = source();
    if (const std::uint64_t now = all.setting; setting != now) {
        const std::size_t number = all.claimed++;
        lane = number < all.lanes.size() ? all.lanes[number].get() : nullptr;
        setting = now;
    }
    return lane;
}

bool awaitFrame(std::uint32_t timeoutMs) {
    Source& all = source();
    if (all.endless) return true;
    std::unique_lock lock(all.mutex);
    if (!all.given.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return all.onDemand > 0; })) return false;
    --all.onDemand;
    return true;
}

}  // namespace

void setEndless(std::size_t frameBytes, int lanes, std::uint64_t firstFrame, std::uint64_t frames) {
    Source& all = source();
    all.endless = true;
    all.firstFrame = firstFrame;
    all.lastFrame = firstFrame + frames;
    set(frameBytes, static_cast<std::size_t>(lanes));
}

void setOnDemand(std::size_t frameBytes) {
    Source& all = source();
    all.endless = false;
    set(frameBytes, 1);
}

void give() {
    Source& all = source();
    {
        const std::lock_guard lock(all.mutex);
        ++all.onDemand;
    }
    all.given.notify_one();
}

Span span(int lane) {
    return source().lanes.at(static_cast<std::size_t>(lane))->span;
}

std::vector<std::uint8_t*> buffers(int lane) {
    std::vector<std::uint8_t*> pixels;
    for (const auto& buffer : source().lanes.at(static_cast<std::size_t>(lane))->buffers)
        pixels.push_back(buffer->GetImage()->GetDataPointer());
    return pixels;
}

}  // namespace bench::source

// The two calls of the pipeline that the library makes for each frame: this program's take the place of the vendor
// library's, as those of another vendor library would at its next link.

PvResult PvPipeline::RetrieveNextBuffer(PvBuffer** buffer, std::uint32_t timeoutMs, PvResult* operationResult) {
    using namespace bench::source;
    Lane* const lane = laneOfThisThread();
    if (lane == nullptr || !awaitFrame(timeoutMs)) return PvResult(PvResult::Timeout);
    const Source& all = source();
    if (lane->taken == all.firstFrame) lane->span.begin = bench::Reading::now();
    if (lane->taken == all.lastFrame) lane->span.end = bench::Reading::now();
    PvBuffer& next = *lane->buffers[lane->taken % lane->buffers.size()];
    ++lane->taken;
    std::memcpy(next.GetImage()->GetDataPointer(), &lane->taken, sizeof(lane->taken));
    *buffer = &next;
    *operationResult = PvResult();
    return {};
}

PvResult PvPipeline::ReleaseBuffer(PvBuffer* /*buffer*/) {
    return {};
}
