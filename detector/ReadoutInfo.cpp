#include "detector/ReadoutInfo.h"

#include <spdlog/spdlog.h>

#include <array>

#include "InternalUtils/Failure.h"
#include "logging.h"

namespace {

struct ReadoutRow {
    int model;
    DetectorInterface transport;
    bins binning;
    bool slowed;
    float readoutTimeMs;
    float minimumExposureWindowMs;
};

constexpr std::array<ReadoutRow, 31> ReadoutInfo{{
    {5101, TransportCL, Bin1x1, false, 16.93F, 0.0F},   {5101, TransportCL, Bin2x2, false, 6.42F, 0.0F},
    {5101, TransportCL, Bin4x4, false, 5.24F, 0.0F},    {5101, TransportGE, Bin1x1, false, 16.93F, 14.71F},
    {5101, TransportGE, Bin2x2, false, 6.42F, 1.48F},   {5101, TransportGE, Bin4x4, false, 5.24F, 0.0F},
    {6112, TransportCL, Bin1x1, false, 16.93F, 0.0F},   {6112, TransportCL, Bin2x2, false, 6.42F, 0.0F},
    {6112, TransportCL, Bin4x4, false, 5.24F, 0.0F},    {6112, TransportGE, Bin1x1, false, 16.93F, 0.0F},
    {6112, TransportGE, Bin2x2, false, 6.42F, 0.0F},    {6112, TransportGE, Bin4x4, false, 5.24F, 0.0F},
    {5309, TransportCL, Bin1x1, false, 37.69F, 0.0F},   {5309, TransportCL, Bin2x2, false, 14.2F, 0.0F},
    {5309, TransportCL, Bin4x4, false, 11.51F, 0.0F},   {5309, TransportCL, Bin1x1, true, 56.95F, 0.0F},
    {5309, TransportGE, Bin1x1, false, 37.78F, 32.89F}, {5309, TransportGE, Bin2x2, false, 14.25F, 3.5F},
    {5309, TransportGE, Bin4x4, false, 11.61F, 0.0F},   {6213, TransportCL, Bin1x1, false, 37.78F, 0.0F},
    {6213, TransportCL, Bin2x2, false, 14.25F, 0.0F},   {6213, TransportCL, Bin4x4, false, 11.62F, 0.0F},
    {6213, TransportCL, Bin1x1, true, 56.95F, 0.0F},    {7127, TransportCL, Bin1x1, false, 37.74F, 0.0F},
    {7127, TransportCL, Bin2x2, false, 14.25F, 0.0F},   {7127, TransportCL, Bin4x4, false, 11.62F, 0.0F},
    {7127, TransportCL, Bin1x1, true, 56.95F, 0.0F},    {7127, TransportGE, Bin1x1, false, 188.68F, 0.0F},
    {7127, TransportGE, Bin1x1, true, 188.68F, 0.0F},   {8131, TransportCL, Bin1x1, false, 37.92F, 0.0F},
    {6318, TransportCL, Bin2x2, false, 37.92F, 0.0F},
}};

struct TimingRow {
    bool legacyTiming;
    bins binning;
    float readoutTimeMs;
    float minimumExposureTimeMs;
};

/// Model 6213 on Camera Link, firmware 11138; the same in both readout modes.
constexpr std::array<TimingRow, 10> timings6213Firmware11138{{
    {false, Bin1x1, 37.696F, 37.696F},
    {false, Bin2x2, 11.69F, 11.69F},
    {false, Bin4x4, 11.69F, 11.76F},
    {false, Bin2x2Flagged, 33.216F, 52.186F},
    {false, Bin4x4Flagged, 33.216F, 54.816F},
    {true, Bin1x1, 37.77F, 37.77F},
    {true, Bin2x2, 14.25F, 14.25F},
    {true, Bin4x4, 11.69F, 11.76F},
    {true, Bin2x2Flagged, 33.216F, 52.186F},
    {true, Bin4x4Flagged, 33.216F, 54.816F},
}};

}  // namespace

std::pair<float, float> getReadoutData(int model, DetectorInterface transport, bins binning, bool slowed) {
    for (const ReadoutRow& row : ReadoutInfo)
        if (row.model == model && row.transport == transport && row.binning == binning && row.slowed == slowed)
            return {row.readoutTimeMs, row.minimumExposureWindowMs};
    fail("There is no readout time stored for these detector settings.", DerrBadRequest, "getReadoutData");
}

qrapi::DetectorTimings::DetectorTimings(std::map<Key, Timings> rows) : timings(std::move(rows)) {}

qrapi::DetectorTimings::Timings qrapi::DetectorTimings::getTimings(bool legacyTiming, ReadoutModes readoutMode,
                                                                   bins binning) {
    const auto row = timings.find({legacyTiming, readoutMode, binning});
    if (row == timings.end())
        fail("There are no timings stored for these detector settings.", DerrBadRequest,
             "qrapi::DetectorTimings::getTimings");
    getQorLogger()->debug(
        "Timings for LegacyTiming: {}, ReadoutMode: {}, Binning: {} are ReadoutTime: {}, MinimumExposureTime: {}\n",
        legacyTiming, static_cast<int>(readoutMode), static_cast<int>(binning), row->second.first, row->second.second);
    return row->second;
}

std::unique_ptr<qrapi::DetectorTimings> createDetectorTimings(int model, DetectorInterface transport,
                                                              int firmwareVersion) {
    constexpr int model6213 = 6213;
    constexpr int firmwareWithTimings = 11138;
    if (model != model6213 || transport != TransportCL || firmwareVersion != firmwareWithTimings) return nullptr;
    std::map<qrapi::DetectorTimings::Key, qrapi::DetectorTimings::Timings> rows;
    for (const TimingRow& row : timings6213Firmware11138)
        for (const ReadoutModes mode : {ReadoutBit3Clear, ReadoutBit3Set})
            rows[{row.legacyTiming, mode, row.binning}] = {row.readoutTimeMs, row.minimumExposureTimeMs};
    return std::make_unique<qrapi::DetectorTimings>(std::move(rows));
}
