#include "detector/EpixDetector/VideoFormat.h"

namespace {

constexpr std::uint32_t width = 3072;
constexpr std::uint32_t height = 1944;
constexpr std::size_t wordBytes = sizeof(std::uint32_t);

constexpr std::uint32_t header(std::uint32_t type, std::uint32_t size) {
    constexpr unsigned typeBit = 16;
    return type << typeBit | size;
}

struct Record {
    std::uint32_t type;
    std::uint32_t size;  ///< bytes
};

constexpr Record rootLayout{22, 140};

// In the order in which the root points to them.
constexpr std::array<Record, 11> layout{{{561, 1988},
                                         {125, 484},
                                         {79, 300},
                                         {118, 656},
                                         {251, 996},
                                         {19, 60},
                                         {72, 528},
                                         {264, 800},
                                         {32, 48},
                                         {21, 40},
                                         {45, 124}}};

struct Word {
    std::uint32_t type;
    std::uint32_t byte;
    std::uint32_t value;
};

// Three words mark the version of the format.
constexpr std::uint32_t markFirst = 30819;
constexpr std::uint32_t markSecond = 23;
constexpr std::uint32_t markThird = 65288;

// What the records hold in the standard variant; every other word is 0.
constexpr std::array<Word, 39> standardWords{{
    {561, 16, markFirst},
    {561, 20, markSecond},
    {561, 24, markThird},
    {561, 148, width},
    {561, 164, width},
    {561, 180, height},
    {561, 196, height},
    {561, 496, 31232},
    {125, 16, width},
    {125, 20, width},
    {125, 28, width - 1},
    {125, 124, height},
    {125, 128, height},
    {125, 136, height - 1},
    {125, 268, height},
    {125, 272, height},
    {125, 388, width},
    {125, 392, width},
    {125, 396, width},
    {125, 400, width},
    {125, 408, width* height},
    {125, 428, width* height},
    {125, 448, 88},
    {79, 68, 31232},
    {251, 44, 13},
    {251, 48, 27},
    {251, 64, 1},
    {251, 768, 0x9B8C8008},
    {264, 16, markFirst},
    {264, 20, markSecond},
    {264, 24, markThird},
    {264, 124, 0x10000},
    {264, 144, 0x0108003C},
    {264, 160, markFirst},
    {264, 164, markSecond},
    {264, 168, markThird},
    {45, 20, 0x10020001},
    {45, 48, 0x20000},
    {45, 108, 0x10000},
}};

// Where the pulse variant differs, beside the table that it leaves empty.
constexpr std::array<Word, 8> pulseWords{{
    {125, 448, 160},
    {264, 124, 0},
    {264, 144, 0},
    {264, 160, 0},
    {264, 164, 0},
    {264, 168, 0},
    {45, 20, 0x053100EA},
    {45, 108, 0},
}};

// A table of pairs: entry n maps to itself.
constexpr std::uint32_t tableType = 118;
constexpr std::size_t tableByte = 16;
constexpr std::uint32_t tablePairs = 80;

std::size_t indexOf(std::uint32_t type) {
    std::size_t index = 0;
    while (layout[index].type != type) ++index;
    return index;
}

}  // namespace

VideoFormat::VideoFormat(Variant variant) {
    rootRecord.header = header(rootLayout.type, rootLayout.size);
    for (std::size_t index = 0; index < recordCount; ++index) {
        records[index].assign(layout[index].size / wordBytes, 0);
        records[index][0] = header(layout[index].type, layout[index].size);
        rootRecord.records[index] = records[index].data();
    }
    const auto put = [this](const auto& words) {
        for (const Word& word : words) records[indexOf(word.type)][word.byte / wordBytes] = word.value;
    };
    put(standardWords);
    if (variant == Variant::Pulse) {
        put(pulseWords);
        return;
    }
    std::vector<std::uint32_t>& table = records[indexOf(tableType)];
    for (std::uint32_t pair = 0; pair < tablePairs; ++pair) {
        const std::size_t first = tableByte / wordBytes + 2 * static_cast<std::size_t>(pair);
        table[first] = pair + 1;
        table[first + 1] = pair + 1;
    }
}
