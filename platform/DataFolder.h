#pragma once

#include <string>

#include "export.h"

namespace platform {

/// The user's folder for application data.
struct DataFolder {
    int result = 0;    ///< negative if the folder is unknown or cannot be made: minus the error number
    std::string path;  ///< without a trailing separator
};

/// Finds the folder and creates it with its parents. On POSIX it is `.local/share` in the home directory of the user's
/// entry in the password database; environment variables are ignored.
QRAPI_EXPORT DataFolder localDataFolder();

/// Makes one directory.
/// @return 0 or the error number; EEXIST for a path that exists, directory or not
QRAPI_EXPORT int makeDirectory(const std::string& path);

/// While this object exists, `localDataFolder` returns `result` and `path`. For tests; the objects nest.
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
