#include "InternalUtils/ROIArea.h"

#include "InternalUtils/Failure.h"

ROIArea::ROIArea(int newStartColumn, int newStartRow, int newWidth, int newHeight)
    : startColumn(newStartColumn), startRow(newStartRow), width(newWidth), height(newHeight) {
    constexpr const char* here = "ROIArea::ROIArea";
    if (startColumn < 0) fail("Invalid ROI: Start column must be positive", DerrBadRequest, here);
    if (startRow < 0) fail("Invalid ROI: Start row must be positive", DerrBadRequest, here);
    if (width < 0) fail("Invalid ROI: Width must be positive", DerrBadRequest, here);
    if (height < 0) fail("Invalid ROI: Height must be positive", DerrBadRequest, here);
}

bool ROIArea::operator!=(const ROIArea& other) const {
    return startColumn != other.startColumn || startRow != other.startRow || width != other.width ||
           height != other.height;
}

bool ROIArea::IsContainedIn(const ROIArea& outer) const {
    return startColumn >= outer.startColumn && startRow >= outer.startRow &&
           startColumn - 1 + width <= outer.startColumn - 1 + outer.width &&
           startRow - 1 + height <= outer.startRow - 1 + outer.height;
}
