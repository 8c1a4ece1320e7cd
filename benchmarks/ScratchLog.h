#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "platform/DataFolder.h"

namespace bench {

/// A folder for the library's log that goes with the program.
class ScratchLog {
public:
    ScratchLog() : path(make()), substitute(path) {}
    ~ScratchLog() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchLog(const ScratchLog&) = delete;
    ScratchLog& operator=(const ScratchLog&) = delete;

private:
    static std::string make() {
        std::string name = (std::filesystem::temp_directory_path() / "qrapi-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder can be made in " + name);
        return name;
    }
    std::string path;
    platform::ScopedDataFolder substitute;
};

}  // namespace bench
