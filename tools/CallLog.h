#pragma once

#include <iosfwd>
#include <memory>
#include <string>

namespace spdlog::sinks {
class sink;
}

namespace tool {

/// Why the library can't write its log; empty if it can. Makes the log's folders and file, as the library does.
std::string logProblem();

/// While it exists, each line of the library's log is printed as well, with the seconds since the object was made:
/// what `--verbose` shows. Make it before any detector, and let it outlive them.
class CallLog {
public:
    explicit CallLog(std::ostream& stream);
    ~CallLog();
    CallLog(const CallLog&) = delete;
    CallLog& operator=(const CallLog&) = delete;

private:
    std::shared_ptr<spdlog::sinks::sink> sink;
};

}  // namespace tool
