#include <qrapi/QuorinDetector.h>

#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>

#include "tools/commands.h"
#include "tools/names.h"

namespace tool {
namespace {

/// What a capability query answers: true, false, or null where the detector doesn't tell.
Json capability(int answer) {
    if (answer < 0) return nullptr;
    return answer == 1;
}

template <class Names, class Query>
Json capabilities(const Names& names, Query query) {
    Json all = Json::object();
    for (const auto& [value, name] : names) all[std::string(name)] = capability(query(value));
    return all;
}

Json capabilitiesOf(const QuorinDetector& detector) {
    return {
        {"binning", capabilities(binningNames, [&](bins mode) { return detector.QueryBinningMode(mode); })},
        {"exposure_mode",
         capabilities(exposureModeNames, [&](ExposureModes mode) { return detector.QueryExposureMode(mode); })},
        {"trigger_source",
         capabilities(triggerSourceNames,
                      [&](ExposureTriggerSource source) { return detector.QueryTriggerSource(source); })},
        {"full_well_mode",
         capabilities(fullWellModeNames, [&](FullWellModes mode) { return detector.QueryFullWellMode(mode); })},
        {"readout_mode",
         capabilities(readoutModeNames, [&](ReadoutModes mode) { return detector.QueryReadoutMode(mode); })},
        {"disable_slice_interlacing", capability(detector.QueryDisableSliceInterlacing())},
        {"legacy_timing", capability(detector.QueryLegacyTiming())},
        {"linearization", capability(detector.QueryOnBoardLinearization())},
        {"unscrambling", capability(detector.QueryOnBoardUnscrambling())},
        {"cross_talk_correction", capability(detector.QueryOnBoardXTalkCorrection())},
        {"pixel_frame_counter", capability(detector.QueryPixelFrameCounter())},
        {"region_of_interest", capability(detector.QueryROI())},
        {"temperature_reporting", capability(detector.QueryTempReporting())},
    };
}

}  // namespace

Json describeDetector(const QuorinDetector& detector) {
    constexpr int kestraneElectronics = 2;
    int firstBuild = 0;
    int secondBuild = 0;
    int thirdBuild = 0;
    detector.GetFirmwareBuild(firstBuild, secondBuild, thirdBuild);
    int defaultWidth = 0;
    int defaultHeight = 0;
    detector.GetDefaultImageSize(defaultWidth, defaultHeight);
    return {
        {"model", detector.GetModelNumber()},
        {"serial_number", detector.GetSerialNumber()},
        {"firmware_version", detector.GetFirmwareVersion()},
        {"firmware_build", Json::array({firstBuild, secondBuild, thirdBuild})},
        {"electronics", electronicsName(detector.GetSensorVersion() == kestraneElectronics)},
        {"transport", nameOf(detector.GetTransportMethod())},
        {"image_width_pixels", detector.GetBufferXdim()},
        {"image_height_pixels", detector.GetBufferYdim()},
        {"default_image_width_pixels", defaultWidth},
        {"default_image_height_pixels", defaultHeight},
        {"readout_time_ms", roundedMs(detector.GetReadOutTime())},
        {"minimum_exposure_ms", roundedMs(detector.GetMinimumExposureTime())},
        {"exposure_time_ms", roundedMs(detector.GetExposureTime())},
        {"binning", nameOf(detector.GetBinningMode())},
        {"buffers", detector.GetNumBuffers()},
        {"capabilities", capabilitiesOf(detector)},
    };
}

namespace {

/// The text of one value for people: the capabilities' true, false and null as words.
std::string inWords(const Json& value) {
    if (value.is_null()) return "not reported";
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_array()) return value.dump();
    std::string all;
    for (const Json& element : value) all += (all.empty() ? "" : ".") + inWords(element);
    return all;
}

void printIndented(const Json& facts, std::ostream& out, int indent) {
    constexpr int valueColumn = 34;
    constexpr int indentStep = 2;
    for (const auto& [key, value] : facts.items()) {
        out << std::string(static_cast<std::size_t>(indent), ' ');
        if (value.is_object()) {
            out << key << "\n";
            printIndented(value, out, indent + indentStep);
        } else {
            out << std::left << std::setw(valueColumn - indent) << key << inWords(value) << "\n";
        }
    }
}

}  // namespace

void printFacts(const Json& facts, std::ostream& out) {
    printIndented(facts, out, 0);
}

void info(const Preparation& preparation, Output& output) {
    QuorinDetector detector = makeDetector(preparation.detector);
    openPrepared(detector, preparation);
    const Json facts = describeDetector(detector);
    detector.CloseBoard();
    output.facts = facts;
    printFacts(facts, output.text());
}

}  // namespace tool
