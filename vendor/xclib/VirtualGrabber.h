#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "../../platform/Mutex.h"
#include "../../platform/export.h"
#include "../../simulator/SimulatedDetector.h"

/// The virtual frame grabber: what tests and programs disturb, behind the functions of xcliball.h.
namespace grabber {

class FaultText;

/// Calls of one function that fail without doing anything.
struct Failure {
    std::string_view function;  ///< such as "pxe_goSnap"; the load of a video format is `formatLoad`
    int result = -1;            ///< what the call answers; one that answers an address gives null
    int first = 1;              ///< the nth call, counted from 1 from the moment the failure is set
    bool onward = false;        ///< true: that call and each later one; false: once
    /// The fault text that the call leaves; empty: it leaves none. Without one it is the usual text of the result if
    /// that is negative, else none.
    std::optional<std::string> faultText = std::nullopt;
};

inline constexpr std::string_view formatLoad = "formatLoad";

/// The grabber board of a slot, with the detector at its end of the link. It outlives the library states that open it,
/// and so does what is set here. A slot whose detector is exchanged, by `simulator::Rack::reset()` or by mounting
/// another, has a grabber with the start values. Any thread may call.
class QRAPI_EXPORT VirtualGrabber {
public:
    static constexpr std::uint64_t defaultMemoryBytes = std::uint64_t{512} << 20U;

    /// The grabber in the slot now; null if the slot is empty.
    static std::shared_ptr<VirtualGrabber> inSlot(int slot);
    /// The next `calls` calls of `pxe_XCLIBinstantiate` give null.
    static void failInstantiation(int calls);
    /// Is asked at each call that can be made to fail, of every grabber and of "pxe_XCLIBinstantiate"; a result that it
    /// gives is what the call answers, without doing anything. An empty one ends that.
    using Watcher = std::function<std::optional<int>(std::string_view function)>;
    static void setWatcher(Watcher watcher);

    explicit VirtualGrabber(std::shared_ptr<simulator::SimulatedDetector> detectorBehind);
    ~VirtualGrabber();
    VirtualGrabber(const VirtualGrabber&) = delete;
    VirtualGrabber& operator=(const VirtualGrabber&) = delete;

    /// Frame memory; acts at the next format load or `pxe_setVideoResolution`.
    void setMemory(std::uint64_t bytes);
    /// Throws std::invalid_argument for a function that can't be made to fail: unknown, or without a result.
    void fail(const Failure& failure);
    void clearFailures();
    /// Leaves a fault text with the library state that has the board open. False if none has.
    bool placeFaultText(std::string text);

    /// @cond the stand-in's own
    struct Struck {
        int result;
        std::optional<std::string> faultText;
    };
    /// Counts a call of the function. Holds what it fails with now.
    std::optional<Struck> strikes(std::string_view function);
    static bool instantiationFails();
    static std::optional<int> askWatcher(std::string_view function);
    std::uint64_t memoryBytes() const;
    void setUser(const std::shared_ptr<FaultText>& faultText);
    const std::shared_ptr<simulator::SimulatedDetector>& detector() const { return attached; }
    /// @endcond

private:
    struct Entry {
        std::string function;
        Struck outcome;
        int first;
        bool onward;
        int calls = 0;
    };

    const std::shared_ptr<simulator::SimulatedDetector> attached;
    mutable platform::Mutex mutex;
    std::uint64_t memory GUARDED_BY(mutex) = defaultMemoryBytes;
    std::vector<Entry> entries GUARDED_BY(mutex);
    std::weak_ptr<FaultText> user GUARDED_BY(mutex);
};

}  // namespace grabber
