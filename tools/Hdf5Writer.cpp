#include "tools/Hdf5Writer.h"

#include <stdexcept>
#include <utility>

#include "platform/SystemError.h"
#include "tools/Hdf5File.h"

namespace tool {
namespace {

constexpr const char* framesPath = "/entry/instrument/detector/data";
constexpr const char* timeStampsPath = "/entry/instrument/detector/time_stamp";

}  // namespace

/// The members close in the reverse of their order, the file last.
struct Hdf5Writer::Layout {
    hdf5::Handle file;
    hdf5::Handle entry;
    hdf5::Handle detector;
    hdf5::FrameArray frames;
};

Hdf5Writer::Hdf5Writer(const std::string& path, RunFacts runFacts, int compression)
    : facts(std::move(runFacts)), target(path) {
    run([&] { open(compression); });
}

Hdf5Writer::~Hdf5Writer() {
    const hdf5::Quiet quiet;
    layout.reset();
}

void Hdf5Writer::run(const std::function<void()>& step) {
    const hdf5::Quiet quiet;
    try {
        step();
    } catch (const std::runtime_error& failure) {
        if (diskErrors.data == 0 && diskErrors.structure == 0) target.fail(failure.what());
    }
    const int error = diskErrors.data != 0 ? diskErrors.data : diskErrors.structure;
    if (error != 0) target.fail(platform::systemErrorText(error));
}

void Hdf5Writer::open(int compression) {
    hdf5::Handle file = hdf5::createFileIn(target.descriptor(), diskErrors);
    hdf5::setText(file, "NX_class", "NXroot");
    hdf5::setText(file, "default", "entry");
    hdf5::setText(file, "creator", "qrapi");
    hdf5::Handle entry = hdf5::createGroup(file, "entry", "NXentry");
    hdf5::setText(entry, "default", "data");
    const hdf5::Handle instrument = hdf5::createGroup(entry, "instrument", "NXinstrument");
    hdf5::Handle detector = hdf5::createGroup(instrument, "detector", "NXdetector");
    hdf5::FrameArray frames(detector, "data", facts.width, facts.height, compression);
    layout =
        std::make_unique<Layout>(Layout{std::move(file), std::move(entry), std::move(detector), std::move(frames)});
}

/// A disk that is full of frames still takes the records that make them readable, most of which come at the end.
void Hdf5Writer::reserveRecords() const {
    constexpr std::uint64_t fixedBytes = 262144;
    constexpr std::uint64_t bytesOfFrame = 256;  // its entry in the tree of chunks, its numbers
    const std::uint64_t records = fixedBytes + bytesOfFrame * numbers.size();
    target.reserve(target.size() + facts.frameBytes() + records);
}

void Hdf5Writer::dropFailed() {
    if (diskErrors.structure != 0) target.fail(platform::systemErrorText(diskErrors.structure));
    diskErrors = {};
    run([&] { layout->frames.keepFirst(numbers.size()); });
}

void Hdf5Writer::write(const Frame& frame) {
    reserveRecords();
    run([&] { layout->frames.append(frame.pixels); });
    numbers.push_back(frame.number + 1);
    fieldCounts.push_back(frame.fieldCount);
    timeStamps.push_back(seconds(frame.sinceStart));
    endTime = timeOf(facts, frame);
}

void Hdf5Writer::describeDetector() {
    constexpr int bitsPerPixel = 16;
    const hdf5::Handle& detector = layout->detector;
    const int model = facts.detector.at("model").get<int>();
    hdf5::writeText(detector, "description", "image detector, model " + std::to_string(model));
    hdf5::writeText(detector, "model", std::to_string(model));
    hdf5::writeText(detector, "serial_number", std::to_string(facts.detector.at("serial_number").get<int>()));
    hdf5::writeText(detector, "binning", facts.detector.at("binning").get<std::string>());
    hdf5::writeNumber(detector, "first_row", facts.detector.at("first_row").get<int>());
    hdf5::writeText(detector, "transport", facts.detector.at("transport").get<std::string>());
    hdf5::writeNumber(detector, "bit_depth_readout", bitsPerPixel);
    hdf5::setText(layout->frames.dataset(), "units", "counts");
    hdf5::setText(layout->frames.dataset(), "long_name", "grey level");
    hdf5::setText(layout->frames.dataset(), "target", framesPath);
}

void Hdf5Writer::describeFrames() {
    constexpr double msPerSecond = 1000.0;
    const hdf5::Handle& detector = layout->detector;
    const std::vector<double> exposures(numbers.size(),
                                        facts.detector.at("exposure_time_ms").get<double>() / msPerSecond);
    hdf5::writeNumbers(detector, "count_time", exposures, "s");
    hdf5::writeNumbers(detector, "sequence_number", numbers, "");
    hdf5::writeNumbers(detector, "field_count", fieldCounts, "");
    const hdf5::Handle stamps = hdf5::writeNumbers(detector, "time_stamp", timeStamps, "s");
    hdf5::setText(stamps, "start", isoTime(facts.start));
    hdf5::setText(stamps, "long_name", "when the tool had copied the frame out of the ring, monotonic clock");
    hdf5::setText(stamps, "target", timeStampsPath);
}

void Hdf5Writer::commit() {
    run([&] {
        const hdf5::Handle& entry = layout->entry;
        hdf5::writeText(entry, "title",
                        std::to_string(numbers.size()) + " frames of model " +
                            std::to_string(facts.detector.at("model").get<int>()));
        hdf5::writeText(entry, "start_time", isoTime(facts.start));
        hdf5::writeText(entry, "end_time", endTime);
        hdf5::writeText(entry, "program_name", "qrapi");
        describeDetector();
        describeFrames();
        {
            const hdf5::Handle data = hdf5::createGroup(entry, "data", "NXdata");
            hdf5::setText(data, "signal", "data");
            hdf5::setTexts(data, "axes", {"time_stamp", ".", "."});
            hdf5::link(layout->file, framesPath, "/entry/data/data");
            hdf5::link(layout->file, timeStampsPath, "/entry/data/time_stamp");
        }
        hdf5::check(H5Fflush(layout->file.get(), H5F_SCOPE_GLOBAL), "the file");
        layout.reset();
    });
    target.sync();
    target.commit();
}

}  // namespace tool
