#include "simulator/RegisterBank.h"

#include <algorithm>
#include <utility>

namespace simulator {
namespace {

constexpr std::uint32_t powerOnWindowCount = 10000;  // 100 ms
constexpr int roiModel = 6112;
constexpr int roiMarginRows = 16;  // read above and below the region while the margin is on
constexpr std::uint16_t timingBitsOfControl = binningFlagMask | reg::readoutModeBit | reg::roiEnableBit;
constexpr std::uint16_t timingBitsOfMode = reg::exposureModeBits | reg::triggerSourceBits;

std::uint16_t lowHalf(std::uint32_t count) {
    return static_cast<std::uint16_t>(count & 0xFFFFU);
}
std::uint16_t highHalf(std::uint32_t count) {
    return static_cast<std::uint16_t>(count >> 16U);
}
std::uint16_t word(int value) {
    return static_cast<std::uint16_t>(value);
}

}  // namespace

RegisterBank::RegisterBank(const Profile& profileToHold) : profile(profileToHold) {
    powerOn();
}

void RegisterBank::powerOn() {
    std::array<std::uint16_t, reg::count> start{};
    start[reg::sensorHeight] = word(profile.sensorHeight);
    start[reg::sensorWidth] = word(profile.sensorWidth);
    start[reg::rowBinning] = 1;
    start[reg::columnBinning] = 1;
    start[reg::windowLow] = lowHalf(powerOnWindowCount);
    start[reg::windowHigh] = highHalf(powerOnWindowCount);
    start[reg::exposureCount] = 1;
    for (std::size_t low = reg::firstProgrammedWindow; low < reg::lastProgrammedWindow; low += 2) {
        start[low] = lowHalf(powerOnWindowCount);
        start[low + 1] = highHalf(powerOnWindowCount);
    }
    start[reg::featureWord36] = profile.featureWord36;
    start[reg::featureWord37] = profile.featureWord37;
    start[reg::featureWord130] = profile.featureWord130;
    start[reg::firmwareBuild1] = profile.firmwareBuild[0];
    start[reg::firmwareBuild2] = profile.firmwareBuild[1];
    start[reg::firmwareBuild3] = profile.firmwareBuild[2];
    start[reg::model] = word(profile.model);
    start[reg::serialNumber] = word(profile.serialNumber);
    start[reg::firmwareVersion] = word(profile.firmwareVersion);
    start[reg::modelAndFirmware] = word(((profile.model & 0xFFF) << 4) | (profile.firmwareVersion & 0xF));
    start[reg::electronicsFamily] = profile.electronicsFamily;
    start[reg::roiHeight] = word(profile.sensorHeight);
    start[reg::roiWidth] = word(profile.sensorWidth);

    std::vector<std::array<std::uint16_t, reg::count>> before =
        std::exchange(sensors, {static_cast<std::size_t>(profile.sensorCount()), start});
    for (std::size_t sensor = 0; sensor < before.size(); ++sensor)
        for (const int held : reg::flashHeld)
            sensors[sensor][static_cast<std::size_t>(held)] = before[sensor][static_cast<std::size_t>(held)];
    activeBinning = findBinning(Bin1x1);
    activeStaged = 0;
    latchedWindowCount = powerOnWindowCount;
}

std::uint16_t RegisterBank::get(int number, int sensor) const {
    return sensors[static_cast<std::size_t>(sensor - reg::firstSensor)][static_cast<std::size_t>(number)];
}

void RegisterBank::put(int number, std::uint16_t value, int sensor) {
    for (int each = reg::firstSensor; each <= profile.sensorCount(); ++each)
        if (sensor == reg::allSensors || sensor == each)
            sensors[static_cast<std::size_t>(each - reg::firstSensor)][static_cast<std::size_t>(number)] = value;
}

bool RegisterBank::latchesWindow(int number, int sensor) {
    return number == reg::windowHigh && (sensor == reg::allSensors || sensor == reg::firstSensor);
}

WriteEffects RegisterBank::write(int number, std::uint16_t value, int sensor, LatchRule latch) {
    WriteEffects effects;
    effects.flashWritten = reg::isFlashHeld(number);
    if (reg::isReadOnly(number)) return effects;

    const std::uint16_t before = get(number, reg::firstSensor);
    put(number, value, sensor);
    if (canRegion() && number >= reg::roiStartRow && number <= reg::roiWidth) effects.timingMoved = true;
    if (sensor != reg::allSensors && sensor != reg::firstSensor) return effects;

    switch (number) {
        case reg::mode:
            effects.timingMoved = ((before ^ value) & timingBitsOfMode) != 0;
            break;
        case reg::control:
            effects.timingMoved = moveControl(before, value);
            break;
        case reg::commit:
            if (value == reg::commitValue) {
                activeBinning = findBinning(selectedBinning());
                effects.timingMoved = true;
            }
            break;
        case reg::windowHigh:
            latchWindow(sensor, latch);
            effects.timingMoved = !latch.refuse;
            break;
        default:
            break;
    }
    return effects;
}

bool RegisterBank::moveControl(std::uint16_t before, std::uint16_t after) {
    const std::uint16_t staged = get(reg::staged, reg::firstSensor);
    const bool taken = staged != activeStaged;
    activeStaged = staged;
    return taken || ((before ^ after) & timingBitsOfControl) != 0;
}

bins RegisterBank::selectedBinning() const {
    const std::uint16_t control = get(reg::control, reg::firstSensor);
    if ((control & binning2x2FlagBit) != 0) return Bin2x2Flagged;
    if ((control & binning4x4FlagBit) != 0 &&
        (get(reg::code, reg::firstSensor) & findBinning(Bin4x4Flagged)->codeBits) != 0)
        return Bin4x4Flagged;
    return binningFromRegisters(get(reg::columnBinning, reg::firstSensor), get(reg::rowBinning, reg::firstSensor));
}

void RegisterBank::latchWindow(int sensor, LatchRule latch) {
    const std::uint32_t written = (static_cast<std::uint32_t>(get(reg::windowHigh, reg::firstSensor)) << 16U) |
                                  get(reg::windowLow, reg::firstSensor);
    if (!latch.refuse) latchedWindowCount = std::max(written, latch.minimumCount);
    put(reg::windowLow, lowHalf(latchedWindowCount), sensor);
    put(reg::windowHigh, highHalf(latchedWindowCount), sensor);
}

bool RegisterBank::canRegion() const {
    return profile.isKestrane() && profile.model == roiModel;
}

RegisterBank::Region RegisterBank::region() const {
    const Region whole{0, profile.sensorHeight};
    if (!canRegion() || (get(reg::control, reg::firstSensor) & reg::roiEnableBit) == 0) return whole;
    const Region set{get(reg::roiStartRow, reg::firstSensor), get(reg::roiHeight, reg::firstSensor)};
    return set.rows > 0 && set.startRow + set.rows <= profile.sensorHeight ? set : whole;
}

int RegisterBank::rowsRead() const {
    const Region shown = region();
    if ((activeStaged & reg::marginOffBit) != 0) return shown.rows;
    const int first = std::max(0, shown.startRow - roiMarginRows);
    const int end = std::min(profile.sensorHeight, shown.startRow + shown.rows + roiMarginRows);
    return end - first;
}

FrameGeometry RegisterBank::frameGeometry() const {
    const Region shown = region();
    FrameGeometry geometry;
    geometry.sensorsAcross = profile.sensorsAcross;
    geometry.sensorsDown = profile.sensorsDown;
    geometry.columnFactor = activeBinning->columnFactor;
    geometry.rowFactor = activeBinning->rowFactor;
    geometry.panelWidth = profile.sensorWidth * profile.sensorsAcross;
    geometry.panelHeight = profile.sensorHeight * profile.sensorsDown;
    geometry.firstRow = shown.startRow;
    geometry.width = geometry.panelWidth / geometry.columnFactor;
    geometry.height = shown.rows * profile.sensorsDown / geometry.rowFactor;
    return geometry;
}

}  // namespace simulator
