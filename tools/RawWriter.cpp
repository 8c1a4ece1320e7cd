#include "tools/RawWriter.h"

#include <bit>
#include <filesystem>
#include <utility>

namespace tool {

static_assert(std::endian::native == std::endian::little, "frames are written as they lie in memory");

RawWriter::RawWriter(const std::string& path, RunFacts runFacts)
    : facts(std::move(runFacts)),
      dataName(std::filesystem::path(path).filename().string()),
      sidePath(sideFileOf(path)),
      data(path),
      side(sidePath) {}

/// A disk that is full of frames still takes the file that describes them.
void RawWriter::reserveDescription() {
    constexpr std::uint64_t detectorBytes = 4096;
    constexpr std::uint64_t bytesOfFrame = 96;  // three numbers, each on a line
    constexpr std::uint64_t step = 65536;
    const std::uint64_t needed = detectorBytes + bytesOfFrame * (numbers.size() + 1);
    if (needed <= reservedBytes) return;
    side.reserve(needed + step);
    reservedBytes = needed + step;
}

void RawWriter::write(const Frame& frame) {
    reserveDescription();
    data.append(frame.pixels, facts.frameBytes());
    numbers.push_back(frame.number + 1);
    fieldCounts.push_back(frame.fieldCount);
    timeStamps.push_back(seconds(frame.sinceStart));
    endTime = timeOf(facts, frame);
}

void RawWriter::dropFailed() {
    data.truncate(numbers.size() * facts.frameBytes());
}

std::string RawWriter::description() const {
    constexpr int jsonIndent = 2;
    nlohmann::ordered_json all = {
        {"data_file", dataName}, {"width", facts.width},   {"height", facts.height}, {"frames", numbers.size()},
        {"dtype", "uint16"},     {"byte_order", "little"}, {"header_bytes", 0},
    };
    all.update(facts.detector);
    all["start_time"] = isoTime(facts.start);
    all["end_time"] = endTime;
    all["time_stamp_clock"] = "seconds since start_time, monotonic, when the tool had copied the frame out of the ring";
    all["time_stamps_s"] = timeStamps;
    all["field_counts"] = fieldCounts;
    all["frame_numbers"] = numbers;
    return all.dump(jsonIndent) + "\n";
}

void RawWriter::commit() {
    const std::string text = description();
    side.append(text.data(), text.size());
    side.sync();
    data.sync();
    side.commit();
    try {
        data.commit();
    } catch (...) {
        side.withdraw();  // it would describe what is not there
        throw;
    }
}

}  // namespace tool
