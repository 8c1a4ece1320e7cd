#include <qrapi/QuorinDetector.h>

#include <algorithm>
#include <ostream>

#include "platform/Clock.h"
#include "tools/Interrupt.h"
#include "tools/commands.h"
#include "tools/run.h"

namespace tool {
namespace {

void printSetting(const Setting& setting, const QuorinDetector& detector, Output& output) {
    const Json value = setting.get(detector);
    output.text() << setting.name << "=" << settingText(value) << "\n";
    output.facts[std::string(setting.name)] = value;
}

const char* onOrOff(bool on) {
    return on ? "on" : "off";
}

void printRegion(const QuorinDetector& detector, Output& output) {
    int width = 0;
    int height = 0;
    int row = 0;
    int column = 0;
    detector.GetROIArea(width, height, row, column);
    int highestWidth = 0;
    int highestHeight = 0;
    detector.GetMaximumROISize(highestWidth, highestHeight);
    const bool enabled = detector.IsROIEnabled();
    const bool margin = detector.IsROIMarginEnabled();
    const int frameWidth = detector.GetBufferXdim();
    const int frameHeight = detector.GetBufferYdim();
    output.text() << "region of interest: " << onOrOff(enabled) << ", " << width << " x " << height
                  << " pixels from row " << row << ", margin " << onOrOff(margin) << "; at most " << highestWidth
                  << " x " << highestHeight << "; a frame has " << frameWidth << " x " << frameHeight << "\n";
    output.facts = {{"enabled", enabled},
                    {"width_pixels", width},
                    {"height_pixels", height},
                    {"start_row", row},
                    {"margin", margin},
                    {"maximum_width_pixels", highestWidth},
                    {"maximum_height_pixels", highestHeight},
                    {"frame_width_pixels", frameWidth},
                    {"frame_height_pixels", frameHeight}};
}

/// Takes the frames of a live run while the generator pulses.
int pulseFor(QuorinDetector& detector, const PulseRequest& request, Output& output) {
    constexpr std::chrono::nanoseconds slice = std::chrono::milliseconds(50);
    const auto simulated = simulatedBehind(request.preparation.detector);
    const simulator::Ledger before = simulated ? simulated->ledger() : simulator::Ledger{};
    const int fieldCountBefore = detector.GetFieldCount();
    const Interrupt interrupt;
    detector.EnablePulseGenerator(request.frequencyHz);
    detector.GoLiveSeq();
    detector.ToggleGenerator(true);
    const platform::Time end = platform::now() + request.duration;
    for (platform::Time left = request.duration; left.count() > 0 && !interrupt.isRequested();
         left = end - platform::now())
        platform::sleepFor(std::min(left, slice));
    detector.ToggleGenerator(false);
    detector.GoUnLive();
    detector.CheckForLiveError();
    const int extraFields = fieldsOfFirstFrame(detector) - 1;
    const int frames = std::max(detector.GetFieldCount() - fieldCountBefore - extraFields, 0);
    output.text() << frames << " frames";
    output.facts = {{"frames", frames}, {"edges", nullptr}, {"edges_ignored", nullptr}};
    if (simulated) {
        const simulator::Ledger after = simulated->ledger();
        const std::uint64_t edges = after.edges - before.edges;
        const std::uint64_t ignored = after.edgesIgnored - before.edgesIgnored;
        output.text() << " from " << edges << " edges, " << ignored << " of them during a frame";
        output.facts["edges"] = edges;
        output.facts["edges_ignored"] = ignored;
    }
    output.text() << "\n";
    output.facts["interrupted"] = interrupt.isRequested();
    return interrupt.isRequested() ? exitInterrupted : exitSuccess;
}

}  // namespace

void get(const GetRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    for (const Setting* setting : request.settings) printSetting(*setting, detector, output);
    detector.CloseBoard();
}

void set(const SetRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    for (const Assignment& assignment : request.assignments) assignment.change(detector);
    for (const Assignment& assignment : request.assignments) printSetting(*assignment.setting, detector, output);
    detector.CloseBoard();
}

void roi(const RoiRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    request.change(detector);
    printRegion(detector, output);
    detector.CloseBoard();
}

int pulse(const PulseRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    int status = exitSuccess;
    switch (request.action) {
        case PulseAction::On:
            detector.EnablePulseGenerator(request.frequencyHz);
            detector.ToggleGenerator(true);
            output.news() << "pulse generator on at " << request.frequencyHz << " Hz, until the board is closed\n";
            output.facts = {{"pulse_generator", "on"}, {"frequency_hz", request.frequencyHz}};
            break;
        case PulseAction::Off:
            detector.DisablePulseGenerator();
            output.news() << "pulse generator off\n";
            output.facts = {{"pulse_generator", "off"}};
            break;
        case PulseAction::Hold:
            detector.ToggleGenerator(false);
            output.news() << "pulses held back\n";
            output.facts = {{"pulse_generator", "held"}};
            break;
        case PulseAction::Run:
            status = pulseFor(detector, request, output);
            break;
    }
    detector.CloseBoard();
    return status;
}

void trigger(const Preparation& preparation, Output& output) {
    QuorinDetector detector = makeDetector(preparation.detector);
    openPrepared(detector, preparation);
    detector.SoftwareTrigger();
    detector.CloseBoard();
    output.news() << "trigger sent\n";
    output.facts = {{"triggers_sent", 1}};
}

}  // namespace tool
