// What a frame costs on its way: from the vendor's buffer into the ring, from the ring to the application.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
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
constexpr FrameSize plain{"2.7MB", "5101", Bin1x1, 100, 1};
constexpr FrameSize middle{"6MB", "5309", Bin1x1, 40, 1};
constexpr FrameSize large{"24MB", "7127", Bin1x1, 16, 1};

constexpr double smallFrameBound = 1.3;
constexpr double severalBound = 1.1;
constexpr DetectorInterface transports[] = {TransportGE, TransportCL};

/// A board, a place for its frames, and memory of the kind that the transport keeps its frames in.
struct Reader {
    Board board;
    std::vector<unsigned char> memory;
    QorImage image;
    std::vector<std::vector<unsigned char>> grabberMemory;
    std::vector<const void*> frames;
    LogLines lines;

    Reader(DetectorInterface transport, const FrameSize& size)
        : board({transport, size.profile, size.binning}), memory(board.frameBytes(), 1) {
        for (int buffer = 0; buffer < Board::ringFrames; ++buffer)
            if (transport == TransportGE)
                frames.push_back(board.ringBlock(buffer));
            else
                frames.push_back(grabberMemory.emplace_back(board.frameBytes(), 1).data());
        board.facade->ReadBuffer(0, image, 0);
        constexpr std::size_t calls = 2;
        constexpr std::size_t vendorCalls = 2;
        lines = LogLines::of([&] { read(0, false); }).expecting(transport == TransportGE ? calls : calls + vendorCalls);
    }

    void read(int buffer, bool toImage) {
        if (toImage)
            board.facade->ReadBuffer(buffer, image, 0);
        else
            board.facade->ReadBuffer(buffer, memory.data());
    }
};

/// Buffers at random, so that neither side finds more of its frame in a cache. Where in the memory frames lie is good
/// for some per cent more or less, so each sample has a board of its own.
void addReadBuffer(DetectorInterface transport, const FrameSize& size, bool toImage) {
    Figure figure;
    figure.name = fmt::format("ReadBuffer/{}/{}/{}", transportName(transport), size.name, toImage ? "image" : "memory");
    figure.limit = Limit::AtLeast;
    figure.bound = 0.95;
    figure.prepare = [=]() -> std::function<Sample()> {
        return [=] {
            Reader reader(transport, size);
            void* const target = toImage ? reader.image.GetDataPointerToPlane(0) : reader.memory.data();
            std::minstd_rand toRead(1);
            std::minstd_rand toCopy(2);
            const auto read = [&] { reader.read(static_cast<int>(toRead() % Board::ringFrames), toImage); };
            const auto copy = [&] {
                std::memcpy(target, reader.frames[toCopy() % Board::ringFrames], reader.memory.size());
            };
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
            const auto read = [&] { reader->read(0, false); };
            const auto copyAndLog = [&] {
                std::memcpy(reader->memory.data(), reader->frames.front(), reader->memory.size());
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
LogLines linesOfAFrame(Board& board) {
    constexpr std::size_t ofAFrame = 4;
    constexpr std::chrono::milliseconds someFrames{5};
    source::setEndless(board.frameBytes(), 1, 0, 1);
    const LogLines lines = LogLines::of([&] {
        board.core().GoLiveSeq(0, Board::ringFrames - 1, 0);
        std::this_thread::sleep_for(someFrames);
        board.core().GoUnLive();
    });
    return lines.round("Acquired frame", "nothing").first.expecting(ofAFrame);
}

/// What the copies of the frames cost on a thread for each board that does nothing else, from and to the same memory;
/// and the log's lines, if `lines` are given.
double plainCopies(const std::vector<std::shared_ptr<Board>>& boards, std::uint64_t frames, const LogLines& lines) {
    std::vector<double> seconds(boards.size());
    std::vector<std::thread> threads;
    for (std::size_t lane = 0; lane < boards.size(); ++lane)
        threads.emplace_back([&, lane] {
            const std::vector<std::uint8_t*> sources = source::buffers(static_cast<int>(lane));
            Board& board = *boards[lane];
            const std::size_t bytes = board.frameBytes();
            std::chrono::nanoseconds begin{0};
            for (std::uint64_t frame = 0; frame < warmUp + frames + warmUp; ++frame) {
                if (frame == warmUp) begin = wallTime();
                if (frame == warmUp + frames) seconds[lane] = Seconds(wallTime() - begin).count();
                std::memcpy(board.ringBlock(static_cast<int>(frame % Board::ringFrames)),
                            sources[frame % sources.size()], bytes);
                lines.write();
            }
        });
    for (std::thread& thread : threads) thread.join();
    const double all = std::accumulate(seconds.begin(), seconds.end(), 0.0);
    return all / static_cast<double>(boards.size() * frames);
}

void addLive(const FrameSize& size, double bound, bool explains, bool withLog) {
    Figure figure;
    figure.name = fmt::format("live/{}/{}", size.name, withLog ? "memcpy+log" : "memcpy");
    figure.bound = bound;
    figure.explains = explains;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto frames = static_cast<std::uint64_t>(size.calls);
        return [=] {
            constexpr int turns = 4;
            const auto board = std::make_shared<Board>(Board::Setup{TransportGE, size.profile, size.binning});
            const LogLines lines = withLog ? linesOfAFrame(*board) : LogLines();
            Sample sample{0.0, 0.0};
            for (int turn = 0; turn < turns; ++turn) {
                sample.measured += secondsPerFrame(runLive({board}, frames).front(), frames) / turns;
                sample.reference += plainCopies({board}, frames, lines) / turns;
            }
            return sample;
        };
    };
    add(std::move(figure));
}

/// Several detectors at once, and as many threads that do nothing but their copies: what the memory's bandwidth and the
/// cores allow is on both sides. Processor time counts, so that there may be more threads than cores.
void addSeveral(int count, const FrameSize& size, bool withLog) {
    Figure figure;
    figure.name = fmt::format("live/{}-detectors/{}/{}", count, size.name, withLog ? "memcpy+log" : "memcpy");
    figure.bound = withLog ? smallFrameBound : severalBound;
    figure.prepare = [=]() -> std::function<Sample()> {
        std::vector<std::shared_ptr<Board>> boards;
        for (int number = 1; number <= count; ++number)
            boards.push_back(std::make_shared<Board>(Board::Setup{TransportGE, size.profile, size.binning, number}));
        const LogLines lines = withLog ? linesOfAFrame(*boards.front()) : LogLines();
        const auto frames = static_cast<std::uint64_t>(size.calls);
        return [=] {
            const auto perFrame = [&](const auto& work) {
                const std::chrono::nanoseconds begin = processorTime();
                work();
                return Seconds(processorTime() - begin).count() /
                       static_cast<double>((warmUp + frames + warmUp) * boards.size());
            };
            const double measured = perFrame([&] { runLive(boards, frames); });
            return Sample{measured, perFrame([&] { plainCopies(boards, frames, lines); })};
        };
    };
    add(std::move(figure));
}

/// The time that goes by for a frame with two detectors at once, whose threads have a core each.
enum class TwoAgainst { TwoCopies, One, OneWithoutLog };

void addTwo(const FrameSize& size, bool library, TwoAgainst against, bool explains) {
    Figure figure;
    figure.name = fmt::format("2-{}/{}/{}", library ? "detectors" : "copies", size.name,
                              against == TwoAgainst::TwoCopies ? "2-copies" : "1");
    if (against == TwoAgainst::OneWithoutLog) figure.name += "/log-off";
    figure.bound = severalBound;
    figure.explains = explains;
    figure.repetitions = 21;
    figure.prepare = [=]() -> std::function<Sample()> {
        std::vector<std::shared_ptr<Board>> boards;
        for (const int number : {1, 2})
            boards.push_back(std::make_shared<Board>(Board::Setup{TransportGE, size.profile, size.binning, number}));
        const auto frames = static_cast<std::uint64_t>(size.calls);
        const auto liveSeconds = [=](const std::vector<std::shared_ptr<Board>>& running) {
            double all = 0.0;
            for (const source::Span& span : runLive(running, frames)) all += secondsPerFrame(span, frames);
            return all / static_cast<double>(running.size());
        };
        const auto copySeconds = [=](const std::vector<std::shared_ptr<Board>>& running) {
            source::setEndless(running.front()->frameBytes(), static_cast<int>(running.size()), 0, 1);
            return plainCopies(running, frames, {});
        };
        const auto quiet = against == TwoAgainst::OneWithoutLog ? std::make_shared<QuietLog>() : nullptr;
        return [=, keep = quiet] {
            constexpr int turns = 4;
            Sample sample{0.0, 0.0};
            for (int turn = 0; turn < turns; ++turn) {
                sample.measured += library ? liveSeconds(boards) : copySeconds(boards);
                if (against == TwoAgainst::TwoCopies)
                    sample.reference += copySeconds(boards);
                else
                    sample.reference += library ? liveSeconds({boards.front()}) : copySeconds({boards.front()});
            }
            return Sample{sample.measured / turns, sample.reference / turns};
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
            const QuietLog loggerAside;
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
            const QuietLog loggerAside;
            const std::uint64_t before = allocations();
            for (int call = 0; call < calls; ++call) reader->read(0, toImage);
            return Sample{static_cast<double>(allocations() - before) / calls};
        };
    };
    add(std::move(figure));
}

/// What an open detector holds beyond its ring and the buffers of its pipeline.
void addMemory(DetectorInterface transport) {
    constexpr std::int64_t pipelineFrames = 20;
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
            const std::int64_t before = allocatedBytes();
            const auto facade = Board::makeFacade(setup);
            facade->OpenBoard(Board::ringFrames);
            const std::int64_t held = allocatedBytes() - before;
            const std::int64_t frameBytes = std::int64_t{facade->GetBufferXdim()} * facade->GetBufferYdim() * 2;
            const std::int64_t frames = transport == TransportGE ? Board::ringFrames + pipelineFrames : 0;
            return Sample{static_cast<double>(held - frames * frameBytes) / bytesPerMegabyte};
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
    addLive(large, 1.05, false, false);
    addLive(small, smallFrameBound, false, true);
    for (const FrameSize& size : {small, plain, middle}) addLive(size, 0.0, true, false);
    for (const int count : {1, 2, 4}) {
        addSeveral(count, middle, false);
        addSeveral(count, small, true);
    }
    addTwo(middle, true, TwoAgainst::TwoCopies, false);
    for (const bool library : {true, false}) {
        addTwo(middle, library, TwoAgainst::One, true);
        addTwo(small, library, TwoAgainst::OneWithoutLog, !library);
    }
    addLiveAllocations();
    for (const DetectorInterface transport : transports)
        for (const bool toImage : {false, true}) addReadAllocations(transport, toImage);
    for (const DetectorInterface transport : transports) addMemory(transport);
}

}  // namespace bench
