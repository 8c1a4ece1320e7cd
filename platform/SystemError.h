#pragma once

#include <string>

#include "platform/export.h"

/// The calling thread's last system error.
namespace platform {

QRAPI_EXPORT int lastError();               ///< the error number; 0 for none
QRAPI_EXPORT void setLastError(int error);  ///< sets the error number; 0 for none

/// The system's message for an error number.
QRAPI_EXPORT std::string systemErrorText(int error);

}  // namespace platform
