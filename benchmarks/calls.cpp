// What a call costs that moves no frame: the trace, the serial channel, opening.

#include <array>
#include <cstring>

#include "benchmarks/Board.h"
#include "benchmarks/allFigures.h"
#include "detector/baseDetector/serialProtocol.h"
#include "detector/xclib_real.h"
#include "detector/baseDetector.h"
#include "platform/VirtualClock.h"

namespace bench {
namespace {

constexpr int calls = 4000;
constexpr int chunk = 100;

void addGetter() {
    Figure figure;
    figure.name = "traced-getter";
    figure.bound = 1.2;
    figure.prepare = []() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::Setup{TransportGE, "5101", Bin4x4});
        const auto get = [=] { (void)board->facade->GetReadOutTime(); };
        const LogLines lines = LogLines::of(get);
        return [=] { return byTurns(calls, chunk, get, [&] { lines.write(); }); };
    };
    add(std::move(figure));
}

/// A serial line that answers at once: the frame grabber's, with a canned reply.
class InstantLine : public xclib_real {
public:
    int serialRead(pxdstate* /*state*/, int /*unitMap*/, int /*port*/, char* buffer, int /*size*/) override {
        constexpr std::string_view reply = "S00042\r";
        reply.copy(buffer, reply.size());
        return static_cast<int>(reply.size());
    }
    int serialWrite(pxdstate* /*state*/, int /*unitMap*/, int /*port*/, char* /*buffer*/, int /*size*/) override {
        return 0;
    }
};

void addExchange() {
    Figure figure;
    figure.name = "serial-exchange/kestrane";
    figure.bound = 1.5;
    figure.prepare = []() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::Setup{TransportCL, "5101-kestrane", Bin4x4});
        const auto line = std::make_shared<InstantLine>();
        struct Substitute {
            std::shared_ptr<Board> board;
            std::shared_ptr<xclib> before;
            ~Substitute() { board->grabberSeam() = before; }
        };
        const std::shared_ptr<Substitute> substitute(new Substitute{board, board->grabberSeam()});
        board->grabberSeam() = line;
        constexpr std::string_view command = "R1123";
        const auto exchange = [=] {
            std::array<char, serial::replySize> reply{};
            board->core().SendCommandWithoutFlashStatusCheck(command.data(), command.size(), reply.data(),
                                                             serial::kestranePollDelayMs);
        };
        const LogLines lines = LogLines::of(exchange);
        const auto bare = [=] {
            std::array<char, serial::replySize> reply{};
            xclib& seam = *board->grabberSeam();
            std::array<char, serial::commandSize> sent{};
            command.copy(sent.data(), command.size());
            seam.serialWrite(nullptr, 1, 0, sent.data(), static_cast<int>(command.size()));
            seam.serialRead(nullptr, 1, 0, reply.data(), static_cast<int>(reply.size()));
            lines.write();
        };
        return [=, keep = substitute] { return byTurns(calls, chunk, exchange, bare); };
    };
    add(std::move(figure));
}

/// On the virtual clock time goes by in pauses, time-outs and on the wire alone: what an open takes there is what the
/// protocol asks for.
double openOnVirtualClock(const Board::Setup& setup, int baud) {
    const platform::ScopedVirtualClock clock;
    Board::mount(setup)->setWireSpeed(baud);
    const auto facade = Board::makeFacade(setup);
    const platform::Time begin = platform::now();
    facade->OpenBoard(Board::ringFrames);
    return Seconds(platform::now() - begin).count();
}

void addOpen(DetectorInterface transport, const char* profile) {
    constexpr int baud = 115200;
    Figure figure;
    figure.name = std::string("OpenBoard/") + transportName(transport) + "/" + profile;
    figure.bound = 1.05;
    figure.repetitions = 9;
    figure.prepare = [=]() -> std::function<Sample()> {
        const Board::Setup setup{transport, profile};
        const double asked = openOnVirtualClock(setup, baud);
        return [=] {
            Board::mount(setup)->setWireSpeed(baud);
            const auto facade = Board::makeFacade(setup);
            const std::chrono::nanoseconds begin = wallTime();
            facade->OpenBoard(Board::ringFrames);
            return Sample{Seconds(wallTime() - begin).count(), asked};
        };
    };
    add(std::move(figure));
}

}  // namespace

void addCallFigures() {
    addGetter();
    addExchange();
    for (const DetectorInterface transport : {TransportGE, TransportCL})
        for (const char* profile : {"5101", "5101-kestrane"}) addOpen(transport, profile);
}

}  // namespace bench
