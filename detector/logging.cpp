#include "logging.h"

#include <fmt/format.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <cerrno>

#include "InternalUtils/Failure.h"
#include "detector/logPath.h"
#include "platform/DataFolder.h"

namespace {

constexpr std::size_t rotationBytes = 20971520;
constexpr std::size_t rotatedFiles = 5;

void ignoreFailure(const std::string& /*message*/) {}

std::shared_ptr<spdlog::logger> createFileLogger() {
    // Not by spdlog's factories, which would apply the application's global pattern, level and flush policy.
    auto sink =
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(getLogPath(), rotationBytes, rotatedFiles, false);
    auto logger = std::make_shared<spdlog::logger>("QorLogger", std::move(sink));
    logger->set_level(spdlog::level::debug);
    logger->set_error_handler(ignoreFailure);
    spdlog::register_logger(logger);
    return logger;
}

std::shared_ptr<spdlog::logger> createSilentLogger() {
    auto sink = std::make_shared<spdlog::sinks::stdout_color_sink_mt>();
    auto logger = std::make_shared<spdlog::logger>("NullQorLogger", std::move(sink));
    logger->set_level(spdlog::level::off);
    logger->set_error_handler(ignoreFailure);
    return logger;
}

}  // namespace

std::string getLogPath() {
    constexpr const char* here = "`anonymous-namespace'::getLogPath";
    const platform::DataFolder folder = platform::localDataFolder();
    if (folder.result < 0)
        fail(fmt::format("Unable to get path to local AppData folder, SHGetKnownFolderPath() returned {}",
                         folder.result),
             DerrFile, here);
    std::string path = folder.path;
    for (const char* level : {"/Selvo", "/QRAPI"}) {
        path += level;
        const int error = platform::makeDirectory(path);
        if (error != 0 && error != EEXIST)
            fail(fmt::format("Unable to create directory {}: error {}", path, error), DerrFile, here);
    }
    return path + "/qrapi_log.txt";
}

std::shared_ptr<spdlog::logger> createQorLogger() {
    try {
        return createFileLogger();
    } catch (const std::exception&) {
        return createSilentLogger();
    }
}

std::shared_ptr<spdlog::logger> getQorLogger() {
    // Never destroyed: a static object of the application may own a detector and log until the process ends. The C
    // library flushes the file after that.
    static const auto* const theLogger = new std::shared_ptr<spdlog::logger>(createQorLogger());
    return *theLogger;
}
