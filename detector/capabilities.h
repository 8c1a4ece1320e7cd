#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// What a detector can do: one flag per capability, 1 supported, 0 not supported, -1 not reported.
enum class Capability : std::uint8_t {
    Bin1x1,
    Bin1x2,
    Bin1x4,
    Bin2x1,
    Bin2x2,
    Bin2x4,
    Bin4x1,
    Bin4x2,
    Bin4x4,
    Bin2x2Flagged,
    Bin4x4Flagged,
    XTalkCorrection,
    Linearization,
    ExposureBits3And4,
    ExposureBitsClear,
    ExposureBit13,
    ExposureBit12,
    TriggerBits5And6,
    TriggerBitsClear,
    TriggerBits5And7,
    FullWellBit2Clear,
    FullWellBit2Set,
    ReadoutBit3Clear,
    ReadoutBit3Set,
    SliceInterlacing,
    TempReporting1,
    TempReporting2,
    count,
};

/// The three feature words, registers 36, 37 and 130.
struct FeatureWords {
    std::uint16_t word36;
    std::uint16_t word37;
    std::uint16_t word130;

    bool anySet() const { return word36 != 0 || word37 != 0 || word130 != 0; }
    /// True if the words also report the extended capabilities: a bit of 9 to 15 in word 37, or word 130 is not 0.
    bool extended() const { return (word37 & 0xFE00U) != 0 || word130 != 0; }
};

/// The flags of all capabilities. A new object holds the start values, in force until the detector has reported.
class CapabilityFlags {
public:
    CapabilityFlags();

    int operator[](Capability capability) const { return flags[static_cast<std::size_t>(capability)]; }
    void set(Capability capability, int value) { flags[static_cast<std::size_t>(capability)] = value; }

    /// Sets the flags from the words; those of extended capabilities only if `words.extended()`.
    void apply(const FeatureWords& words);

private:
    std::array<int, static_cast<std::size_t>(Capability::count)> flags{};
};
