#include "soak/Disturbance.h"

#include "VirtualGrabber.h"

namespace soak {
namespace {

using simulator::Fault;

struct FaultRow {
    Fault fault;
    const char* name;
    int latest;   ///< of the occasions that it may begin at: some come rarely
    int lowest;   ///< of the fault's value
    int highest;  ///< as `lowest`
    bool deceives;
};

constexpr int longLateMs = 4000;
constexpr FaultRow faultRows[] = {
    {Fault::SilentLine, "SilentLine", 40, 0, 0, false},
    {Fault::LateReply, "LateReply", 40, 1, 900, false},
    {Fault::LateReply, "LateReply", 40, 900, longLateMs, true},
    {Fault::ChunkedReply, "ChunkedReply", 40, 1, 4, false},
    {Fault::NoisyReply, "NoisyReply", 40, 0, 0, true},
    {Fault::ShortReply, "ShortReply", 40, 0, 0, true},
    {Fault::ForeignReply, "ForeignReply", 40, 0, 0, false},
    {Fault::StuckRegister, "StuckRegister", 3, 0, 18, true},
    {Fault::StuckRegister, "StuckRegister", 3, 401, 405, true},
    {Fault::RefusedExposure, "RefusedExposure", 6, 0, 0, false},
    {Fault::BusyFlash, "BusyFlash", 30, 0, 0, false},
    {Fault::ZeroReadoutTime, "ZeroReadoutTime", 4, 0, 0, false},
    {Fault::NoTemperature, "NoTemperature", 2, 0, 0, false},
    {Fault::RefusedErase, "RefusedErase", 1, 0, 0, false},
    {Fault::EndlessErase, "EndlessErase", 1, 0, 0, false},
    {Fault::WrongChecksum, "WrongChecksum", 3, 0, 0, false},
    {Fault::SilentPacket, "SilentPacket", 3, 0, 0, false},
    {Fault::LostFrame, "LostFrame", 3, 0, 0, false},
    {Fault::TruncatedFrame, "TruncatedFrame", 3, 0, 0, false},
    {Fault::FailedFrame, "FailedFrame", 3, 0, 0, false},
    {Fault::Unplugged, "Unplugged", 40, 0, 0, false},
    {Fault::RefusedConnect, "RefusedConnect", 1, 0, 0, false},
    {Fault::RefusedStream, "RefusedStream", 1, 0, 0, false},
    {Fault::RefusedFeature, "RefusedFeature", 20, 0, 0, false},
    {Fault::SlowCall, "SlowCall", 40, 1, 50, false},
};

constexpr FaultRow lostFrame{Fault::LostFrame, "LostFrame", 1, 0, 0, false};

constexpr const char* features[] = {"", "Width", "Height", "PayloadSize", "PLC_ctrl0", "PixelFormat", "TimerFrequency"};

constexpr const char* grabberCalls[] = {"formatLoad",
                                        "pxe_PIXCIopen",
                                        "pxe_PIXCIclose",
                                        "pxe_infoUnits",
                                        "pxe_xclibEscape",
                                        "pxe_xclibEscaped",
                                        "pxe_setPixelFormatGrey",
                                        "pxe_setVideoResolution",
                                        "pxe_imageXdims",
                                        "pxe_imageYdims",
                                        "pxe_imageZdims",
                                        "pxe_imageZdim",
                                        "pxe_readuchar",
                                        "pxe_writeuchar",
                                        "pxe_goSnap",
                                        "pxe_goLiveSeq",
                                        "pxe_goAbortLive",
                                        "pxe_goUnLive",
                                        "pxe_goneLive",
                                        "pxe_capturedBuffer",
                                        "pxe_capturedFieldCount",
                                        "pxe_eventCapturedFieldCreate2",
                                        "pxe_setCameraLinkCCOut",
                                        "pxe_setExsyncPrincMode",
                                        "pxe_setExsyncPrin",
                                        "pxe_serialConfigure",
                                        "pxe_serialRead",
                                        "pxe_serialWrite"};

std::string occasion(const simulator::When& when) {
    return " first " + std::to_string(when.first) + (when.onward ? " onward" : "") + " value " +
           std::to_string(when.value) + " probability " + std::to_string(when.probability);
}

}  // namespace

std::string Disturbance::begin(Random& random, bool realClock) {
    if (!set) {
        felt = false;
        framesTaken = station.hardware->ledger().lostByFault;
    }
    set = true;
    const bool ofGrabber = !station.isGigE() && random.percent(40);
    return ofGrabber ? setGrabberFault(random) : setDetectorFault(random, realClock);
}

std::string Disturbance::setDetectorFault(Random& random, bool realClock) {
    constexpr double probabilities[] = {1.0, 1.0, 0.3, 0.05};
    // More often than the rest: the sums of the ledger are told by it.
    const FaultRow* drawn = &random.pick(faultRows);
    if (random.percent(15)) drawn = &lostFrame;
    while (realClock && (drawn->fault == Fault::ZeroReadoutTime || drawn->highest >= longLateMs))
        drawn = &random.pick(faultRows);
    const FaultRow& row = *drawn;
    simulator::When when;
    when.first = random.between(1, row.latest);
    when.onward = random.percent(50);
    when.value = random.between(row.lowest, row.highest);
    when.probability = random.pick(probabilities);
    const std::string feature = row.fault == Fault::RefusedFeature ? random.pick(features) : "";
    deceiving = deceiving || row.deceives;
    station.hardware->faults().set(row.fault, when, feature);
    return std::string(row.name) + " " + feature + occasion(when);
}

std::string Disturbance::setGrabberFault(Random& random) {
    constexpr int results[] = {-1, -5, -20};
    grabber::Failure failure;
    failure.function = random.pick(grabberCalls);
    failure.result = random.pick(results);
    failure.first = random.between(1, 5);
    failure.onward = random.percent(50);
    if (random.percent(20)) failure.faultText = random.percent(50) ? std::string(2000, 'x') : "";
    // One that refuses to count its frames or to say whether it is live is believed.
    deceiving = true;
    grabber::VirtualGrabber::inSlot(station.slot)->fail(failure);
    return std::string(failure.function) + " first " + std::to_string(failure.first) +
           (failure.onward ? " onward" : "");
}

bool Disturbance::wasFelt() const {
    return felt || station.hardware->ledger().lostByFault != framesTaken;
}

void Disturbance::end() {
    station.hardware->faults().clearAll();
    if (!station.isGigE()) grabber::VirtualGrabber::inSlot(station.slot)->clearFailures();
    set = deceiving = felt = false;
}

}  // namespace soak
