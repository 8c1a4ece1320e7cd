#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "../platform/Mutex.h"
#include "../platform/export.h"

namespace simulator {

/// What can be made to go wrong. Each fault has an occasion, told behind its name.
enum class Fault {
    SilentLine,       ///< serial command: no reply
    LateReply,        ///< serial command: the reply comes `value` ms late
    ChunkedReply,     ///< serial command: the reply arrives in pieces of `value` bytes, 1 ms apart
    NoisyReply,       ///< serial command: one byte before the carriage return is another one (chosen by the seed)
    ShortReply,       ///< serial command: the last character before the carriage return is missing
    ForeignReply,     ///< register read command: answered with "E"
    StuckRegister,    ///< write of register `value`: it keeps its content
    RefusedExposure,  ///< exposure latch: the window keeps its old value
    BusyFlash,        ///< flash status read: bit 15 stays set
    ZeroReadoutTime,  ///< readout time read: register 410 reads 0
    NoTemperature,    ///< temperature read: the reading never gets ready
    RefusedErase,     ///< flash erase command: answered with "E"
    EndlessErase,     ///< flash erase command: the erase never ends
    WrongChecksum,    ///< flash data packet: the reply carries another checksum
    SilentPacket,     ///< flash data packet: no reply, nothing is written
    LostFrame,        ///< frame: exposed, never delivered
    TruncatedFrame,   ///< frame: delivered with its second half missing, marked as incomplete
    FailedFrame,      ///< frame: delivered with a failed result
    Unplugged,        ///< every transport call: the device is gone
    RefusedConnect,   ///< control channel connect
    RefusedStream,    ///< stream open
    RefusedFeature,   ///< feature access: any access to the feature named by the fault's text fails
    SlowCall,         ///< feature access: takes `value` ms
};

/// When a fault happens.
struct When {
    int first = 1;             ///< the nth occasion, counted from 1 from the moment the fault is set
    bool onward = false;       ///< true: at that occasion and each later one; false: once
    int value = 0;             ///< what the fault's description calls `value`
    double probability = 1.0;  ///< below 1: each occasion in range is hit by chance, from the seed
};

/// The faults set on one simulated detector. Any thread may call.
class QRAPI_EXPORT Faults {
public:
    /// `feature` is only looked at for `RefusedFeature`; empty means every feature.
    void set(Fault fault, When when = {}, std::string_view feature = {});
    void clear(Fault fault);  ///< takes away every setting of the fault
    void clearAll();          ///< takes away all faults
    /// Seeds the chances and the noise; a run with the same seed and calls repeats itself. The start seed is 1.
    void seed(std::uint32_t value);

    /// Counts one occasion of the fault. Holds the fault's `value` if it strikes now.
    std::optional<int> strikes(Fault fault, std::string_view feature = {});
    /// Counts one write of the register as an occasion of `StuckRegister`. True if the write has no effect.
    bool registerSticks(int reg);
    /// A number from 0 to `below` - 1, from the seed.
    std::uint32_t chance(std::uint32_t below);

private:
    struct Entry {
        When when;
        int occasions = 0;
        std::string feature;
    };
    static constexpr double range = 4294967296.0;  // one more than the highest random number
    static constexpr std::uint32_t bit(Fault fault) { return 1U << static_cast<unsigned>(fault); }
    template <typename Concerns>
    std::optional<int> strikesWhere(Fault fault, Concerns concerns);

    std::atomic<std::uint32_t> setFaults{0};  ///< one bit per fault, so that an unset one costs no lock
    platform::Mutex mutex;
    std::multimap<Fault, Entry> entries GUARDED_BY(mutex);
    std::mt19937 random GUARDED_BY(mutex){1};
};

}  // namespace simulator
