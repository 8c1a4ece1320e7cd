#include <cstdint>
#include <string>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/registers.h"

using registers::allSensors;
using registers::firstSensor;

namespace {

constexpr int lowestHeight = 128;
constexpr int sizeStep = 8;
constexpr int leftSensor = 1;
constexpr int rightSensor = 2;
constexpr const char* notSupportedText = "This detector does not support ROI";

/// The start of a range of `size` in the middle of `whole`, rounded towards zero.
int centred(int whole, int size) {
    return static_cast<int>((static_cast<std::int64_t>(whole) - size) / 2);
}

/// Refuses a region that the detector does not support, with the text of the first rule that it breaks.
void checkRegion(int width, int height, int startRow, int startColumn, int maximumWidth, int maximumHeight) {
    const auto refuse = [](const std::string& rule) {
        fail("Cannot set ROI: ROI " + rule, DerrBadRequest, "baseDetector::SetROIArea");
    };
    const int highestStartRow = maximumHeight - lowestHeight;
    if (width != maximumWidth) refuse("width must be " + std::to_string(maximumWidth));
    if (height > maximumHeight || height < lowestHeight)
        refuse("height must be between " + std::to_string(lowestHeight) + " and " + std::to_string(maximumHeight));
    if (startRow > highestStartRow || startRow < 0)
        refuse("start row must be between 0 and " + std::to_string(highestStartRow));
    if (startColumn != 0) refuse("start column must be 0");
    if (!ROIArea(0, startRow, width, height).IsContainedIn(ROIArea(0, 0, maximumWidth, maximumHeight)))
        refuse("is outside of sensor area");
    if (width % sizeStep != 0) refuse("width must be a multiple of 8");
    if (height % sizeStep != 0) refuse("height must be a multiple of 8");
}

}  // namespace

void baseDetector::GetMaximumROISize(int& width, int& height) {
    CheckConnected();
    if (QueryROI() == 0) fail(notSupportedText, DerrBadRequest, "baseDetector::GetMaximumROISize");
    const SensorDesc desc = GetDefaultSensorDesc();
    width = desc.baseImageWidth;
    height = desc.baseImageHeight;
}

void baseDetector::SetROIArea(int width, int height) {
    int maximumWidth = 0;
    int maximumHeight = 0;
    GetMaximumROISize(maximumWidth, maximumHeight);
    SetROIArea(width, height, centred(maximumHeight, height), centred(maximumWidth, width));
}

void baseDetector::SetROIArea(int width, int height, int startRow) {
    int maximumWidth = 0;
    int maximumHeight = 0;
    GetMaximumROISize(maximumWidth, maximumHeight);
    SetROIArea(width, height, startRow, centred(maximumWidth, width));
}

void baseDetector::SetROIArea(int width, int height, int startRow, int startColumn) {
    CheckConnected();
    if (QueryROI() == 0) fail(notSupportedText, DerrBadRequest, "baseDetector::SetROIArea");
    int maximumWidth = 0;
    int maximumHeight = 0;
    GetMaximumROISize(maximumWidth, maximumHeight);
    checkRegion(width, height, startRow, startColumn, maximumWidth, maximumHeight);

    PrepareInterfaceForImageSizeChange();
    const float exposure = exposureUnlessAt(GetMinimumExposureTime());
    const SensorDesc desc = GetDefaultSensorDesc();
    WriteRegister(registers::roiStartRow, startRow, allSensors);
    WriteRegister(registers::roiHeight, height, allSensors);
    WriteRegister(registers::roiStartColumn, 0, allSensors);
    WriteRegister(registers::roiWidth, desc.baseSensorWidth, allSensors);
    SetCachedROIArea(ROIArea(0, startRow, width, height));
    UpdateReadoutTime();
    SetExposureTime(exposure);
    UpdateInterfaceImageSize();
}

void baseDetector::GetROIArea(int& width, int& height, int& startRow, int& startColumn) {
    CheckConnected();
    if (QueryROI() == 0) fail(notSupportedText, DerrBadRequest, "baseDetector::GetROIArea");
    const auto readRegion = [this](int sensor) {
        const int row = ReadRegister(registers::roiStartRow, sensor) & registers::mask16;
        const int rows = ReadRegister(registers::roiHeight, sensor) & registers::mask16;
        const int column = ReadRegister(registers::roiStartColumn, sensor) & registers::mask16;
        const int columns = ReadRegister(registers::roiWidth, sensor) & registers::mask16;
        return ROIArea(column, row, columns, rows);
    };
    const ROIArea right = readRegion(rightSensor);
    const ROIArea left = readRegion(leftSensor);
    const SensorDesc desc = GetDefaultSensorDesc();
    int maximumWidth = 0;
    int maximumHeight = 0;
    GetMaximumROISize(maximumWidth, maximumHeight);

    const bool sound = !(left != right) && left.GetWidth() == desc.baseSensorWidth && left.GetStartColumn() == 0 &&
                       left.GetEndRow() <= maximumHeight && left.GetHeight() >= lowestHeight &&
                       left.GetHeight() % sizeStep == 0;
    const ROIArea region = sound ? ROIArea(0, left.GetStartRow(), desc.baseImageWidth, left.GetHeight())
                                 : ROIArea(0, 0, desc.baseImageWidth, desc.baseImageHeight);
    if (!sound) SetROIArea(region.GetWidth(), region.GetHeight(), 0, 0);
    SetCachedROIArea(region);
    width = region.GetWidth();
    height = region.GetHeight();
    startRow = region.GetStartRow();
    startColumn = region.GetStartColumn();
}

ROIArea baseDetector::GetROIArea() {
    if (QueryROI() != 0) {
        int width = 0;
        int height = 0;
        int startRow = 0;
        int startColumn = 0;
        GetROIArea(width, height, startRow, startColumn);
        return {startColumn, startRow, width, height};
    }
    const SensorDesc desc = GetDefaultSensorDesc();
    const ROIArea panel(0, 0, desc.baseImageWidth, desc.baseImageHeight);
    SetCachedROIArea(panel);
    return panel;
}

void baseDetector::SetROIEnabled(bool enable) {
    CheckConnected();
    if (QueryROI() == 0) fail(notSupportedText, DerrBadRequest, "baseDetector::SetROIEnabled");
    PrepareInterfaceForImageSizeChange();
    GetROIArea();
    const int control = ReadRegister(registers::control, firstSensor);
    if (((control & registers::roiEnableBit) != 0) == enable) {
        SetCachedROIEnabled(enable);
        UpdateInterfaceImageSize();
        return;
    }
    const float exposure = exposureUnlessAt(GetMinimumExposureTime());
    writeAll(registers::control, enable ? control | registers::roiEnableBit : control & ~registers::roiEnableBit);
    IsROIEnabled();
    if (enable) {
        SetLegacyTiming(false);
        if (capabilityFlag(Capability::SliceInterlacing) != 0) turnInterlacingOff();
    }
    UpdateReadoutTime();
    SetExposureTime(exposure);
    UpdateInterfaceImageSize();
}

void baseDetector::SetROIMarginEnabled(bool enable) {
    CheckConnected();
    if (QueryROI() == 0) fail(notSupportedText, DerrBadRequest, "baseDetector::SetROIMarginEnabled");
    changeBit(registers::staged, registers::roiMarginOffBit, !enable);
    ForceReconfiguration();
    UpdateReadoutTime();
}

bool baseDetector::IsROIMarginEnabled() {
    CheckConnected();
    if (QueryROI() == 0) fail(notSupportedText, DerrBadRequest, "baseDetector::IsROIMarginEnabled");
    return !bitOf(registers::staged, registers::roiMarginOffBit);
}

bool baseDetector::IsROIEnabled() {
    CheckConnected();
    if (QueryROI() == 0) return false;
    const bool enabled = (ReadRegister(registers::control, firstSensor) & registers::roiEnableBit) != 0;
    SetCachedROIEnabled(enabled);
    return enabled;
}

ROIArea baseDetector::GetCachedROIArea() {
    const std::optional<ROIArea> cached = cachedROIArea.get();
    return cached ? *cached : GetROIArea();
}

bool baseDetector::GetCachedROIEnabled() {
    CheckConnected();
    if (QueryROI() == 0) return false;
    const std::optional<bool> cached = cachedROIEnabled.get();
    return cached ? *cached : IsROIEnabled();
}

void baseDetector::SetCachedROIArea(ROIArea area) {
    cachedROIArea = area;
}

void baseDetector::SetCachedROIEnabled(bool enabled) {
    cachedROIEnabled = enabled;
}
