// What a frame costs on its way: from the vendor's buffer into the ring, from the ring to the application.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "benchmarks/Board.h"
#include "benchmarks/FrameSource.h"
#include "benchmarks/allFigures.h"
#include "detector/baseDetector.h"

namespace bench {
namespace {

struct FrameSize {
    const char* name;
    const char* profile;
    bins binning;
    int calls;  ///< of a sample, so that it takes some 50 ms
    int chunk;
};
constexpr FrameSize small{"0.17MB", "5101", Bin4x4, 3000, 50};
constexpr FrameSize middle{"6MB", "5309", Bin1x1, 40, 1};
constexpr FrameSize large{"24MB", "7127", Bin1x1, 10, 1};

constexpr DetectorInterface transports[] = {TransportGE, TransportCL};

/// A board, a place for its frames, and what a copy costs without the library.
struct Reader {
    Board board;
    std::vector<unsigned char> grabberMemory;
    std::vector<unsigned char> memory;
    QorImage image;
    const void* frame;  ///< memory of the kind that the transport keeps its frames in
    LogLines lines;

    Reader(DetectorInterface transport, const FrameSize& size)
        : board({transport, size.profile, size.binning}), memory(board.frameBytes(), 1) {
        if (transport == TransportCL) grabberMemory.assign(board.frameBytes(), 1);
        frame = grabberMemory.data();
        if (transport == TransportGE) frame = board.ringBlock(0);
        board.facade->ReadBuffer(0, image, 0);
        lines = LogLines::of([&] { board.facade->ReadBuffer(0, memory.data()); });
    }
};

void addReadBuffer(DetectorInterface transport, const FrameSize& size, bool toImage) {
    Figure figure;
    figure.name =
        fmt::format("ReadBuffer/{}/{}/{}", transportName(transport), size.name, toImage ? "image" : "memory");
    figure.limit = Limit::AtLeast;
    figure.bound = 0.95;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto reader = std::make_shared<Reader>(transport, size);
        return [=] {
            void* const target = toImage ? reader->image.GetDataPointerToPlane(0) : reader->memory.data();
            const auto read = [&] {
                if (toImage)
                    reader->board.facade->ReadBuffer(0, reader->image, 0);
                else
                    reader->board.facade->ReadBuffer(0, reader->memory.data());
            };
            const auto copy = [&] { std::memcpy(target, reader->frame, reader->memory.size()); };
            return byTurns(size.calls, size.chunk, read, copy);
        };
    };
    add(std::move(figure));
}

void addReadSmallBuffer(DetectorInterface transport) {
    Figure figure;
    figure.name = fmt::format("ReadBuffer/{}/0.17MB/memory+log", transportName(transport));
    figure.bound = 1.15;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto reader = std::make_shared<Reader>(transport, small);
        return [=] {
            const auto read = [&] { reader->board.facade->ReadBuffer(0, reader->memory.data()); };
            const auto copyAndLog = [&] {
                std::memcpy(reader->memory.data(), reader->frame, reader->memory.size());
                reader->lines.write();
            };
            return byTurns(small.calls, small.chunk, read, copyAndLog);
        };
    };
    add(std::move(figure));
}

constexpr std::uint64_t warmUp = 8;

/// Runs `frames` behind some to warm up, on each of the boards at once, and tells what the lanes read of these.
std::vector<source::Span> runLive(const std::vector<std::shared_ptr<Board>>& boards, std::uint64_t frames) {
    source::setEndless(boards.front()->frameBytes(), static_cast<int>(boards.size()), warmUp, frames);
    for (const auto& board : boards)
        board->core().GoLiveSeq(0, Board::ringFrames - 1, static_cast<int>(warmUp + frames + warmUp));
    std::vector<source::Span> spans;
    for (const auto& board : boards) board->awaitEnd();
    for (int lane = 0; lane < static_cast<int>(boards.size()); ++lane) spans.push_back(source::span(lane));
    return spans;
}

double secondsPerFrame(const source::Span& span, std::uint64_t frames) {
    return Seconds(span.end.wall - span.begin.wall).count() / static_cast<double>(frames);
}

/// The lines of one frame of a live run.
LogLines linesOfAFrame(const std::shared_ptr<Board>& board) {
    return LogLines::of([&] { runLive({board}, 4); }).round("Acquired frame");
}

/// What the copies of the frames cost on a thread that does nothing else, from and to the same memory; and the log's
/// lines, if `lines` are given.
double plainCopies(Board& board, std::uint64_t frames, const LogLines& lines) {
    std::chrono::nanoseconds spent{0};
    std::thread([&] {
        const std::vector<std::uint8_t*> sources = source::buffers(0);
        const std::size_t bytes = board.frameBytes();
        std::chrono::nanoseconds begin{0};
        for (std::uint64_t frame = 0; frame < warmUp + frames; ++frame) {
            if (frame == warmUp) begin = wallTime();
            std::memcpy(board.ringBlock(static_cast<int>(frame % Board::ringFrames)), sources[frame % sources.size()],
                        bytes);
            lines.write();
        }
        spent = wallTime() - begin;
    }).join();
    return Seconds(spent).count() / static_cast<double>(frames);
}

void addLive(const FrameSize& size, double bound, bool withLog) {
    Figure figure;
    figure.name = fmt::format("live/{}/{}", size.name, withLog ? "memcpy+log" : "memcpy");
    figure.bound = bound;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::Setup{TransportGE, size.profile, size.binning});
        const LogLines lines = withLog ? linesOfAFrame(board) : LogLines();
        const auto frames = static_cast<std::uint64_t>(size.calls);
        return [=] {
            const double measured = secondsPerFrame(runLive({board}, frames).front(), frames);
            return Sample{measured, plainCopies(*board, frames, lines)};
        };
    };
    add(std::move(figure));
}

/// Several detectors at once against one of them. Where the cores don't last, a frame's share of them counts.
void addSeveral(int count) {
    constexpr std::uint64_t frames = 60;
    Figure figure;
    figure.name = fmt::format("live/{}-detectors/6MB", count);
    figure.bound = 1.1;
    figure.prepare = [=]() -> std::function<Sample()> {
        std::vector<std::shared_ptr<Board>> boards;
        for (int number = 1; number <= count; ++number)
            boards.push_back(std::make_shared<Board>(Board::Setup{TransportGE, middle.profile, middle.binning, number}));
        return [=] {
            double measured = 0.0;
            for (const source::Span& span : runLive(boards, frames)) measured += secondsPerFrame(span, frames) / count;
            measured *= std::min(1.0, static_cast<double>(std::thread::hardware_concurrency()) / count);
            return Sample{measured, secondsPerFrame(runLive({boards.front()}, frames).front(), frames)};
        };
    };
    add(std::move(figure));
}

void addLiveAllocations() {
    constexpr std::uint64_t frames = 1000;
    Figure figure;
    figure.name = "allocations/live-frame";
    figure.unit = Unit::Count;
    figure.repetitions = 9;
    figure.prepare = []() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::Setup{TransportGE, small.profile, small.binning});
        return [=] {
            const source::Span span = runLive({board}, frames).front();
            return Sample{static_cast<double>(span.end.allocations - span.begin.allocations) / frames};
        };
    };
    add(std::move(figure));
}

void addReadAllocations(DetectorInterface transport, bool toImage) {
    constexpr int calls = 1000;
    Figure figure;
    figure.name = fmt::format("allocations/ReadBuffer/{}/{}", transportName(transport), toImage ? "image" : "memory");
    figure.unit = Unit::Count;
    figure.repetitions = 9;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto reader = std::make_shared<Reader>(transport, small);
        return [=] {
            const std::uint64_t before = allocations();
            for (int call = 0; call < calls; ++call)
                if (toImage)
                    reader->board.facade->ReadBuffer(0, reader->image, 0);
                else
                    reader->board.facade->ReadBuffer(0, reader->memory.data());
            return Sample{static_cast<double>(allocations() - before) / calls};
        };
    };
    add(std::move(figure));
}

/// What an open detector holds beyond its ring and the buffers of its pipeline.
void addMemory(DetectorInterface transport) {
    constexpr std::uint64_t pipelineFrames = 20;
    constexpr double bytesPerMegabyte = 1e6;
    Figure figure;
    figure.name = fmt::format("memory/{}", transportName(transport));
    figure.unit = Unit::Megabytes;
    figure.bound = 2.0;
    figure.repetitions = 9;
    figure.prepare = [=]() -> std::function<Sample()> {
        const Board::Setup setup{transport, small.profile};
        const auto hardware = Board::mount(setup);
        return [=] {
            const std::uint64_t before = allocatedBytes();
            const auto facade = Board::makeFacade(setup);
            facade->OpenBoard(Board::ringFrames);
            const std::uint64_t held = allocatedBytes() - before;
            const std::uint64_t frameBytes = static_cast<std::uint64_t>(facade->GetBufferXdim()) *
                                             static_cast<std::uint64_t>(facade->GetBufferYdim()) * pixelBytes;
            const std::uint64_t frames = transport == TransportGE ? Board::ringFrames + pipelineFrames : 0;
            return Sample{(static_cast<double>(held) - static_cast<double>(frames * frameBytes)) / bytesPerMegabyte};
        };
    };
    add(std::move(figure));
}

}  // namespace

void addFrameFigures() {
    for (const DetectorInterface transport : transports)
        for (const FrameSize& size : {middle, large})
            for (const bool toImage : {false, true}) addReadBuffer(transport, size, toImage);
    for (const DetectorInterface transport : transports) addReadSmallBuffer(transport);
    addLive(large, 1.05, false);
    addLive(small, 1.3, true);
    for (const int count : {2, 4}) addSeveral(count);
    addLiveAllocations();
    for (const DetectorInterface transport : transports)
        for (const bool toImage : {false, true}) addReadAllocations(transport, toImage);
    for (const DetectorInterface transport : transports) addMemory(transport);
}

}  // namespace bench
