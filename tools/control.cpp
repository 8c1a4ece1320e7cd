#include <qrapi/QuorinDetector.h>

#include <algorithm>
#include <ostream>

#include "platform/Clock.h"
#include "tools/Interrupt.h"
#include "tools/commands.h"
#include "tools/run.h"

namespace tool {
namespace {

constexpr int jsonIndent = 2;

void printSetting(const Setting& setting, const QuorinDetector& detector, std::ostream& out) {
    out << setting.name << "=" << settingText(setting.get(detector)) << "\n";
}

const char* onOrOff(bool on) {
    return on ? "on" : "off";
}

void printRegion(const QuorinDetector& detector, std::ostream& out) {
    int width = 0;
    int height = 0;
    int row = 0;
    int column = 0;
    detector.GetROIArea(width, height, row, column);
    int highestWidth = 0;
    int highestHeight = 0;
    detector.GetMaximumROISize(highestWidth, highestHeight);
    out << "region of interest: " << onOrOff(detector.IsROIEnabled()) << ", " << width << " x " << height
        << " pixels from row " << row << ", margin " << onOrOff(detector.IsROIMarginEnabled()) << "; at most "
        << highestWidth << " x " << highestHeight << "; a frame has " << detector.GetBufferXdim() << " x "
        << detector.GetBufferYdim() << "\n";
}

/// Takes the frames of a live run while the generator pulses.
int pulseFor(QuorinDetector& detector, const PulseRequest& request, std::ostream& out) {
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
    out << frames << " frames";
    if (simulated) {
        const simulator::Ledger after = simulated->ledger();
        out << " from " << after.edges - before.edges << " edges, " << after.edgesIgnored - before.edgesIgnored
            << " of them during a frame";
    }
    out << "\n";
    return interrupt.isRequested() ? exitInterrupted : exitSuccess;
}

}  // namespace

void get(const GetRequest& request, std::ostream& out) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    if (request.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::object();
        for (const Setting* setting : request.settings) all[std::string(setting->name)] = setting->get(detector);
        out << all.dump(jsonIndent) << "\n";
    } else {
        for (const Setting* setting : request.settings) printSetting(*setting, detector, out);
    }
    detector.CloseBoard();
}

void set(const SetRequest& request, std::ostream& out) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    for (const Assignment& assignment : request.assignments) assignment.change(detector);
    for (const Assignment& assignment : request.assignments) printSetting(*assignment.setting, detector, out);
    detector.CloseBoard();
}

void roi(const RoiRequest& request, std::ostream& out) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    request.change(detector);
    printRegion(detector, out);
    detector.CloseBoard();
}

int pulse(const PulseRequest& request, std::ostream& out) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    int status = exitSuccess;
    switch (request.action) {
        case PulseAction::On:
            detector.EnablePulseGenerator(request.frequencyHz);
            detector.ToggleGenerator(true);
            out << "pulse generator on at " << request.frequencyHz << " Hz, until the board is closed\n";
            break;
        case PulseAction::Off:
            detector.DisablePulseGenerator();
            out << "pulse generator off\n";
            break;
        case PulseAction::Hold:
            detector.ToggleGenerator(false);
            out << "pulses held back\n";
            break;
        case PulseAction::Run:
            status = pulseFor(detector, request, out);
            break;
    }
    detector.CloseBoard();
    return status;
}

void trigger(const Preparation& preparation, std::ostream& out) {
    QuorinDetector detector = makeDetector(preparation.detector);
    openPrepared(detector, preparation);
    detector.SoftwareTrigger();
    detector.CloseBoard();
    out << "trigger sent\n";
}

}  // namespace tool
