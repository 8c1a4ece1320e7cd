#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/export.h"

/// Auto-reset events with untyped handles. Any thread may call any function here.
///
/// A handle is a key into a table, not an address: one that was closed, or never existed, is recognised. An event holds
/// one signal, not a count; a wait that ends with the signal consumes it.
namespace platform {

inline constexpr std::uint32_t waitSignaled = 0;         ///< result of `waitForEvent`: the signal was consumed
inline constexpr std::uint32_t waitTimedOut = 258;       ///< result of `waitForEvent`: no signal in time
inline constexpr std::uint32_t waitFailed = 0xFFFFFFFF;  ///< result of `waitForEvent`: the event is closed

/// The time-out of a wait without end.
inline constexpr std::uint32_t waitForever = 0xFFFFFFFF;

/// Creates an event without a signal; never null.
QRAPI_EXPORT void* createAutoResetEvent();

/// Signals the event; a closed one is ignored.
QRAPI_EXPORT void signalEvent(void* event);

/// Clears a signal that no wait has consumed; a closed event is ignored.
QRAPI_EXPORT void resetEvent(void* event);

/// Waits for the signal; a time-out of 0 polls.
/// @return `waitSignaled`, `waitTimedOut`, or `waitFailed` as soon as the event is closed, with the last error set
QRAPI_EXPORT std::uint32_t waitForEvent(void* event, std::uint32_t timeoutMs);

/// Closes the event and ends the waits on it.
/// @return not 0 if it was open
QRAPI_EXPORT int closeEvent(void* event);

/// The number of open events in this process.
QRAPI_EXPORT std::size_t openEventCount();

}  // namespace platform
