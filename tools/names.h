#pragma once

#include <qrapi/enumerations.h>

#include <array>
#include <string_view>

/// The names under which the tool prints the library's values, and the keys of its JSON. They are stable.
namespace tool {

template <class Value>
struct Named {
    Value value;
    std::string_view name;
};

inline constexpr std::array<Named<bins>, 11> binningNames{{
    {Bin1x1, "1x1"},
    {Bin1x2, "1x2"},
    {Bin1x4, "1x4"},
    {Bin2x1, "2x1"},
    {Bin2x2, "2x2"},
    {Bin2x4, "2x4"},
    {Bin4x1, "4x1"},
    {Bin4x2, "4x2"},
    {Bin4x4, "4x4"},
    {Bin2x2Flagged, "2x2_flagged"},
    {Bin4x4Flagged, "4x4_flagged"},
}};

inline constexpr std::array<Named<ExposureModes>, 4> exposureModeNames{{
    {ExposureBits3And4, "bits_3_and_4"},
    {ExposureBitsClear, "bits_clear"},
    {ExposureBit13, "bit_13"},
    {ExposureBit12, "bit_12"},
}};

inline constexpr std::array<Named<ExposureTriggerSource>, 3> triggerSourceNames{{
    {TriggerBits5And6, "bits_5_and_6"},
    {TriggerBitsClear, "bits_clear"},
    {TriggerBits5And7, "bits_5_and_7"},
}};

inline constexpr std::array<Named<FullWellModes>, 2> fullWellModeNames{{
    {FullWellBit2Clear, "bit_2_clear"},
    {FullWellBit2Set, "bit_2_set"},
}};

inline constexpr std::array<Named<ReadoutModes>, 2> readoutModeNames{{
    {ReadoutBit3Clear, "bit_3_clear"},
    {ReadoutBit3Set, "bit_3_set"},
}};

std::string_view nameOf(bins binning);
std::string_view nameOf(DetectorInterface transport);

/// "kestrane" or "plain".
std::string_view electronicsName(bool kestrane);

/// A time in ms without the digits that only a float's rounding makes.
double roundedMs(float ms);

}  // namespace tool
