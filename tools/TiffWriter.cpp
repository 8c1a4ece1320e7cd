#include "tools/TiffWriter.h"

#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "platform/SystemError.h"

namespace tool {
namespace {

static_assert(std::endian::native == std::endian::little, "links of pages are read and written as they lie in memory");

constexpr std::uint64_t classicLimitBytes = 0xF0000000;  // leaves room for directories below the 4 GB of 32-bit offsets

int keepMessage(TIFF* /*file*/, void* kept, const char* /*module*/, const char* format, va_list arguments) {
    constexpr std::size_t longestMessage = 400;
    std::array<char, longestMessage> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    *static_cast<std::string*>(kept) = text.data();
    return 1;  // handled: libtiff prints nothing itself
}

int ignoreMessage(TIFF* /*file*/, void* /*kept*/, const char* /*module*/, const char* /*format*/,
                  va_list /*arguments*/) {
    return 1;
}

struct FreeOptions {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

std::string description(const RunFacts& facts, const Frame& frame) {
    nlohmann::ordered_json all = facts.detector;
    all["field_count"] = frame.fieldCount;
    all["buffer"] = frame.buffer;
    all["frame"] = frame.number + 1;
    all["time"] = timeOf(facts, frame);
    all["seconds_since_start"] = seconds(frame.sinceStart);
    return all.dump();
}

}  // namespace

void TiffWriter::Close::operator()(tiff* file) const {
    TIFFClose(file);
}

TiffWriter::TiffWriter(const std::string& path, RunFacts runFacts, std::uint64_t expectedBytes)
    : facts(std::move(runFacts)),
      isBig(expectedBytes > classicLimitBytes),
      target(path),
      stream{target.descriptor()},
      linkPosition(isBig ? 8 : 4) {
    const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepMessage, &libraryError);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreMessage, nullptr);
    // With procedures of our own the system's error number stays known.
    const auto read = [](thandle_t handle, void* bytes, tmsize_t count) -> tmsize_t {
        return ::read(static_cast<Stream*>(handle)->descriptor, bytes, static_cast<std::size_t>(count));
    };
    const auto write = [](thandle_t handle, void* bytes, tmsize_t count) -> tmsize_t {
        auto& to = *static_cast<Stream*>(handle);
        const auto* next = static_cast<const char*>(bytes);
        for (tmsize_t left = count; left > 0;) {
            const ssize_t written = ::write(to.descriptor, next, static_cast<std::size_t>(left));
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) {
                if (to.error == 0) to.error = errno;
                return -1;
            }
            next += written;
            left -= written;
        }
        return count;
    };
    const auto seek = [](thandle_t handle, toff_t offset, int from) -> toff_t {
        return static_cast<toff_t>(lseek(static_cast<Stream*>(handle)->descriptor, static_cast<off_t>(offset), from));
    };
    const auto close = [](thandle_t /*handle*/) { return 0; };  // the descriptor is the target's
    const auto size = [](thandle_t handle) -> toff_t {
        struct stat found {};
        return fstat(static_cast<Stream*>(handle)->descriptor, &found) == 0 ? static_cast<toff_t>(found.st_size) : 0;
    };
    file.reset(TIFFClientOpenExt(target.temporaryName().c_str(), isBig ? "w8" : "w", &stream, read, write, seek, close,
                                 size, nullptr, nullptr, options.get()));
    if (file == nullptr) target.fail(reasonOr("it can't be opened as TIFF"));
}

TiffWriter::~TiffWriter() = default;

std::string TiffWriter::reasonOr(const std::string& otherwise) const {
    if (stream.error != 0) return platform::systemErrorText(stream.error);
    return libraryError.empty() ? otherwise : libraryError;
}

/// A page has a count, as many entries, and then the position of the next page.
void TiffWriter::findNextLink() {
    const auto number = [&](std::uint64_t position, std::size_t bytes) {
        std::uint64_t value = 0;  // the file has the byte order of the machine, a little-endian one
        const ssize_t count = pread(target.descriptor(), &value, bytes, static_cast<off_t>(position));
        if (count != static_cast<ssize_t>(bytes)) target.fail("a page can't be read back");
        return value;
    };
    const std::size_t linkBytes = isBig ? 8 : 4;
    const std::size_t countBytes = isBig ? 8 : 2;
    const std::size_t entryBytes = isBig ? 20 : 12;
    const std::uint64_t page = number(linkPosition, linkBytes);
    linkPosition = page + countBytes + entryBytes * number(page, countBytes);
    wholeBytes = target.size();
}

void TiffWriter::dropFailed() {
    file.reset();  // whatever it still writes goes with the page
    stream.error = 0;
    libraryError.clear();
    constexpr std::uint64_t none = 0;
    const ssize_t linkBytes = isBig ? 8 : 4;
    if (pwrite(target.descriptor(), &none, static_cast<std::size_t>(linkBytes), static_cast<off_t>(linkPosition)) !=
        linkBytes)
        target.fail(platform::systemErrorText(errno));
    target.truncate(wholeBytes);
}

void TiffWriter::write(const Frame& frame) {
    constexpr int bitsPerPixel = 16;
    TIFF* const page = file.get();
    bool good = TIFFSetField(page, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(facts.width)) == 1 &&
                TIFFSetField(page, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(facts.height)) == 1 &&
                TIFFSetField(page, TIFFTAG_BITSPERSAMPLE, bitsPerPixel) == 1 &&
                TIFFSetField(page, TIFFTAG_SAMPLESPERPIXEL, 1) == 1 &&
                TIFFSetField(page, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) == 1 &&
                TIFFSetField(page, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) == 1 &&
                TIFFSetField(page, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == 1 &&
                TIFFSetField(page, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(page, 0)) == 1 &&
                TIFFSetField(page, TIFFTAG_SOFTWARE, "qrapi") == 1 &&
                TIFFSetField(page, TIFFTAG_IMAGEDESCRIPTION, description(facts, frame).c_str()) == 1;
    for (int row = 0; good && row < facts.height; ++row) {
        // libtiff takes the row as mutable for codecs that work in place; without compression it only reads it.
        auto* const line = const_cast<std::uint16_t*>(frame.pixels + static_cast<std::ptrdiff_t>(row) * facts.width);
        good = TIFFWriteScanline(page, line, static_cast<std::uint32_t>(row)) == 1;
    }
    good = good && TIFFWriteDirectory(page) == 1;
    if (!good || stream.error != 0 || !libraryError.empty()) target.fail(reasonOr("a page can't be written"));
    findNextLink();
}

void TiffWriter::commit() {
    file.reset();
    if (stream.error != 0 || !libraryError.empty()) target.fail(reasonOr(""));
    target.sync();
    target.commit();
}

}  // namespace tool
