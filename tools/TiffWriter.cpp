#include "tools/TiffWriter.h"

#include <fcntl.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "platform/SystemError.h"

namespace tool {
namespace {

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
    : facts(std::move(runFacts)), target(path) {
    const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepMessage, &libraryError);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreMessage, nullptr);
    const char* const mode = expectedBytes > classicLimitBytes ? "w8" : "w";
    const int descriptor = fcntl(target.descriptor(), F_DUPFD_CLOEXEC, 0);  // libtiff closes the one that it is given
    if (descriptor < 0) target.fail(platform::systemErrorText(errno));
    file.reset(TIFFFdOpenExt(descriptor, target.temporaryName().c_str(), mode, options.get()));
    if (file == nullptr) {
        close(descriptor);
        target.fail(reasonOr("it can't be opened as TIFF"));
    }
}

TiffWriter::~TiffWriter() = default;

std::string TiffWriter::reasonOr(const std::string& otherwise) const {
    return libraryError.empty() ? otherwise : libraryError;
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
    if (!good || !libraryError.empty()) target.fail(reasonOr("a page can't be written"));
}

void TiffWriter::commit() {
    file.reset();
    if (!libraryError.empty()) target.fail(libraryError);
    target.sync();
    target.commit();
}

}  // namespace tool
