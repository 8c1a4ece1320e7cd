#include "detector/baseDetector/geometry.h"

#include <algorithm>

#include "QorImage.h"
#include "binningTable.h"
#include "fuzz/CoreRun.h"
#include "panelTable.h"

using fuzz::require;

namespace {

constexpr int highestRegister = 65535;  // regions come from registers
constexpr int largestSide = 4096;
constexpr int mostPlanes = 3;

struct Region {
    int startRow;
    int height;
    int startColumn;
    int width;
};

void checkDescription(fuzz::CoreRun& run, int model, bins binning, bool enabled, int width, int height) {
    baseDetector::SensorDesc desc;
    const auto failed =
        run.failureOf([&] { desc = run.core.GetSensorDesc(model, binning, enabled, ROIArea(0, 0, width, height)); });
    const PanelModel* const panel = findPanel(model);
    const BinningMode* const mode = findBinning(binning);
    if (width < 0 || height < 0 || panel == nullptr) {
        require(failed == DerrBadRequest, "no geometry for an unknown model, or for a region below 0");
        return;
    }
    require(failed == (mode == nullptr ? std::optional(DerrBinning) : std::nullopt), "a binning mode is one of 11");
    if (failed) return;
    const int wholeWidth = enabled ? width : panel->imageWidth();
    const int wholeHeight = enabled ? height : panel->imageHeight();
    const auto binned = [](int part, int factor, int whole) {
        return part >= 0 && part * factor <= whole && whole < (part + 1) * factor;
    };
    require(binned(desc.imageWidth, mode->columnFactor, wholeWidth), "columns are binned");
    require(binned(desc.imageHeight, mode->rowFactor, wholeHeight), "rows are binned");
    require(desc.bufferWidth == desc.imageWidth && desc.bufferHeight == desc.imageHeight, "a buffer is an image");
    require(desc.sensorWidth * desc.sensorsAcross <= desc.imageWidth, "the sensors fit into the image");
    require(desc.sensorHeight * desc.sensorsDown <= desc.imageHeight, "the sensors fit into the image");
    require(std::int64_t{desc.frameWidth} * desc.frameHeight <= std::int64_t{desc.bufferWidth} * desc.bufferHeight,
            "a frame on the link fits into its buffer");
}

void checkImage(int model, bins binning, bool enabled, int width, int height, int depth) {
    QorImage image;
    const auto failed =
        fuzz::failureOf([&] { image.Build(model, binning, depth, PixelU16, 2, false, enabled, 0, 0, width, height); });
    const PanelModel* const panel = findPanel(model);
    const BinningMode* const mode = findBinning(binning);
    const bool known = panel != nullptr && mode != nullptr;
    const int columns = !known ? 0 : (enabled ? width : panel->imageWidth()) / mode->columnFactor;
    const int rows = !known ? 0 : (enabled ? height : panel->imageHeight()) / mode->rowFactor;
    const bool sound = columns > 0 && rows > 0 && depth > 0;
    require(failed == (sound ? std::nullopt : std::optional(DerrBadRequest)), "an image has pixels and planes");
    require(image.IsEmpty() == !sound && image.GetDataPointerToPlane(-1) == nullptr &&
                image.GetDataPointerToPlane(image.GetImageDepth()) == nullptr,
            "there are the planes there are");
    if (!sound) return;
    require(image.GetImageXdim() == columns && image.GetImageYdim() == rows && image.GetImageDepth() == depth,
            "an image has the size of the frame");
    for (int plane = 0; plane < depth; ++plane) {
        auto* const first = static_cast<std::uint16_t*>(image.GetDataPointerToPlane(plane));
        first[columns * rows - 1] = 1;  // the last pixel is the image's own
    }
    const QorImage copy = image;
    require(copy.GetDataPointerToPlane(0) != image.GetDataPointerToPlane(0), "a copy has planes of its own");
}

bool isRegion(const Region& region, int highestWidth) {
    constexpr int highestHeight = 864;
    return region.width == highestWidth && region.startColumn == 0 && region.height >= 128 && region.height % 8 == 0 &&
           region.startRow >= 0 && region.startRow <= highestHeight && region.height <= highestHeight - region.startRow;
}

std::vector<int> held(fuzz::CoreRun& run) {
    return {run.core.line.registers[402], run.core.line.registers[403], run.core.line.registers[404],
            run.core.line.registers[405]};
}

void checkSetRegion(const Region& wanted) {
    constexpr int panelWidth = 3072;
    fuzz::CoreRun run(TransportGE, 6112, 1);
    run.core.readsOwnTiming = 1;
    run.core.line.registers[410] = 6000;
    const std::vector<int> before = held(run);
    const auto failed =
        run.failureOf([&] { run.core.SetROIArea(wanted.width, wanted.height, wanted.startRow, wanted.startColumn); });
    const bool sound = isRegion(wanted, panelWidth);
    require(failed == (sound ? std::nullopt : std::optional(DerrBadRequest)), "a region is taken by its rules");
    require(held(run) == (sound ? std::vector{wanted.startRow, wanted.height, 0, panelWidth / 2} : before),
            "it is written as it is, or not at all");
    const auto centred = run.failureOf([&] { run.core.SetROIArea(panelWidth, wanted.height); });
    const auto placed = run.failureOf([&] { run.core.SetROIArea(wanted.width, wanted.height, wanted.startRow); });
    require(!centred || *centred == DerrBadRequest, "the centred form takes or refuses it");
    require(placed.has_value() == (wanted.startColumn == 0 ? failed.has_value() : placed.has_value()),
            "the form without a column takes what the whole form takes");
}

/// What the detector tells of its region is never trusted.
void checkToldRegion(const Region& first, const Region& second) {
    fuzz::CoreRun run(TransportGE, 6112, 1);
    run.core.readsOwnTiming = 1;
    run.core.line.registers[410] = 6000;
    int sensor = 1;
    for (const Region& region : {first, second}) {
        run.core.line.perSensor[{sensor, 402}] = region.startRow;
        run.core.line.perSensor[{sensor, 403}] = region.height;
        run.core.line.perSensor[{sensor, 404}] = region.startColumn;
        run.core.line.perSensor[{sensor, 405}] = region.width;
        ++sensor;
    }
    Region told{};
    const auto failed =
        run.failureOf([&] { run.core.GetROIArea(told.width, told.height, told.startRow, told.startColumn); });
    require(!failed, "a region can always be told");
    require(isRegion(told, 3072), "it is one that could have been set");
    const bool equal = first.startRow == second.startRow && first.height == second.height &&
                       first.startColumn == second.startColumn && first.width == second.width;
    if (equal && isRegion(first, 1536)) {
        require(told.height == first.height && told.startRow == first.startRow, "a sound region is told as it is");
        require(run.core.line.writes().empty(), "and left alone");
    } else {
        require(told.startRow == 0 && told.height == 864, "any other becomes the whole panel");
        require(held(run) == std::vector{0, 864, 0, 1536}, "which the detector is told");
    }
}

/// Whatever the registers of binning and region hold, a frame has a size within the panel.
void checkFrameSize(fuzz::Numbers& numbers) {
    fuzz::CoreRun run(TransportGE, 6112, 1);
    run.core.readsOwnTiming = 1;
    run.core.line.registers[410] = 6000;
    for (const int reg : {1, 3, 9, 10, 402, 403, 404, 405})
        run.core.line.registers[reg] = numbers.next(0, highestRegister);
    int width = 0;
    int height = 0;
    const auto failed = run.failureOf([&] {
        width = run.core.GetBufferXdim();
        height = run.core.GetBufferYdim();
    });
    require(!failed && width >= 3072 / 4 && width <= 3072 && height >= 128 / 4 && height <= 864,
            "a frame has a size within the panel");
}

}  // namespace

/// Numbers: model, binning, region on, width and height of a region, planes of an image; start row, height, start
/// column and width of a region to set; the same of a sensor's region as the detector tells it, and 1 if the other
/// sensor's is equal, or else 0 and that one's; registers 1, 3, 9, 10 and 402 to 405.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::textOf(data, size);
    fuzz::Numbers numbers(text);
    const int model = numbers.next();
    const auto binning = static_cast<bins>(numbers.next());
    const bool enabled = numbers.next(0, 1) == 1;
    const int width = numbers.next(-highestRegister, highestRegister);
    const int height = numbers.next(-highestRegister, highestRegister);
    const int depth = numbers.next(-1, mostPlanes);
    {
        fuzz::CoreRun run(TransportGE, 6112, 0);
        checkDescription(run, model, binning, enabled, width, height);
    }
    if (width <= largestSide && height <= largestSide) checkImage(model, binning, enabled, width, height, depth);
    const Region wanted{numbers.next(), numbers.next(), numbers.next(), numbers.next()};
    checkSetRegion(wanted);
    const auto told = [&] {
        return Region{numbers.next(0, highestRegister), numbers.next(0, highestRegister),
                      numbers.next(0, highestRegister), numbers.next(0, highestRegister)};
    };
    const Region first = told();
    const Region second = numbers.next(0, 1) == 1 ? first : told();
    checkToldRegion(first, second);
    checkFrameSize(numbers);
    return 0;
}
