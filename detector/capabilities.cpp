#include "detector/capabilities.h"

namespace {

struct CapabilityRow {
    int word;  ///< register that reports the capability; 0 for one that has no bit
    int bit;
    bool extended;  ///< reported by detectors with extended feature words only
    Capability capability;
    int start;  ///< before the first report
};

constexpr std::array<CapabilityRow, static_cast<std::size_t>(Capability::count)> capabilityTable{{
    {36, 0, false, Capability::Bin1x2, 0},
    {36, 1, false, Capability::Bin1x4, 0},
    {36, 2, false, Capability::Bin2x1, 0},
    {36, 3, false, Capability::Bin2x2, 1},
    {36, 4, false, Capability::Bin2x4, 0},
    {36, 5, false, Capability::Bin4x1, 0},
    {36, 6, false, Capability::Bin4x2, 0},
    {36, 7, false, Capability::Bin4x4, 1},
    {36, 8, false, Capability::Bin2x2Flagged, 0},
    {36, 9, false, Capability::XTalkCorrection, -1},
    {36, 10, false, Capability::Linearization, -1},
    {36, 12, false, Capability::ExposureBitsClear, 1},
    {36, 13, false, Capability::ExposureBit12, 1},
    {36, 14, false, Capability::ExposureBit13, 1},
    {36, 15, false, Capability::ReadoutBit3Set, -1},
    {37, 9, true, Capability::SliceInterlacing, 0},
    {37, 10, true, Capability::Bin1x1, 1},
    {37, 11, true, Capability::ExposureBits3And4, 1},
    {37, 12, true, Capability::ReadoutBit3Clear, 1},
    {37, 13, true, Capability::TriggerBits5And6, 1},
    {37, 14, true, Capability::TriggerBits5And7, 1},
    {37, 15, true, Capability::TriggerBitsClear, 1},
    {130, 0, true, Capability::FullWellBit2Clear, 1},
    {130, 1, true, Capability::FullWellBit2Set, 1},
    {130, 2, true, Capability::TempReporting1, 0},
    {130, 3, true, Capability::TempReporting2, 0},
    {0, 0, false, Capability::Bin4x4Flagged, 0},
}};

}  // namespace

CapabilityFlags::CapabilityFlags() {
    for (const CapabilityRow& row : capabilityTable) set(row.capability, row.start);
}

void CapabilityFlags::apply(const FeatureWords& words) {
    for (const CapabilityRow& row : capabilityTable) {
        if (row.word == 0 || (row.extended && !words.extended())) continue;
        const std::uint16_t word = row.word == 36 ? words.word36 : row.word == 37 ? words.word37 : words.word130;
        set(row.capability, (word >> row.bit) & 1);
    }
}
