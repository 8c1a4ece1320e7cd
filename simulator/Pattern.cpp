#include <cstddef>

#include "simulator/Picture.h"
#include "simulator/SimulatedDetector.h"

namespace simulator {
namespace {

/// A permutation of the 14-bit numbers, so that different inputs stay different.
constexpr std::uint32_t permute(std::uint32_t x) {
    x = (x * 0x2C9BU + 0x0D35U) & highestPixel;
    x ^= x >> 7U;
    x = (x * 0x19D5U) & highestPixel;
    return x ^ (x >> 5U);
}

/// The value that a row of a sensor starts with.
constexpr std::uint32_t rowStart(std::uint64_t frameNumber, int sensor, int row) {
    std::uint32_t x = permute(static_cast<std::uint32_t>(frameNumber & highestPixel));
    x = permute((x + static_cast<std::uint32_t>(sensor)) & highestPixel);
    return permute((x + static_cast<std::uint32_t>(row)) & highestPixel);
}

constexpr std::uint32_t columnStep = 5;

constexpr std::uint16_t columnPixel(std::uint32_t start, int column) {
    return static_cast<std::uint16_t>((start + static_cast<std::uint32_t>(column) * columnStep) & highestPixel);
}

}  // namespace

std::uint16_t patternPixel(std::uint64_t frameNumber, int sensor, int row, int column) {
    return columnPixel(rowStart(frameNumber, sensor, row), column);
}

void fillPattern(std::uint64_t frameNumber, int width, int height, int sensorsAcross, int sensorsDown,
                 std::vector<std::uint16_t>& pixels) {
    pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const int sensorWidth = width / sensorsAcross;
    const int sensorHeight = height / sensorsDown;
    std::uint16_t* out = pixels.data();
    for (int row = 0; row < height; ++row) {
        for (int across = 0; across < sensorsAcross; ++across) {
            const int sensor = row / sensorHeight * sensorsAcross + across + 1;
            const std::uint32_t start = rowStart(frameNumber, sensor, row % sensorHeight);
            for (int column = 0; column < sensorWidth; ++column) *out++ = columnPixel(start, column);
        }
    }
}

std::vector<std::uint16_t> patternFrame(std::uint64_t frameNumber, int width, int height, int sensorsAcross,
                                        int sensorsDown) {
    std::vector<std::uint16_t> pixels;
    fillPattern(frameNumber, width, height, sensorsAcross, sensorsDown, pixels);
    return pixels;
}

}  // namespace simulator
