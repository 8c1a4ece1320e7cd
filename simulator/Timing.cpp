#include "simulator/Timing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "components/binningTable.h"

namespace simulator {
namespace {

struct MeasuredReadout {
    int model;
    bool slowed;
    bins binning;
    double ms;
};

// Electronics without Kestrane timing. Where GigE and Camera Link differ, this is the GigE time.
constexpr std::array<MeasuredReadout, 19> measured{{
    {5101, false, Bin1x1, 16.93}, {5101, false, Bin2x2, 6.42},  {5101, false, Bin4x4, 5.24},
    {6112, false, Bin1x1, 16.93}, {6112, false, Bin2x2, 6.42},  {6112, false, Bin4x4, 5.24},
    {5309, false, Bin1x1, 37.78}, {5309, false, Bin2x2, 14.25}, {5309, false, Bin4x4, 11.61},
    {5309, true, Bin1x1, 56.95},  {6213, false, Bin1x1, 37.78}, {6213, false, Bin2x2, 14.25},
    {6213, false, Bin4x4, 11.62}, {6213, true, Bin1x1, 56.95},  {7127, false, Bin1x1, 188.68},
    {7127, true, Bin1x1, 188.68}, {7127, false, Bin2x2, 14.25}, {7127, false, Bin4x4, 11.62},
    {8131, false, Bin1x1, 37.92},
}};

// The times that are other ones on Camera Link.
constexpr std::array<MeasuredReadout, 5> measuredOnCameraLink{{
    {5309, false, Bin1x1, 37.69},
    {5309, false, Bin2x2, 14.2},
    {5309, false, Bin4x4, 11.51},
    {7127, false, Bin1x1, 37.74},
    {7127, true, Bin1x1, 56.95},
}};

struct SlowedFirmware {
    int model;
    int firmwareVersion;
};

constexpr std::array<SlowedFirmware, 4> slowedFirmware{{{5309, 3}, {6213, 27}, {7127, 13}, {7127, 27}}};

// The one Kestrane detector whose times were measured.
constexpr int measuredKestraneModel = 6213;
constexpr int measuredKestraneFirmware = 11138;

struct MeasuredKestraneReadout {
    bool legacyTiming;
    bins binning;
    double ms;
};

constexpr std::array<MeasuredKestraneReadout, 10> measuredKestrane{{
    {false, Bin1x1, 37.696},
    {false, Bin2x2, 11.69},
    {false, Bin4x4, 11.69},
    {false, Bin2x2Flagged, 33.216},
    {false, Bin4x4Flagged, 33.216},
    {true, Bin1x1, 37.77},
    {true, Bin2x2, 14.25},
    {true, Bin4x4, 11.69},
    {true, Bin2x2Flagged, 33.216},
    {true, Bin4x4Flagged, 33.216},
}};

// A frame that was not measured costs a fixed part and a part for each line that leaves the sensor; the numbers fit
// the measured ones within a few per cent.
constexpr double frameOverheadMs = 0.26;
constexpr double lineMs = 0.0193;
constexpr double lineOfTwoRowsMs = 0.01424;
constexpr double lineOfFourRowsMs = 0.0230;
constexpr double slowedFactor = 1.507;
constexpr double kestraneFactor = 0.945;  // against the legacy timing
constexpr double flaggedFactor = 0.881;   // flagged modes read every row and combine the pixels behind the converter

bool isSlowed(const ReadoutConditions& conditions) {
    return std::any_of(slowedFirmware.begin(), slowedFirmware.end(), [&](const SlowedFirmware& row) {
        return row.model == conditions.model && row.firmwareVersion == conditions.firmwareVersion;
    });
}

bool isMeasuredKestrane(int model, int firmwareVersion) {
    return model == measuredKestraneModel && firmwareVersion == measuredKestraneFirmware;
}

std::optional<double> measuredMs(const ReadoutConditions& conditions) {
    if (conditions.kestrane) {
        if (!isMeasuredKestrane(conditions.model, conditions.firmwareVersion)) return std::nullopt;
        for (const MeasuredKestraneReadout& row : measuredKestrane)
            if (row.legacyTiming == conditions.legacyTiming && row.binning == conditions.binning) return row.ms;
        return std::nullopt;
    }
    const auto fits = [&, slowed = isSlowed(conditions)](const MeasuredReadout& row) {
        return row.model == conditions.model && row.slowed == slowed && row.binning == conditions.binning;
    };
    if (conditions.cameraLink)
        for (const MeasuredReadout& row : measuredOnCameraLink)
            if (fits(row)) return row.ms;
    for (const MeasuredReadout& row : measured)
        if (fits(row)) return row.ms;
    return std::nullopt;
}

double estimatedMs(const ReadoutConditions& conditions) {
    const BinningMode& mode = *findBinning(conditions.binning);
    double ms = 0;
    if (mode.flagBits != 0)
        ms = flaggedFactor * (frameOverheadMs + conditions.rowsRead * lineMs);
    else if (mode.rowFactor == 4)
        ms = frameOverheadMs + conditions.rowsRead / 4.0 * lineOfFourRowsMs;
    else if (mode.rowFactor == 2)
        ms = frameOverheadMs + conditions.rowsRead / 2.0 * lineOfTwoRowsMs;
    else
        ms = frameOverheadMs + conditions.rowsRead * lineMs;
    if (conditions.kestrane && !conditions.legacyTiming) ms *= kestraneFactor;
    if (!conditions.kestrane && isSlowed(conditions)) ms *= slowedFactor;
    return ms;
}

constexpr double readoutTicksPerMs = 500.0;
constexpr double windowTicksPerMs = 100.0;

}  // namespace

double readoutTimeMs(const ReadoutConditions& conditions) {
    return measuredMs(conditions).value_or(estimatedMs(conditions));
}

double firmwareMinimumWindowMs(int model, int firmwareVersion, bool kestrane) {
    constexpr double kestraneMs = 0.5;
    // What was measured holds exposures that are no longer than the readout.
    return kestrane && !isMeasuredKestrane(model, firmwareVersion) ? kestraneMs : 0.0;
}

std::uint16_t readoutTimeCount(double readoutTimeMs) {
    return static_cast<std::uint16_t>(std::clamp(std::round(readoutTimeMs * readoutTicksPerMs), 1.0, 65535.0));
}

platform::Time durationOf(double ms) {
    return std::chrono::duration_cast<platform::Time>(std::chrono::duration<double, std::milli>(ms));
}

std::uint32_t windowCount(double windowMs) {
    return static_cast<std::uint32_t>(std::clamp(std::round(windowMs * windowTicksPerMs), 0.0, 4294967295.0));
}

double windowMs(std::uint32_t count) {
    return count / windowTicksPerMs;
}

}  // namespace simulator
