#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/FrameFiles.h"
#include "tools/PartialFile.h"

namespace tool {

/// From the 1st to the 99th percentile of the grey levels; at least one level wide.
GreyWindow percentileWindow(std::span<const std::uint16_t> pixels);

/// Black up to the window's lower end, white from its upper one on, and evenly spread between.
std::vector<std::uint8_t> throughWindow(std::span<const std::uint16_t> pixels, const GreyWindow& window);

/// An 8-bit grey preview of the last frame that is written.
class PngWriter : public FrameFiles {
public:
    PngWriter(const std::string& path, const RunFacts& facts, std::optional<GreyWindow> fixedWindow);

    void write(const Frame& frame) override;
    void commit() override;
    std::string note() const override;

private:
    const int width;
    const int height;
    const std::optional<GreyWindow> fixedWindow;
    PartialFile target;
    std::vector<std::uint16_t> last;
    int frames = 0;
    GreyWindow window;
};

}  // namespace tool
