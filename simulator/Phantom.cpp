#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <random>

#include "simulator/Picture.h"

namespace simulator {
namespace {

constexpr double openField = 12600.0;  // grey levels in the middle of the beam
constexpr double heelFalloff = 0.16;   // from the cathode's edge of the panel to the anode's
constexpr double focusDistance = 2.2;  // of the tube, in panel diagonals
constexpr double columnGainSpread = 0.006;
constexpr double groupGainSpread = 0.012;
constexpr int groupsPerSensor = 6;  // converters that share the columns of a sensor
constexpr double rowGainSpread = 0.0015;
constexpr double darkLevel = 180.0;
constexpr double electronicNoise = 5.0;  // grey levels
constexpr double quantaPerLevel = 1.4;   // of the unbinned pixel; decides how strong the shot noise is

constexpr double deviationSteps = 4.0;  // per grey level
constexpr std::size_t noiseLength = 1U << 16U;
constexpr int noiseBits = 7;  // a standard deviation is 1 << noiseBits in the table

/// Normal deviates that all phantoms draw their noise from.
const std::vector<std::int16_t>& noiseTable() {
    // Never destroyed: a detector that runs free exposes on while the process ends.
    static const std::vector<std::int16_t>& table = *[] {
        std::mt19937 random(20);
        std::normal_distribution<float> normal(0.0F, static_cast<float>(1 << noiseBits));
        auto* made = new std::vector<std::int16_t>(noiseLength);  // NOLINT
        for (std::int16_t& value : *made)
            value = static_cast<std::int16_t>(std::lround(std::clamp(normal(random), -500.0F, 500.0F)));
        return made;
    }();
    return table;
}

std::vector<double> gains(std::size_t length, double spread, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> normal(1.0, spread);
    std::vector<double> made(length);
    for (double& gain : made) gain = normal(random);
    return made;
}

}  // namespace

Phantom::Phantom(const FrameGeometry& geometry)
    : drawnGeometry(geometry),
      unit(std::min(geometry.panelWidth, geometry.panelHeight) / 1000.0),
      signal(static_cast<std::size_t>(geometry.width) * static_cast<std::size_t>(geometry.height)) {
    drawFlatField();
    drawStepWedge();
    drawDiscs();
    drawLinePairs();

    mean.resize(signal.size());
    deviation.resize(signal.size());
    const double quanta = quantaPerLevel * geometry.columnFactor * geometry.rowFactor;
    for (std::size_t i = 0; i < signal.size(); ++i) {
        const double level = static_cast<double>(signal[i]);
        const double sigma = std::sqrt(electronicNoise * electronicNoise + level / quanta);
        mean[i] = static_cast<std::uint16_t>(std::clamp(level + darkLevel, 0.0, static_cast<double>(highestPixel)));
        deviation[i] = static_cast<std::uint8_t>(std::min(std::lround(sigma * deviationSteps), 255L));
    }
    signal = {};
}

void Phantom::drawFlatField() {
    const FrameGeometry& g = drawnGeometry;
    const auto width = static_cast<std::size_t>(g.width);
    const std::vector<double> columnGains = gains(width, columnGainSpread, 1);
    const std::vector<double> groupGains = gains(
        static_cast<std::size_t>(groupsPerSensor) * static_cast<std::size_t>(g.sensorsAcross), groupGainSpread, 2);
    const std::vector<double> rowGains = gains(static_cast<std::size_t>(g.height), rowGainSpread, 3);
    const double focus = focusDistance * std::hypot(g.panelWidth, g.panelHeight);

    std::vector<double> gain(width);
    std::vector<double> offsetSquared(width);
    for (std::size_t column = 0; column < width; ++column) {
        const double x = (static_cast<double>(column) + 0.5) * g.columnFactor - g.panelWidth / 2.0;
        offsetSquared[column] = x * x / (focus * focus);
        gain[column] = openField * columnGains[column] * groupGains[column * groupGains.size() / width];
    }
    for (int row = 0; row < g.height; ++row) {
        const double y = g.firstRow + (row + 0.5) * g.rowFactor - g.panelHeight / 2.0;
        const double heel = 1.0 - heelFalloff * (y / g.panelHeight + 0.5) * (y / g.panelHeight + 0.5);
        const double rowGain = heel * rowGains[static_cast<std::size_t>(row)];
        const double rowOffset = y * y / (focus * focus);
        float* out = signal.data() + static_cast<std::size_t>(row) * width;
        for (std::size_t column = 0; column < width; ++column) {
            // The beam thins with the square of the distance and meets the panel at an angle: cosine cubed.
            const double cosine = 1.0 / std::sqrt(1.0 + rowOffset + offsetSquared[column]);
            out[column] = static_cast<float>(gain[column] * rowGain * cosine * cosine * cosine);
        }
    }
}

template <typename Transmission>
void Phantom::attenuate(double left, double top, double right, double bottom, Transmission transmission) {
    const FrameGeometry& g = drawnGeometry;
    const int firstColumn = std::clamp(static_cast<int>(left / g.columnFactor), 0, g.width);
    const int endColumn = std::clamp(static_cast<int>(std::ceil(right / g.columnFactor)), 0, g.width);
    const int firstRow = std::clamp(static_cast<int>((top - g.firstRow) / g.rowFactor), 0, g.height);
    const int endRow = std::clamp(static_cast<int>(std::ceil((bottom - g.firstRow) / g.rowFactor)), 0, g.height);
    for (int row = firstRow; row < endRow; ++row) {
        const double y = g.firstRow + (row + 0.5) * g.rowFactor;
        float* line = signal.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(g.width);
        for (int column = firstColumn; column < endColumn; ++column) {
            const double x = (column + 0.5) * g.columnFactor;
            if (x >= left && x < right && y >= top && y < bottom)
                line[column] *= static_cast<float>(transmission(x, y));
        }
    }
}

void Phantom::drawStepWedge() {
    constexpr int steps = 11;
    constexpr double stepTransmission = 0.72;
    const double left = drawnGeometry.panelWidth * 0.08;
    const double stepWidth = drawnGeometry.panelWidth * 0.84 / steps;
    const double top = drawnGeometry.panelHeight - 200 * unit;
    for (int step = 0; step < steps; ++step) {
        const double through = std::pow(stepTransmission, step + 1);
        attenuate(left + step * stepWidth, top, left + (step + 1) * stepWidth, top + 120 * unit,
                  [through](double, double) { return through; });
    }
}

void Phantom::drawDiscs() {
    struct Disc {
        double across;   // of the panel's width
        double down;     // of the panel's height
        double radius;   // in units
        double depth;    // attenuation length along the beam in the middle
        bool spherical;  // thinner towards the edge
    };
    constexpr std::array<Disc, 8> discs{{
        {0.22, 0.36, 190, 0.75, true},
        {0.27, 0.33, 50, 0.45, false},
        {0.18, 0.42, 30, -0.25, false},
        {0.50, 0.22, 70, 0.30, false},
        {0.50, 0.42, 55, 0.12, false},
        {0.50, 0.58, 40, 0.05, false},
        {0.61, 0.30, 26, 1.60, true},
        {0.61, 0.50, 14, 2.20, true},
    }};
    for (const Disc& disc : discs) {
        const double x0 = disc.across * drawnGeometry.panelWidth;
        const double y0 = disc.down * drawnGeometry.panelHeight;
        const double radius = disc.radius * unit;
        attenuate(x0 - radius, y0 - radius, x0 + radius, y0 + radius, [&](double x, double y) {
            const double distance = std::hypot(x - x0, y - y0) / radius;
            if (distance >= 1.0) return 1.0;
            return std::exp(-disc.depth * (disc.spherical ? std::sqrt(1.0 - distance * distance) : 1.0));
        });
    }
}

void Phantom::drawLinePairs() {
    constexpr double lead = 0.25;  // what the lines let through
    constexpr int linesPerGroup = 5;
    constexpr std::array periods{16, 12, 8, 6, 4};  // unbinned pixels per line pair
    double left = drawnGeometry.panelWidth * 0.72;
    const double top = drawnGeometry.panelHeight * 0.18;
    for (const int period : periods) {
        const double right = left + linesPerGroup * period;
        const double bottom = top + 220 * unit;
        attenuate(left, top, right, bottom,
                  [&](double x, double) { return std::fmod(x - left, period) < period / 2.0 ? lead : 1.0; });
        // The same group once more, lying.
        const double side = linesPerGroup * period;
        attenuate(left, bottom + 60 * unit, left + side, bottom + 60 * unit + side, [&](double, double y) {
            return std::fmod(y - bottom - 60 * unit, period) < period / 2.0 ? lead : 1.0;
        });
        left = right + 40 * unit;
    }
}

void Phantom::fill(std::uint64_t frameNumber, std::vector<std::uint16_t>& pixels) const {
    constexpr int shift = noiseBits + 2;  // the deviation counts quarters
    static_assert(deviationSteps == 4.0);
    const std::vector<std::int16_t>& noise = noiseTable();
    pixels.resize(mean.size());
    std::minstd_rand random(static_cast<std::uint32_t>(frameNumber));
    const auto width = static_cast<std::size_t>(drawnGeometry.width);
    for (std::size_t row = 0; row < mean.size(); row += width) {
        const std::size_t places = width < noiseLength ? noiseLength - width : 1;
        const std::int16_t* deviate = noise.data() + random() % places;
        const std::size_t length = std::min(width, noiseLength);
        const std::uint16_t* level = mean.data() + row;
        const std::uint8_t* sigma = deviation.data() + row;
        std::uint16_t* out = pixels.data() + row;
        for (std::size_t column = 0; column < length; ++column) {
            const int value = level[column] + ((deviate[column] * sigma[column]) >> shift);
            out[column] = static_cast<std::uint16_t>(std::clamp(value, 0, static_cast<int>(highestPixel)));
        }
    }
}

}  // namespace simulator
