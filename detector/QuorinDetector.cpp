#include "QuorinDetector.h"

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "InternalUtils/Failure.h"
#include "detector/CallTrace.h"
#include "detector/EpixDetector.h"
#include "detector/PleoraDetector.h"
#include "detector/baseDetector/serialProtocol.h"

namespace {

// The core refuses longer commands: the trace reads no further than it does.
constexpr std::size_t mostCommandCharacters = serial::commandSize;

/// The number of array elements that the trace prints: few for a count that can only be a mistake.
std::size_t printedCount(std::size_t count) {
    constexpr std::size_t mostTimes = 4;
    constexpr std::size_t believable = 64;
    return count <= believable ? count : mostTimes;
}

/// Throws std::length_error for a length that no string can have.
std::string textOf(const char* command, std::size_t length) {
    if (length > std::string().max_size()) throw std::length_error("no command has this length");
    return {command, length};
}

[[noreturn]] void refuseTransport(int line = __builtin_LINE()) {
    fail("Unsupported transport type", DerrBadRequest, "QuorinDetector::QuorinDetector", 0, "", line, __FILE__);
}

std::unique_ptr<baseDetector> makeCore(DetectorInterface transport, int unit, const char* param,
                                       QuorinDetector* owner) {
    if (transport == TransportGE) return std::make_unique<PleoraDetector>(param, owner);
    if (transport == TransportCL) return std::make_unique<EpixDetector>(unit, param, owner);
    refuseTransport();
}

}  // namespace

QuorinDetector::QuorinDetector(DevInfo& info) {
    callFrame("QuorinDetector::QuorinDetector", traced(info), [&] {
        const bool cameraLink = info.iface == TransportCL && info.grabberFlag == 1;
        const bool gigE = info.iface == TransportGE && info.grabberFlag == 0;
        if (!cameraLink && !gigE) refuseTransport();
        const std::string param(info.param, strnlen(info.param, sizeof(info.param)));
        core = makeCore(info.iface, info.unit, param.c_str(), this).release();
    });
}

QuorinDetector::QuorinDetector(DetectorInterface transport, int unit, const char* param) {
    callFrame("QuorinDetector::QuorinDetector", traced(static_cast<int>(transport), unit, param),
              [&] { core = makeCore(transport, unit, param, this).release(); });
}

QuorinDetector::QuorinDetector(QuorinDetector&& other) noexcept : core(other.core.exchange(nullptr)) {
    adopt();
}

QuorinDetector& QuorinDetector::operator=(QuorinDetector&& other) noexcept {
    core = other.core.exchange(core);
    adopt();
    other.adopt();
    return *this;
}

QuorinDetector::~QuorinDetector() {
    const std::unique_ptr<baseDetector> ending(core.exchange(nullptr));
}

void QuorinDetector::adopt() noexcept {
    if (baseDetector* const own = core) own->SetOwner(this);
}

baseDetector& QuorinDetector::detector() const {
    baseDetector* const own = core;
    if (own == nullptr)
        fail("This object was moved from and has no detector.", DerrBadRequest, "QuorinDetector::detector");
    return *own;
}

void QuorinDetector::OpenBoard() {
    callFrame("QuorinDetector::OpenBoard", [&] { detector().OpenBoard(); });
}

void QuorinDetector::OpenBoard(int bufferCount) {
    callFrame("QuorinDetector::OpenBoard", traced(bufferCount), [&] { detector().OpenBoard(bufferCount); });
}

void QuorinDetector::CloseBoard() {
    callFrame("QuorinDetector::CloseBoard", [&] { detector().CloseBoard(); });
}

bool QuorinDetector::IsConnected() const {
    return callFrame("QuorinDetector::IsConnected", [&] { return detector().IsConnected(); });
}

void QuorinDetector::SoftReset() {
    callFrame("QuorinDetector::SoftReset", [&] { detector().SoftReset(); });
}

int QuorinDetector::GetModelNumber() const {
    return callFrame("QuorinDetector::GetModelNumber", [&] { return detector().GetModelNumber(); });
}

int QuorinDetector::GetSerialNumber() const {
    return callFrame("QuorinDetector::GetSerialNumber", [&] { return detector().GetSerialNumber(); });
}

int QuorinDetector::GetFirmwareVersion() const {
    return callFrame("QuorinDetector::GetFirmwareVersion", [&] { return detector().GetFirmwareVersion(); });
}

void QuorinDetector::GetFirmwareBuild(int& first, int& second, int& third) const {
    callFrame("QuorinDetector::GetFirmwareBuild", traced(&first, &second, &third), [&](CallTrace& call) {
        detector().GetFirmwareBuild(first, second, third);
        call.setResult(first, second, third);
    });
}

int QuorinDetector::GetSensorVersion() const {
    return callFrame("QuorinDetector::GetSensorVersion", [&] { return detector().GetSensorVersion(); });
}

DetectorInterface QuorinDetector::GetTransportMethod() const {
    return callFrame("QuorinDetector::GetTransportMethod", traced(),
                     [&](CallTrace&) { return detector().GetTransportMethod(); });
}

unsigned short QuorinDetector::GetSensorWidth(unsigned short sensor) const {
    return callFrame("QuorinDetector::GetSensorWidth", traced(sensor),
                     [&] { return detector().GetSensorWidth(sensor); });
}

unsigned short QuorinDetector::GetSensorHeight(unsigned short sensor) const {
    return callFrame("QuorinDetector::GetSensorHeight", traced(sensor),
                     [&] { return detector().GetSensorHeight(sensor); });
}

void QuorinDetector::GetDefaultImageSize(int& width, int& height) const {
    callFrame("QuorinDetector::GetDefaultImageSize", traced(&width, &height),
              [&] { detector().GetDefaultImageSize(width, height); });
}

int QuorinDetector::GetBufferXdim() const {
    return callFrame("QuorinDetector::GetBufferXdim", [&] { return detector().GetBufferXdim(); });
}

int QuorinDetector::GetBufferYdim() const {
    return callFrame("QuorinDetector::GetBufferYdim", [&] { return detector().GetBufferYdim(); });
}

int QuorinDetector::QueryBinningMode(bins binning) const {
    return callFrame("QuorinDetector::QueryBinningMode", traced(binning),
                     [&] { return detector().QueryBinningMode(binning); });
}

int QuorinDetector::QueryExposureMode(ExposureModes mode) const {
    return callFrame("QuorinDetector::QueryExposureMode", traced(mode),
                     [&] { return detector().QueryExposureMode(mode); });
}

int QuorinDetector::QueryFullWellMode(FullWellModes mode) const {
    return callFrame("QuorinDetector::QueryFullWellMode", traced(mode),
                     [&] { return detector().QueryFullWellMode(mode); });
}

int QuorinDetector::QueryReadoutMode(ReadoutModes mode) const {
    return callFrame("QuorinDetector::QueryReadoutMode", traced(mode),
                     [&] { return detector().QueryReadoutMode(mode); });
}

int QuorinDetector::QueryTriggerSource(ExposureTriggerSource source) const {
    return callFrame("QuorinDetector::QueryTriggerSource", traced(source),
                     [&] { return detector().QueryTriggerSource(source); });
}

int QuorinDetector::QueryDisableSliceInterlacing() const {
    return callFrame("QuorinDetector::QueryDisableSliceInterlacing",
                     [&] { return detector().QueryDisableSliceInterlacing(); });
}

int QuorinDetector::QueryLegacyTiming() const {
    return callFrame("QuorinDetector::QueryLegacyTiming", [&] { return detector().QueryLegacyTiming(); });
}

int QuorinDetector::QueryOnBoardLinearization() const {
    return callFrame("QuorinDetector::QueryOnBoardLinearization",
                     [&] { return detector().QueryOnBoardLinearization(); });
}

int QuorinDetector::QueryOnBoardUnscrambling() const {
    return callFrame("QuorinDetector::QueryOnBoardUnscrambling", [&] { return detector().QueryOnBoardUnscrambling(); });
}

int QuorinDetector::QueryOnBoardXTalkCorrection() const {
    return callFrame("QuorinDetector::QueryOnBoardXTalkCorrection",
                     [&] { return detector().QueryOnBoardXTalkCorrection(); });
}

int QuorinDetector::QueryPixelFrameCounter() const {
    return callFrame("QuorinDetector::QueryPixelFrameCounter", [&] { return detector().QueryPixelFrameCounter(); });
}

int QuorinDetector::QueryROI() const {
    return callFrame("QuorinDetector::QueryROI", [&] { return detector().QueryROI(); });
}

int QuorinDetector::QueryTempReporting() const {
    return callFrame("QuorinDetector::QueryTempReporting", [&] { return detector().QueryTempReporting(); });
}

bins QuorinDetector::GetBinningMode() const {
    return callFrame("QuorinDetector::GetBinningMode", [&] { return detector().GetBinningMode(); });
}

void QuorinDetector::SetExposureTime(float timeMs) {
    callFrame("QuorinDetector::SetExposureTime", traced(timeMs), [&] { detector().SetExposureTime(timeMs); });
}

float QuorinDetector::GetExposureTime() const {
    return callFrame("QuorinDetector::GetExposureTime", [&] { return detector().GetExposureTime(); });
}

float QuorinDetector::GetMinimumExposureTime() const {
    return callFrame("QuorinDetector::GetMinimumExposureTime", [&] { return detector().GetMinimumExposureTime(); });
}

float QuorinDetector::GetReadOutTime() const {
    return callFrame("QuorinDetector::GetReadOutTime", [&] { return detector().GetReadOutTime(); });
}

void QuorinDetector::GetROIArea(int& width, int& height, int& startRow, int& startColumn) const {
    callFrame("QuorinDetector::GetROIArea", traced(width, height, startRow, startColumn),
              [&] { detector().GetROIArea(width, height, startRow, startColumn); });
}

bool QuorinDetector::IsROIEnabled() const {
    return callFrame("QuorinDetector::IsROIEnabled", [&] { return detector().IsROIEnabled(); });
}

void QuorinDetector::Snap(int buffer, int timeoutMs) {
    callFrame("QuorinDetector::Snap", traced(buffer, timeoutMs), [&] { detector().Snap(buffer, timeoutMs); });
}

bool QuorinDetector::IsLive() const {
    return callFrame("QuorinDetector::IsLive", [&] { return detector().IsLive(); });
}

void QuorinDetector::SoftwareTrigger() {
    callFrame("QuorinDetector::SoftwareTrigger", [&] { detector().SoftwareTrigger(); });
}

void QuorinDetector::CheckForLiveError() const {
    callFrame("QuorinDetector::CheckForLiveError", [&] { detector().CheckForLiveError(); });
}

int QuorinDetector::GetCapturedBuffer() const {
    return callFrame("QuorinDetector::GetCapturedBuffer", [&] { return detector().GetCapturedBuffer(); });
}

int QuorinDetector::GetFieldCount() const {
    return callFrame("QuorinDetector::GetFieldCount", [&] { return detector().GetFieldCount(); });
}

void QuorinDetector::WaitImage(int timeoutMs) {
    callFrame("QuorinDetector::WaitImage", traced(timeoutMs), [&] { detector().WaitImage(timeoutMs); });
}

int QuorinDetector::GetNumBuffers() const {
    return callFrame("QuorinDetector::GetNumBuffers", [&] { return detector().GetNumBuffers(); });
}

void QuorinDetector::ClearBuffers() {
    callFrame("QuorinDetector::ClearBuffers", [&] { detector().ClearBuffers(); });
}

void QuorinDetector::ClearCameraBuffer(int buffer) {
    callFrame("QuorinDetector::ClearCameraBuffer", traced(buffer), [&] { detector().ClearCameraBuffer(buffer); });
}

void QuorinDetector::ReadBuffer(int buffer, unsigned char* target) const {
    callFrame("QuorinDetector::ReadBuffer", traced(buffer, target),
              [&] { detector().ReadBuffer(buffer, static_cast<void*>(target)); });
}

void QuorinDetector::ReadBuffer(int buffer, QorImage& image, int plane) const {
    callFrame("QuorinDetector::ReadBuffer", traced(buffer, image, plane),
              [&] { detector().ReadBuffer(buffer, image, plane); });
}

void QuorinDetector::WriteBuffer(int buffer, const unsigned char* source, int size) {
    callFrame("QuorinDetector::WriteBuffer", traced(buffer, source, size),
              [&] { detector().WriteBuffer(buffer, source, size); });
}

int QuorinDetector::ReadRegister(int reg, int sensor) const {
    return callFrame("QuorinDetector::ReadRegister", traced(reg, sensor),
                     [&] { return detector().ReadRegister(reg, sensor); });
}

void QuorinDetector::WriteRegister(int reg, int value, int sensor) {
    callFrame("QuorinDetector::WriteRegister", traced(reg, value, sensor),
              [&] { detector().WriteRegister(reg, value, sensor); });
}

void QuorinDetector::SendCommand(const char* command, char* reply) {
    const auto arguments = [&](trace::Text& to) {
        if (command == nullptr)
            trace::putList(to, command, reply);
        else
            trace::putList(to, std::string(command, strnlen(command, mostCommandCharacters)), reply);
    };
    callFrame("QuorinDetector::SendCommand", arguments, [&](CallTrace& call) {
        detector().SendCommand(command, reply);
        call.setResult(static_cast<const char*>(reply));
    });
}

void QuorinDetector::SendCommand(const char* command, std::size_t length, char* reply) {
    const auto arguments = [&](trace::Text& to) {
        if (command == nullptr)
            trace::putList(to, command, length, reply);
        else
            trace::putList(to, textOf(command, length), length, reply);
    };
    callFrame("QuorinDetector::SendCommand", arguments, [&](CallTrace& call) {
        detector().SendCommand(command, length, reply);
        call.setResult(static_cast<const char*>(reply));
    });
}

void QuorinDetector::SetSlowed(bool slowed) {
    callFrame("QuorinDetector::SetSlowed", traced(slowed), [&] { detector().SetSlowed(slowed); });
}

void QuorinDetector::SetBinningMode(bins binning) {
    callFrame("QuorinDetector::SetBinningMode", traced(binning), [&] { detector().SetBinningMode(binning); });
}

void QuorinDetector::SetExposureMode(ExposureModes mode) {
    callFrame("QuorinDetector::SetExposureMode", traced(mode), [&] { detector().SetExposureMode(mode); });
}

ExposureModes QuorinDetector::GetExposureMode() const {
    return callFrame("QuorinDetector::GetExposureMode", [&] { return detector().GetExposureMode(); });
}

void QuorinDetector::SetFullWellMode(FullWellModes mode) {
    callFrame("QuorinDetector::SetFullWellMode", traced(mode), [&] { detector().SetFullWellMode(mode); });
}

FullWellModes QuorinDetector::GetFullWellMode() const {
    return callFrame("QuorinDetector::GetFullWellMode", [&] { return detector().GetFullWellMode(); });
}

void QuorinDetector::SetReadoutMode(ReadoutModes mode) {
    callFrame("QuorinDetector::SetReadoutMode", traced(mode), [&] { detector().SetReadoutMode(mode); });
}

ReadoutModes QuorinDetector::GetReadoutMode() const {
    return callFrame("QuorinDetector::GetReadoutMode", [&] { return detector().GetReadoutMode(); });
}

void QuorinDetector::SetTriggerSource(ExposureTriggerSource source) {
    callFrame("QuorinDetector::SetTriggerSource", traced(source), [&] { detector().SetTriggerSource(source); });
}

ExposureTriggerSource QuorinDetector::GetTriggerSource() const {
    return callFrame("QuorinDetector::GetTriggerSource", [&] { return detector().GetTriggerSource(); });
}

void QuorinDetector::SetNumOfExposures(int count) {
    callFrame("QuorinDetector::SetNumOfExposures", traced(count), [&] { detector().SetNumOfExposures(count); });
}

int QuorinDetector::GetNumOfExposures() const {
    return callFrame("QuorinDetector::GetNumOfExposures", [&] { return int{detector().GetNumOfExposures()}; });
}

void QuorinDetector::SetLegacyTiming(bool enable) {
    callFrame("QuorinDetector::SetLegacyTiming", traced(enable), [&] { detector().SetLegacyTiming(enable); });
}

bool QuorinDetector::IsLegacyTimingEnabled() const {
    return callFrame("QuorinDetector::IsLegacyTimingEnabled", [&] { return detector().IsLegacyTimingEnabled(); });
}

void QuorinDetector::SetPixelFrameCounter(bool enable) {
    callFrame("QuorinDetector::SetPixelFrameCounter", traced(enable), [&] { detector().SetPixelFrameCounter(enable); });
}

bool QuorinDetector::IsPixelFrameCounterEnabled() const {
    return callFrame("QuorinDetector::IsPixelFrameCounterEnabled",
                     [&] { return detector().IsPixelFrameCounterEnabled(); });
}

void QuorinDetector::SetSliceInterlacing(bool enable) {
    callFrame("QuorinDetector::SetSliceInterlacing", traced(enable), [&] { detector().SetSliceInterlacing(enable); });
}

bool QuorinDetector::GetSliceInterlacing() const {
    return callFrame("QuorinDetector::GetSliceInterlacing", [&] { return detector().GetSliceInterlacing(); });
}

void QuorinDetector::SetTestMode(bool enable) {
    callFrame("QuorinDetector::SetTestMode", traced(enable), [&] { detector().SetTestMode(enable); });
}

bool QuorinDetector::GetTestMode() const {
    return callFrame("QuorinDetector::GetTestMode", [&] { return detector().GetTestMode(); });
}

void QuorinDetector::ToggleOnBoardLinearization(bool enable) {
    callFrame("QuorinDetector::ToggleOnBoardLinearization", traced(enable),
              [&] { detector().ToggleOnBoardLinearization(enable); });
}

bool QuorinDetector::GetOnBoardLinearizationState() const {
    return callFrame("QuorinDetector::GetOnBoardLinearizationState",
                     [&] { return detector().GetOnBoardLinearizationState(); });
}

void QuorinDetector::ToggleOnBoardXTalkCorrection(bool enable) {
    callFrame("QuorinDetector::ToggleOnBoardXTalkCorrection", [&] { detector().ToggleOnBoardXTalkCorrection(enable); });
}

bool QuorinDetector::GetOnBoardXTalkCorrectionState() const {
    return callFrame("QuorinDetector::GetOnBoardXTalkCorrectionState",
                     [&] { return detector().GetOnBoardXTalkCorrectionState(); });
}

void QuorinDetector::SetGapTime(float timeMs) {
    callFrame("QuorinDetector::SetGapTime", traced(timeMs), [&] { detector().SetGapTime(timeMs); });
}

float QuorinDetector::GetGapTime() const {
    return callFrame("QuorinDetector::GetGapTime", [&] { return detector().GetGapTime(); });
}

void QuorinDetector::SetROIArea(int width, int height) {
    callFrame("QuorinDetector::SetROIArea", traced(width, height), [&] { detector().SetROIArea(width, height); });
}

void QuorinDetector::SetROIArea(int width, int height, int startRow) {
    callFrame("QuorinDetector::SetROIArea", traced(width, height, startRow),
              [&] { detector().SetROIArea(width, height, startRow); });
}

void QuorinDetector::SetROIArea(int width, int height, int startRow, int startColumn) {
    callFrame("QuorinDetector::SetROIArea", traced(width, height, startRow, startColumn),
              [&] { detector().SetROIArea(width, height, startRow, startColumn); });
}

void QuorinDetector::SetROIEnabled(bool enable) {
    callFrame("QuorinDetector::SetROIEnabled", traced(enable), [&] { detector().SetROIEnabled(enable); });
}

void QuorinDetector::SetROIMarginEnabled(bool enable) {
    callFrame("QuorinDetector::SetROIMarginEnabled", traced(enable), [&] { detector().SetROIMarginEnabled(enable); });
}

bool QuorinDetector::IsROIMarginEnabled() const {
    return callFrame("QuorinDetector::IsROIMarginEnabled", [&] { return detector().IsROIMarginEnabled(); });
}

void QuorinDetector::GoLiveSeq() {
    callFrame("QuorinDetector::GoLiveSeq", [&] { detector().GoLiveSeq(); });
}

void QuorinDetector::GoLiveSeq(int startBuffer, int stopBuffer, int frameCount) {
    callFrame("QuorinDetector::GoLiveSeq", traced(startBuffer, stopBuffer, frameCount),
              [&] { detector().GoLiveSeq(startBuffer, stopBuffer, frameCount); });
}

void QuorinDetector::GoUnLive() {
    callFrame("QuorinDetector::GoUnLive", [&] { detector().GoUnLive(); });
}

void QuorinDetector::SetCallbackData(void* data) {
    callFrame("QuorinDetector::SetCallbackData", traced(data), [&] { detector().SetCallbackData(data); });
}

void* QuorinDetector::GetCallbackData() const {
    return callFrame("QuorinDetector::GetCallbackData", [&] { return detector().GetCallbackData(); });
}

void QuorinDetector::StopCallback() {
    callFrame("QuorinDetector::StopCallback", [&] { detector().StopCallback(); });
}

bool QuorinDetector::IsCallbackActive() const {
    return callFrame("QuorinDetector::IsCallbackActive", [&] { return detector().IsCallbackActive(); });
}

void QuorinDetector::CheckForCallbackError() const {
    callFrame("QuorinDetector::CheckForCallbackError", [&] { detector().CheckForCallbackError(); });
}

void QuorinDetector::EnablePulseGenerator() {
    callFrame("QuorinDetector::EnablePulseGenerator", [&] { detector().EnablePulseGenerator(); });
}

void QuorinDetector::EnablePulseGenerator(float frequencyHz) {
    callFrame("QuorinDetector::EnablePulseGenerator", traced(frequencyHz),
              [&] { detector().EnablePulseGenerator(frequencyHz); });
}

void QuorinDetector::DisablePulseGenerator() {
    callFrame("QuorinDetector::DisablePulseGenerator", [&] { detector().DisablePulseGenerator(); });
}

void QuorinDetector::ToggleGenerator(bool on) {
    callFrame("QuorinDetector::ToggleGenerator", traced(on), [&] { detector().ToggleGenerator(on); });
}

void QuorinDetector::SetPreProgrammedExposureTimes(const float* timesMs, std::size_t count) {
    callFrame("QuorinDetector::SetPreProgrammedExposureTimes",
              traced(trace::Floats{timesMs, timesMs == nullptr ? 0 : printedCount(count)}, count),
              [&] { detector().SetPreProgrammedExposureTimes(timesMs, count); });
}

int QuorinDetector::GetPreProgrammedExposureTimes(float* timesMs, std::size_t size) const {
    return callFrame("QuorinDetector::GetPreProgrammedExposureTimes", traced(timesMs, size), [&](CallTrace& call) {
        const int count = detector().GetPreProgrammedExposureTimes(timesMs, size);
        if (timesMs == nullptr)
            call.setResult(count);
        else
            call.setResult(count, trace::Floats{timesMs, static_cast<std::size_t>(count)});
        return count;
    });
}

void QuorinDetector::GetMaximumROISize(int& width, int& height) const {
    callFrame("QuorinDetector::GetMaximumROISize", traced(&width, &height),
              [&] { detector().GetMaximumROISize(width, height); });
}

void QuorinDetector::SetCallback(void (*function)(int, int, QuorinDetector*)) {
    callFrame("QuorinDetector::SetCallback", traced(function), [&] { detector().SetCallback(function); });
}

void QuorinDetector::PowerSwitch(bool on) {
    callFrame("QuorinDetector::PowerSwitch", traced(on), [&] { detector().PowerSwitch(on); });
}

float QuorinDetector::GetDetectorTemp(int sensor) const {
    return callFrame("QuorinDetector::GetDetectorTemp", traced(sensor),
                     [&] { return detector().GetDetectorTemp(sensor); });
}

void QuorinDetector::LoadSensorConfigFile(const char* fileName) {
    callFrame("QuorinDetector::LoadSensorConfigFile", traced(fileName),
              [&] { detector().LoadSensorConfigFile(fileName); });
}

void QuorinDetector::UploadFirmware(const char* fileName, int sensor, bool verbose) {
    callFrame("QuorinDetector::UploadFirmware", traced(fileName, sensor, verbose),
              [&] { detector().UploadFirmware(fileName, sensor, verbose); });
}
