#include "tools/selftestSteps.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "platform/Clock.h"
#include "tools/maintenance.h"
#include "tools/names.h"
#include "tools/settings.h"

namespace tool {
namespace {

constexpr int kestraneElectronics = 2;
constexpr int liveFrames = 5;
constexpr int modeRegisterNumber = 0;
constexpr int firstSensor = 1;
constexpr int allSensors = 0;
constexpr std::string_view regionSettings = "roi";

StepResult passed(const std::string& detail) {
    return {false, detail};
}

StepResult skipped(const std::string& reason) {
    return {true, reason};
}

[[noreturn]] void failStep(const std::string& text) {
    throw std::runtime_error(text);
}

/// Equal as far as the detector's steps of 0.01 and 0.1 ms allow.
bool isSame(const Json& left, const Json& right) {
    constexpr double coarsestStepMs = 0.1;
    constexpr double slack = 1e-6;
    if (left.is_array() && right.is_array() && left.size() == right.size())
        return std::equal(left.begin(), left.end(), right.begin(), isSame);
    if (left.is_number() && right.is_number())
        return std::abs(left.get<double>() - right.get<double>()) <= coarsestStepMs + slack;
    return left == right;
}

void apply(const Setting& setting, const std::string& value, QuorinDetector& detector) {
    const std::optional<Change> change = setting.parse(value);
    if (!change) failStep("the detector holds " + value + ", which can't be set");
    (*change)(detector);
}

/// Puts the setting back at the end of a step, also of one that failed: then its own failure is the one to be told.
template <class Body, class Restore>
StepResult withRestore(Body body, Restore restore) {
    try {
        StepResult result = body();
        restore();
        return result;
    } catch (...) {
        const std::exception_ptr failure = std::current_exception();
        try {
            restore();
        } catch (const std::exception&) {
            // Told by the step that compares all settings.
        }
        std::rethrow_exception(failure);
    }
}

/// The answer of a capability query, or -1 where there is none for this setting and value.
int supports(const QuorinDetector& detector, const std::string& setting, const std::string& value) {
    const auto ask = [&](const auto& names, auto query) {
        for (const auto& row : names)
            if (row.name == value) return query(row.value);
        return -1;
    };
    if (setting == "binning") return ask(binningNames, [&](auto mode) { return detector.QueryBinningMode(mode); });
    if (setting == "exposure_mode")
        return ask(exposureModeNames, [&](auto mode) { return detector.QueryExposureMode(mode); });
    if (setting == "trigger_source")
        return ask(triggerSourceNames, [&](auto source) { return detector.QueryTriggerSource(source); });
    if (setting == "full_well_mode")
        return ask(fullWellModeNames, [&](auto mode) { return detector.QueryFullWellMode(mode); });
    if (setting == "readout_mode")
        return ask(readoutModeNames, [&](auto mode) { return detector.QueryReadoutMode(mode); });
    if (setting == "slice_interlacing") return detector.QueryDisableSliceInterlacing();
    if (setting == "legacy_timing") return detector.QueryLegacyTiming();
    if (setting == "pixel_frame_counter")
        return detector.GetSensorVersion() == kestraneElectronics ? detector.QueryPixelFrameCounter() : 0;
    if (setting == "linearization") return detector.QueryOnBoardLinearization();
    if (setting == "xtalk_correction") return detector.QueryOnBoardXTalkCorrection();
    return -1;
}

std::string milliseconds(double time) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << time;
    return text.str();
}

/// A value other than the one in force that the detector can take; empty if there is none.
std::string trialValue(const Setting& setting, const QuorinDetector& detector, const std::string& current) {
    constexpr double stepMs = 10.0;
    const std::string name(setting.name);
    for (const std::string& value : setting.values())
        if (value != current && supports(detector, name, value) != 0) return value;
    const double shortest = std::ceil(std::fmax(detector.GetMinimumExposureTime(), detector.GetReadOutTime())) + stepMs;
    if (name == "num_of_exposures") return current == "2" ? "3" : "2";
    const auto other = [&](double time) { return milliseconds(milliseconds(time) == current ? time + stepMs : time); };
    if (name == "exposure_time_ms" || name == "gap_time_ms") return other(shortest);
    if (name == "pre_programmed_exposure_times_ms")
        return milliseconds(shortest) + "," + milliseconds(shortest + stepMs) + "," +
               milliseconds(shortest + 2 * stepMs) + "," + milliseconds(shortest + 3 * stepMs);
    return {};
}

Json asRead(const std::string& text, const Json& pattern) {
    if (pattern.is_boolean()) return text == "on";
    if (pattern.is_string()) return text;
    return Json::parse(pattern.is_array() ? "[" + text + "]" : text);
}

void expectValue(const Setting& setting, const QuorinDetector& detector, const Json& wanted) {
    const Json got = setting.get(detector);
    if (!isSame(got, wanted)) failStep("set to " + settingText(wanted) + ", it reads back as " + settingText(got));
}

/// Sets another value, reads it back, puts the old one back and reads that back.
StepResult trySetting(const Setting& setting, QuorinDetector& detector) {
    const Json before = setting.get(detector);
    if (before.is_null()) return skipped("not supported by this detector");
    const std::string old = settingText(before);
    const std::string trial = trialValue(setting, detector, old);
    if (trial.empty()) return skipped("not supported: this detector has no other value");
    // Setting one moves others: times follow binning and modes.
    const SettingsKept kept(detector);
    return withRestore(
        [&] {
            apply(setting, trial, detector);
            expectValue(setting, detector, asRead(trial, before));
            apply(setting, old, detector);
            expectValue(setting, detector, before);
            return passed(old + " -> " + trial + " -> " + old);
        },
        [&] { kept.putBack(detector); });
}

StepResult identity(QuorinDetector& detector) {
    const int model = detector.GetModelNumber();
    int width = 0;
    int height = 0;
    detector.GetDefaultImageSize(width, height);
    if (model <= 0 || width <= 0 || height <= 0) failStep("model " + std::to_string(model) + " without a panel");
    return passed("model " + std::to_string(model) + ", serial number " + std::to_string(detector.GetSerialNumber()) +
                  ", firmware " + std::to_string(detector.GetFirmwareVersion()));
}

/// A frame as it should be: of the right size, and not all of one value, which no exposure gives.
std::string checkedFrame(const QuorinDetector& detector, int buffer) {
    QorImage image;
    detector.ReadBuffer(buffer, image, 0);
    const int width = image.GetImageXdim();
    const int height = image.GetImageYdim();
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    if (width != detector.GetBufferXdim() || height != detector.GetBufferYdim())
        failStep("the frame has " + size + " instead of " + std::to_string(detector.GetBufferXdim()) + " x " +
                 std::to_string(detector.GetBufferYdim()));
    const auto* const first = static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0));
    const auto [lowest, highest] = std::minmax_element(first, first + std::ptrdiff_t{width} * height);
    if (*lowest == *highest) failStep("every pixel of the frame has the value " + std::to_string(*lowest));
    return size + ", values " + std::to_string(*lowest) + " to " + std::to_string(*highest);
}

StepResult snapOne(QuorinDetector& detector) {
    detector.ClearCameraBuffer(0);
    detector.Snap(0, frameTimeoutMs(detector, {}));
    return passed(checkedFrame(detector, 0));
}

void waitForRun(QuorinDetector& detector) {
    constexpr std::chrono::nanoseconds slice = std::chrono::milliseconds(5);
    const platform::Time deadline = platform::deadlineAfterMs(std::int64_t{frameTimeoutMs(detector, {})} * liveFrames);
    while (detector.IsLive()) {
        detector.CheckForLiveError();
        if (platform::now() > deadline) failStep("the live run did not end by itself");
        platform::sleepFor(slice);
    }
}

/// While the detector runs free, as nobody may send it edges.
/// Consumes the signal of the last frame of a run. On Camera Link the next `Snap` would take it for its own, and a wait
/// that got a frame less than 50 ms ago would end it as well.
void consumeSignal(QuorinDetector& detector) {
    constexpr std::chrono::milliseconds sharedFrame{60};
    if (detector.GetTransportMethod() != TransportCL) return;
    try {
        detector.WaitImage(0);
    } catch (const QuorinException&) {
        return;  // no signal is left
    }
    platform::sleepFor(sharedFrame);
}

StepResult takeLive(QuorinDetector& detector) {
    const ExposureTriggerSource source = detector.GetTriggerSource();
    return withRestore(
        [&] {
            if (source != TriggerBitsClear) detector.SetTriggerSource(TriggerBitsClear);
            detector.ClearBuffers();
            const int fieldsBefore = detector.GetFieldCount() + fieldsOfFirstFrame(detector) - 1;
            const platform::Time start = platform::now();
            detector.GoLiveSeq(0, std::min(liveFrames, detector.GetNumBuffers()) - 1, liveFrames);
            waitForRun(detector);
            const std::chrono::duration<double> taken = platform::now() - start;
            detector.GoUnLive();
            detector.CheckForLiveError();
            consumeSignal(detector);
            const int frames = detector.GetFieldCount() - fieldsBefore;
            if (frames < liveFrames)
                failStep(std::to_string(frames) + " of " + std::to_string(liveFrames) + " frames came");
            for (int buffer = 0; buffer < std::min(liveFrames, detector.GetNumBuffers()); ++buffer)
                checkedFrame(detector, buffer);
            return passed(std::to_string(frames) + " frames, " + milliseconds(frames / taken.count()) + " frames/s");
        },
        [&] {
            detector.GoUnLive();
            if (source != TriggerBitsClear) detector.SetTriggerSource(source);
        });
}

StepResult tryRegion(QuorinDetector& detector) {
    constexpr int rows = 128;
    if (detector.QueryROI() != 1) return skipped("not supported by this detector");
    const SettingsKept kept(detector);
    return withRestore(
        [&] {
            int width = 0;
            int height = 0;
            detector.GetMaximumROISize(width, height);
            // The height that the margin adds or the binning takes away stands in the frame's size.
            if (detector.GetBinningMode() != Bin1x1) detector.SetBinningMode(Bin1x1);
            detector.SetROIArea(width, rows);
            detector.SetROIEnabled(true);
            if (detector.GetBufferXdim() != width || detector.GetBufferYdim() != rows)
                failStep("a region of " + std::to_string(width) + " x " + std::to_string(rows) + " gives frames of " +
                         std::to_string(detector.GetBufferXdim()) + " x " + std::to_string(detector.GetBufferYdim()));
            detector.Snap(0, frameTimeoutMs(detector, {}));
            return passed(checkedFrame(detector, 0));
        },
        [&] { kept.putBack(detector); });
}

StepResult readTemperatures(QuorinDetector& detector) {
    constexpr float coldest = -40.0F;
    constexpr float hottest = 100.0F;
    if (detector.QueryTempReporting() == 0) return skipped("not supported by this detector");
    std::string all;
    for (int sensor = 1; sensor <= temperatureCount(detector); ++sensor) {
        const float celsius = detector.GetDetectorTemp(sensor);
        const std::string text = milliseconds(celsius) + " C";
        // 0 stands for a sensor that had no reading in time.
        if (celsius == 0.0F || !(celsius >= coldest && celsius <= hottest))
            failStep("sensor " + std::to_string(sensor) + " reads " + text + ", which no working one does");
        all += (all.empty() ? "" : ", ") + text;
    }
    return passed(all);
}

/// The region keeps modes from being set, and modes move times.
int restoreOrder(const Setting& setting) {
    if (setting.name.substr(0, regionSettings.size()) == regionSettings) return 0;
    return setting.unit == "ms" ? 2 : 1;
}

}  // namespace

SettingsKept::SettingsKept(const QuorinDetector& detector)
    : modeRegister(detector.ReadRegister(modeRegisterNumber, firstSensor)) {
    for (const Setting& setting : settings()) all.push_back({&setting, setting.get(detector)});
    std::stable_sort(all.begin(), all.end(), [](const Kept& left, const Kept& right) {
        return restoreOrder(*left.setting) < restoreOrder(*right.setting);
    });
}

void SettingsKept::putBack(QuorinDetector& detector) const {
    std::string failed;
    std::string reason;
    // What moved while another setting was put back is put back in the second round.
    bool moved = true;
    for (int round = 0; round < 2 && moved; ++round) {
        failed.clear();
        moved = false;
        for (const Kept& kept : all) {
            try {
                if (isSame(kept.setting->get(detector), kept.value)) continue;
                moved = true;
                apply(*kept.setting, settingText(kept.value), detector);
                if (isSame(kept.setting->get(detector), kept.value)) continue;
                reason = "it keeps another value";
            } catch (const std::exception& failure) {
                reason = failure.what();
                moved = true;
            }
            failed += (failed.empty() ? "" : ", ") + std::string(kept.setting->name);
        }
    }
    // Exposure modes set a bit that no other mode clears and no setting tells.
    if (failed.empty() && detector.ReadRegister(modeRegisterNumber, firstSensor) != modeRegister)
        detector.WriteRegister(modeRegisterNumber, modeRegister, allSensors);
    if (!failed.empty()) failStep("not as it was: " + failed + " (" + reason + ")");
}

std::vector<SelftestStep> selftestSteps() {
    std::vector<SelftestStep> steps{{"identity", identity}};
    for (const Setting& setting : settings()) {
        // The region is a step of its own: its settings make sense together only.
        if (setting.name.substr(0, regionSettings.size()) == regionSettings) continue;
        steps.push_back({"set " + std::string(setting.name),
                         [&setting](QuorinDetector& detector) { return trySetting(setting, detector); }});
    }
    steps.push_back({"snap", snapOne});
    steps.push_back({"live run", takeLive});
    steps.push_back({"region of interest", tryRegion});
    steps.push_back({"temperature", readTemperatures});
    return steps;
}

}  // namespace tool
