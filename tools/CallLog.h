#pragma once

#include <iosfwd>
#include <memory>

namespace spdlog::sinks {
class sink;
}

namespace tool {

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
