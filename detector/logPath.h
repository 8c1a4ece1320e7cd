#pragma once

#include <memory>
#include <string>

namespace spdlog {
class logger;
}

/// The path of the log file; makes its directories. Throws a `QuorinException` with code 10 if that fails.
std::string getLogPath();

/// Makes the logger of `getQorLogger`: the file logger, or the silent one if that fails.
std::shared_ptr<spdlog::logger> createQorLogger();
