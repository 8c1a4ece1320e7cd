#include "soak/Model.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "binningTable.h"

namespace soak {
namespace {

constexpr int powerOnWindow = 10000;
constexpr float countsPerMs = 100.0F;
constexpr float gapCountsPerMs = 10.0F;

/// Minimum windows of electronics that don't tell their own timing, where they aren't 0.
struct MinimumWindow {
    int model;
    DetectorInterface transport;
    int binning;
    float ms;
};
constexpr MinimumWindow minimumWindows[] = {{5101, TransportGE, Bin1x1, 14.71F},
                                            {5101, TransportGE, Bin2x2, 1.48F},
                                            {5309, TransportGE, Bin1x1, 32.89F},
                                            {5309, TransportGE, Bin2x2, 3.5F}};

/// Model 6213 with firmware 11138 on Camera Link.
struct Measured {
    bool legacy;
    int binning;
    float readout;
    float minimum;
};
constexpr Measured measured6213[] = {{false, Bin1x1, 37.696F, 37.696F},        {false, Bin2x2, 11.69F, 11.69F},
                                     {false, Bin4x4, 11.69F, 11.76F},          {false, Bin2x2Flagged, 33.216F, 52.186F},
                                     {false, Bin4x4Flagged, 33.216F, 54.816F}, {true, Bin1x1, 37.77F, 37.77F},
                                     {true, Bin2x2, 14.25F, 14.25F},           {true, Bin4x4, 11.69F, 11.76F},
                                     {true, Bin2x2Flagged, 33.216F, 52.186F},  {true, Bin4x4Flagged, 33.216F, 54.816F}};

/// Settings that share a register: a change that fails midway may leave any of them.
constexpr Setting sharedRegisters[][6] = {
    {Setting::ExposureMode, Setting::Trigger, Setting::TestImage, Setting::CrossTalk},
    {Setting::Readout, Setting::FrameCounter, Setting::Linearization, Setting::RegionOn, Setting::Binning},
    {Setting::FullWell, Setting::Binning},
    {Setting::Legacy, Setting::Interlacing, Setting::Margin},
    {Setting::RegionRow, Setting::RegionHeight},
    {Setting::Programmed1, Setting::Programmed2, Setting::Programmed3, Setting::Programmed4, Setting::Exposures}};

template <class Enum>
Enum as(int value) {
    return static_cast<Enum>(value);
}

}  // namespace

const std::array<SettingCall, 14> settingCalls{{
    {Setting::Binning, "BinningMode", [](QuorinDetector& d, int v) { d.SetBinningMode(as<bins>(v)); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetBinningMode()); }, 1, 11},
    {Setting::ExposureMode, "ExposureMode", [](QuorinDetector& d, int v) { d.SetExposureMode(as<ExposureModes>(v)); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetExposureMode()); }, -1, 4},
    {Setting::FullWell, "FullWellMode", [](QuorinDetector& d, int v) { d.SetFullWellMode(as<FullWellModes>(v)); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetFullWellMode()); }, -1, 2},
    {Setting::Readout, "ReadoutMode", [](QuorinDetector& d, int v) { d.SetReadoutMode(as<ReadoutModes>(v)); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetReadoutMode()); }, 0, 1},
    {Setting::Trigger, "TriggerSource",
     [](QuorinDetector& d, int v) { d.SetTriggerSource(as<ExposureTriggerSource>(v)); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetTriggerSource()); }, -1, 3},
    {Setting::Exposures, "NumOfExposures", [](QuorinDetector& d, int v) { d.SetNumOfExposures(v); },
     [](const QuorinDetector& d) { return d.GetNumOfExposures(); }, -5, 65540},
    {Setting::Legacy, "LegacyTiming", [](QuorinDetector& d, int v) { d.SetLegacyTiming(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.IsLegacyTimingEnabled()); }, 0, 1},
    {Setting::FrameCounter, "PixelFrameCounter", [](QuorinDetector& d, int v) { d.SetPixelFrameCounter(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.IsPixelFrameCounterEnabled()); }, 0, 1},
    {Setting::Interlacing, "SliceInterlacing", [](QuorinDetector& d, int v) { d.SetSliceInterlacing(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetSliceInterlacing()); }, 0, 1},
    {Setting::TestImage, "TestMode", [](QuorinDetector& d, int v) { d.SetTestMode(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetTestMode()); }, 0, 1},
    {Setting::Linearization, "OnBoardLinearization",
     [](QuorinDetector& d, int v) { d.ToggleOnBoardLinearization(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetOnBoardLinearizationState()); }, 0, 1},
    {Setting::CrossTalk, "OnBoardXTalkCorrection",
     [](QuorinDetector& d, int v) { d.ToggleOnBoardXTalkCorrection(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.GetOnBoardXTalkCorrectionState()); }, 0, 1},
    {Setting::RegionOn, "ROIEnabled", [](QuorinDetector& d, int v) { d.SetROIEnabled(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.IsROIEnabled()); }, 0, 1},
    {Setting::Margin, "ROIMarginEnabled", [](QuorinDetector& d, int v) { d.SetROIMarginEnabled(v != 0); },
     [](const QuorinDetector& d) { return static_cast<int>(d.IsROIMarginEnabled()); }, 0, 1},
}};

Model::Model(const Station& stationToModel)
    : profile(stationToModel.hardware->profile()), station(stationToModel), kestrane(profile.isKestrane()) {
    powerOnValues();
}

void Model::powerOnValues() {
    values.fill(0);
    learn(Setting::Binning, Bin1x1);
    learn(Setting::ExposureMode, ExposureBitsClear);
    learn(Setting::Trigger, TriggerBitsClear);
    learn(Setting::Exposures, 1);
    learn(Setting::Legacy, kestrane ? 1 : 0);
    for (const Setting on : {Setting::Interlacing, Setting::Linearization, Setting::Margin}) learn(on, 1);
    learn(Setting::RegionHeight, panelHeight());
    for (const Setting window :
         {Setting::Window, Setting::Programmed1, Setting::Programmed2, Setting::Programmed3, Setting::Programmed4})
        learn(window, powerOnWindow);
}

void Model::forget(Setting setting) {
    for (const auto& shared : sharedRegisters)
        if (std::find(std::begin(shared), std::end(shared), setting) != std::end(shared))
            for (const Setting each : shared) values[place(each)].reset();
    values[place(setting)].reset();
    // Nearly each of them may have stopped while it was working the timing out or applying the exposure again.
    values[place(Setting::Window)].reset();
    rememberedExposure.reset();
    timing.reset();
    if (setting == Setting::RegionOn) {
        forget(Setting::Legacy);
        forget(Setting::RegionRow);
    }
}

void Model::forgetAll() {
    values.fill(std::nullopt);
    timing.reset();
    rememberedExposure.reset();
}

bool Model::knowsSize() const {
    for (const Setting each : {Setting::Binning, Setting::RegionOn, Setting::RegionRow, Setting::RegionHeight})
        if (!(*this)[each]) return false;
    return true;
}

int Model::width() const {
    return panelWidth() / findBinning(*(*this)[Setting::Binning])->columnFactor;
}

int Model::height() const {
    const int rows = *(*this)[Setting::RegionOn] != 0 ? *(*this)[Setting::RegionHeight] : panelHeight();
    return rows / findBinning(*(*this)[Setting::Binning])->rowFactor;
}

int Model::binningCode(int mode) const {
    if (measuredTimings)
        return std::any_of(std::begin(measured6213), std::end(measured6213),
                           [mode](const Measured& row) { return row.binning == mode; })
                   ? 0
                   : DerrBadRequest;
    if (kestrane) return 0;
    if (mode == Bin1x1) return 0;
    const bool square = mode == Bin2x2 || mode == Bin4x4;
    const bool unbinnedOnly = profile.model == 8131 || (profile.model == 7127 && station.isGigE()) ||
                              (profile.model == 7127 && profile.firmwareVersion == 13);
    return square && !unbinnedOnly ? 0 : DerrBadRequest;
}

Model::Timing Model::timingNow() const {
    const int binning = *(*this)[Setting::Binning];
    if (measuredTimings)
        for (const Measured& row : measured6213)
            if (row.binning == binning && row.legacy == (*rememberedLegacy != 0))
                return {row.readout, std::max(row.minimum - row.readout, 0.0F)};
    if (!kestrane) {
        float minimum = 0.0F;
        for (const MinimumWindow& row : minimumWindows)
            if (row.model == profile.model && row.transport == station.transport && row.binning == binning)
                minimum = row.ms;
        return {static_cast<float>(station.hardware->readoutTimeMs()), minimum};
    }
    constexpr double readoutCountsPerMs = 500.0;
    constexpr float readoutUnitMs = 0.002F;
    const float firmwareMinimumMs = station.minimumWindowMs;
    const auto count = static_cast<int>(std::lround(station.hardware->readoutTimeMs() * readoutCountsPerMs));
    const float readout = static_cast<float>(count) * readoutUnitMs;
    if (!station.isGigE()) return {readout, firmwareMinimumMs};
    constexpr float bitsPerSecond = 670000000.0F;
    constexpr int bitsPerPixel = 16;
    const float linkMs = static_cast<float>(width() * height() * bitsPerPixel) / bitsPerSecond * 1000.0F;
    const float linkWindow = std::floor(std::max(linkMs - readout, 0.0F) * countsPerMs + 0.5F) / countsPerMs;
    return {readout, std::max(firmwareMinimumMs, linkWindow)};
}

void Model::updateTiming() {
    if (measuredTimings && !rememberedLegacy) rememberedLegacy = (*this)[Setting::Legacy];
    if (knowsSize() && (!measuredTimings || rememberedLegacy))
        timing = timingNow();
    else
        timing.reset();
}

float Model::exposureMs() const {
    return static_cast<float>(*(*this)[Setting::Window]) / countsPerMs + timing->readout;
}
float Model::gapMs() const {
    return static_cast<float>(*(*this)[Setting::Gap]) / gapCountsPerMs + timing->readout;
}
float Model::programmedMs(int entry) const {
    const auto setting = as<Setting>(static_cast<int>(Setting::Programmed1) + entry);
    return static_cast<float>(*(*this)[setting]) / countsPerMs + timing->readout;
}

void Model::askedExposure() {
    if (timing && (*this)[Setting::Window]) rememberedExposure = exposureMs();
}
void Model::askedLegacy() {
    rememberedLegacy = (*this)[Setting::Legacy];
}

/// The exposure that a setting applies again: none known, or 0 for one that stays at the minimum.
std::optional<float> Model::exposureUnlessAt(float minimum) {
    if (!rememberedExposure) askedExposure();
    if (rememberedExposure && *rememberedExposure == minimum) return 0.0F;
    return rememberedExposure;
}

void Model::applyExposure(float timeMs) {
    const float minimum = timing->minimumWindow + timing->readout;
    const float window = (timeMs > minimum ? timeMs : minimum) - timing->readout;
    const auto count = static_cast<int>(std::lround(window * countsPerMs));
    learn(Setting::Window, count);
    rememberedExposure = static_cast<float>(count) / countsPerMs + timing->readout;
}

void Model::reapply(std::optional<float> exposure) {
    updateTiming();
    if (timing && exposure) return applyExposure(*exposure);
    values[place(Setting::Window)].reset();
    rememberedExposure.reset();
}

int Model::setExposureTime(float timeMs) {
    if (!timing) {
        values[place(Setting::Window)].reset();
        rememberedExposure.reset();
        return 0;
    }
    constexpr float longestMs = 21474000.0F;
    if (timeMs > longestMs) {
        askedExposure();
        return DerrExposure;
    }
    applyExposure(timeMs);
    return 0;
}

int Model::setGapTime(float timeMs) {
    if (!timing) {
        values[place(Setting::Gap)].reset();
        return 0;
    }
    const float count = std::max(std::trunc((timeMs - timing->readout) * gapCountsPerMs + 0.5F), 0.0F);
    if (std::isnan(timeMs) || count > (kestrane ? 65535.0F : 16383.0F)) return DerrBadRequest;
    learn(Setting::Gap, static_cast<int>(count));
    return 0;
}

void Model::setProgrammed(const std::array<float, 4>& timesMs, int count) {
    if (!timing) return forget(Setting::Programmed1);
    for (int entry = 0; entry < 4; ++entry) {
        const float wanted = (entry < count ? timesMs[static_cast<std::size_t>(entry)] : 0.0F) - timing->readout;
        const float window = std::max(wanted, timing->minimumWindow);
        learn(as<Setting>(static_cast<int>(Setting::Programmed1) + entry),
              static_cast<int>(window * countsPerMs + 0.5F));
    }
    // The number is only written where the library remembers another one.
    if ((*this)[Setting::Exposures]) learn(Setting::Exposures, count);
}

int Model::setRegion(const Region& region) {
    constexpr int lowestHeight = 128;
    constexpr int step = 8;
    if (!canRegion() || region.width != panelWidth() || region.height > panelHeight() || region.height < lowestHeight ||
        region.startRow < 0 || region.startRow > panelHeight() - lowestHeight || region.startColumn != 0 ||
        region.startRow + region.height > panelHeight() || region.height % step != 0)
        return DerrBadRequest;
    const std::optional<float> exposure = timing ? exposureUnlessAt(minimumMs()) : std::nullopt;
    learn(Setting::RegionRow, region.startRow);
    learn(Setting::RegionHeight, region.height);
    reapply(exposure);
    return 0;
}

int Model::set(Setting setting, int value) {
    const bool regionOn = (*this)[Setting::RegionOn].value_or(0) != 0;
    const auto keep = [&] { learn(setting, value); };
    switch (setting) {
        case Setting::Binning: {
            if (const int code = binningCode(value)) return code;
            const std::optional<float> exposure = timing ? exposureUnlessAt(timing->readout) : std::nullopt;
            keep();
            reapply(exposure);
            return 0;
        }
        case Setting::ExposureMode: {
            if (value >= ExposureBits3And4 && value <= ExposureBit12) keep();
            if (timing && exposureUnlessAt(-1.0F))
                applyExposure(*rememberedExposure);
            else
                values[place(Setting::Window)].reset();
            updateTiming();
            return 0;
        }
        case Setting::Trigger:
            if (value < TriggerBits5And6 || value > TriggerBits5And7) return DerrBadRequest;
            keep();
            updateTiming();
            return 0;
        case Setting::Readout:
            keep();
            updateTiming();
            return 0;
        case Setting::FullWell:
            if (value == FullWellBit2Clear || value == FullWellBit2Set) keep();
            return 0;
        case Setting::Exposures:
            if (value < 1 || value > 65535) return DerrBadRequest;
            keep();
            return 0;
        case Setting::Legacy: {
            if (!kestrane) return 0;
            if (value != 0 && regionOn) return DerrBadRequest;
            const std::optional<float> exposure = timing ? exposureUnlessAt(minimumMs()) : std::nullopt;
            keep();
            rememberedLegacy = value;
            reapply(exposure);
            return 0;
        }
        case Setting::FrameCounter:
            if (kestrane) keep();
            return 0;
        case Setting::Interlacing:
            if (interlaces() && value != 0 && regionOn) return DerrBadRequest;
            if (interlaces()) keep();
            return 0;
        case Setting::RegionOn: {
            if (!canRegion()) return DerrBadRequest;
            if ((*this)[Setting::RegionOn] == value) return 0;
            const std::optional<float> exposure = timing ? exposureUnlessAt(minimumMs()) : std::nullopt;
            keep();
            if (value != 0) {
                learn(Setting::Legacy, 0);
                rememberedLegacy = 0;
                learn(Setting::Interlacing, 0);
            }
            reapply(exposure);
            return 0;
        }
        case Setting::Margin:
            if (!canRegion()) return DerrBadRequest;
            keep();
            updateTiming();
            return 0;
        default:
            keep();
            return 0;
    }
}

void Model::made() {
    measuredTimings = false;
    rememberedExposure.reset();
    rememberedLegacy.reset();
}

bool Model::hasMeasuredTimings() const {
    return profile.model == 6213 && !station.isGigE() && profile.firmwareVersion == 11138;
}

int Model::openingCode(bool pickTimings) const {
    Model afterwards = *this;
    if (pickTimings) afterwards.measuredTimings = hasMeasuredTimings();
    return (*this)[Setting::Binning] ? afterwards.binningCode(*(*this)[Setting::Binning]) : 0;
}

void Model::opened(bool pickTimings) {
    if (pickTimings) measuredTimings = hasMeasuredTimings();
    updateTiming();
    if (!rememberedExposure) askedExposure();
    if (timing && rememberedExposure && minimumMs() > *rememberedExposure) applyExposure(minimumMs());
}

void Model::powerCycled() {
    powerOnValues();
    rememberedExposure.reset();
    updateTiming();
    askedExposure();
    if (timing && minimumMs() > *rememberedExposure) applyExposure(minimumMs());
}

}  // namespace soak
