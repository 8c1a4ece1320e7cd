#include "VirtualGrabber.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <map>
#include <stdexcept>
#include <utility>

#include "FaultText.h"
#include "simulator/Rack.h"

namespace grabber {
namespace {

// Without those that answer nothing or belong to no slot, and without the fault text's own.
constexpr std::string_view failingFunctions[] = {
    formatLoad,
    "pxe_PIXCIopen",
    "pxe_PIXCIclose",
    "pxe_infoUnits",
    "pxe_xclibEscape",
    "pxe_xclibEscaped",
    "pxe_setPixelFormatGrey",
    "pxe_setVideoResolution",
    "pxe_imageXdims",
    "pxe_imageYdims",
    "pxe_imageZdims",
    "pxe_imageZdim",
    "pxe_readuchar",
    "pxe_writeuchar",
    "pxe_goSnap",
    "pxe_goLiveSeq",
    "pxe_goAbortLive",
    "pxe_goUnLive",
    "pxe_goneLive",
    "pxe_capturedBuffer",
    "pxe_capturedFieldCount",
    "pxe_eventCapturedFieldCreate2",
    "pxe_setCameraLinkCCOut",
    "pxe_setExsyncPrincMode",
    "pxe_setExsyncPrin",
    "pxe_serialConfigure",
    "pxe_serialRead",
    "pxe_serialWrite",
};

std::atomic<int> failingInstantiations{0};

struct WatcherPlace {
    platform::Mutex mutex;
    std::shared_ptr<const VirtualGrabber::Watcher> watcher GUARDED_BY(mutex);

    static WatcherPlace& instance() {
        static WatcherPlace& theInstance = *new WatcherPlace;  // NOLINT: as the boards
        return theInstance;
    }
};

/// The boards that were looked at, by slot.
struct Boards {
    platform::Mutex mutex;
    std::map<int, std::shared_ptr<VirtualGrabber>> bySlot GUARDED_BY(mutex);

    static Boards& instance() {
        // Never destroyed: a board that is closed during the end of the process still finds it.
        static Boards& theInstance = *new Boards;  // NOLINT
        return theInstance;
    }
};

}  // namespace

std::shared_ptr<VirtualGrabber> VirtualGrabber::inSlot(int slot) {
    std::shared_ptr<simulator::SimulatedDetector> detector = simulator::Rack::instance().slot(slot);
    std::shared_ptr<VirtualGrabber> former;
    Boards& boards = Boards::instance();
    const platform::MutexLock lock(boards.mutex);
    std::shared_ptr<VirtualGrabber>& board = boards.bySlot[slot];
    if (detector == nullptr) {
        former = std::move(board);
        boards.bySlot.erase(slot);
        return nullptr;
    }
    if (board == nullptr || board->attached != detector)
        former = std::exchange(board, std::make_shared<VirtualGrabber>(detector));
    return board;
}

void VirtualGrabber::failInstantiation(int calls) {
    failingInstantiations = calls;
}

void VirtualGrabber::setWatcher(Watcher watcher) {
    auto next = watcher ? std::make_shared<const Watcher>(std::move(watcher)) : nullptr;
    WatcherPlace& place = WatcherPlace::instance();
    const platform::MutexLock lock(place.mutex);
    place.watcher.swap(next);
}

std::optional<int> VirtualGrabber::askWatcher(std::string_view function) {
    std::shared_ptr<const Watcher> asked;
    {
        WatcherPlace& place = WatcherPlace::instance();
        const platform::MutexLock lock(place.mutex);
        asked = place.watcher;
    }
    return asked != nullptr ? (*asked)(function) : std::nullopt;
}

bool VirtualGrabber::instantiationFails() {
    if (askWatcher("pxe_XCLIBinstantiate")) return true;
    int left = failingInstantiations;
    while (left > 0)
        if (failingInstantiations.compare_exchange_weak(left, left - 1)) return true;
    return false;
}

VirtualGrabber::VirtualGrabber(std::shared_ptr<simulator::SimulatedDetector> detectorBehind)
    : attached(std::move(detectorBehind)) {}

VirtualGrabber::~VirtualGrabber() = default;

void VirtualGrabber::setMemory(std::uint64_t bytes) {
    const platform::MutexLock lock(mutex);
    memory = bytes;
}

std::uint64_t VirtualGrabber::memoryBytes() const {
    const platform::MutexLock lock(mutex);
    return memory;
}

void VirtualGrabber::fail(const Failure& failure) {
    if (std::find(std::begin(failingFunctions), std::end(failingFunctions), failure.function) ==
        std::end(failingFunctions))
        throw std::invalid_argument("no call of the grabber fails by the name " + std::string(failure.function));
    const platform::MutexLock lock(mutex);
    entries.push_back(
        {std::string(failure.function), {failure.result, failure.faultText}, failure.first, failure.onward});
}

void VirtualGrabber::clearFailures() {
    const platform::MutexLock lock(mutex);
    entries.clear();
}

std::optional<VirtualGrabber::Struck> VirtualGrabber::strikes(std::string_view function) {
    std::optional<Struck> struck;
    if (const std::optional<int> result = askWatcher(function)) {
        struck.emplace();
        struck->result = *result;
        return struck;
    }
    const platform::MutexLock lock(mutex);
    for (Entry& entry : entries) {
        if (entry.function != function) continue;
        ++entry.calls;
        const bool now = entry.onward ? entry.calls >= entry.first : entry.calls == entry.first;
        if (now && !struck) struck = entry.outcome;
    }
    return struck;
}

void VirtualGrabber::setUser(const std::shared_ptr<FaultText>& faultText) {
    const platform::MutexLock lock(mutex);
    user = faultText;
}

bool VirtualGrabber::placeFaultText(std::string text) {
    std::shared_ptr<FaultText> place;
    {
        const platform::MutexLock lock(mutex);
        place = user.lock();
    }
    if (place == nullptr) return false;
    place->put(std::move(text));
    return true;
}

}  // namespace grabber
