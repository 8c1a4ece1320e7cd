#pragma once

#include <memory>

#include "export.h"

namespace spdlog {
class logger;
}

/// The process's only logger, shared by all detector objects; created at the first call.
///
/// It writes to qrapi_log.txt in the folder Selvo/QRAPI under the user's local application data, at level `debug`,
/// rotating at 20971520 bytes with 5 rotated files. If that fails it is a logger named "NullQorLogger" with level
/// `off`, and the library works without a log. Any thread may call; failed writes are ignored. Lines may be written
/// while the library holds a lock: a sink that the application adds must not call the library.
/// @return the logger, never null
QRAPI_EXPORT std::shared_ptr<spdlog::logger> getQorLogger();
