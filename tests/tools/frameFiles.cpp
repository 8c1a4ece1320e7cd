#include "tools/FrameFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <numeric>

#include "tests/tools/StoredFrames.h"
#include "tests/tools/ToolRun.h"
#include "tools/DiskSpace.h"
#include "tools/Hdf5Driver.h"
#include "tools/PngWriter.h"
#include "tools/TiffWriter.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Pixels = std::vector<std::uint16_t>;

const std::vector<std::string> lossless{"tif", "tiff", "raw", "h5", "hdf5", "nxs"};

class ToolFrameFiles : public FramesFolder {
protected:
    std::string named(const std::string& extension) const { return (folder / ("frames." + extension)).string(); }
};

tool::RunFacts oddRun() {
    using std::chrono::system_clock;
    constexpr std::time_t firstOfMarch = 1772323200;
    tool::RunFacts facts;
    facts.detector = {{"model", 6112},    {"serial_number", 47}, {"exposure_time_ms", 12.5},
                      {"binning", "4x2"}, {"first_row", 304},    {"transport", "gige"}};
    facts.width = 7;
    facts.height = 5;
    facts.start = system_clock::from_time_t(firstOfMarch) + std::chrono::microseconds(1500);
    return facts;
}

/// Each pixel of each frame is another value, in both bytes.
Pixels oddFrame(int number) {
    Pixels pixels(oddRun().pixels());
    std::iota(pixels.begin(), pixels.end(), static_cast<std::uint16_t>(number * 1000 + 240));
    return pixels;
}

void writeOddRun(const tool::Destination& output) {
    const auto files = tool::makeFrameFiles(output, oddRun(), 3);
    for (const int number : {0, 1, 3}) {  // the third one was lost
        const Pixels pixels = oddFrame(number);
        files->write({number, number + 2, number, std::chrono::milliseconds(20 * number + 5), pixels.data()});
    }
    files->commit();
}

TEST_F(ToolFrameFiles, AnOddSizedRunComesBackPixelForPixelWithAllThatIsKnownOfIt) {
    for (const std::string& extension : lossless) {
        for (const char* const compression : {"", "6"}) {
            if (*compression != 0 && extension != "h5") continue;
            SCOPED_TRACE(extension + compression);
            tool::DestinationOptions options{named(extension), "", "", {}};
            if (*compression != 0) options.compression = std::stoi(compression);
            writeOddRun(tool::parseDestination(options));
            const StoredFrames stored = readFrames(named(extension));
            EXPECT_EQ(stored.width, 7);
            EXPECT_EQ(stored.height, 5);
            EXPECT_EQ(stored.frames, (std::vector<Pixels>{oddFrame(0), oddFrame(1), oddFrame(3)}));
            EXPECT_EQ(stored.fieldCounts, (std::vector<int>{2, 3, 5}));
            EXPECT_EQ(stored.numbers, (std::vector<int>{1, 2, 4}));
            EXPECT_THAT(stored.timeStamps, testing::Pointwise(testing::DoubleEq(), {0.005, 0.025, 0.065}));
            EXPECT_THAT(stored.exposuresMs, testing::Each(testing::DoubleNear(12.5, 1e-9)));
            EXPECT_EQ(stored.start,
                      extension.starts_with("tif") ? "2026-03-01T00:00:00.006500Z" : "2026-03-01T00:00:00.001500Z");
            EXPECT_EQ(stored.end, "2026-03-01T00:00:00.066500Z");
            EXPECT_EQ(stored.model, "6112");
            EXPECT_EQ(stored.serialNumber, "47");
            EXPECT_EQ(stored.binning, "4x2");
            EXPECT_EQ(stored.firstRow, 304);
        }
    }
}

TEST_F(ToolFrameFiles, ADirectoryTakesAFileOfEachFrameInAnyFormat) {
    for (const std::string& extension : lossless) {
        SCOPED_TRACE(extension);
        const fs::path filled = folder / extension;
        fs::create_directory(filled);
        writeOddRun(tool::parseDestination({filled.string(), extension, "", {}}));
        for (const int number : {0, 1, 3}) {
            const std::string file = (filled / ("frame_00000" + std::to_string(number + 1) + "." + extension)).string();
            EXPECT_EQ(readFrames(file).frames, std::vector<Pixels>{oddFrame(number)});
        }
    }
    writeOddRun(tool::parseDestination({folder.string(), "png", "", {}}));
    EXPECT_EQ(readPng((folder / "frame_000004.png").string()).pixels.size(), oddRun().pixels());
}

TEST_F(ToolFrameFiles, H5dumpReadsTheLayout) {
    const std::string file = named("h5");
    writeOddRun(tool::parseDestination({file, "", "", 3}));
    struct Seen {
        const char* options;
        std::vector<const char*> texts;
    };
    const std::vector<Seen> cases{
        {"-d /entry/data/data -s 2,4,5 -c 1,1,2", {"( 3, 5, 7 ) / ( H5S_UNLIMITED, 5, 7 )", "(2,4,5): 3273, 3274"}},
        {"-H -p -d /entry/instrument/detector/data",
         {"H5T_STD_U16LE", "CHUNKED ( 1, 5, 7 )", "PREPROCESSING SHUFFLE", "COMPRESSION DEFLATE { LEVEL 3 }"}},
        {"-a /default", {"\"entry\""}},
        {"-a /entry/default", {"\"data\""}},
        {"-a /entry/NX_class", {"\"NXentry\""}},
        {"-a /entry/instrument/NX_class", {"\"NXinstrument\""}},
        {"-a /entry/instrument/detector/NX_class", {"\"NXdetector\""}},
        {"-a /entry/data/NX_class", {"\"NXdata\""}},
        {"-a /entry/data/signal", {"\"data\""}},
        {"-a /entry/data/axes", {"\"time_stamp\", \".\", \".\""}},
        {"-a /entry/instrument/detector/data/units", {"\"counts\""}},
        {"-a /entry/instrument/detector/time_stamp/start", {"\"2026-03-01T00:00:00.001500Z\""}},
        {"-d /entry/title", {"\"3 frames of model 6112\""}},
        {"-d /entry/instrument/detector/count_time", {"0.0125, 0.0125, 0.0125", "\"s\""}},
        {"-d /entry/instrument/detector/description", {"\"image detector, model 6112\""}},
    };
    for (const Seen& seen : cases) {
        const std::string text = printedBy(std::string("h5dump ") + seen.options + " " + file + " 2>&1");
        for (const char* const expected : seen.texts) EXPECT_THAT(text, HasSubstr(expected)) << seen.options;
    }
}

TEST_F(ToolFrameFiles, ATiffBecomesABigTiffWhenItMayPassFourGigabytes) {
    constexpr std::uint64_t gigabyte = std::uint64_t{1} << 30;
    struct Expected {
        std::uint64_t bytes;
        char version;  ///< the third byte of the file
    };
    for (const Expected& expected : {Expected{1000, 42}, {3 * gigabyte, 42}, {4 * gigabyte, 43}, {90 * gigabyte, 43}}) {
        tool::TiffWriter writer(output, oddRun(), expected.bytes);
        const Pixels pixels = oddFrame(0);
        writer.write({0, 2, 0, {}, pixels.data()});
        writer.commit();
        std::ifstream file(output, std::ios::binary);
        std::array<char, 3> head{};
        file.read(head.data(), head.size());
        EXPECT_EQ(head[2], expected.version) << expected.bytes;
        EXPECT_EQ(readFrames(output).frames, std::vector<Pixels>{pixels});
    }
}

TEST(PngWindow, GoesFromThe1stToThe99thPercentileAndSpreadsTheLevelsBetween) {
    Pixels ramp(1000);
    std::iota(ramp.begin(), ramp.end(), std::uint16_t{100});
    struct Levels {
        Pixels pixels;
        int low;
        int high;
    };
    const std::vector<Levels> cases{
        {ramp, 109, 1089},
        {{5}, 5, 6},
        {Pixels(200, 0), 0, 1},
        {Pixels(200, 65535), 65534, 65535},
    };
    for (const Levels& levels : cases) {
        const tool::GreyWindow window = tool::percentileWindow(levels.pixels);
        EXPECT_EQ(window.low, levels.low);
        EXPECT_EQ(window.high, levels.high);
    }
    const Pixels levels{0, 100, 101, 150, 199, 200, 65535};
    EXPECT_EQ(tool::throughWindow(levels, {100, 200}), (std::vector<std::uint8_t>{0, 0, 3, 128, 252, 255, 255}));
    EXPECT_EQ(tool::throughWindow(levels, {0, 65535}), (std::vector<std::uint8_t>{0, 0, 0, 1, 1, 1, 255}));
}

TEST_F(ToolFrameFiles, APngIsTheLastFrameThroughItsWindow) {
    writeOddRun(tool::parseDestination({named("png"), "", "3000,4000", {}}));
    EXPECT_EQ(readPng(named("png")).width, 7);
    EXPECT_EQ(readPng(named("png")).height, 5);
    EXPECT_EQ(readPng(named("png")).pixels, tool::throughWindow(oddFrame(3), {3000, 4000}));
    writeOddRun(tool::parseDestination({named("png"), "", "", {}}));
    EXPECT_EQ(readPng(named("png")).pixels, tool::throughWindow(oddFrame(3), {3240, 3273}));
    const std::vector<std::string> twoFrames{"-d", "ge:sim:5309", "snap", "--count", "2", "--output", named("png")};
    const ToolRun chosen = runTool(twoFrames);
    EXPECT_THAT(chosen.out, testing::ContainsRegex("wrote .*frames.png, the last of 2 frames, window [0-9]+ to [0-9]+ "
                                                   ".1st to 99th percentile.\n"));
    std::vector<std::string> withWindow = twoFrames;
    withWindow.insert(withWindow.end(), {"--window", "1000,9000"});
    EXPECT_THAT(runTool(withWindow).out, HasSubstr("the last of 2 frames, window 1000 to 9000\n"));
}

TEST_F(ToolFrameFiles, AFullDiskKeepsTheFramesThatWereWrittenInEveryFormat) {
    for (const std::string extension : {"tif", "raw", "h5"})
        for (const char* const command : {"snap", "live"}) {
            SCOPED_TRACE(extension + " " + command);
            simulator::Rack::instance().reset();
            const std::string file = named(extension);
            std::ofstream(file) << "older";
            const FileSizeLimit limit(12000000);  // four frames and a half
            const std::vector<std::string> arguments{"-d",         "ge:sim:5101", command,    "--count", "10",
                                                     "--exposure", "40",          "--output", file,      "--json"};
            const ToolRun run = runTool(arguments);
            EXPECT_EQ(run.status, 1);
            const auto report = nlohmann::json::parse(run.out);
            EXPECT_EQ(report.at("error").at("text"),
                      "cannot write " + file + ": File too large; " + file + " holds the 4 frames before it");
            EXPECT_EQ(report.at("frames_kept"), 4);
            EXPECT_EQ(report.at("output"), file);
            const StoredFrames stored = readFrames(file);
            EXPECT_EQ(stored.numbers, (std::vector<int>{1, 2, 3, 4}));
            ASSERT_EQ(stored.frames.size(), 4U);
            const auto exposed = [&](std::uint64_t number) {
                return simulator::patternFrame(number, stored.width, stored.height, 1, 1);
            };
            std::uint64_t number = 0;  // as exposed; a detector that runs free exposes some between two snaps
            for (const Pixels& frame : stored.frames) {
                do ++number;
                while (number < 100 && frame != exposed(number));
                EXPECT_LT(number, 100U) << "a frame that was never exposed, or out of order";
            }
            EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), extension == "raw" ? 2 : 1);
            fs::remove(file);
            fs::remove(named("json"));
        }
}

TEST_F(ToolFrameFiles, NothingIsLeftOfAFileWithoutAWholeFrameAndTheOlderOneStays) {
    for (const std::string extension : {"tif", "raw", "png", "h5", "nxs"}) {
        SCOPED_TRACE(extension);
        std::ofstream(named(extension)) << "older";
        const FileSizeLimit limit(extension == "png" ? 10000 : 2000000);
        const ToolRun run = runTool({"-d", "ge:sim:5101", "snap", "--exposure", "40", "--output", named(extension)});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, "error: cannot write " + named(extension) + ": File too large\n");
        EXPECT_EQ(fs::file_size(named(extension)), 5U);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
        fs::remove(named(extension));
    }
}

/// Writes three frames or as many as fit, as a run does; how many came through.
std::size_t writeUpToFailure(tool::FrameFiles& files) {
    std::size_t written = 0;
    try {
        for (; written < 3; ++written) {
            const Pixels pixels = oddFrame(static_cast<int>(written));
            files.write({static_cast<int>(written), 2, 0, {}, pixels.data()});
        }
    } catch (const std::runtime_error&) {
        files.dropFailed();
    }
    if (written > 0) files.commit();
    return written;
}

TEST_F(ToolFrameFiles, ATiffIsCutBackToItsWholePagesWhereverTheDiskEnds) {
    for (const std::uint64_t expectedBytes : {std::uint64_t{1000}, std::uint64_t{1} << 33}) {
        std::vector<std::size_t> counts;
        for (rlim_t limit = 16; counts.empty() || counts.back() < 3; limit += 6) {
            SCOPED_TRACE(limit);
            const FileSizeLimit full(limit);
            tool::TiffWriter writer(output, oddRun(), expectedBytes);
            counts.push_back(writeUpToFailure(writer));
            std::vector<Pixels> frames;
            for (std::size_t number = 0; number < counts.back(); ++number)
                frames.push_back(oddFrame(static_cast<int>(number)));
            ASSERT_EQ(readFrames(output).frames, frames);
            fs::remove(output);
        }
        for (const std::size_t count : {0U, 1U, 2U}) EXPECT_GT(std::count(counts.begin(), counts.end(), count), 20);
    }
}

TEST_F(ToolFrameFiles, AnHdf5FileStaysSoundWithoutTheFrameThatTheDiskRefused) {
    constexpr int side = 128;
    const Pixels pixels(std::size_t{side} * side, 7);
    const tool::hdf5::Quiet quiet;
    tool::PartialFile file(named("h5"));
    tool::hdf5::DiskErrors errors;
    hsize_t whole = 0;
    const FileSizeLimit full(200000);
    {
        const tool::hdf5::Handle root = tool::hdf5::createFileIn(file.descriptor(), errors);
        tool::hdf5::FrameArray frames(root, "data", side, side, 0);
        for (; errors.data == 0 && whole < 100; ++whole) frames.append(pixels.data());
        frames.keepFirst(--whole);
    }
    EXPECT_EQ(errors.data, EFBIG);
    EXPECT_EQ(errors.structure, 0);
    file.commit();
    const Hdf5Reader reader(named("h5"));
    EXPECT_EQ(reader.shape("data"), (std::vector<hsize_t>{whole, side, side}));
    EXPECT_THAT(reader.numbers<std::uint16_t>("data", H5T_NATIVE_UINT16), testing::Each(7));
}

TEST(DiskSpaceOfARun, RefusesWhatCertainlyDoesNotFitOnly) {
    using tool::FileFormat;
    using tool::Fit;
    const struct {
        const char* what;
        FileFormat format;
        int compression;
        bool intoDirectory;
        tool::DiskSpace disk;
        Fit fit;
    } rows[] = {
        {"just fits", FileFormat::Raw, 0, false, {2000, 2000, false}, Fit::Fits},
        {"a byte short", FileFormat::Tiff, 0, true, {1999, 1999, false}, Fit::DoesNotFit},
        {"in what is reserved for root", FileFormat::Hdf5, 0, false, {2000, 1999, false}, Fit::MayNotFit},
        {"the disk compresses", FileFormat::Raw, 0, false, {1999, 1999, true}, Fit::MayNotFit},
        {"the file is compressed", FileFormat::Hdf5, 1, false, {1999, 1999, false}, Fit::MayNotFit},
        {"one preview", FileFormat::Png, 0, false, {100, 100, false}, Fit::Fits},
        {"a preview of each frame", FileFormat::Png, 0, true, {999, 999, false}, Fit::MayNotFit},
    };
    for (const auto& row : rows) {
        tool::Destination output;
        output.format = row.format;
        output.compression = row.compression;
        EXPECT_EQ(fitOn(row.disk, neededSpace(output, {10, 100, row.intoDirectory})), row.fit) << row.what;
    }
}

TEST_F(ToolFrameFiles, ARunThatDoesNotFitOnTheDiskIsRefusedAndACompressedOneWarns) {
    for (const char* const command : {"snap", "live"}) {
        const ToolRun refused = runTool({"-d", "ge:sim:5101", command, "--count", "2000000000", "--output", output});
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.err, testing::ContainsRegex("2000000000 frames need 5.3 PB, [0-9.]+ [MGT]B are free; there "
                                                        "is space for [0-9]+\n"));
        EXPECT_TRUE(fs::is_empty(folder));
    }
    const FileSizeLimit limit(4000000);
    const ToolRun warned =
        runTool({"-d", "ge:sim:5101", "live", "--count", "2000000000", "--output", named("h5"), "--compress", "1"});
    EXPECT_EQ(warned.status, 1);
    EXPECT_THAT(warned.err, HasSubstr("warning: " + named("h5") + ": 2000000000 frames need up to 5.3 PB, "));
    EXPECT_FALSE(readFrames(named("h5")).frames.empty());
}

TEST_F(ToolFrameFiles, ADirectoryWithFramesOfAnEarlierRunIsRefused) {
    std::ofstream(folder / "frame_notes.txt") << "no frame";
    writeOddRun(tool::parseDestination({folder.string(), "raw", "", {}}));
    for (const char* const format : {"raw", "tif"}) {
        const ToolRun run = runTool({"snap", "--output", folder.string(), "--format", format});
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.err, HasSubstr(folder.string() + " holds frames of an earlier run (frame_000001.json), which"));
    }
}

TEST_F(ToolFrameFiles, TheFormatFollowsTheExtensionUnlessItIsNamed) {
    const ToolRun run =
        runTool({"-d", "ge:sim:5101", "snap", "--exposure", "40", "--output", named("dat"), "--format", "RAW"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("described in " + named("json")));
    EXPECT_EQ(fs::file_size(named("dat")), 1536U * 864U * 2U);

    struct Refused {
        std::vector<std::string> options;
        const char* named;
    };
    const std::string all = "allowed is tif, tiff, raw, png, h5, hdf5, nxs";
    const std::vector<Refused> cases{
        {{"--output", named("jpg")}, "the extension .jpg, which names no format; allowed is tif, tiff, raw, png, h5"},
        {{"--output", (folder / "frames").string()}, "no extension"},
        {{"--output", output, "--format", "jpg"}, "--format: jpg is none; allowed is tif, tiff, raw, png, h5"},
        {{"--output", named("json"), "--format", "raw"}, "the file that describes the raw one"},
        {{"--output", output, "--window", "1,2"}, "--window: only png"},
        {{"--output", named("png"), "--window", "2,1"}, "LOW,HIGH"},
        {{"--output", named("png"), "--window", "0,65536"}, "65535"},
        {{"--output", named("png"), "--window", "-1,5"}, "LOW,HIGH"},
        {{"--output", named("png"), "--window", "1,2,3"}, "LOW,HIGH"},
        {{"--output", named("png"), "--window", "5"}, "LOW,HIGH"},
        {{"--output", output, "--compress", "1"}, "--compress: only h5"},
        {{"--output", named("h5"), "--compress", "10"}, "0 (none) to 9"},
        {{"--output", named("h5"), "--compress", "-1"}, "0 (none) to 9"},
    };
    for (const Refused& refused : cases)
        for (const char* const command : {"snap", "live"}) {
            std::vector<std::string> arguments{"-d", "ge:sim:unknown", command, "--count", "1"};
            arguments.insert(arguments.end(), refused.options.begin(), refused.options.end());
            const ToolRun failed = runTool(arguments);
            EXPECT_EQ(failed.status, 2) << refused.named;
            EXPECT_THAT(failed.err, HasSubstr(refused.named));
        }
}

}  // namespace
