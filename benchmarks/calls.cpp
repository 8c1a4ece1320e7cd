// What a call costs that moves no frame: the trace, the serial channel, opening.

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/Board.h"
#include "benchmarks/InstantLine.h"
#include "benchmarks/allFigures.h"
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
        const LogLines lines = LogLines::of(get).expecting(2);
        return [=] { return byTurns(calls, chunk, get, [&] { lines.write(); }); };
    };
    add(std::move(figure));
}

void addExchange() {
    Figure figure;
    figure.name = "serial-exchange/kestrane";
    figure.bound = 1.5;
    figure.prepare = []() -> std::function<Sample()> {
        const auto line = std::make_shared<InstantLine>();
        const LogLines lines = LogLines::of([&] { line->exchange(); }).expecting(1);
        return [=] {
            return byTurns(
                calls, chunk, [&] { line->exchange(); },
                [&] {
                    line->bareExchange();
                    lines.write();
                });
        };
    };
    add(std::move(figure));
}

constexpr int baud = 115200;

struct Electronics {
    const char* profile;
    int pauseMs;            ///< before a reply is read
    std::size_t exchanges;  ///< of an open
};
constexpr Electronics plain{"5101", serial::plainPollDelayMs, 11};
constexpr Electronics kestrane{"5101-kestrane", serial::kestranePollDelayMs, 57};

/// Every command that an open sends, in their order. Throws if it sends more or fewer than it did: one more would be on
/// both sides of the ratio.
std::vector<std::string> commandsOfOpen(const Electronics& electronics) {
    class Listener : public xclib_real {
    public:
        explicit Listener(std::vector<std::string>& toFill) : commands(toFill) {}
        int serialWrite(pxdstate* state, int unitMap, int port, char* buffer, int size) override {
            commands.emplace_back(buffer, static_cast<std::size_t>(size));
            return xclib_real::serialWrite(state, unitMap, port, buffer, size);
        }

    private:
        std::vector<std::string>& commands;
    };
    const platform::ScopedVirtualClock clock;
    const Board::Setup setup{TransportCL, electronics.profile};
    Board::mount(setup)->setWireSpeed(baud);
    const auto facade = Board::makeFacade(setup);
    std::vector<std::string> commands;
    Board::grabberSeam(*facade) = std::make_shared<Listener>(commands);
    facade->OpenBoard(Board::ringFrames);
    if (commands.size() != electronics.exchanges)
        throw std::logic_error("an open of " + std::string(electronics.profile) + " makes " +
                               std::to_string(commands.size()) + " exchanges");
    return commands;
}

/// The exchanges that the protocol asks for, each with its pause, and nothing between them.
/// What electronics they are is asked before it is known that these need no pause.
void exchangeAll(simulator::SimulatedDetector& detector, const std::vector<std::string>& commands, int usualPauseMs) {
    constexpr int replyTimeoutMs = 1000;
    for (const std::string& command : commands) {
        std::array<char, serial::replySize> reply{};
        detector.serialWrite(command);
        const bool askedForFamily = command.compare(0, serial::familyRead.size(), serial::familyRead) == 0;
        const int pauseMs = askedForFamily ? serial::plainPollDelayMs : usualPauseMs;
        if (pauseMs > 0) platform::sleepFor(std::chrono::milliseconds(pauseMs));
        (void)detector.serialRead(reply.data(), reply.size(), platform::deadlineAfterMs(replyTimeoutMs));
    }
}

/// On the real clock, against the line alone.
void addOpen(DetectorInterface transport, const Electronics& electronics) {
    Figure figure;
    figure.name = std::string("OpenBoard/") + transportName(transport) + "/" + electronics.profile;
    figure.bound = 1.05;
    figure.repetitions = 9;
    figure.prepare = [=]() -> std::function<Sample()> {
        const std::vector<std::string> commands = commandsOfOpen(electronics);
        return [=] {
            const Board::Setup setup{transport, electronics.profile};
            const auto bare = Board::mount(setup);
            bare->setWireSpeed(baud);
            Board::mount(setup)->setWireSpeed(baud);
            const auto facade = Board::makeFacade(setup);
            return byTurns(
                1, 1, [&] { facade->OpenBoard(Board::ringFrames); },
                [&] { exchangeAll(*bare, commands, electronics.pauseMs); });
        };
    };
    add(std::move(figure));
}

/// On the virtual clock, which goes forward by pauses and bytes on the wire alone: what is computed besides.
void addOpenComputing(DetectorInterface transport, const Electronics& electronics) {
    Figure figure;
    figure.name = std::string("OpenBoard/") + transportName(transport) + "/" + electronics.profile + "/computing";
    figure.bound = 1.05;
    figure.repetitions = 9;
    figure.prepare = [=]() -> std::function<Sample()> {
        return [=] {
            const platform::ScopedVirtualClock clock;
            const Board::Setup setup{transport, electronics.profile};
            Board::mount(setup)->setWireSpeed(baud);
            const auto facade = Board::makeFacade(setup);
            const platform::Time start = platform::now();
            const std::chrono::nanoseconds begin = wallTime();
            facade->OpenBoard(Board::ringFrames);
            const std::chrono::nanoseconds computing = wallTime() - begin;
            const platform::Time asked = platform::now() - start;
            return Sample{Seconds(asked + computing).count(), Seconds(asked).count()};
        };
    };
    add(std::move(figure));
}

}  // namespace

void addCallFigures() {
    addGetter();
    addExchange();
    for (const DetectorInterface transport : {TransportGE, TransportCL})
        for (const Electronics& electronics : {plain, kestrane}) {
            addOpen(transport, electronics);
            addOpenComputing(transport, electronics);
        }
}

}  // namespace bench
