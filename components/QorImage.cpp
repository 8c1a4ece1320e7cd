#include "QorImage.h"

#include <algorithm>
#include <new>
#include <utility>

#include "QuorinException.h"
#include "binningTable.h"
#include "panelTable.h"

namespace {

[[noreturn]] void refuse(const char* message, Derr code, const char* function, int value = 0,
                         int line = __builtin_LINE()) {
    throw QuorinException(message, code, line, "QorImage.cpp", function, value, "");
}

}  // namespace

QorImage::QorImage() = default;
QorImage::~QorImage() = default;

QorImage::QorImage(const QorImage& other)
    : width(other.width),
      height(other.height),
      pixelType(other.pixelType),
      parameters(other.parameters),
      marks(other.marks) {
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    for (const auto& plane : other.planes) {
        planes.push_back(newPlane("QorImage::QorImage"));
        std::copy_n(plane.get(), pixels, planes.back().get());
    }
}

QorImage::QorImage(QorImage&& other) noexcept : QorImage() {
    *this = std::move(other);
}

QorImage& QorImage::operator=(const QorImage& other) {
    if (this != &other) *this = QorImage(other);
    return *this;
}

QorImage& QorImage::operator=(QorImage&& other) noexcept {
    std::swap(width, other.width);
    std::swap(height, other.height);
    std::swap(pixelType, other.pixelType);
    std::swap(planes, other.planes);
    std::swap(parameters, other.parameters);
    std::swap(marks, other.marks);
    return *this;
}

bool QorImage::IsEmpty() const {
    return planes.empty();
}

std::unique_ptr<std::uint16_t[]> QorImage::newPlane(const char* function) const {
    try {
        return std::make_unique<std::uint16_t[]>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    } catch (const std::bad_alloc&) {
        refuse("Insufficient Memory on system!", DerrResources, function);
    }
}

void QorImage::Build(int newWidth, int newHeight, int depth, pType type) {
    if (newWidth < 1 || newHeight < 1)
        refuse("An image needs a width and a height of at least 1 pixel.", DerrBadRequest, "QorImage::Build",
               std::min(newWidth, newHeight));
    if (depth < 1) refuse("An image needs at least 1 plane.", DerrBadRequest, "QorImage::Build", depth);
    if (type != PixelU16) refuse("Only the pixel type PixelU16 is supported.", DerrBadRequest, "QorImage::Build", type);
    QorImage built;
    built.width = newWidth;
    built.height = newHeight;
    built.parameters = parameters;
    built.marks = marks;
    for (int plane = 0; plane < depth; ++plane) built.planes.push_back(built.newPlane("QorImage::Build"));
    *this = std::move(built);
}

void QorImage::Build(int model, bins binning, int depth, pType type, int /*electronics*/, bool sliceInterlacing,
                     bool roiEnabled, int roiStartColumn, int roiStartRow, int roiWidth, int roiHeight) {
    const PanelModel* panel = findPanel(model);
    if (panel == nullptr) refuse("The image has no geometry for this model.", DerrBadRequest, "QorImage::Build", model);
    const BinningMode* mode = findBinning(binning);
    if (mode == nullptr)
        refuse("The image has no geometry for this binning mode.", DerrBadRequest, "QorImage::Build", binning);
    Build((roiEnabled ? roiWidth : panel->imageWidth()) / mode->columnFactor,
          (roiEnabled ? roiHeight : panel->imageHeight()) / mode->rowFactor, depth, type);
    parameters.model = model;
    parameters.binning = binning;
    parameters.sliceInterlacing = sliceInterlacing;
    parameters.sourceColumn = roiStartColumn;
    parameters.sourceRow = roiStartRow;
    parameters.sourceWidth = roiWidth;
    parameters.sourceHeight = roiHeight;
}

void QorImage::AddImage() {
    if (IsEmpty())
        refuse("A plane can only be added to an image that was built.", DerrBadRequest, "QorImage::AddImage");
    planes.push_back(newPlane("QorImage::AddImage"));
}

void* QorImage::GetDataPointerToPlane(int plane) const {
    if (plane < 0 || plane >= GetImageDepth()) return nullptr;
    return planes[static_cast<std::size_t>(plane)].get();
}

int QorImage::GetImageXdim() const {
    return width;
}
int QorImage::GetImageYdim() const {
    return height;
}
int QorImage::GetImageDepth() const {
    return static_cast<int>(planes.size());
}
pType QorImage::GetImagePixelType() const {
    return pixelType;
}
int QorImage::GetImageModel() const {
    return parameters.model;
}
bins QorImage::GetImageBinning() const {
    return parameters.binning;
}

void QorImage::SetImageParameters(bins binning, int model, bool sliceInterlacing, int frameCount, bool averaged,
                                  int sourceColumn, int sourceRow, int sourceWidth, int sourceHeight) {
    parameters = {binning,      model,     sliceInterlacing, frameCount,  averaged,
                  sourceColumn, sourceRow, sourceWidth,      sourceHeight};
}

const QorImageParameters& QorImage::GetImageParameters() const {
    return parameters;
}

void QorImage::SetFloodCorrectedFlag(bool value) {
    marks.floodCorrected = value;
}
void QorImage::SetDarkCorrectedFlag(bool value) {
    marks.darkCorrected = value;
}
void QorImage::SetDefectCorrectedFlag(bool value) {
    marks.defectCorrected = value;
}
void QorImage::SetAveragedFlag(bool value) {
    marks.averaged = value;
}
void QorImage::SetFixedFlag(bool value) {
    marks.fixed = value;
}
void QorImage::SetLinearizedFlag(bool value) {
    marks.linearized = value;
}
void QorImage::SetSortedFlag(bool value) {
    marks.sorted = value;
}
const QorImageMarks& QorImage::GetImageMarks() const {
    return marks;
}
