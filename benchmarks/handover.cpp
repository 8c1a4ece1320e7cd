// What it takes to hand a frame from one thread to another.

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
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
        for (int round = 0; round < rounds; ++round) {
            const std::chrono::nanoseconds asleep = wallTime() + timeToFallAsleep;
            while (wallTime() < asleep) {
            }
            sentAt = wallTime();
            signal();
            while (received.load() <= round) std::this_thread::yield();
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

/// The lines that a thread logs for one frame: before the moment that counts, and behind it.
using Turn = std::pair<LogLines, LogLines>;

double bareHandover(double share, const Turn& receiversTurn) {
    Flag flag;
    Signals signals;
    std::thread receiver([&] {
        for (int round = 0; round < rounds; ++round) {
            flag.await();
            receiversTurn.first.write();
            signals.note();
            receiversTurn.second.write();
        }
    });
    signals.send([&] { flag.raise(); });
    receiver.join();
    return signals.percentile(share);
}

double signalToWait(Board& board, double share) {
    Signals signals;
    std::thread receiver([&] {
        for (int round = 0; round < rounds; ++round) {
            board.facade->WaitImage(waitMs);
            signals.note();
        }
    });
    signals.send([event = board.frameEvent()] { platform::signalEvent(event); });
    receiver.join();
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

/// What stands against a figure of the handover. The lines that the library logs between signal and receiver are many
/// times the handover, and a hundredth of them finds the file's buffer full.
enum class Against {
    Bare,       ///< the handover alone, for the library as it is shipped
    BareNoLog,  ///< the handover alone, for the library with its log switched off
    WithLog     ///< the handover with the lines of the log, written by the logger alone
};

const char* suffix(Against against) {
    switch (against) {
        case Against::Bare:
            return "";
        case Against::BareNoLog:
            return "/log-off";
        case Against::WithLog:
            break;
    }
    return "/against-log";
}

void addLatency(const Receiver& receiver, const char* what, double share, double bound, Against against) {
    Figure figure;
    figure.name = std::string("signal-to-") + receiver.name + "/" + what + suffix(against);
    figure.bound = bound;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::smallestFrames());
        std::shared_ptr<QuietLog> quiet;
        Turn turn;
        if (against == Against::BareNoLog) quiet = std::make_shared<QuietLog>();
        if (against == Against::WithLog)
            turn = LogLines::of([&] { receiver.measure(*board, share); }).round(wokenLine, receiver.lastLine);
        return [=, keep = quiet] {
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
    std::thread peer([&] {
        for (int round = 0; round < rounds; ++round) {
            there.await();
            liveThreadsTurn.first.write();
            back.raise();
            liveThreadsTurn.second.write();
        }
    });
    const std::chrono::nanoseconds begin = wallTime();
    for (int round = 0; round < rounds; ++round) {
        there.raise();
        back.await();
        waitersTurn.first.write();
        waitersTurn.second.write();
    }
    const std::chrono::nanoseconds spent = wallTime() - begin;
    peer.join();
    return Seconds(spent).count() / rounds;
}

void addLockStep(Against against) {
    Figure figure;
    figure.name = std::string("frames-per-second/49KB") + suffix(against);
    figure.limit = Limit::AtLeast;
    figure.bound = 0.6;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(Board::smallestFrames());
        std::shared_ptr<QuietLog> quiet;
        Turn live;
        Turn waiter;
        if (against == Against::BareNoLog) quiet = std::make_shared<QuietLog>();
        if (against == Against::WithLog) {
            const LogLines lines = LogLines::of([&] { lockStep(*board); });
            live = lines.round("Acquired frame", "FRAME_EVENT: Signal");
            waiter = lines.round(wokenLine, waitImage.lastLine);
        }
        return [=, keep = quiet] {
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
    for (const Against against : {Against::BareNoLog, Against::WithLog}) addLockStep(against);
    for (const Receiver& receiver : {waitImage, callback}) {
        addLatency(receiver, "median", median, 1.5, Against::Bare);
        for (const Against against : {Against::BareNoLog, Against::WithLog})
            addLatency(receiver, "99th", worstOfAHundred, 2.0, against);
    }
    addWaitAllocations();
}

}  // namespace bench
