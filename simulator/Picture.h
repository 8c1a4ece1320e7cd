#pragma once

#include <cstdint>
#include <vector>

namespace simulator {

/// Where the pixels of a frame lie on the panel.
struct FrameGeometry {
    int width = 0;   ///< output pixels per row of the panel image
    int height = 0;  ///< rows of the panel image
    int sensorsAcross = 1;
    int sensorsDown = 1;
    int columnFactor = 1;  ///< sensor columns per output pixel
    int rowFactor = 1;     ///< sensor rows per output pixel
    int panelWidth = 0;    ///< unbinned
    int panelHeight = 0;   ///< unbinned, without regard to a region
    int firstRow = 0;      ///< unbinned row that the image begins with

    bool operator==(const FrameGeometry&) const = default;
};

inline constexpr std::uint16_t highestPixel = 0x3FFF;  ///< the detector delivers 14 bits

/// The radiograph of a test object: step wedge, discs and line pairs before a flat field with the tube's falloff and
/// the panel's column gains. What is the same in every frame is drawn once; a frame adds its noise.
class Phantom {
public:
    explicit Phantom(const FrameGeometry& geometry);

    const FrameGeometry& geometry() const { return drawnGeometry; }

    /// Writes frame `frameNumber` into `pixels`. Equal numbers give equal frames.
    void fill(std::uint64_t frameNumber, std::vector<std::uint16_t>& pixels) const;

private:
    void drawFlatField();
    void drawStepWedge();
    void drawDiscs();
    void drawLinePairs();
    /// Attenuates the output pixels whose centres lie in a rectangle of the panel, given in unbinned pixels.
    template <typename Transmission>
    void attenuate(double left, double top, double right, double bottom, Transmission transmission);

    FrameGeometry drawnGeometry;
    double unit;  ///< 1/1000 of the panel's shorter side, in unbinned pixels
    std::vector<float> signal;
    std::vector<std::uint16_t> mean;
    std::vector<std::uint8_t> deviation;  ///< of the noise, in quarters of a grey level
};

/// `patternFrame`, into pixels that may be reused.
void fillPattern(std::uint64_t frameNumber, int width, int height, int sensorsAcross, int sensorsDown,
                 std::vector<std::uint16_t>& pixels);

}  // namespace simulator
