// What it takes to hand a frame from one thread to another.

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "benchmarks/Board.h"
#include "benchmarks/FrameSource.h"
#include "benchmarks/allFigures.h"
#include "platform/Event.h"

namespace bench {
namespace {

constexpr int waitMs = 5000;
constexpr int rounds = 1000;

/// A flag that one thread raises and another waits for: the handover that nothing can do without.
class Flag {
public:
    void raise() {
        {
            const std::lock_guard lock(mutex);
            raised = true;
        }
        changed.notify_one();
    }
    void await() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return raised; });
        raised = false;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool raised = false;
};

/// Signals that are sent one by one, each to a receiver that has had the time to go to sleep, and what each took.
class Signals {
public:
    template <class Send>
    void send(const Send& signal) {
        constexpr std::chrono::microseconds timeToFallAsleep{50};
        constexpr std::chrono::seconds longestHandover{10};
        for (int round = 0; round < rounds; ++round) {
            const std::chrono::nanoseconds asleep = wallTime() + timeToFallAsleep;
            while (wallTime() < asleep) {
            }
            sentAt = wallTime();
            signal();
            while (received.load() <= round) {
                if (wallTime() > sentAt + longestHandover) throw std::runtime_error("a signal got lost");
                std::this_thread::yield();
            }
        }
    }
    void note() {
        const std::chrono::nanoseconds now = wallTime();
        const int round = received.load();
        if (round >= rounds) return;
        taken[static_cast<std::size_t>(round)] = Seconds(now - sentAt).count();
        received = round + 1;
    }
    double percentile(double share) {
        std::sort(taken.begin(), taken.end());
        return taken[static_cast<std::size_t>(share * (rounds - 1))];
    }

private:
    std::chrono::nanoseconds sentAt{0};
    std::atomic<int> received{0};
    std::vector<double> taken = std::vector<double>(rounds);
};

/// Runs `body` round after round on a thread of its own. The future joins it, and tells what it threw.
template <class Body>
std::future<void> inRounds(const Body& body) {
    return std::async(std::launch::async, [&body] {
        for (int round = 0; round < rounds; ++round) body();
    });
}

/// The lines that a thread logs for one frame: before the moment that counts, and behind it.
using Turn = std::pair<LogLines, LogLines>;

double bareHandover(double share, const Turn& receiversTurn) {
    Flag flag;
    Signals signals;
    const auto receive = [&] {
        flag.await();
        receiversTurn.first.write();
        signals.note();
        receiversTurn.second.write();
    };
    std::future<void> receiver = inRounds(receive);
    signals.send([&] { flag.raise(); });
    receiver.get();
    return signals.percentile(share);
}

double signalToWait(Board& board, double share) {
    Signals signals;
    const auto receive = [&] {
        board.facade->WaitImage(waitMs);
        signals.note();
    };
    std::future<void> receiver = inRounds(receive);
    signals.send([event = board.frameEvent()] { platform::signalEvent(event); });
    receiver.get();
    return signals.percentile(share);
}

std::atomic<Signals*> called{nullptr};

double signalToCallback(Board& board, double share) {
    Signals signals;
    called = &signals;
    source::setOnDemand(board.frameBytes());
    board.facade->SetCallback([](int, int, QuorinDetector*) { called.load()->note(); });
    board.facade->GoLiveSeq(0, Board::ringFrames - 1, 0);
    signals.send([event = board.frameEvent()] { platform::signalEvent(event); });
    board.facade->GoUnLive();
    board.facade->StopCallback();
    return signals.percentile(share);
}

constexpr double median = 0.5;
constexpr double worstOfAHundred = 0.99;
constexpr const char* wokenLine = "FRAME_EVENT: Frame captured event";

struct Receiver {
    const char* name;
    double (*measure)(Board&, double);
    const char* lastLine;  ///< of the log before the moment that counts
};
constexpr Receiver waitImage{"WaitImage", signalToWait, "EXIT: "};
constexpr Receiver callback{"callback", signalToCallback, "CALLBACK: Calling"};

/// What a figure of the handover sets against what. The lines that a frame leaves in the log are many times the
/// handover, and one in forty of them finds the file's buffer full and waits for the system.
enum class Match {
    Shipped,   ///< the library as it is shipped, against the handover alone
    NoLog,     ///< the library with its log switched off, against the handover alone
    BothLog,   ///< the library as it is shipped, against the handover and its lines, written by the logger alone
    LinesOnly  ///< no library: the handover and those lines, against the handover alone
};

const char* suffix(Match match) {
    switch (match) {
        case Match::Shipped:
            return "/log-as-shipped";
        case Match::NoLog:
            return "/log-off";
        case Match::BothLog:
            return "/against-log";
        case Match::LinesOnly:
            break;
    }
    return "/log-alone";
}

/// The lines are wanted on the side of the reference, or on that of the library.
bool takesLines(Match match) {
    return match == Match::BothLog || match == Match::LinesOnly;
}

std::shared_ptr<QuietLog> quietFor(Match match) {
    return match == Match::NoLog ? std::make_shared<QuietLog>() : nullptr;
}

void addLatency(const Receiver& receiver, const char* what, double share, Match match, double bound) {
    Figure figure;
    figure.name = std::string("signal-to-") + receiver.name + "/" + what + suffix(match);
    figure.bound = bound;
    figure.explains = match == Match::LinesOnly;
    figure.repetitions = 21;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::smallestFrames());
        const std::shared_ptr<QuietLog> quiet = quietFor(match);
        Turn turn;
        if (takesLines(match))
            turn = LogLines::of([&] { receiver.measure(*board, share); }).round(wokenLine, receiver.lastLine);
        return [=, keep = quiet] {
            if (match == Match::LinesOnly) return Sample{bareHandover(share, turn), bareHandover(share, {})};
            const double bare = bareHandover(share, turn);
            return Sample{receiver.measure(*board, share), bare};
        };
    };
    add(std::move(figure));
}

/// Frames that come one by one, each when the one before was taken.
double lockStep(Board& board) {
    source::setOnDemand(board.frameBytes());
    board.facade->GoLiveSeq(0, Board::ringFrames - 1, 0);
    const std::chrono::nanoseconds begin = wallTime();
    for (int round = 0; round < rounds; ++round) {
        source::give();
        board.facade->WaitImage(waitMs);
    }
    const std::chrono::nanoseconds spent = wallTime() - begin;
    board.facade->GoUnLive();
    return Seconds(spent).count() / rounds;
}

double bareLockStep(const Turn& liveThreadsTurn, const Turn& waitersTurn) {
    Flag there;
    Flag back;
    const auto answer = [&] {
        there.await();
        liveThreadsTurn.first.write();
        back.raise();
        liveThreadsTurn.second.write();
    };
    std::future<void> peer = inRounds(answer);
    const std::chrono::nanoseconds begin = wallTime();
    for (int round = 0; round < rounds; ++round) {
        there.raise();
        waitersTurn.second.write();
        back.await();
        waitersTurn.first.write();
    }
    const std::chrono::nanoseconds spent = wallTime() - begin;
    peer.get();
    return Seconds(spent).count() / rounds;
}

void addLockStep(Match match, double bound) {
    Figure figure;
    figure.name = std::string("frames-per-second/49KB") + suffix(match);
    figure.limit = Limit::AtLeast;
    figure.bound = bound;
    figure.explains = match == Match::LinesOnly;
    figure.repetitions = 21;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::smallestFrames());
        const std::shared_ptr<QuietLog> quiet = quietFor(match);
        Turn live;
        Turn waiter;
        if (takesLines(match)) {
            const LogLines lines = LogLines::of([&] { lockStep(*board); });
            live = lines.round("Acquired frame", "FRAME_EVENT: Signal");
            waiter = lines.round(wokenLine, waitImage.lastLine);
        }
        return [=, keep = quiet] {
            if (match == Match::LinesOnly) return Sample{bareLockStep(live, waiter), bareLockStep({}, {})};
            const double bare = bareLockStep(live, waiter);
            return Sample{lockStep(*board), bare};
        };
    };
    add(std::move(figure));
}

void addWaitAllocations() {
    Figure figure;
    figure.name = "allocations/WaitImage";
    figure.unit = Unit::Count;
    figure.repetitions = 9;
    figure.prepare = []() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::smallestFrames());
        return [=] {
            const QuietLog loggerAside;
            const std::uint64_t before = allocations();
            for (int round = 0; round < rounds; ++round) {
                platform::signalEvent(board->frameEvent());
                board->facade->WaitImage(waitMs);
            }
            return Sample{static_cast<double>(allocations() - before) / rounds};
        };
    };
    add(std::move(figure));
}

}  // namespace

void addHandoverFigures() {
    // As shipped, against a bare handover, the bounds are those that the log's lines leave room for.
    addLockStep(Match::NoLog, 0.6);
    addLockStep(Match::BothLog, 0.6);
    addLockStep(Match::Shipped, 0.4);
    addLockStep(Match::LinesOnly, 0.0);
    for (const Receiver& receiver : {waitImage, callback}) {
        addLatency(receiver, "median", median, Match::Shipped, 1.5);
        addLatency(receiver, "99th", worstOfAHundred, Match::NoLog, 2.0);
        addLatency(receiver, "99th", worstOfAHundred, Match::BothLog, 2.0);
        addLatency(receiver, "99th", worstOfAHundred, Match::Shipped, 4.0);
        addLatency(receiver, "99th", worstOfAHundred, Match::LinesOnly, 0.0);
    }
    addWaitAllocations();
}

}  // namespace bench
