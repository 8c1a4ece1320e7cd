// What it takes to hand a frame from one thread to another.

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "benchmarks/Board.h"
#include "benchmarks/FrameSource.h"
#include "benchmarks/allFigures.h"
#include "platform/Event.h"

namespace bench {
namespace {

constexpr int waitMs = 5000;
constexpr int rounds = 1000;

Board::Setup smallFrames() {
    return {TransportGE, "5101", Bin4x4};
}

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

double bareHandover(double share) {
    Flag flag;
    Signals signals;
    std::thread receiver([&] {
        for (int round = 0; round < rounds; ++round) {
            flag.await();
            signals.note();
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

void addLatency(const std::string& name, double (*measure)(Board&, double), double share, double bound) {
    Figure figure;
    figure.name = name;
    figure.bound = bound;
    figure.prepare = [=]() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(smallFrames());
        return [=] {
            const double bare = bareHandover(share);
            return Sample{measure(*board, share), bare};
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

double bareLockStep() {
    Flag there;
    Flag back;
    std::thread peer([&] {
        for (int round = 0; round < rounds; ++round) {
            there.await();
            back.raise();
        }
    });
    const std::chrono::nanoseconds begin = wallTime();
    for (int round = 0; round < rounds; ++round) {
        there.raise();
        back.await();
    }
    const std::chrono::nanoseconds spent = wallTime() - begin;
    peer.join();
    return Seconds(spent).count() / rounds;
}

void addLockStep() {
    Figure figure;
    figure.name = "frames-per-second/WaitImage/0.17MB";
    figure.limit = Limit::AtLeast;
    figure.bound = 0.6;
    figure.prepare = []() -> std::function<Sample()> {
        const auto board = std::make_shared<Board>(smallFrames());
        return [=] {
            const double bare = bareLockStep();
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
        const auto board = std::make_shared<Board>(smallFrames());
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
    constexpr double median = 0.5;
    constexpr double worstOfAHundred = 0.99;
    addLockStep();
    addLatency("signal-to-WaitImage/median", signalToWait, median, 1.5);
    addLatency("signal-to-WaitImage/99th", signalToWait, worstOfAHundred, 2.0);
    addLatency("signal-to-callback/median", signalToCallback, median, 1.5);
    addLatency("signal-to-callback/99th", signalToCallback, worstOfAHundred, 2.0);
    addWaitAllocations();
}

}  // namespace bench
