#include "videoFormat.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace grabber {
namespace {

struct RecordKind {
    std::uint32_t type;
    std::uint32_t size;

    constexpr std::uint32_t header() const { return (type << 16U) | size; }
};

constexpr RecordKind rootKind{22, 140};
constexpr std::size_t firstAddress = 8;

/// In the order of their addresses in the root.
constexpr std::array<RecordKind, 11> recordKinds{{{561, 1988},
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

/// A word that a format is known by; `pulse` is what it is in the pulse variant.
struct KnownWord {
    std::uint32_t type;
    std::size_t place;
    std::uint32_t standard;
    std::uint32_t pulse;
};

constexpr KnownWord fixed(std::uint32_t type, std::size_t place, std::uint32_t value) {
    return {type, place, value, value};
}

constexpr std::uint32_t width = formatWidth;
constexpr std::uint32_t height = formatHeight;
constexpr std::uint32_t area = width * height;
constexpr std::uint32_t loadKind = 31232;
constexpr std::array<std::uint32_t, 3> mark{30819, 23, 65288};

/// Tells the variants apart.
constexpr KnownWord variant{125, 448, 88, 160};

constexpr KnownWord knownWords[] = {
    fixed(561, 16, mark[0]),
    fixed(561, 20, mark[1]),
    fixed(561, 24, mark[2]),
    fixed(561, 148, width),
    fixed(561, 164, width),
    fixed(561, 180, height),
    fixed(561, 196, height),
    fixed(561, 496, loadKind),
    fixed(125, 16, width),
    fixed(125, 20, width),
    fixed(125, 28, width - 1),
    fixed(125, 124, height),
    fixed(125, 128, height),
    fixed(125, 136, height - 1),
    fixed(125, 268, height),
    fixed(125, 272, height),
    fixed(125, 388, width),
    fixed(125, 392, width),
    fixed(125, 396, width),
    fixed(125, 400, width),
    fixed(125, 408, area),
    fixed(125, 428, area),
    variant,
    fixed(79, 68, loadKind),
    fixed(251, 44, 13),
    fixed(251, 48, 27),
    fixed(251, 64, 1),
    fixed(251, 768, 0x9B8C8008),
    fixed(264, 16, mark[0]),
    fixed(264, 20, mark[1]),
    fixed(264, 24, mark[2]),
    {264, 124, 0x10000, 0},
    {264, 144, 0x0108003C, 0},
    {264, 160, mark[0], 0},
    {264, 164, mark[1], 0},
    {264, 168, mark[2], 0},
    {45, 20, 0x10020001, 0x053100EA},
    fixed(45, 48, 0x20000),
    {45, 108, 0x10000, 0},
};

constexpr std::size_t tableBegin = 16;  // in record 118
constexpr std::uint32_t tableType = 118;
constexpr std::size_t headerSize = 4;
constexpr std::array<std::uint32_t, 3> emptyTypes{19, 32, 21};

std::uint32_t wordAt(const std::byte* record, std::size_t place) {
    std::uint32_t word = 0;
    std::memcpy(&word, record + place, sizeof(word));
    return word;
}

class Records {
public:
    /// False if the tree doesn't hold the eleven records.
    bool collect(const std::byte* root) {
        if (root == nullptr || wordAt(root, 0) != rootKind.header()) return false;
        for (std::size_t i = 0; i < recordKinds.size(); ++i) {
            std::memcpy(&records[i], root + firstAddress + i * sizeof(void*), sizeof(void*));
            if (records[i] == nullptr || wordAt(records[i], 0) != recordKinds[i].header()) return false;
        }
        return true;
    }

    std::uint32_t word(std::uint32_t type, std::size_t place) const { return wordAt(records[indexOf(type)], place); }

    bool isZeroFrom(std::uint32_t type, std::size_t place) const {
        const std::size_t index = indexOf(type);
        return std::all_of(records[index] + place, records[index] + recordKinds[index].size,
                           [](std::byte each) { return each == std::byte{0}; });
    }

private:
    static std::size_t indexOf(std::uint32_t type) {
        const auto* const place = std::find_if(recordKinds.begin(), recordKinds.end(),
                                               [type](const RecordKind& kind) { return kind.type == type; });
        return static_cast<std::size_t>(place - recordKinds.begin());
    }

    std::array<const std::byte*, recordKinds.size()> records{};
};

}  // namespace

std::optional<VideoFormat> recognizeFormat(const void* root) {
    Records records;
    if (!records.collect(static_cast<const std::byte*>(root))) return std::nullopt;
    const bool pulse = records.word(variant.type, variant.place) == variant.pulse;
    for (const KnownWord& known : knownWords)
        if (records.word(known.type, known.place) != (pulse ? known.pulse : known.standard)) return std::nullopt;
    for (const std::uint32_t type : emptyTypes)
        if (!records.isZeroFrom(type, headerSize)) return std::nullopt;
    if (records.isZeroFrom(tableType, tableBegin) != pulse) return std::nullopt;
    return pulse ? VideoFormat::Pulse : VideoFormat::Standard;
}

}  // namespace grabber
