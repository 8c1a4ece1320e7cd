#include <fmt/format.h>

#include <cmath>
#include <optional>

#include "InternalUtils/Failure.h"
#include "detector/EpixDetector.h"
#include "detector/EpixDetector/VideoFormat.h"

/// The grabber's pulse generator: set up by `EnablePulseGenerator` with the pulse format, run by `ToggleGenerator`.

namespace {

constexpr float highestFrequencyHz = 499.99997F;
constexpr float fixedSeconds = 0.002F;
constexpr float furtherFixedSeconds = 0.000002F;
constexpr float countsPerSecond = 80000000.0F;
constexpr float pulseCounts = 160000.0F;
constexpr float countLimit = 65535.0F;  ///< counts are below this
constexpr int smallestDivisorLog2 = 10;
constexpr int largestDivisorLog2 = 127;  ///< that a float holds

/// Clock divide N and the counts for it.
struct PulseSetting {
    int divide;
    unsigned width;
    unsigned pause;
};

/// The setting with the smallest N whose counts fit; empty if there is none.
std::optional<PulseSetting> findSetting(float frequencyHz) {
    const float period = (1.0F / frequencyHz - fixedSeconds - furtherFixedSeconds) * countsPerSecond;
    for (int divisorLog2 = smallestDivisorLog2; divisorLog2 <= largestDivisorLog2; ++divisorLog2) {
        const float divisor = std::ldexp(1.0F, divisorLog2);
        const float width = std::round(pulseCounts / divisor);
        const float pause = std::round(period / divisor);
        if (width < countLimit && pause >= 0.0F && pause < countLimit)
            return PulseSetting{divisorLog2 - smallestDivisorLog2, static_cast<unsigned>(width),
                                static_cast<unsigned>(pause)};
    }
    return std::nullopt;
}

}  // namespace

const std::uint32_t EpixDetector::PRINC_EPCD_MAXVAL;
const std::uint32_t EpixDetector::PRINC_EPCD_POS;

void EpixDetector::EnablePulseGenerator(float frequencyHz) {
    constexpr const char* here = "EpixDetector::EnablePulseGenerator";
    layer(here, [&] {
        CheckConnected();
        loadFormat(VideoFormat(VideoFormat::Variant::Pulse), here);
        reconfigureFG();
        configurePGFrequency(frequencyHz);
        pulseGeneratorEnabled = true;
    });
}

void EpixDetector::DisablePulseGenerator() {
    constexpr const char* here = "EpixDetector::DisablePulseGenerator";
    layer(here, [&] {
        CheckConnected();
        loadFormat(VideoFormat(VideoFormat::Variant::Standard), here);
        reconfigureFG();
        expectZero(xclibLib->setExsyncPrincMode(xcState, unitMap, 0, 0), "Problem disabling pulse generator!", here);
        pulseGeneratorEnabled = false;
    });
}

void EpixDetector::configurePGFrequency(float frequencyHz) {
    constexpr const char* here = "EpixDetector::configurePGFrequency";
    CheckConnected();
    if (frequencyHz > highestFrequencyHz)
        fail(fmt::format("Pulse generator frequency {} Hz is too high. It must be less than {} Hz.", frequencyHz,
                         highestFrequencyHz),
             DerrBadRequest, here);
    constexpr int firstTooLarge = PRINC_EPCD_MAXVAL + 1;
    // Zero, negative and not a number have no setting.
    const std::optional<PulseSetting> setting = frequencyHz > 0.0F ? findSetting(frequencyHz) : std::nullopt;
    const int divide = setting ? setting->divide : firstTooLarge;
    if (divide >= firstTooLarge)
        fail(fmt::format("Pulse generator frequency {} Hz is too low. Exposure Pixel Clock Divide N is {}, but it must "
                         "be between 0 and {}.",
                         frequencyHz, divide, PRINC_EPCD_MAXVAL),
             DerrBadRequest, here);
    expectZero(xclibLib->setExsyncPrin(xcState, unitMap, setting->width, setting->pause),
               "Problem enabling pulse generator!", here);
    pulseDivider = divide;
}

void EpixDetector::ToggleGenerator(bool on) {
    constexpr unsigned run = 2;
    CheckConnected();
    const unsigned mode = on ? static_cast<unsigned>(pulseDivider.load()) << PRINC_EPCD_POS | run : 0;
    expectZero(xclibLib->setExsyncPrincMode(xcState, unitMap, 0, mode), "Problem toggling pulse generator!",
               "EpixDetector::ToggleGenerator");
}
