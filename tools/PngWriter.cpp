#include "tools/PngWriter.h"

#include <png.h>

#include <algorithm>
#include <limits>

namespace tool {
namespace {

constexpr int greyLevels = std::numeric_limits<std::uint16_t>::max() + 1;
constexpr int percent = 100;

/// The lowest grey level up to which so many pixels lie.
int levelAt(const std::vector<std::size_t>& histogram, std::size_t pixels) {
    std::size_t seen = 0;
    int level = 0;
    for (; level < greyLevels - 1; ++level) {
        seen += histogram[static_cast<std::size_t>(level)];
        if (seen >= pixels) break;
    }
    return level;
}

}  // namespace

GreyWindow percentileWindow(std::span<const std::uint16_t> pixels) {
    std::vector<std::size_t> histogram(greyLevels);
    for (const std::uint16_t level : pixels) ++histogram[level];
    const std::size_t onePercent = (pixels.size() + percent - 1) / percent;
    const int low = std::min(levelAt(histogram, onePercent), greyLevels - 2);
    return {low, std::max(levelAt(histogram, pixels.size() - onePercent), low + 1)};
}

std::vector<std::uint8_t> throughWindow(std::span<const std::uint16_t> pixels, const GreyWindow& window) {
    constexpr int white = std::numeric_limits<std::uint8_t>::max();
    const int span = window.high - window.low;
    std::vector<std::uint8_t> table(greyLevels);
    for (int level = 0; level < greyLevels; ++level) {
        const int within = std::clamp(level - window.low, 0, span);
        table[static_cast<std::size_t>(level)] = static_cast<std::uint8_t>((within * white + span / 2) / span);
    }
    std::vector<std::uint8_t> picture(pixels.size());
    std::transform(pixels.begin(), pixels.end(), picture.begin(), [&](std::uint16_t level) { return table[level]; });
    return picture;
}

PngWriter::PngWriter(const std::string& path, const RunFacts& facts, std::optional<GreyWindow> windowToUse)
    : width(facts.width), height(facts.height), fixedWindow(windowToUse), target(path) {}

void PngWriter::write(const Frame& frame) {
    last.assign(frame.pixels, frame.pixels + static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    ++frames;
}

void PngWriter::commit() {
    window = fixedWindow ? *fixedWindow : percentileWindow(last);
    const std::vector<std::uint8_t> picture = throughWindow(last, window);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_GRAY;
    png_alloc_size_t bytes = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::vector<std::uint8_t> encoded(bytes);
    if (png_image_write_to_memory(&image, encoded.data(), &bytes, 0, picture.data(), width, nullptr) == 0)
        target.fail(image.message);
    target.append(encoded.data(), bytes);
    target.sync();
    target.commit();
}

std::string PngWriter::note() const {
    const std::string shown = "window " + std::to_string(window.low) + " to " + std::to_string(window.high) +
                              (fixedWindow ? "" : " (1st to 99th percentile)");
    return frames == 1 ? shown : "the last of " + std::to_string(frames) + " frames, " + shown;
}

}  // namespace tool
