#include "tools/Archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/SystemError.h"

namespace tool {

Archive::Archive(std::string target) : path(std::move(target)), temporaryPath(path + ".XXXXXX") {
    constexpr mode_t readableByAll = 0644;
    descriptor = mkstemp(temporaryPath.data());
    if (descriptor < 0) failWriting(platform::systemErrorText(errno));
    try {
        if (fchmod(descriptor, readableByAll) != 0) failWriting(platform::systemErrorText(errno));
        writer = archive_write_new();
        if (writer == nullptr) failWriting("no memory");
        expect(archive_write_add_filter_gzip(writer));
        expect(archive_write_set_format_pax_restricted(writer));
        expect(archive_write_open_fd(writer, descriptor));
    } catch (...) {
        archive_write_free(writer);
        close(descriptor);
        unlink(temporaryPath.c_str());
        throw;
    }
}

Archive::~Archive() {
    archive_write_free(writer);
    if (descriptor < 0) return;
    close(descriptor);
    unlink(temporaryPath.c_str());
}

void Archive::add(const std::string& name, const std::string& content) {
    constexpr mode_t readableByAll = 0644;
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(), archive_entry_free);
    if (entry == nullptr) failWriting("no memory");
    struct stat written {};
    if (fstat(descriptor, &written) != 0) failWriting(platform::systemErrorText(errno));
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), readableByAll);
    archive_entry_set_mtime(entry.get(), written.st_mtime, 0);
    expect(archive_write_header(writer, entry.get()));
    const la_ssize_t taken = archive_write_data(writer, content.data(), content.size());
    if (taken != static_cast<la_ssize_t>(content.size())) expect(ARCHIVE_FATAL);
    expect(archive_write_finish_entry(writer));
}

void Archive::commit() {
    expect(archive_write_close(writer));
    const int closed = close(std::exchange(descriptor, -1));
    const int closeError = errno;
    std::error_code failure;
    if (closed == 0) std::filesystem::rename(temporaryPath, path, failure);
    if (closed == 0 && !failure) return;
    unlink(temporaryPath.c_str());
    failWriting(closed != 0 ? platform::systemErrorText(closeError) : failure.message());
}

void Archive::expect(int result) const {
    if (result >= ARCHIVE_WARN) return;
    const int error = archive_errno(writer);
    failWriting(error > 0 ? platform::systemErrorText(error) : archive_error_string(writer));
}

void Archive::failWriting(const std::string& reason) const {
    throw std::runtime_error("cannot write " + path + ": " + reason);
}

}  // namespace tool
