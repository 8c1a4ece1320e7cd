#pragma once

/// A rectangle of pixels: start column, start row, width, height.
class ROIArea {
public:
    /// The empty rectangle at the origin.
    ROIArea() = default;

    /// Fails with code 4 for a negative value.
    ROIArea(int startColumn, int startRow, int width, int height);

    int GetStartColumn() const { return startColumn; }
    int GetStartRow() const { return startRow; }
    int GetWidth() const { return width; }
    int GetHeight() const { return height; }

    /// The row after the last one.
    int GetEndRow() const { return startRow + height; }

    bool operator!=(const ROIArea& other) const;

    bool IsContainedIn(const ROIArea& outer) const;

private:
    int startColumn = 0;
    int startRow = 0;
    int width = 0;
    int height = 0;
};
