#include "tools/FrameFiles.h"

#include <qrapi/QuorinDetector.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <utility>

#include "tools/DiskSpace.h"
#include "tools/Hdf5Writer.h"
#include "tools/PngWriter.h"
#include "tools/RawWriter.h"
#include "tools/TiffWriter.h"
#include "tools/preparation.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

std::unique_ptr<FrameFiles> makeFile(const std::string& path, const Destination& output, const RunFacts& facts,
                                     int frames) {
    switch (output.format) {
        case FileFormat::Raw:
            return std::make_unique<RawWriter>(path, facts);
        case FileFormat::Png:
            return std::make_unique<PngWriter>(path, facts, output.window);
        case FileFormat::Hdf5:
            return std::make_unique<Hdf5Writer>(path, facts, output.compression);
        case FileFormat::Tiff:
            break;
    }
    return std::make_unique<TiffWriter>(path, facts, facts.frameBytes() * static_cast<std::uint64_t>(frames));
}

class NumberedFiles : public FrameFiles {
public:
    NumberedFiles(Destination directoryToFill, RunFacts runFacts)
        : output(std::move(directoryToFill)), facts(std::move(runFacts)) {}

    void write(const Frame& frame) override {
        constexpr int digits = 6;  // names sort as the frames came
        std::ostringstream name;
        name << "frame_" << std::setw(digits) << std::setfill('0') << frame.number + 1 << "." << output.extension;
        const auto file = makeFile((fs::path(output.path) / name.str()).string(), output, facts, 1);
        file->write(frame);
        file->commit();
        noteOfLast = file->note();
    }

    void commit() override {}

    std::string note() const override { return noteOfLast.empty() ? "" : noteOfLast + " in the last of them"; }

private:
    const Destination output;
    const RunFacts facts;
    std::string noteOfLast;
};

/// Keeps the frames before one that can't be written.
class KeptFiles : public FrameFiles {
public:
    KeptFiles(std::unique_ptr<FrameFiles> filesToKeep, std::string outputPath)
        : files(std::move(filesToKeep)), path(std::move(outputPath)) {}

    void write(const Frame& frame) override {
        try {
            files->write(frame);
        } catch (const std::exception& failure) {
            if (written == 0) throw;
            keep(failure.what());
        }
        ++written;
    }

    void commit() override { files->commit(); }

    std::string note() const override { return files->note(); }

private:
    [[noreturn]] void keep(const std::string& reason) {
        const std::string count = std::to_string(written) + (written == 1 ? " frame" : " frames");
        try {
            files->dropFailed();
            files->commit();
        } catch (const std::exception& failure) {
            throw std::runtime_error(reason + "; the " + count + " before it could not be kept: " + failure.what());
        }
        throw FramesKept(reason + "; " + path + " holds the " + count + " before it", path, written);
    }

    const std::unique_ptr<FrameFiles> files;
    const std::string path;
    int written = 0;
};

}  // namespace

RunFacts beginRun(const QuorinDetector& detector) {
    RunFacts facts;
    facts.detector = describeFrames(detector);
    facts.width = detector.GetBufferXdim();
    facts.height = detector.GetBufferYdim();
    facts.start = platform::timeOfDay();
    facts.startedAt = platform::now();
    return facts;
}

double seconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

std::string isoTime(std::chrono::system_clock::time_point moment) {
    constexpr int microsecondDigits = 6;
    const auto sinceEpoch = std::chrono::floor<std::chrono::microseconds>(moment.time_since_epoch());
    const auto wholeSeconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const std::time_t time = wholeSeconds.count();
    std::tm fields{};
    gmtime_r(&time, &fields);
    std::ostringstream text;
    text << std::put_time(&fields, "%Y-%m-%dT%H:%M:%S") << "." << std::setw(microsecondDigits) << std::setfill('0')
         << (sinceEpoch - wholeSeconds).count() << "Z";
    return text.str();
}

std::string isoLocalTime(std::chrono::system_clock::time_point moment) {
    constexpr int millisecondDigits = 3;
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(moment.time_since_epoch());
    const auto wholeSeconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const std::time_t time = wholeSeconds.count();
    std::tm fields{};
    localtime_r(&time, &fields);
    std::ostringstream offset;
    offset << std::put_time(&fields, "%z");  // +hhmm
    std::ostringstream text;
    text << std::put_time(&fields, "%Y-%m-%dT%H:%M:%S") << "." << std::setw(millisecondDigits) << std::setfill('0')
         << (sinceEpoch - wholeSeconds).count() << offset.str().insert(3, ":");
    return text.str();
}

std::string timeOf(const RunFacts& facts, const Frame& frame) {
    return isoTime(facts.start + std::chrono::duration_cast<std::chrono::system_clock::duration>(frame.sinceStart));
}

std::unique_ptr<FrameFiles> makeFrameFiles(const Destination& output, const RunFacts& facts, int frames) {
    std::error_code unseen;
    const bool intoDirectory = fs::is_directory(output.path, unseen);
    checkDiskSpace(output, {frames, facts.pixels(), intoDirectory});
    std::unique_ptr<FrameFiles> files;
    if (intoDirectory)
        files = std::make_unique<NumberedFiles>(output, facts);
    else
        files = makeFile(output.path, output, facts, frames);
    return std::make_unique<KeptFiles>(std::move(files), output.path);
}

}  // namespace tool
