#include "platform/DataFolder.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "platform/Mutex.h"

namespace platform {
namespace {

struct Substitute {
    Mutex mutex;
    std::optional<DataFolder> folder GUARDED_BY(mutex);
};

Substitute& substitute() {
    static Substitute theSubstitute;
    return theSubstitute;
}

DataFolder homeFolder() {
    std::vector<char> storage(16384);
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwuid_r(getuid(), &entry, storage.data(), storage.size(), &found);
    if (found == nullptr) return {-(error != 0 ? error : ENOENT), {}};
    return {0, entry.pw_dir};
}

}  // namespace

int makeDirectory(const std::string& path) {
    constexpr mode_t ownerWrites = 0755;
    return mkdir(path.c_str(), ownerWrites) == 0 ? 0 : errno;
}

DataFolder localDataFolder() {
    {
        Substitute& test = substitute();
        const MutexLock lock(test.mutex);
        if (test.folder) return *test.folder;
    }
    DataFolder folder = homeFolder();
    for (const char* level : {"/.local", "/share"}) {
        if (folder.result != 0) break;
        folder.path += level;
        const int error = makeDirectory(folder.path);
        if (error != 0 && error != EEXIST) folder = {-error, {}};
    }
    return folder;
}

ScopedDataFolder::ScopedDataFolder(std::string path, int result) {
    Substitute& test = substitute();
    const MutexLock lock(test.mutex);
    hadPrevious = test.folder.has_value();
    if (hadPrevious) previous = *test.folder;
    test.folder = DataFolder{result, std::move(path)};
}

ScopedDataFolder::~ScopedDataFolder() {
    Substitute& test = substitute();
    const MutexLock lock(test.mutex);
    if (hadPrevious)
        test.folder = previous;
    else
        test.folder.reset();
}

}  // namespace platform
