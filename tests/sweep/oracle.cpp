#include "sweep/oracle.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "sweep/MeteredPleora.h"
#include "sweep/MeteredXclib.h"

namespace sweep {
namespace {

constexpr unsigned bit(Kind kind) {
    return 1U << static_cast<unsigned>(kind);
}
constexpr unsigned refused = bit(Kind::FailsOnce) | bit(Kind::FailsOnward);
constexpr unsigned late = bit(Kind::TimesOutOnce) | bit(Kind::TimesOutOnward);
constexpr unsigned wrongData = bit(Kind::ShortData) | bit(Kind::GarbageData);
constexpr unsigned gone = bit(Kind::DeviceGone);
constexpr unsigned once = bit(Kind::FailsOnce) | bit(Kind::TimesOutOnce) | bit(Kind::ShortData);
constexpr unsigned results = refused | late | gone;
constexpr unsigned disturbed = late | wrongData | gone;
constexpr unsigned thrown = bit(Kind::StandardException) | bit(Kind::ForeignObject);

enum class Status { Carried, None, Own };  ///< the vendor's; none; a number of the library's own

/// How the failure of a vendor call is reported. A name with a star at its end stands for all that begin so.
struct FailureRow {
    std::string_view call;
    std::string_view detail;
    unsigned kinds;
    std::string_view message;
    Derr code;
    std::string_view function;
    Status status = Status::Carried;
};

constexpr std::string_view serialWrite = "Problem performing serial write!";
constexpr std::string_view serialRead = "Problem performing serial read!";
constexpr std::string_view liveThread = "An error occured in the Live thread!";
constexpr std::string_view openProblem = "Problem Opening Connection to Detector!";
constexpr std::string_view configureProblem = "Problem Configuring Detector!";
constexpr std::string_view closeProblem = "Problem Closing Connection to Detector!";
constexpr std::string_view enableProblem = "Problem enabling pulse generator!";
constexpr std::string_view disableProblem = "Problem disabling pulse generator!";
constexpr std::string_view frequencyProblem = "Unable to set pulse-generator to desired frequency!";
constexpr std::string_view sizeProblem = "Failed to configure Pleora interface: Problem updating image parameters";
constexpr std::string_view releaseProblem = "Problem releasing detector buffers!";
constexpr std::string_view startProblem = "Problem starting acquisition manager!";
constexpr std::string_view stopProblem = "Problem stopping acquisition manager!";
constexpr std::string_view snapProblem = "Problem Snapping Image!";
constexpr std::string_view noFrame = "Image did not arrive within the timeout.";
constexpr std::string_view noMemory = "Insufficient Memory on system!";
constexpr std::string_view memoryProblem =
    "Frame Grabber does not have sufficient amount of memory allocated for the requested number of buffers!";

const FailureRow onGigE[] = {
    {"Dev_Connect", "", results, openProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Stream_Open", "", results, openProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Dev_NegotiatePacketSize", "", results, configureProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Dev_SetStreamDestination", "", results, configureProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Stream_Set", "*", results, configureProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Dev_Set", "PixelFormat", results, configureProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Dev_Set", "TestImageSelector", results, configureProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"IP_Open", "", results, "Problem Openning Serial connection to detector!", DerrTransport,
     "PleoraDetector::OpenBrd"},
    {"Dev_Get", "PayloadSize", results, configureProblem, DerrTransport, "PleoraDetector::OpenBrd"},
    {"Pipeline_SetBufferCount", "", results, "Problem with setting up the buffer!", DerrTransport,
     "PleoraDetector::OpenBrd"},
    {"Pipeline_Start", "", results, "Problem starting pipeline!", DerrTransport, "PleoraDetector::OpenBrd"},
    {"Dev_Set", "Uart0*", results, "Problem Configuring Detector Serial Interface!", DerrTransport,
     "PleoraDetector::SerialConfigure"},
    {"Dev_Set", "PLC_*", results, configureProblem, DerrTransport, "PleoraDetector::ConfigurePLC"},
    {"Dev_Set", "Width", results, sizeProblem, DerrTransport, "PleoraDetector::updateImageParams"},
    {"Dev_Set", "Height", results, sizeProblem, DerrTransport, "PleoraDetector::updateImageParams"},
    {"Dev_Get", "Width", results, sizeProblem, DerrTransport, "PleoraDetector::updateImageParams"},
    {"Dev_Get", "Height", results, sizeProblem, DerrTransport, "PleoraDetector::updateImageParams"},
    {"Dev_Get", "PayloadSize", results, sizeProblem, DerrTransport, "PleoraDetector::updateImageParams"},
    {"Dev_Get", "Width", results, "Problem reading buffer width!", DerrTransport, "PleoraDetector::bufferXdim"},
    {"Dev_Get", "Height", results, "Problem reading buffer height!", DerrTransport, "PleoraDetector::bufferYdim"},
    {"IP_FlushRxBuffer", "", results, serialWrite, DerrTransport, "PleoraDetector::SerialWrite"},
    {"IP_Write", "*", results, serialWrite, DerrTransport, "PleoraDetector::SerialWrite"},
    {"IP_Read", "*", refused | gone, serialRead, DerrTransport, "PleoraDetector::SerialRead"},
    {"State_Start", "", results, startProblem, DerrTransport, "PleoraDetector::StartAcq"},
    {"State_Stop", "", results, stopProblem, DerrTransport, "PleoraDetector::StopAcq"},
    {"Dev_Set", "PLC_ctrl0", results, "Problem Sending Software Trigger!", DerrTransport,
     "PleoraDetector::SoftwareTrigger"},
    {"Dev_Set", "PLC_ctrl0", results, "Problem toggling pulse generator!", DerrTransport,
     "PleoraDetector::ToggleGenerator"},
    {"Dev_Set", "PLC_Q4_*", results, enableProblem, DerrTransport, "PleoraDetector::EnablePulseGenerator"},
    {"Dev_Set", "Timer*", results, enableProblem, DerrTransport, "PleoraDetector::EnablePulseGenerator"},
    {"Dev_Set", "Timer*", results, frequencyProblem, DerrTransport, "PleoraDetector::configurePGFrequency"},
    {"Dev_Get", "TimerFrequency", results | wrongData, frequencyProblem, DerrTransport,
     "PleoraDetector::configurePGFrequency"},
    {"Dev_Set", "PLC_Q4_*", results, disableProblem, DerrTransport, "PleoraDetector::DisablePulseGenerator"},
    {"Pipeline_RetrieveNextBuffer", "", results | wrongData, snapProblem, DerrAcquisition, "PleoraDetector::Snap"},
    {"Buffer_GetImagePointer", "", refused, snapProblem, DerrAcquisition, "PleoraDetector::Snap", Status::None},
    {"Pipeline_ReleaseBuffer", "", results, releaseProblem, DerrAcquisition, "PleoraDetector::Snap"},
    {"Dev_Set", "GevCurrentIPConfigurationPersistentIP", results, "Problem setting persistent IP Address!",
     DerrTransport, "PleoraDetector::SetPersistentIPAddress"},
    {"Dev_Set", "GevPersistentIPAddress", results, "Problem setting persistent IP Address!", DerrTransport,
     "PleoraDetector::SetPersistentIPAddress"},
    {"IP_Close", "", results, closeProblem, DerrTransport, "PleoraDetector::CloseBrd"},
    {"Pipeline_Stop", "", results, closeProblem, DerrTransport, "PleoraDetector::CloseBrd"},
    {"Stream_Close", "", results, closeProblem, DerrTransport, "PleoraDetector::CloseBrd"},
    {"Dev_Disconnect", "", results, closeProblem, DerrTransport, "PleoraDetector::CloseBrd"},
    // What happened to the live thread is told to whoever asks or waits.
    {"Pipeline_RetrieveNextBuffer", "", results | wrongData, liveThread, DerrTransport,
     "PleoraDetector::CheckForLiveError"},
    {"Buffer_GetImagePointer", "", refused, liveThread, DerrTransport, "PleoraDetector::CheckForLiveError",
     Status::None},
    {"Pipeline_ReleaseBuffer", "", results, releaseProblem, DerrTransport, "PleoraDetector::CheckForLiveError"},
    {"State_Stop", "", results, stopProblem, DerrTransport, "PleoraDetector::CheckForLiveError"},
    {"Pipeline_RetrieveNextBuffer", "", late | gone, noFrame, DerrAcquisition, "baseDetector::WaitImage", Status::None},
    // A pipeline that runs on over a change of size brings frames that don't fit.
    {"Pipeline_IsStarted", "", refused, liveThread, DerrTransport, "PleoraDetector::CheckForLiveError", Status::Own},
    {"Pipeline_IsStarted", "", refused, snapProblem, DerrAcquisition, "PleoraDetector::Snap", Status::Own},
    {"Pipeline_Stop", "", results, liveThread, DerrTransport, "PleoraDetector::CheckForLiveError", Status::Own},
    {"Pipeline_Stop", "", results, snapProblem, DerrAcquisition, "PleoraDetector::Snap", Status::Own},
    // Sizes that no frame has are refused where memory is asked for.
    {"Dev_Get", "PayloadSize", wrongData, noMemory, DerrResources, "RAIIBuffer::RAIIBuffer", Status::None},
    {"Dev_Get", "PayloadSize", wrongData, noMemory, DerrResources, "RAIIBuffer::ReAlloc", Status::None},
    {"Dev_Get", "*", wrongData, noMemory, DerrResources, "baseDetector::ClearCameraBuffer", Status::None},
    {"Dev_Get", "*", wrongData, "There is no frame to write: the pointer is null!", DerrBadRequest,
     "PleoraDetector::WriteBuffer", Status::None},
    // A pipeline that a change of size could not start brings no frame.
    {"Pipeline_Start", "", results, snapProblem, DerrAcquisition, "PleoraDetector::Snap", Status::Own},
    {"Pipeline_Start", "", results, noFrame, DerrAcquisition, "baseDetector::WaitImage", Status::None},
    {"Dev_Get", "*", wrongData, "Size of input buffer must match size of current image buffer!", DerrBadRequest,
     "PleoraDetector::WriteBuffer", Status::Own},
};

const FailureRow onCameraLink[] = {
    {"pxe_XCLIBinstantiate", "", refused, openProblem, DerrGrabberSetup, "EpixDetector::OpenBrd"},
    {"XCLIBinstantiate", "", refused, openProblem, DerrGrabberSetup, "EpixDetector::OpenBrd"},
    {"PIXCIopen", "*", results, openProblem, DerrGrabberSetup, "EpixDetector::OpenBrd"},
    {"pxe_xclibEscape", "", refused, "Problem Loading FMT file!", DerrTransport, "EpixDetector::*"},
    {"pxe_xclibEscaped", "", refused, "Problem Loading FMT file!", DerrTransport, "EpixDetector::*"},
    {"formatLoad", "", refused, "Problem Loading FMT file!", DerrTransport, "EpixDetector::*"},
    {"setPixelFormatGrey", "*", results, "Problem Reconfiguring Frame Grabber Tap Count!", DerrGrabberSetup,
     "EpixDetector::reconfigureFG"},
    {"setVideoResolution", "*", results, "Problem Setting Frame-Grabber Video Resolution!", DerrGrabberSetup,
     "EpixDetector::reconfigureFG"},
    {"imageZdims", "*", results, "Problem reading number of buffers!", DerrTransport, "EpixDetector::*"},
    {"imageZdims", "*", bit(Kind::ShortData), memoryProblem, DerrResources, "EpixDetector::*"},
    {"serialConfigure", "*", results, "Problem Configuring Detector Serial Interface!", DerrTransport,
     "EpixDetector::SerialConfigure"},
    {"serialRead", "*", refused, serialRead, DerrTransport, "EpixDetector::SerialRead"},
    {"serialWrite", "*", results, serialWrite, DerrTransport, "EpixDetector::SerialWrite"},
    {"eventCapturedFieldCreate2", "", refused, "Problem creating handle to detector!", DerrTransport,
     "EpixDetector::CreateDetectorHandle"},
    // A panel that is only now getting its power need not take the command; what comes next tells that it has none.
    {"serialWrite", "WP1", results, "Problem sending serial command ", DerrSerialCommand,
     "baseDetector::SendCommandWithoutFlashStatusCheck", Status::None},
    {"serialRead", "WP1", results, "Problem sending serial command ", DerrSerialCommand,
     "baseDetector::SendCommandWithoutFlashStatusCheck", Status::None},
    {"setCameraLinkCCOut", "*", results, "Problem Sending Software Trigger!", DerrTransport,
     "EpixDetector::SoftwareTrigger"},
    {"imageXdims", "*", results, "Problem reading buffer width!", DerrTransport, "EpixDetector::bufferXdim"},
    {"imageYdims", "*", results, "Problem reading buffer height!", DerrTransport, "EpixDetector::bufferYdim"},
    {"goSnap", "", refused, snapProblem, DerrAcquisition, "EpixDetector::Snap"},
    {"goSnap", "", late | gone, noFrame, DerrAcquisition, "EpixDetector::Snap", Status::None},
    {"goSnap", "", late | gone, noFrame, DerrAcquisition, "baseDetector::WaitImage", Status::None},
    {"goLiveSeq", "", refused, "Problem starting live mode!", DerrTransport, "EpixDetector::GoLiveSeq"},
    {"goLiveSeq", "", late | gone, noFrame, DerrAcquisition, "baseDetector::WaitImage", Status::None},
    {"goAbortLive", "*", results, "Problem exiting live mode!", DerrTransport, "EpixDetector::GoUnLive"},
    {"readuchar", "*", results | wrongData, "Error in writing to buffer!", DerrTransport, "EpixDetector::ReadBuffer"},
    {"writeuchar", "*", results | wrongData, "Error in writing to buffer!", DerrTransport, "EpixDetector::WriteBuffer"},
    {"setExsyncPrin", "*", results, enableProblem, DerrTransport, "EpixDetector::configurePGFrequency"},
    {"setExsyncPrincMode", "*", results, "Problem toggling pulse generator!", DerrTransport,
     "EpixDetector::ToggleGenerator"},
    {"setExsyncPrincMode", "*", results, disableProblem, DerrTransport, "EpixDetector::DisablePulseGenerator"},
    {"PIXCIclose", "*", results, closeProblem, DerrTransport, "EpixDetector::CloseBrd"},
    {"mesgFaultText", "", wrongData, liveThread, DerrTransport, "EpixDetector::CheckForLiveError"},
    // A fault text that nobody has taken is told by the next question.
    {"*", "*", refused | late, liveThread, DerrTransport, "EpixDetector::CheckForLiveError", Status::Own},
};

// What becomes of a disturbed exchange on the serial line, on either transport.
const FailureRow onTheLine[] = {
    {"", "", disturbed, "Problem sending serial command ", DerrSerialCommand,
     "baseDetector::SendCommandWithoutFlashStatusCheck", Status::None},
    {"", "", disturbed, serialRead, DerrTransport, "baseDetector::ReadRS232Cmd", Status::None},
    {"", "", wrongData, "The response recevied from the detector is invalid!", DerrTransport, "baseDetector::getatoi",
     Status::None},
    {"", "", disturbed, "Timeout waiting for flash controller after serial command", DerrTransport,
     "baseDetector::WaitUntilFlashReady", Status::None},
    {"", "", results | wrongData, "Failed to set exposure time.", DerrExposure, "baseDetector::SetExposureTime",
     Status::None},
    {"", "", results | wrongData, "Failed to get firmware minimum exposure window", DerrExposure,
     "baseDetector::GetFirmwareMinimumExposureWindow", Status::None},
    {"", "", results | wrongData, "Detector was not responsive ", DerrTransport, "*", Status::None},
    {"", "", wrongData, "Problem sending serial command!", DerrSerialCommand, "baseDetector::GetAuxilliaryDetectorTemp",
     Status::None},
    {"", "", wrongData, "Firmware write failed, bad checksum.", DerrTransport, "baseDetector::UploadFirmware",
     Status::None},
    {"", "", wrongData, "Firmware erase failed.", DerrTransport, "baseDetector::UploadFirmware", Status::None},
    {"", "", wrongData, "Caught a std::exception: invalid stoi argument", DerrWrapped, "QuorinDetector::UploadFirmware",
     Status::None},
};

/// A fault that need not be reported, and why.
struct HarmlessRow {
    std::string_view call;
    std::string_view detail;
    unsigned kinds;
    std::string_view operation;  ///< empty: any; behind a "!": any but this
    const char* reason;
};

const HarmlessRow harmless[] = {
#include "sweep/harmless.inc"
};

std::set<std::size_t> used;

bool fits(std::string_view pattern, std::string_view text) {
    if (!pattern.empty() && pattern.back() == '*')
        return text.substr(0, pattern.size() - 1) == pattern.substr(0, pattern.size() - 1);
    return pattern == text;
}

bool isLineTraffic(const Strike& strike) {
    for (const char* name : {"IP_Write", "IP_Read", "IP_FlushRxBuffer", "serialWrite", "serialRead", "serialConfigure"})
        if (strike.call.name == name) return true;
    return strike.call.detail.rfind("Uart0", 0) == 0;
}

/// The vendor's status that the failed call gave.
bool carries(const Road& road, const Strike& strike, const QuorinException& failure) {
    const int status = failure.GetTransportError();
    const std::string_view text = failure.GetTransportMessage();
    switch (strike.kind) {
        case Kind::FailsOnce:
        case Kind::FailsOnward:
            if (strike.call.name.rfind("pxe_", 0) == 0 || strike.call.name == "formatLoad" ||
                strike.call.name == "XCLIBinstantiate")
                return status < 0;
            // An event that isn't there has no number.
            if (strike.call.name == "eventCapturedFieldCreate2") return text == vendorText;
            return status == (road.isGigE() ? static_cast<int>(MeteredPleora::refusal) : MeteredXclib::refusal) &&
                   (text == vendorText || text.substr(0, 2) == "??");
        case Kind::TimesOutOnce:
        case Kind::TimesOutOnward:
            return status == (road.isGigE() ? static_cast<int>(PvResult::Timeout) : MeteredXclib::timeout);
        default:
            return true;
    }
}

bool hasStatus(const FailureRow& row, const Road& road, const Strike& strike, const QuorinException& failure) {
    constexpr int waitTimeout = 258;
    switch (row.status) {
        case Status::Carried:
            return carries(road, strike, failure);
        case Status::None:
            return failure.GetTransportError() == (row.message == noFrame ? waitTimeout : 0);
        case Status::Own:
            break;
    }
    return true;
}

bool reports(const FailureRow& row, const Road& road, const Strike& strike, const QuorinException& failure) {
    return (row.kinds & bit(strike.kind)) != 0 &&
           std::string_view(failure.what()).substr(0, row.message.size()) == row.message &&
           failure.GetCode() == row.code && fits(row.function, failure.GetFunctionName()) &&
           hasStatus(row, road, strike, failure);
}

bool reportsThrown(const Outcome& outcome, const Strike& strike) {
    const QuorinException& failure = *outcome.failure;
    const bool standard = strike.kind == Kind::StandardException;
    const std::string_view text = failure.what();
    const std::string_view function = failure.GetFunctionName();
    const auto begins = [&](std::string_view start) { return text.substr(0, start.size()) == start; };
    if (strike.thread == 0)
        return failure.GetCode() == DerrWrapped &&
               begins(standard ? "Caught a std::exception: swept exception" : "Caught an unknown exception.") &&
               function.substr(function.rfind(':') + 1) == outcome.operation;
    if (function == "PleoraDetector::CheckForLiveError")
        return failure.GetCode() == DerrTransport &&
               begins(standard ? "An error occured in the Live thread: swept exception"
                               : "An unknown error occured in the Live thread.");
    return function == "baseDetector::CallbackCounterThread" && failure.GetCode() == DerrWrapped &&
           begins(standard ? standardText : "Unknown exception in callback");
}

bool isReported(const Road& road, const Outcome& outcome, const Strike& strike) {
    if ((bit(strike.kind) & thrown) != 0) return reportsThrown(outcome, strike);
    const auto anyOf = [&](const auto& rows, bool anyCall) {
        for (const FailureRow& row : rows) {
            const bool concerned =
                anyCall || (fits(row.call, strike.call.name) && fits(row.detail, strike.call.detail));
            if (concerned && reports(row, road, strike, *outcome.failure)) return true;
        }
        return false;
    };
    if (isLineTraffic(strike) && anyOf(onTheLine, true)) return true;
    return road.isGigE() ? anyOf(onGigE, false) : anyOf(onCameraLink, false);
}

bool isHarmless(const Strike& strike, const std::string& operation) {
    for (std::size_t row = 0; row < std::size(harmless); ++row) {
        const HarmlessRow& each = harmless[row];
        if ((each.kinds & bit(strike.kind)) == 0 || !fits(each.call, strike.call.name)) continue;
        if (!fits(each.detail, strike.call.detail)) continue;
        const bool except = each.operation.substr(0, 1) == "!";
        if (!each.operation.empty() && fits(each.operation.substr(except ? 1 : 0), operation) == except) continue;
        used.insert(row);
        return true;
    }
    return false;
}

/// What struck another thread can cost a frame besides.
bool isMissedFrame(const Outcome& outcome, const Strike& strike) {
    return strike.thread != 0 && outcome.operation == "WaitImage" && outcome.failure->GetCode() == DerrAcquisition &&
           outcome.failure->GetTransportError() == 258;
}

}  // namespace

std::string describe(const Strike& strike) {
    return strike.call.name + (strike.call.detail.empty() ? "" : " (" + strike.call.detail + ")") + " " +
           nameOf(strike.kind) + (strike.thread != 0 ? " on thread " + std::to_string(strike.thread) : "");
}

std::vector<std::string> judge(const Road& road, const std::vector<Outcome>& outcomes) {
    struct Owed {
        Strike strike;
        bool settled = false;
    };
    std::vector<std::string> wrong;
    std::vector<Owed> all;
    bool asked = false;
    for (const Outcome& outcome : outcomes) {
        asked = asked || outcome.operation == "CheckForLiveError";
        const std::size_t ofThisCall = all.size();
        for (const Strike& strike : outcome.strikes) all.push_back({strike});
        if (!outcome.failure) continue;
        bool explained = false;
        std::set<int> ended;
        for (std::size_t index = 0; index < all.size(); ++index) {
            Owed& owed = all[index];
            const bool told = isReported(road, outcome, owed.strike);
            explained = explained || told || isMissedFrame(outcome, owed.strike);
            // What struck the same call besides had its part in the failure.
            const bool part = owed.strike.thread == 0 && index >= ofThisCall;
            owed.settled = owed.settled || told || part;
            if (told) ended.insert(owed.strike.thread);
        }
        // A thread of the library ends at its failure: what struck it besides is part of that.
        for (Owed& owed : all)
            owed.settled = owed.settled || (owed.strike.thread != 0 && ended.count(owed.strike.thread) != 0);
        if (explained) continue;
        wrong.push_back(outcome.operation + " failed with what no fault explains: " + outcome.failure->what());
        for (const Owed& owed : all) wrong.push_back("    struck until then: " + describe(owed.strike));
    }
    for (const auto& [strike, settled] : all) {
        if (settled || (strike.thread != 0 && !asked) || isHarmless(strike, strike.call.operation)) continue;
        wrong.push_back(strike.call.operation + " went on as if nothing had happened: " + describe(strike));
    }
    return wrong;
}

std::vector<std::string> unusedHarmlessRows() {
    std::vector<std::string> unused;
    for (std::size_t row = 0; row < std::size(harmless); ++row)
        if (used.count(row) == 0) unused.push_back(std::string(harmless[row].call) + ": " + harmless[row].reason);
    return unused;
}

void noteHarmlessRow(std::size_t row) {
    used.insert(row);
}

std::vector<std::size_t> usedHarmlessRows() {
    return {used.begin(), used.end()};
}

}  // namespace sweep
