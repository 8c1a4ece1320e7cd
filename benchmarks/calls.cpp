// What a call costs that moves no frame: the trace, the serial channel, opening.

#include <array>
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
        const LogLines lines = LogLines::of(get);
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
        const LogLines lines = LogLines::of([&] { line->exchange(); });
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

/// Every command that an open sends, in their order.
std::vector<std::string> commandsOfOpen(const char* profile) {
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
    const Board::Setup setup{TransportCL, profile};
    Board::mount(setup)->setWireSpeed(baud);
    const auto facade = Board::makeFacade(setup);
    std::vector<std::string> commands;
    Board::grabberSeam(*facade) = std::make_shared<Listener>(commands);
    facade->OpenBoard(Board::ringFrames);
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

void addOpen(DetectorInterface transport, const char* profile, int pauseMs) {
    Figure figure;
    figure.name = std::string("OpenBoard/") + transportName(transport) + "/" + profile;
    figure.bound = 1.05;
    figure.repetitions = 9;
    figure.prepare = [=]() -> std::function<Sample()> {
        const std::vector<std::string> commands = commandsOfOpen(profile);
        return [=] {
            const Board::Setup setup{transport, profile};
            const auto bare = Board::mount(setup);
            bare->setWireSpeed(baud);
            Board::mount(setup)->setWireSpeed(baud);
            const auto facade = Board::makeFacade(setup);
            return byTurns(
                1, 1, [&] { facade->OpenBoard(Board::ringFrames); }, [&] { exchangeAll(*bare, commands, pauseMs); });
        };
    };
    add(std::move(figure));
}

}  // namespace

void addCallFigures() {
    addGetter();
    addExchange();
    for (const DetectorInterface transport : {TransportGE, TransportCL}) {
        addOpen(transport, "5101", serial::plainPollDelayMs);
        addOpen(transport, "5101-kestrane", serial::kestranePollDelayMs);
    }
}

}  // namespace bench
