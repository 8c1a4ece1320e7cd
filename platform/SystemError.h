#pragma once

#include <string>

#include "platform/export.h"

/// The calling thread's last system error.
namespace platform {

QRAPI_EXPORT int lastError();
QRAPI_EXPORT void setLastError(int error);

/// The system's message for an error number.
QRAPI_EXPORT std::string systemErrorText(int error);

}  // namespace platform
