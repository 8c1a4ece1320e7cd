#include "tools/TiffWriter.h"

#include <fcntl.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "platform/SystemError.h"

namespace tool {
namespace {

constexpr mode_t everyoneReadsAndWrites = 0666;          // less the user's umask
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

void TiffWriter::Close::operator()(tiff* file) const {
    TIFFClose(file);
}

TiffWriter::TiffWriter(std::string pathToWrite, std::uint64_t expectedBytes) : path(std::move(pathToWrite)) {
    const auto [name, descriptor] = createBeside(path);
    if (descriptor < 0) failWriting(platform::systemErrorText(errno));
    temporaryPath = name;
    const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepMessage, &libraryError);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreMessage, nullptr);
    const char* const mode = expectedBytes > classicLimitBytes ? "w8" : "w";
    file.reset(TIFFFdOpenExt(descriptor, temporaryPath.c_str(), mode, options.get()));
    if (file == nullptr) {
        close(descriptor);
        unlink(temporaryPath.c_str());
        failWriting(reasonOr("it can't be opened as TIFF"));
    }
}

TiffWriter::~TiffWriter() {
    file.reset();
    if (!committed) unlink(temporaryPath.c_str());
}

void TiffWriter::failWriting(const std::string& reason) const {
    throw std::runtime_error("cannot write " + path + ": " + reason);
}

std::string TiffWriter::reasonOr(const std::string& otherwise) const {
    return libraryError.empty() ? otherwise : libraryError;
}

void TiffWriter::writePage(const std::uint16_t* pixels, int width, int height, const std::string& description) {
    constexpr int bitsPerPixel = 16;
    TIFF* const page = file.get();
    bool good = TIFFSetField(page, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width)) == 1 &&
                TIFFSetField(page, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height)) == 1 &&
                TIFFSetField(page, TIFFTAG_BITSPERSAMPLE, bitsPerPixel) == 1 &&
                TIFFSetField(page, TIFFTAG_SAMPLESPERPIXEL, 1) == 1 &&
                TIFFSetField(page, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) == 1 &&
                TIFFSetField(page, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) == 1 &&
                TIFFSetField(page, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == 1 &&
                TIFFSetField(page, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(page, 0)) == 1 &&
                TIFFSetField(page, TIFFTAG_SOFTWARE, "qrapi") == 1 &&
                TIFFSetField(page, TIFFTAG_IMAGEDESCRIPTION, description.c_str()) == 1;
    for (int row = 0; good && row < height; ++row) {
        // libtiff takes the row as mutable for codecs that work in place; without compression it only reads it.
        auto* const line = const_cast<std::uint16_t*>(pixels + static_cast<std::ptrdiff_t>(row) * width);
        good = TIFFWriteScanline(page, line, static_cast<std::uint32_t>(row)) == 1;
    }
    good = good && TIFFWriteDirectory(page) == 1;
    if (!good || !libraryError.empty()) failWriting(reasonOr("a page can't be written"));
}

void TiffWriter::commit() {
    // On the disk before it gets its name, so that not even a power cut leaves half a file under it.
    if (fsync(TIFFFileno(file.get())) != 0) failWriting(platform::systemErrorText(errno));
    file.reset();
    if (!libraryError.empty()) failWriting(libraryError);
    if (std::rename(temporaryPath.c_str(), path.c_str()) != 0) failWriting(platform::systemErrorText(errno));
    committed = true;
}

}  // namespace tool
