#pragma once

#include <string>

#include "export.h"

namespace platform {

/// The user's folder for application data.
struct DataFolder {
    int result = 0;    ///< negative when the folder can't be told or made: minus the error number
    std::string path;  ///< without a trailing separator
};

/// On POSIX `.local/share` below the home directory of the user's entry in the password database, created with its
/// parents; never taken from an environment variable.
QRAPI_EXPORT DataFolder localDataFolder();

/// Makes one directory. Returns 0 or the error number; a path that exists gives EEXIST, also when it is a directory.
QRAPI_EXPORT int makeDirectory(const std::string& path);

/// While this object exists, `localDataFolder` answers with `result` and `path`. For tests; the objects nest.
class QRAPI_EXPORT ScopedDataFolder {
public:
    /// A `result` other than 0 makes `localDataFolder` fail with it.
    explicit ScopedDataFolder(std::string path, int result = 0);
    ~ScopedDataFolder();
    ScopedDataFolder(const ScopedDataFolder&) = delete;
    ScopedDataFolder& operator=(const ScopedDataFolder&) = delete;

private:
    DataFolder previous;
    bool hadPrevious;
};

}  // namespace platform
