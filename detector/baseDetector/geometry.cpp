#include "detector/baseDetector/geometry.h"

#include "InternalUtils/Failure.h"
#include "binningTable.h"
#include "detector/registers.h"
#include "panelTable.h"

baseDetector::SensorDesc describeSensor(int model, bins binning, bool roiEnabled, const ROIArea& roi) {
    constexpr const char* here = "baseDetector::GetSensorDesc";
    constexpr int columnGroups = 6;
    const PanelModel* const panel = findPanel(model);
    if (panel == nullptr) fail("Unsupported detector model!", DerrBadRequest, here, model);
    const BinningMode* const mode = findBinning(binning);
    if (mode == nullptr) fail("Invalid Binning Mode!", DerrBinning, here);

    baseDetector::SensorDesc desc;
    desc.sensorCount = panel->sensorCount();
    desc.sensorsAcross = panel->sensorsAcross;
    desc.sensorsDown = panel->sensorsDown;
    desc.columnGroups = columnGroups;
    desc.baseGroupWidth = panel->sensorWidth / columnGroups;
    desc.baseSensorWidth = panel->sensorWidth;
    desc.baseSensorHeight = panel->sensorHeight;
    desc.baseImageWidth = panel->imageWidth();
    desc.baseImageHeight = panel->imageHeight();
    if (roiEnabled) {
        desc.baseImageWidth = roi.GetWidth();
        desc.baseImageHeight = roi.GetHeight();
        desc.baseSensorWidth = roi.GetWidth() / panel->sensorsAcross;
        desc.baseSensorHeight = roi.GetHeight() / panel->sensorsDown;
    }
    desc.imageWidth = desc.baseImageWidth / mode->columnFactor;
    desc.imageHeight = desc.baseImageHeight / mode->rowFactor;
    desc.groupWidth = desc.baseGroupWidth / mode->columnFactor;
    desc.sensorWidth = desc.baseSensorWidth / mode->columnFactor;
    desc.sensorHeight = desc.baseSensorHeight / mode->rowFactor;
    desc.bufferWidth = desc.imageWidth;
    desc.bufferHeight = desc.imageHeight;
    desc.frameWidth = desc.sensorCount * desc.sensorWidth;
    desc.frameHeight = desc.sensorHeight;
    return desc;
}

baseDetector::SensorDesc baseDetector::GetSensorDesc(int model, bins binning, bool roiEnabled, const ROIArea& roi) {
    CheckConnected();
    return describeSensor(model, binning, roiEnabled, roi);
}

baseDetector::SensorDesc baseDetector::GetSensorDesc() {
    const int model = GetCachedModelNumber();
    const bins binning = GetCachedBinningMode();
    const ROIArea roi = GetCachedROIArea();
    return GetSensorDesc(model, binning, GetCachedROIEnabled(), roi);
}

baseDetector::SensorDesc baseDetector::GetDefaultSensorDesc() {
    return GetSensorDesc(GetCachedModelNumber(), Bin1x1, false, ROIArea());
}

void baseDetector::GetDefaultImageSize(int& width, int& height) {
    CheckConnected();
    const SensorDesc desc = GetDefaultSensorDesc();
    width = desc.baseImageWidth;
    height = desc.baseImageHeight;
}

int baseDetector::GetBufferXdim() {
    return GetSensorDesc().bufferWidth;
}

int baseDetector::GetBufferYdim() {
    return GetSensorDesc().bufferHeight;
}

std::optional<std::int64_t> baseDetector::cachedFrameBytes() const {
    constexpr std::int64_t bytesPerPixel = 2;
    const std::optional<int> model = modelNumber.get();
    const std::optional<bins> binning = binningMode.get();
    const std::optional<ROIArea> region = cachedROIArea.get();
    // Only detectors with regions have this cached.
    const bool regionEnabled = cachedROIEnabled.get().value_or(false);
    if (!model || !binning || !region) return std::nullopt;
    if (findPanel(*model) == nullptr || findBinning(*binning) == nullptr) return std::nullopt;
    const SensorDesc desc = describeSensor(*model, *binning, regionEnabled, *region);
    return bytesPerPixel * desc.bufferWidth * desc.bufferHeight;
}

unsigned short baseDetector::GetSensorWidth(unsigned short sensor) {
    return layer("baseDetector::GetSensorWidth",
                 [&] { return static_cast<unsigned short>(ReadRegister(registers::sensorWidth, sensor)); });
}

unsigned short baseDetector::GetSensorHeight(unsigned short sensor) {
    return layer("baseDetector::GetSensorHeight",
                 [&] { return static_cast<unsigned short>(ReadRegister(registers::sensorHeight, sensor)); });
}

void baseDetector::CheckBin(bins binning) {
    layer("baseDetector::CheckBin", [&] {
        CheckConnected();
        if (readsOwnTiming == 1) return;
        getReadoutData(GetCachedModelNumber(), transport, binning, slowed);
    });
}
