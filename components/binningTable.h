#pragma once

#include <array>
#include <cstdint>

#include "enumerations.h"

/// A binning mode: its factors and its register values. Shared by the library and the simulated detector.
struct BinningMode {
    bins mode;                     ///< the mode
    int columnFactor;              ///< sensor columns per output pixel
    int rowFactor;                 ///< sensor rows per output pixel
    std::uint16_t columnRegister;  ///< value of register 10
    std::uint16_t rowRegister;     ///< value of register 9
    std::uint16_t codeBits;        ///< bits 6 to 8 of register 3
    std::uint16_t flagBits;        ///< bits 1 and 4 of register 1
};

inline constexpr std::uint16_t binningCodeMask = 0x1C0;       ///< register 3, bits 6, 7 and 8
inline constexpr std::uint16_t binning2x2FlagBit = 1U << 1U;  ///< register 1, `Bin2x2Flagged`
inline constexpr std::uint16_t binning4x4FlagBit = 1U << 4U;  ///< register 1, `Bin4x4Flagged`
inline constexpr std::uint16_t binningFlagMask = binning2x2FlagBit | binning4x4FlagBit;

inline constexpr std::array<BinningMode, 11> binningTable{{
    {Bin1x1, 1, 1, 1, 1, 0x000, 0},
    {Bin1x2, 1, 2, 1, 2, 0x000, 0},
    {Bin1x4, 1, 4, 1, 4, 0x040, 0},
    {Bin2x1, 2, 1, 2, 1, 0x080, 0},
    {Bin2x2, 2, 2, 2, 2, 0x080, 0},
    {Bin2x4, 2, 4, 2, 4, 0x0C0, 0},
    {Bin4x1, 4, 1, 4, 1, 0x100, 0},
    {Bin4x2, 4, 2, 4, 2, 0x100, 0},
    {Bin4x4, 4, 4, 4, 4, 0x140, 0},
    {Bin2x2Flagged, 2, 2, 1, 1, 0x000, binning2x2FlagBit},
    {Bin4x4Flagged, 4, 4, 1, 1, 0x140, binning4x4FlagBit},
}};

/// The row of `mode`, or null for a value outside 1 to 11.
constexpr const BinningMode* findBinning(int mode) {
    for (const BinningMode& row : binningTable)
        if (row.mode == mode) return &row;
    return nullptr;
}

/// The unflagged mode with these values of registers 10 and 9; `Bin1x1` if there is none.
constexpr bins binningFromRegisters(int columnRegister, int rowRegister) {
    for (const BinningMode& row : binningTable)
        if (row.flagBits == 0 && row.columnRegister == columnRegister && row.rowRegister == rowRegister)
            return row.mode;
    return Bin1x1;
}
