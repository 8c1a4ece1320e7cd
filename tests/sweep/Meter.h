#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Mutex.h"

/// The sweep: every call that the library makes to a vendor library, made to go wrong in every way.
namespace sweep {

/// How a call goes wrong.
enum class Kind {
    FailsOnce,          ///< a failed result, once
    FailsOnward,        ///< a failed result from then on
    StandardException,  ///< throws a std::exception
    ForeignObject,      ///< throws something else
    TimesOutOnce,       ///< takes its time and brings nothing, once
    TimesOutOnward,     ///< the same from then on
    ShortData,          ///< brings less than was asked for
    GarbageData,        ///< brings something else, from then on
    DeviceGone,         ///< the detector is unplugged from then on
};
inline constexpr int kindCount = 9;
const char* nameOf(Kind kind);

/// What can happen to a call, as bits.
enum Ability : unsigned {
    CanThrow = 1,
    CanFail = 2,
    CanTimeOut = 4,
    CanBeShort = 8,
    CanBeGarbage = 16,
    TouchesDevice = 32,
};
bool applies(Kind kind, unsigned abilities);

struct CallPoint {
    std::string name;
    std::string detail;     ///< feature or serial command
    std::string operation;  ///< of the public interface, that it was made for
    unsigned abilities = 0;
};

/// The fault of one run: the `number`th call of a thread. Thread 0 is the application, then in the order of their
/// start.
struct Plan {
    Kind kind;
    int thread;
    int number;
};

/// A call that went wrong.
struct Strike {
    CallPoint call;
    Kind kind;
    int thread;
};

/// The operation that stands for what the live and the callback thread do.
inline constexpr const char* threadsOfTheLibrary = "(live and callback thread)";

/// What the swept calls throw where they throw what is no exception.
struct ForeignObject {};
inline constexpr const char* standardText = "swept exception";
inline constexpr const char* vendorText = "swept failure";

/// Counts the calls of every thread and says which of them go wrong, and how.
class Meter {
public:
    /// From now on calls are counted, and struck as planned.
    void arm(std::vector<Plan> plannedFaults);
    void disarm();
    /// One call. It goes wrong in the way that is returned. The ways that throw are thrown here.
    std::optional<Kind> enter(const char* name, const std::string& detail, unsigned abilities);
    /// A call that the stand-in let fail, since the device is gone.
    void noteGone(const char* name, const std::string& detail);
    /// Data that a call brought was spoiled: with these kinds it is a strike only then.
    void noteSpoiled(const char* name, const std::string& detail, Kind kind);
    bool isGone() const;

    void setOperation(const std::string& operation);
    std::vector<Strike> takeStrikes();
    std::map<int, std::vector<CallPoint>> calls() const;  ///< made since `arm`, by thread

    /// Runs a thread's body under its number.
    static void runAs(int thread, const std::function<void()>& body);

    std::function<void()> unplug;                        ///< called without a lock held
    std::function<void(const std::string&)> atEachCall;  ///< what a broken double does besides; empty in earnest

private:
    void addStrike(const char* name, const std::string& detail, Kind kind) REQUIRES(mutex);

    mutable platform::Mutex mutex;
    bool armed GUARDED_BY(mutex) = false;
    bool gone GUARDED_BY(mutex) = false;
    std::optional<Kind> onward GUARDED_BY(mutex);
    std::string operationName GUARDED_BY(mutex);
    std::vector<Plan> plans GUARDED_BY(mutex);
    std::map<int, std::vector<CallPoint>> made GUARDED_BY(mutex);
    std::vector<Strike> strikes GUARDED_BY(mutex);
};

}  // namespace sweep
