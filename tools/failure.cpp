#include "tools/failure.h"

#include <qrapi/QuorinException.h>

#include <array>
#include <charconv>
#include <ostream>
#include <vector>

#include "simulator/Rack.h"
#include "tools/FrameFiles.h"
#include "tools/nearest.h"

namespace tool {
namespace {

constexpr std::string_view noFrame =
    "no frame came in time: a detector that doesn't run free needs pulses (--pulse HZ) or "
    "--set trigger_source=bits_clear; otherwise look at cable and power";
constexpr std::string_view noAnswer =
    "the detector doesn't answer: look at its power and cable, and keep other programs away from its serial line; a "
    "detector that was switched off has to be taken off its supply and put on again";

/// A failure by its code and a piece of its text, and what helps.
struct Remedy {
    Derr code;
    std::string_view text;
    std::string_view remedy;
};

constexpr std::array<Remedy, 24> remedies{{
    {DerrWrongTransport, "Only CameraLink", "this is for detectors on Camera Link alone: name one by -d cl:<unit>"},
    {DerrWrongTransport, "Only GigE", "this is for GigE detectors alone: name one by -d ge:<address>"},
    {DerrBadRequest, "There is no readout time stored",
     "this model has no readout times for this setting on this transport: take another binning, or Camera Link (cl:5 "
     "is "
     "a simulated 6213, cl:9 an 8131)"},
    {DerrBadRequest, "There are no timings stored", "this model has no timings for this binning: take another one"},
    {DerrBadRequest, "Unsupported detector model", "supported are the models 5101, 5309, 6112, 6213, 7127 and 8131"},
    {DerrBadRequest, "does not support ROI", "\"qrapi info\" tells under region_of_interest which detectors do"},
    {DerrBadRequest, "Cannot set ROI",
     "allowed are the panel's width, a height from 128 on in steps of 8, and a row from which it fits; \"qrapi roi "
     "show\" prints the largest"},
    {DerrBadRequest, "when ROI is enabled", "turn the region off first: --set roi_enabled=off, or qrapi roi off"},
    {DerrBadRequest, "frequency", "allowed are up to 500 Hz on GigE and less than 500 Hz on Camera Link"},
    {DerrBadRequest, "Gap time",
     "allowed are up to 1638.3 ms plus the readout time, on Kestrane electronics 6553.5 ms"},
    {DerrBadRequest, "Problem sending serial command", "a command has 1 to 23 characters"},
    {DerrTransport, "pulse-generator to desired frequency", "take a frequency of 0.0093 to 500 Hz"},
    {DerrTransport, "Opening Connection",
     "another program may have the detector open: close it there; otherwise look at address, cable and power"},
    {DerrTransport, "Unable to update readout", noAnswer},
    {DerrTransport, "flash erase command", "this sensor's firmware may not be replaceable: look at --sensor"},
    {DerrTransport, "flash controller", "wait a second and try again: the flash memory is busy"},
    {DerrTransport, "serial", noAnswer},
    {DerrTransport, "response recevied", noAnswer},
    {DerrExposure, "",
     "the detector didn't take the exposure time: try again, and look at minimum_exposure_ms in "
     "\"qrapi info\""},
    {DerrSerialCommand, "", noAnswer},
    {DerrResources, "Frame Grabber", "the frame grabber has less memory than that: take fewer buffers"},
    {DerrAcquisition, "", noFrame},
    {DerrWrapped, "bad_alloc", "memory ran out: take fewer frames at once"},
    {DerrWrapped, "invalid map<K, T> key", "there is no such sensor on this detector"},
}};

std::vector<std::string> gigeNames() {
    std::vector<std::string> names;
    for (const std::string& address : simulator::Rack::instance().gigeAddresses()) names.push_back("ge:" + address);
    return names;
}

std::vector<std::string> slotNames() {
    std::vector<std::string> names;
    for (const int slot : simulator::Rack::instance().slots()) names.push_back("cl:" + std::to_string(slot));
    return names;
}

/// What is wrong with the address itself; empty if a detector is there, as far as can be told.
std::string remedyForAddress(const DetectorAddress& detector) {
    simulator::Rack& rack = simulator::Rack::instance();
    if (detector.transport == TransportCL) {
        if (rack.slot(detector.unit) != nullptr) return {};
        return "no frame grabber has the unit number " + std::to_string(detector.unit) + "; there are " +
               listed(slotNames());
    }
    const std::string name = "ge:" + detector.address;
    if (detector.isSimulated() && rack.find(detector.address) != nullptr) return {};
    std::string text = "no detector at " + name + suggestion(name, gigeNames(), "there are");
    if (!detector.isSimulated())
        text +=
            "; for one on the network look at address, cable and power, that no other program has it open, and that "
            "this "
            "program was built with the vendor's library in place of the simulation";
    return text;
}

bool isAboutOpening(const QuorinException& failure) {
    return std::string_view(failure.what()).find("Opening Connection") != std::string_view::npos;
}

/// On GigE opening fails with code 5, on Camera Link with 11 or 5 for a slot that holds nothing.
bool mayBeTheAddress(const QuorinException& failure) {
    return isAboutOpening(failure) || failure.GetCode() == DerrGrabberSetup;
}

}  // namespace

std::string remedyFor(const std::exception& failure, const std::optional<DetectorAddress>& detector) {
    const auto* const known = dynamic_cast<const QuorinException*>(&failure);
    if (known == nullptr) return {};
    if (detector && mayBeTheAddress(*known)) {
        std::string remedy = remedyForAddress(*detector);
        if (!remedy.empty()) return remedy;
    }
    for (const Remedy& row : remedies)
        if (row.code == known->GetCode() && std::string_view(known->what()).find(row.text) != std::string_view::npos)
            return std::string(row.remedy);
    return {};
}

Json describeFailure(const std::exception& failure) {
    const auto* const known = dynamic_cast<const QuorinException*>(&failure);
    if (known == nullptr)
        return {{"text", failure.what()},       {"code", nullptr},
                {"code_name", nullptr},         {"transport_error", nullptr},
                {"transport_message", nullptr}, {"function", nullptr}};
    return {{"text", known->what()},
            {"code", static_cast<int>(known->GetCode())},
            {"code_name", DerrName(known->GetCode())},
            {"transport_error", known->GetTransportError()},
            {"transport_message", known->GetTransportMessage()},
            {"function", known->GetFunctionName()}};
}

void tellFailure(const std::exception& failure, const std::string& remedy, Output& output) {
    if (const auto* const partial = dynamic_cast<const FramesKept*>(&failure)) {
        output.facts["output"] = partial->path;
        output.facts["frames_kept"] = partial->frames;
    }
    if (output.isJson) {
        Json error = describeFailure(failure);
        error["hint"] = remedy.empty() ? Json(nullptr) : Json(remedy);
        output.facts["error"] = std::move(error);
        return;
    }
    output.errors() << output.paintedError("error:", Tone::Bad) << " " << failure.what() << "\n";
    if (!remedy.empty()) output.errors() << "hint: " << remedy << "\n";
}

}  // namespace tool
