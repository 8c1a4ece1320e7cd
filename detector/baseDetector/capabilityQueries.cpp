#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"

namespace {

constexpr int notReported = -1;
constexpr int model6112 = 6112;

template <std::size_t N>
std::optional<Capability> pick(const std::array<Capability, N>& flags, std::int64_t index) {
    if (index < 0 || index >= static_cast<std::int64_t>(N)) return std::nullopt;
    return flags[static_cast<std::size_t>(index)];
}

constexpr std::array binningFlags{Capability::Bin1x1,        Capability::Bin1x2,       Capability::Bin1x4,
                                  Capability::Bin2x1,        Capability::Bin2x2,       Capability::Bin2x4,
                                  Capability::Bin4x1,        Capability::Bin4x2,       Capability::Bin4x4,
                                  Capability::Bin2x2Flagged, Capability::Bin4x4Flagged};
constexpr std::array exposureFlags{Capability::ExposureBits3And4, Capability::ExposureBitsClear,
                                   Capability::ExposureBit13, Capability::ExposureBit12};
constexpr std::array triggerFlags{Capability::TriggerBits5And6, Capability::TriggerBitsClear,
                                  Capability::TriggerBits5And7};
constexpr std::array fullWellFlags{Capability::FullWellBit2Clear, Capability::FullWellBit2Set};
constexpr std::array readoutFlags{Capability::ReadoutBit3Clear, Capability::ReadoutBit3Set};

}  // namespace

int baseDetector::capabilityFlag(Capability capability) const {
    const platform::MutexLock lock(cacheMutex);
    return capabilities[capability];
}

int baseDetector::query(std::optional<Capability> capability, const char* function) {
    return layer(function, [&] {
        CheckConnected();
        return capability ? capabilityFlag(*capability) : notReported;
    });
}

int baseDetector::QueryBinningMode(bins binning) {
    return query(pick(binningFlags, std::int64_t{binning} - Bin1x1), "baseDetector::QueryBinningMode");
}

int baseDetector::QueryExposureMode(ExposureModes mode) {
    return query(pick(exposureFlags, mode), "baseDetector::QueryExposureMode");
}

int baseDetector::QueryTriggerSource(ExposureTriggerSource source) {
    return query(pick(triggerFlags, source), "baseDetector::QueryTriggerSource");
}

int baseDetector::QueryFullWellMode(FullWellModes mode) {
    return query(pick(fullWellFlags, mode), "baseDetector::QueryFullWellMode");
}

int baseDetector::QueryReadoutMode(ReadoutModes mode) {
    return query(pick(readoutFlags, mode), "baseDetector::QueryReadoutMode");
}

int baseDetector::QueryOnBoardLinearization() {
    return query(Capability::Linearization, "baseDetector::QueryOnBoardLinearization");
}

int baseDetector::QueryOnBoardXTalkCorrection() {
    return query(Capability::XTalkCorrection, "baseDetector::QueryOnBoardXTalkCorrection");
}

int baseDetector::QueryOnBoardUnscrambling() {
    return query(Capability::SliceInterlacing, "baseDetector::QueryOnBoardUnscrambling");
}

int baseDetector::QueryDisableSliceInterlacing() {
    CheckConnected();
    return capabilityFlag(Capability::SliceInterlacing);
}

int baseDetector::QueryTempReporting() {
    return layer("baseDetector::QueryTempReporting", [&] {
        CheckConnected();
        return capabilityFlag(Capability::TempReporting1) == 1 || capabilityFlag(Capability::TempReporting2) == 1 ? 1
                                                                                                                  : 0;
    });
}

int baseDetector::QueryLegacyTiming() {
    CheckConnected();
    return IsKestrane() ? 1 : 0;
}

int baseDetector::QueryPixelFrameCounter() {
    CheckConnected();
    return IsKestrane() ? 1 : 0;
}

int baseDetector::QueryROI() {
    CheckConnected();
    return IsKestrane() && GetCachedModelNumber() == model6112 ? 1 : 0;
}
