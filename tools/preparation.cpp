#include "tools/preparation.h"

#include <cmath>
#include <ostream>

#include "simulator/Rack.h"
#include "tools/names.h"

namespace tool {
namespace {

constexpr float timeoutMarginMs = 5000.0F;
constexpr float msPerSecond = 1000.0F;

}  // namespace

QuorinDetector makeDetector(const DetectorAddress& address) {
    return {address.transport, address.unit, address.address.c_str()};
}

std::shared_ptr<simulator::SimulatedDetector> simulatedBehind(const DetectorAddress& address) {
    if (!address.isSimulated()) return nullptr;
    simulator::Rack& rack = simulator::Rack::instance();
    return address.transport == TransportCL ? rack.slot(address.unit) : rack.find(address.address);
}

void openWithSettings(QuorinDetector& detector, const Preparation& preparation) {
    // An address that the rack doesn't know fails when it is opened, with the library's own words.
    if (preparation.picture)
        if (const auto simulated = simulatedBehind(preparation.detector)) simulated->setPicture(*preparation.picture);
    detector.OpenBoard();
    for (const Change& change : preparation.changes) change(detector);
    if (preparation.region) {
        setRegion(detector, *preparation.region);
        detector.SetROIEnabled(true);
    }
    if (preparation.exposureMs) setExposureTime(detector, *preparation.exposureMs);
}

void tellShortest(const QuorinDetector& detector, const Preparation& preparation, Output& output) {
    constexpr float tolerance = 0.1F;
    if (!preparation.exposureMs) return;
    const float taken = detector.GetExposureTime();
    if (taken > *preparation.exposureMs + tolerance)
        output.remarks() << "exposure time " << roundedMs(taken) << " ms: " << *preparation.exposureMs
                         << " ms is below the minimum\n";
}

void startPulses(QuorinDetector& detector, const Preparation& preparation) {
    if (!preparation.pulseHz) return;
    detector.EnablePulseGenerator(*preparation.pulseHz);
    detector.ToggleGenerator(true);
}

void openPrepared(QuorinDetector& detector, const Preparation& preparation) {
    openWithSettings(detector, preparation);
    startPulses(detector, preparation);
}

int fieldsOfFirstFrame(const QuorinDetector& detector) {
    return detector.GetTransportMethod() == TransportGE ? 2 : 1;
}

int frameTimeoutMs(const QuorinDetector& detector, const Preparation& preparation) {
    const float pulsePeriodMs = preparation.pulseHz ? msPerSecond / *preparation.pulseHz : 0.0F;
    const float frameMs = detector.GetExposureTime() + detector.GetReadOutTime() + pulsePeriodMs;
    constexpr float longestMs = 1e9F;  // eleven days, and within an int
    return static_cast<int>(std::ceil(std::fmin(2.0F * frameMs + timeoutMarginMs, longestMs)));
}

nlohmann::ordered_json describeFrames(const QuorinDetector& detector) {
    int width = 0;
    int height = 0;
    int firstRow = 0;
    int firstColumn = 0;
    if (detector.IsROIEnabled()) detector.GetROIArea(width, height, firstRow, firstColumn);
    return {
        {"model", detector.GetModelNumber()},
        {"serial_number", detector.GetSerialNumber()},
        {"exposure_time_ms", roundedMs(detector.GetExposureTime())},
        {"binning", nameOf(detector.GetBinningMode())},
        {"first_row", firstRow},
        {"transport", nameOf(detector.GetTransportMethod())},
    };
}

}  // namespace tool
