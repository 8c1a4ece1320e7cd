#include "simulator/Thermometer.h"

#include <cmath>

namespace simulator {
namespace {

constexpr double zeroCelsiusInKelvin = 273.15;
constexpr double referenceCelsius = 25.0;
constexpr double referenceOhms = 10000.0;

/// A thermistor of 10 kiloohms at 25 degrees Celsius.
double thermistorOhms(double celsius, double beta) {
    return referenceOhms *
           std::exp(beta * (1 / (celsius + zeroCelsiusInKelvin) - 1 / (referenceCelsius + zeroCelsiusInKelvin)));
}

}  // namespace

int thermistorReading(double celsius) {
    constexpr double beta = 3950;
    constexpr double seriesOhms = 8250;
    constexpr double fullScale = 4096;
    return static_cast<int>(std::lround(fullScale / (seriesOhms / thermistorOhms(celsius, beta) + 1)));
}

int auxiliaryReading(double celsius) {
    constexpr double beta = 3988;
    constexpr double parallelOhms = 44200;
    constexpr double drive = 22473;
    constexpr double seriesOhms = 6810;
    constexpr double countsPerVolt = 4095 / 2.5;
    const double ohms = 1 / (1 / thermistorOhms(celsius, beta) + 1 / parallelOhms);
    return static_cast<int>(std::lround(drive / (ohms + seriesOhms) * countsPerVolt));
}

}  // namespace simulator
