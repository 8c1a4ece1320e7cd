#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/export.h"

/// Auto-reset events behind untyped handles. Any thread may call any function here.
///
/// A handle is a key into a table, never an address: a handle that was closed, or never existed, is recognised.
/// An event holds one signal, not a count; a wait that ends with the signal consumes it.
namespace platform {

/// Results of `waitForEvent`.
inline constexpr std::uint32_t waitSignaled = 0;
inline constexpr std::uint32_t waitTimedOut = 258;
inline constexpr std::uint32_t waitFailed = 0xFFFFFFFF;

/// The time-out that never runs out.
inline constexpr std::uint32_t waitForever = 0xFFFFFFFF;

/// Creates an event without a signal; never null.
QRAPI_EXPORT void* createAutoResetEvent();

/// Signals the event; a closed one is ignored.
QRAPI_EXPORT void signalEvent(void* event);

/// Takes away a signal that nobody has consumed; a closed event is ignored.
QRAPI_EXPORT void resetEvent(void* event);

/// Waits for the signal: `waitSignaled`, `waitTimedOut`, or `waitFailed` at once for a closed event, also when it is
/// closed during the wait. After `waitFailed` the last error is set. A time-out of 0 polls.
QRAPI_EXPORT std::uint32_t waitForEvent(void* event, std::uint32_t timeoutMs);

/// Closes the event and ends the waits on it. Non-zero if it was open.
QRAPI_EXPORT int closeEvent(void* event);

/// How many events are open in this process.
QRAPI_EXPORT std::size_t openEventCount();

}  // namespace platform
