#include "tools/PartialFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "platform/SystemError.h"

namespace tool {
namespace {

constexpr mode_t everyoneReadsAndWrites = 0666;  // less the user's umask

/// Makes a new file beside `path`; its name, and an open descriptor or -1.
std::pair<std::string, int> createBeside(const std::string& path) {
    constexpr int attempts = 100;
    std::string name;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        name = path + ".partial-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        const int descriptor = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, everyoneReadsAndWrites);
        if (descriptor >= 0 || errno != EEXIST) return {name, descriptor};
    }
    return {name, -1};
}

}  // namespace

PartialFile::PartialFile(std::string pathToWrite) : path(std::move(pathToWrite)) {
    std::tie(temporaryPath, file) = createBeside(path);
    if (file < 0) fail(platform::systemErrorText(errno));
    unfinished.emplace(temporaryPath);
}

PartialFile::~PartialFile() {
    close(file);
    if (!committed) unlink(temporaryPath.c_str());
}

void PartialFile::append(const void* bytes, std::size_t count) {
    const auto* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t written = ::write(file, next, count);
        if (written < 0) {
            if (errno == EINTR) continue;
            fail(platform::systemErrorText(errno));
        }
        next += written;
        count -= static_cast<std::size_t>(written);
    }
}

std::uint64_t PartialFile::size() const {
    struct stat found {};
    if (fstat(file, &found) != 0) fail(platform::systemErrorText(errno));
    return static_cast<std::uint64_t>(found.st_size);
}

void PartialFile::truncate(std::uint64_t bytes) {
    const auto end = static_cast<off_t>(bytes);
    if (ftruncate(file, end) != 0 || lseek(file, end, SEEK_SET) != end) fail(platform::systemErrorText(errno));
}

void PartialFile::reserve(std::uint64_t end) const {
    // The system reserves beyond the limit on a file's size and refuses the write only.
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && end > limit.rlim_cur)
        fail(platform::systemErrorText(EFBIG));
    int result = 0;
    do {
        result = fallocate(file, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(end));
    } while (result != 0 && errno == EINTR);
    if (result != 0 && (errno == ENOSPC || errno == EFBIG || errno == EDQUOT || errno == EIO))
        fail(platform::systemErrorText(errno));
}

void PartialFile::sync() const {
    if (fsync(file) != 0) fail(platform::systemErrorText(errno));
}

void PartialFile::commit() {
    if (std::rename(temporaryPath.c_str(), path.c_str()) != 0) fail(platform::systemErrorText(errno));
    committed = true;
}

void PartialFile::withdraw() noexcept {
    if (committed) unlink(path.c_str());
}

void PartialFile::fail(const std::string& reason) const {
    throw std::runtime_error("cannot write " + path + ": " + reason);
}

}  // namespace tool
