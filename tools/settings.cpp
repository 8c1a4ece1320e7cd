#include "tools/settings.h"

#include <array>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "tools/commands.h"
#include "tools/names.h"
#include "tools/nearest.h"

namespace tool {
namespace {

template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

struct Numeric {
    static std::vector<std::string> values() { return {}; }
};

/// A time in ms from `lowest` on.
std::optional<float> parseMs(std::string_view text, float lowest) {
    const std::optional<float> value = parseNumber<float>(text);
    if (!value || !std::isfinite(*value) || *value < lowest) return std::nullopt;
    return value;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

/// One of the names of an enumeration.
template <const auto& names, auto getter, auto setter>
struct OneOf {
    static std::vector<std::string> values() {
        std::vector<std::string> all;
        for (const auto& [value, name] : names) all.emplace_back(name);
        return all;
    }
    static std::string allowed() { return listed(values()); }
    static Json get(const QuorinDetector& detector) {
        const auto current = (detector.*getter)();
        for (const auto& [value, name] : names)
            if (value == current) return name;
        return "unknown";
    }
    static std::optional<Change> parse(std::string_view text) {
        for (const auto& row : names)
            if (row.name == text) return [value = row.value](QuorinDetector& detector) { (detector.*setter)(value); };
        return std::nullopt;
    }
};

template <auto getter, auto setter>
struct OnOff {
    static std::vector<std::string> values() { return {"on", "off"}; }
    static std::string allowed() { return listed(values()); }
    static Json get(const QuorinDetector& detector) { return (detector.*getter)(); }
    static std::optional<Change> parse(std::string_view text) {
        if (text != "on" && text != "off") return std::nullopt;
        return [enable = text == "on"](QuorinDetector& detector) { (detector.*setter)(enable); };
    }
};

template <auto getter, auto setter>
struct Milliseconds : Numeric {
    static std::string allowed() { return "a number from 0 on"; }
    static Json get(const QuorinDetector& detector) { return roundedMs((detector.*getter)()); }
    static std::optional<Change> parse(std::string_view text) {
        const std::optional<float> time = parseMs(text, 0.0F);
        if (!time) return std::nullopt;
        return [timeMs = *time](QuorinDetector& detector) { (detector.*setter)(timeMs); };
    }
};

/// The exposure window is a count of 0.01 ms of 31 bits; this is the last float below its end.
constexpr float longestWindowMs = 21474834.0F;

void checkExposureTime(const QuorinDetector& detector, std::string_view name, float timeMs) {
    const float longest =
        longestWindowMs + 2 * std::floor(detector.GetReadOutTime() / 2);  // floats lie 2 ms apart here
    if (timeMs <= longest) return;
    std::ostringstream text;
    text << std::fixed << std::setprecision(0) << name << ": " << timeMs << " ms is too long; the longest is "
         << longest << " ms";
    throw std::runtime_error(text.str());
}

struct ExposureTime : Milliseconds<&QuorinDetector::GetExposureTime, &QuorinDetector::SetExposureTime> {
    static std::optional<Change> parse(std::string_view text) {
        const std::optional<float> time = parseMs(text, 0.0F);
        if (!time) return std::nullopt;
        return [timeMs = *time](QuorinDetector& detector) { setExposureTime(detector, timeMs); };
    }
};

struct NumOfExposures : Numeric {
    static constexpr int highest = std::numeric_limits<std::uint16_t>::max();
    static std::string allowed() { return "1 to " + std::to_string(highest); }
    static Json get(const QuorinDetector& detector) { return detector.GetNumOfExposures(); }
    static std::optional<Change> parse(std::string_view text) {
        const std::optional<int> count = parseNumber<int>(text);
        if (!count || *count < 1 || *count > highest) return std::nullopt;
        return [value = *count](QuorinDetector& detector) { detector.SetNumOfExposures(value); };
    }
};

struct PreProgrammedTimes : Numeric {
    static constexpr std::size_t fewest = 2;
    static constexpr std::size_t most = 4;
    static std::string allowed() { return "2 to 4 numbers from 0 on, T,T[,T[,T]]; they set num_of_exposures too"; }
    static Json get(const QuorinDetector& detector) {
        std::array<float, most> times{};
        detector.GetPreProgrammedExposureTimes(times.data(), times.size());
        Json all = Json::array();
        for (const float time : times) all.push_back(roundedMs(time));
        return all;
    }
    static std::optional<Change> parse(std::string_view text) {
        std::vector<float> times;
        for (const std::string_view part : split(text, ',')) {
            const std::optional<float> time = parseMs(part, 0.0F);
            if (!time) return std::nullopt;
            times.push_back(*time);
        }
        if (times.size() < fewest || times.size() > most) return std::nullopt;
        return [times](QuorinDetector& detector) {
            for (const float time : times) checkExposureTime(detector, "pre_programmed_exposure_times_ms", time);
            detector.SetPreProgrammedExposureTimes(times.data(), times.size());
        };
    }
};

struct RegionOfInterest : Numeric {
    static std::string allowed() { return "W,H[,ROW]: the panel's width, a height from 128 on in steps of 8"; }
    static Json get(const QuorinDetector& detector) {
        Region region;
        int row = 0;
        int column = 0;
        detector.GetROIArea(region.width, region.height, row, column);
        return {{"width", region.width}, {"height", region.height}, {"start_row", row}};
    }
    static std::optional<Change> parse(std::string_view text) {
        const std::optional<Region> region = parseRegion(text);
        if (!region) return std::nullopt;
        return [value = *region](QuorinDetector& detector) { setRegion(detector, value); };
    }
};

/// What can't even be asked of a detector without the capability.
template <class Kind>
struct OfRegion : Kind {
    static Json get(const QuorinDetector& detector) {
        if (detector.QueryROI() == 0) return nullptr;
        return Kind::get(detector);
    }
};

template <class Kind>
Setting row(std::string_view name, std::string_view unit, std::string_view help) {
    return {name, unit, help, Kind::allowed, Kind::values, Kind::get, Kind::parse};
}

using Detector = QuorinDetector;

std::vector<Setting> makeSettings() {
    return {
        row<OneOf<binningNames, &Detector::GetBinningMode, &Detector::SetBinningMode>>(
            "binning", "columns x rows", "sensor pixels that make one pixel of the frame"),
        row<ExposureTime>("exposure_time_ms", "ms", "exposure time; below the minimum it becomes the minimum"),
        row<OneOf<exposureModeNames, &Detector::GetExposureMode, &Detector::SetExposureMode>>(
            "exposure_mode", "", "exposure mode, by the bits of register 0"),
        row<OneOf<triggerSourceNames, &Detector::GetTriggerSource, &Detector::SetTriggerSource>>(
            "trigger_source", "", "trigger source, by the bits of register 0; bits_clear runs free"),
        row<OneOf<fullWellModeNames, &Detector::GetFullWellMode, &Detector::SetFullWellMode>>(
            "full_well_mode", "", "full well mode, by bit 2 of register 3"),
        row<OneOf<readoutModeNames, &Detector::GetReadoutMode, &Detector::SetReadoutMode>>(
            "readout_mode", "", "readout mode, by bit 3 of register 1"),
        row<Milliseconds<&Detector::GetGapTime, &Detector::SetGapTime>>(
            "gap_time_ms", "ms", "time between exposures, readout time included"),
        row<NumOfExposures>("num_of_exposures", "", "number of exposures"),
        row<PreProgrammedTimes>("pre_programmed_exposure_times_ms", "ms", "pre-programmed exposure times"),
        row<OnOff<&Detector::GetSliceInterlacing, &Detector::SetSliceInterlacing>>(
            "slice_interlacing", "", "stays on where the detector can't be without"),
        row<OnOff<&Detector::IsLegacyTimingEnabled, &Detector::SetLegacyTiming>>(
            "legacy_timing", "", "Kestrane electronics only; stays off on others"),
        row<OnOff<&Detector::GetTestMode, &Detector::SetTestMode>>("test_mode", "", "test mode"),
        row<OnOff<&Detector::IsPixelFrameCounterEnabled, &Detector::SetPixelFrameCounter>>(
            "pixel_frame_counter", "", "a frame counter in the pixels; Kestrane electronics only"),
        row<OnOff<&Detector::GetOnBoardLinearizationState, &Detector::ToggleOnBoardLinearization>>(
            "linearization", "", "linearization in the detector"),
        row<OnOff<&Detector::GetOnBoardXTalkCorrectionState, &Detector::ToggleOnBoardXTalkCorrection>>(
            "xtalk_correction", "", "cross-talk correction in the detector"),
        row<OfRegion<RegionOfInterest>>("roi", "pixels", "region of interest; in force while roi_enabled is on"),
        row<OnOff<&Detector::IsROIEnabled, &Detector::SetROIEnabled>>(
            "roi_enabled", "", "on turns legacy_timing and slice_interlacing off"),
        row<OfRegion<OnOff<&Detector::IsROIMarginEnabled, &Detector::SetROIMarginEnabled>>>(
            "roi_margin", "", "margin around the region of interest"),
    };
}

}  // namespace

const std::vector<Setting>& settings() {
    static const std::vector<Setting> table = makeSettings();
    return table;
}

std::vector<std::string> settingNames() {
    std::vector<std::string> names;
    for (const Setting& setting : settings()) names.emplace_back(setting.name);
    return names;
}

std::vector<std::string> assignmentChoices() {
    std::vector<std::string> choices;
    for (const Setting& setting : settings()) {
        const std::string name = std::string(setting.name) + "=";
        choices.push_back(name);
        for (const std::string& value : setting.values()) choices.push_back(name + value);
    }
    return choices;
}

const Setting& findSetting(std::string_view name) {
    for (const Setting& setting : settings())
        if (setting.name == name) return setting;
    throw UsageError(std::string(name) + " is no setting" + suggestion(name, settingNames(), "allowed are"));
}

Assignment parseAssignment(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        throw UsageError(std::string(text) + ": NAME=VALUE is needed, such as binning=2x2");
    const Setting& setting = findSetting(text.substr(0, equals));
    const std::string_view value = text.substr(equals + 1);
    std::optional<Change> change = setting.parse(value);
    const std::string wrong = std::string(setting.name) + ": \"" + std::string(value) + "\" is no value of it";
    if (!change && !setting.values().empty())
        throw UsageError(wrong + suggestion(value, setting.values(), "allowed is"));
    if (!change) throw UsageError(wrong + "; allowed is " + setting.allowed() + (setting.unit == "ms" ? " (ms)" : ""));
    return {&setting, std::move(*change)};
}

std::optional<Region> parseRegion(std::string_view text) {
    constexpr std::size_t fewest = 2;
    constexpr std::size_t most = 3;
    std::vector<int> numbers;
    for (const std::string_view part : split(text, ',')) {
        const std::optional<int> number = parseNumber<int>(part);
        if (!number || *number < 0) return std::nullopt;
        numbers.push_back(*number);
    }
    if (numbers.size() < fewest || numbers.size() > most) return std::nullopt;
    Region region{numbers[0], numbers[1], std::nullopt};
    if (numbers.size() == most) region.startRow = numbers.back();
    return region;
}

void setRegion(QuorinDetector& detector, const Region& region) {
    if (region.startRow)
        detector.SetROIArea(region.width, region.height, *region.startRow);
    else
        detector.SetROIArea(region.width, region.height);
}

void setExposureTime(QuorinDetector& detector, float timeMs) {
    checkExposureTime(detector, "exposure_time_ms", timeMs);
    detector.SetExposureTime(timeMs);
}

std::string settingText(const Json& value) {
    if (value.is_null()) return "not supported";
    if (value.is_boolean()) return value.get<bool>() ? "on" : "off";
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_structured()) return value.dump();
    std::string all;
    for (const Json& element : value) all += (all.empty() ? "" : ",") + settingText(element);
    return all;
}

std::string settingsHelp() {
    std::ostringstream text;
    text << "Settings:\n";
    for (const Setting& setting : settings()) {
        text << "  " << setting.name << "=" << setting.allowed();
        if (!setting.unit.empty()) text << " [" << setting.unit << "]";
        text << "\n      " << setting.help << "\n";
    }
    return text.str();
}

}  // namespace tool
