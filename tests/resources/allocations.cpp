#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/FacadeCalls.h"
#include "support/LiveRig.h"
#include "support/TransportRig.h"

/// Memory that runs out in the middle of a call: the call fails or gets by without, the object closes, opens and snaps.
/// Refused is what the library asks for. The stand-ins of vendor libraries and hardware have theirs.

namespace {

struct Plan {
    long next = 0;        ///< number of the allocation to refuse, counted from 1; 0: none
    bool onward = false;  ///< and each later one
    long asked = 0;
    long refused = 0;
};
thread_local Plan plan;

bool asksAStandIn() {
    std::array<void*, 64> frames{};
    const int depth = backtrace(frames.data(), static_cast<int>(frames.size()));
    return std::any_of(frames.begin(), frames.begin() + depth, [](const void* address) {
        Dl_info place{};
        return dladdr(address, &place) != 0 && std::strstr(place.dli_fname, "libqrapi_simulation") != nullptr;
    });
}

void* allocate(std::size_t size) {
    if (plan.next > 0 && ++plan.asked >= plan.next && (plan.onward || plan.refused == 0) && !asksAStandIn()) {
        ++plan.refused;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;  // NOLINT: this is the allocator
    throw std::bad_alloc();
}

/// While this object exists the thread's allocation of the number is refused, or all from that one on.
class RefusedMemory {
public:
    RefusedMemory(long number, bool onward) {
        asksAStandIn();  // the first time it allocates
        plan = {number, onward, 0, 0};
    }
    ~RefusedMemory() { plan.next = 0; }
    RefusedMemory(const RefusedMemory&) = delete;
    RefusedMemory& operator=(const RefusedMemory&) = delete;
};

constexpr long beyondAll = 1L << 40;

/// Numbers of allocations to refuse: the first ones, then ever fewer, or all of them if the environment asks for it.
std::vector<long> numbersUpTo(long last) {
    static const bool all = std::getenv("QRAPI_EVERY_ALLOCATION") != nullptr;
    std::vector<long> numbers;
    for (long number = 1; number <= last; number += all || number < 10 ? 1 : 1 + last / 13) numbers.push_back(number);
    return numbers;
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);  // NOLINT: this is the allocator
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);  // NOLINT: this is the allocator
}

namespace {

using D = QuorinDetector;

struct Scenario {
    const char* name;
    std::function<void(D&)> prepare;
    std::function<void(std::unique_ptr<D>&)> call;
    bool hasThreads = false;  ///< on GigE, which the virtual clock doesn't serve
    bool perFrame = false;    ///< made for each frame: takes no memory
};

const std::vector<Scenario>& scenarios() {
    static std::vector<unsigned char> frame(std::size_t{3072} * 864 * 2);
    static QorImage image;
    static const support::TemporaryFile configuration("qrapi-settings-", "# two\nW106000001\nR1600\n");
    static const std::string configurationPath = configuration.path();
    static const support::TemporaryFile firmware("qrapi-image-", std::string(2048, 'f'));
    static const std::string firmwarePath = firmware.path();
    const auto closed = [](D&) {};
    const auto open = [](D& d) { d.OpenBoard(2); };
    const auto exposed = [](D& d) {
        d.OpenBoard(2);
        d.Snap(0, 5000);
        image = QorImage();
    };
    const auto live = [](D& d) {
        d.OpenBoard(2);
        d.GoLiveSeq();
    };
    static const std::vector<Scenario> all{
        {"OpenBoard", closed, [](auto& d) { d->OpenBoard(); }},
        {"OpenBoard(2)", closed, [](auto& d) { d->OpenBoard(2); }},
        {"Snap", open, [](auto& d) { d->Snap(1, 5000); }},
        {"WaitImage", exposed, [](auto& d) { d->WaitImage(1); }},
        {"ReadBuffer", exposed, [](auto& d) { d->ReadBuffer(0, image, 1); }},
        {"ReadBuffer to memory", exposed, [](auto& d) { d->ReadBuffer(0, frame.data()); }, false, true},
        {"ClearBuffers", open, [](auto& d) { d->ClearBuffers(); }},
        {"SetROIArea", open, [](auto& d) { d->SetROIArea(3072, 128); }},
        {"SetROIEnabled", open, [](auto& d) { d->SetROIEnabled(true); }},
        {"SetBinningMode", open, [](auto& d) { d->SetBinningMode(Bin4x4); }},
        {"SetExposureTime", open, [](auto& d) { d->SetExposureTime(30.0F); }},
        {"EnablePulseGenerator", open, [](auto& d) { d->EnablePulseGenerator(20.0F); }},
        {"LoadSensorConfigFile", open, [](auto& d) { d->LoadSensorConfigFile(configurationPath.c_str()); }},
        {"UploadFirmware", open, [](auto& d) { d->UploadFirmware(firmwarePath.c_str(), 1, false); }},
        {"SendCommand refused", open, [](auto& d) { d->ReadRegister(1000, 1); }},
        {"GoLiveSeq", open, [](auto& d) { d->GoLiveSeq(); }, true},
        {"GoUnLive", live, [](auto& d) { d->GoUnLive(); }, true},
        {"CloseBoard", open, [](auto& d) { d->CloseBoard(); }},
        {"destruction", open, [](auto& d) { d.reset(); }},
        {"destruction in a run", live, [](auto& d) { d.reset(); }, true},
    };
    return all;
}

class Allocations : public support::VirtualRoadTest {
protected:
    /// The call with a refusal. How many allocations were asked for.
    long run(const Scenario& scenario, long number, bool onward) {
        detector = road.make();
        scenario.prepare(*detector);
        try {
            const RefusedMemory refused(number, onward);
            scenario.call(detector);
        } catch (const QuorinException& failure) {
            EXPECT_STRNE(DerrName(failure.GetCode()), "unknown");
            EXPECT_STRNE(failure.what(), "");
        } catch (const std::exception& failure) {
            ADD_FAILURE() << "let out: " << failure.what();
        }
        return plan.asked;
    }
    void expectReopens() {
        if (detector != nullptr && detector->IsConnected()) {
            EXPECT_NO_THROW(detector->CloseBoard());
        }
        replaceDetector();
        EXPECT_NO_THROW(detector->OpenBoard(2));
    }
    void expectSnaps() {
        detector->DisablePulseGenerator();  // one that was half prepared mutes the trigger, after a close too
        detector->SetROIEnabled(false);
        detector->SetBinningMode(Bin1x1);
        hardware->writeRegister(0, edgesOnly);
        EXPECT_NO_THROW(expectSnap(0, panelWidth(), panelHeight()));
    }
};

}  // namespace

TEST_P(Allocations, RefusedInACallLeaveAnObjectThatClosesOpensAndSnaps) {
    int withAllocations = 0;
    for (const Scenario& scenario : scenarios()) {
        if (scenario.hasThreads && road.isGigE()) continue;
        const long asked = run(scenario, beyondAll, false);
        if (asked > 0) ++withAllocations;
        if (scenario.perFrame) {
            EXPECT_EQ(asked, 0) << scenario.name;
        }
        for (const bool onward : {false, true})
            for (const long number : numbersUpTo(asked)) {
                SCOPED_TRACE(std::string(scenario.name) + ", allocation " + std::to_string(number) +
                             (onward ? " onward" : ""));
                run(scenario, number, onward);
                expectReopens();
                if (number % 16 == 1) expectSnaps();
                if (HasFailure()) return;
            }
        expectReopens();
        expectSnaps();
    }
    EXPECT_GT(withAllocations, 10);
}

INSTANTIATE_TEST_SUITE_P(Road, Allocations, testing::ValuesIn(support::roads({"6112-kestrane"})),
                         testing::PrintToStringParamName());

namespace {

using LibraryThreads = support::LiveTest;

}  // namespace

TEST_P(LibraryThreads, WithoutMemoryEndOrGoOnAndTheNextRunWorks) {
    auto& startThread = support::Inside::threadMaker(detector);
    const auto realStart = startThread;
    for (const bool onward : {false, true})
        for (const bool withCallback : {false, true})
            for (long number = 1; number <= 24; ++number) {
                if (withCallback) rig.installCallback();
                startThread = [&](std::function<void()> body) {
                    return realStart([body = std::move(body), number, onward] {
                        const RefusedMemory refused(number, onward);
                        body();
                    });
                };
                support::failureOf([&] { detector.GoLiveSeq(0, 3, 2); });
                feed.give(2);
                support::failureOf([&] { detector.WaitImage(20); });
                EXPECT_NO_THROW(detector.GoUnLive());
                startThread = realStart;
                if (withCallback) {
                    EXPECT_NO_THROW(detector.StopCallback());
                }
                rig.expectNextRunWorks();
            }
}

INSTANTIATE_TEST_SUITE_P(On, LibraryThreads, support::onBothTransports, support::transportName);
