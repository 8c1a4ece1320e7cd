#include "tools/CallLog.h"

#include <qrapi/logging.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <mutex>
#include <ostream>
#include <sstream>

#include "platform/Clock.h"
#include "platform/DataFolder.h"
#include "platform/SystemError.h"
#include "tools/service.h"

namespace tool {
namespace {

class TimedLines : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit TimedLines(std::ostream& target) : stream(target) {}

protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        constexpr int timeWidth = 9;
        constexpr int timeDigits = 3;
        std::ostringstream line;  // its own stream, so that the target keeps its format
        line << std::fixed << std::setprecision(timeDigits) << std::setw(timeWidth)
             << std::chrono::duration<double>(platform::now() - start).count() << " s  "
             << std::string_view(message.payload.data(), message.payload.size()) << "\n";
        stream << line.str();
    }
    void flush_() override { stream.flush(); }

private:
    std::ostream& stream;
    const platform::Time start = platform::now();
};

}  // namespace

std::string logProblem() {
    namespace fs = std::filesystem;
    try {
        const fs::path path = logPath();
        const fs::path folder = path.parent_path();
        for (const fs::path& made : {folder.parent_path(), folder}) {
            const int error = platform::makeDirectory(made.string());
            if (error != 0 && error != EEXIST)
                return made.string() + " can't be made: " + platform::systemErrorText(error);
        }
        errno = 0;
        if (!std::ofstream(path, std::ios::app))
            return path.string() + " can't be written: " + platform::systemErrorText(errno);
        return {};
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

CallLog::CallLog(std::ostream& stream) : sink(std::make_shared<TimedLines>(stream)) {
    const std::shared_ptr<spdlog::logger> logger = getQorLogger();
    if (logger->level() == spdlog::level::off)
        stream << "the library's log can't be made, so its calls are not shown\n";
    logger->sinks().push_back(sink);
}

CallLog::~CallLog() {
    std::vector<spdlog::sink_ptr>& sinks = getQorLogger()->sinks();
    sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
}

}  // namespace tool
