#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "QuorinDetector.h"

namespace support {

/// One public operation of the facade with harmless arguments.
struct FacadeCall {
    const char* name;
    std::function<void(QuorinDetector&)> make;
    bool switchesPower = false;  ///< or erases flash memory: seconds on the real clock, settings gone
};

/// A file of its own for each test program, gone with this object.
class TemporaryFile {
public:
    TemporaryFile(const std::string& name, const std::string& content)
        : place(std::filesystem::temp_directory_path() / (name + std::to_string(::getpid()))) {
        std::ofstream(place, std::ios::binary) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(place); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    std::string path() const { return place.string(); }

private:
    std::filesystem::path place;
};

inline void ignoreFrame(int /*fieldCount*/, int /*buffer*/, QuorinDetector* /*detector*/) {}

/// Every public operation, overloads included, in the order of the header. None waits without end, and none leaves a
/// setting that another can't do with.
inline const std::vector<FacadeCall>& facadeCalls() {
    using D = QuorinDetector;
    static const TemporaryFile configuration("qrapi-config-", "# nothing but\nR1124\n");
    static const TemporaryFile firmware("qrapi-firmware-", std::string(1024, 'f'));
    static std::vector<unsigned char> frame(std::size_t{3072} * 864 * 2);
    static std::array<int, 4> numbers{};
    static std::array<float, 4> times{20.0F, 20.0F, 20.0F, 20.0F};
    static std::array<char, 100> reply{};
    static const std::vector<FacadeCall> calls{
        {"OpenBoard", [](D& d) { d.OpenBoard(); }},
        {"OpenBoard", [](D& d) { d.OpenBoard(4); }},
        {"CloseBoard", [](D& d) { d.CloseBoard(); }},
        {"IsConnected", [](D& d) { d.IsConnected(); }},
        {"SoftReset", [](D& d) { d.SoftReset(); }, true},
        {"PowerSwitch", [](D& d) { d.PowerSwitch(true); }, true},
        {"GetModelNumber", [](D& d) { d.GetModelNumber(); }},
        {"GetSerialNumber", [](D& d) { d.GetSerialNumber(); }},
        {"GetFirmwareVersion", [](D& d) { d.GetFirmwareVersion(); }},
        {"GetFirmwareBuild", [](D& d) { d.GetFirmwareBuild(numbers[0], numbers[1], numbers[2]); }},
        {"GetSensorVersion", [](D& d) { d.GetSensorVersion(); }},
        {"GetDetectorTemp", [](D& d) { d.GetDetectorTemp(1); }},
        {"GetTransportMethod", [](D& d) { d.GetTransportMethod(); }},
        {"GetSensorWidth", [](D& d) { d.GetSensorWidth(1); }},
        {"GetSensorHeight", [](D& d) { d.GetSensorHeight(1); }},
        {"GetDefaultImageSize", [](D& d) { d.GetDefaultImageSize(numbers[0], numbers[1]); }},
        {"GetBufferXdim", [](D& d) { d.GetBufferXdim(); }},
        {"GetBufferYdim", [](D& d) { d.GetBufferYdim(); }},
        {"QueryBinningMode", [](D& d) { d.QueryBinningMode(Bin2x2); }},
        {"QueryExposureMode", [](D& d) { d.QueryExposureMode(ExposureBit12); }},
        {"QueryFullWellMode", [](D& d) { d.QueryFullWellMode(FullWellBit2Set); }},
        {"QueryReadoutMode", [](D& d) { d.QueryReadoutMode(ReadoutBit3Set); }},
        {"QueryTriggerSource", [](D& d) { d.QueryTriggerSource(TriggerBits5And6); }},
        {"QueryDisableSliceInterlacing", [](D& d) { d.QueryDisableSliceInterlacing(); }},
        {"QueryLegacyTiming", [](D& d) { d.QueryLegacyTiming(); }},
        {"QueryOnBoardLinearization", [](D& d) { d.QueryOnBoardLinearization(); }},
        {"QueryOnBoardUnscrambling", [](D& d) { d.QueryOnBoardUnscrambling(); }},
        {"QueryOnBoardXTalkCorrection", [](D& d) { d.QueryOnBoardXTalkCorrection(); }},
        {"QueryPixelFrameCounter", [](D& d) { d.QueryPixelFrameCounter(); }},
        {"QueryROI", [](D& d) { d.QueryROI(); }},
        {"QueryTempReporting", [](D& d) { d.QueryTempReporting(); }},
        {"SetBinningMode", [](D& d) { d.SetBinningMode(Bin1x1); }},
        {"GetBinningMode", [](D& d) { d.GetBinningMode(); }},
        {"SetExposureMode", [](D& d) { d.SetExposureMode(ExposureBitsClear); }},
        {"GetExposureMode", [](D& d) { d.GetExposureMode(); }},
        {"SetFullWellMode", [](D& d) { d.SetFullWellMode(FullWellBit2Clear); }},
        {"GetFullWellMode", [](D& d) { d.GetFullWellMode(); }},
        {"SetReadoutMode", [](D& d) { d.SetReadoutMode(ReadoutBit3Clear); }},
        {"GetReadoutMode", [](D& d) { d.GetReadoutMode(); }},
        {"SetTriggerSource", [](D& d) { d.SetTriggerSource(TriggerBits5And6); }},
        {"GetTriggerSource", [](D& d) { d.GetTriggerSource(); }},
        {"SetNumOfExposures", [](D& d) { d.SetNumOfExposures(1); }},
        {"GetNumOfExposures", [](D& d) { d.GetNumOfExposures(); }},
        {"SetLegacyTiming", [](D& d) { d.SetLegacyTiming(false); }},
        {"IsLegacyTimingEnabled", [](D& d) { d.IsLegacyTimingEnabled(); }},
        {"SetPixelFrameCounter", [](D& d) { d.SetPixelFrameCounter(false); }},
        {"IsPixelFrameCounterEnabled", [](D& d) { d.IsPixelFrameCounterEnabled(); }},
        {"SetSliceInterlacing", [](D& d) { d.SetSliceInterlacing(false); }},
        {"GetSliceInterlacing", [](D& d) { d.GetSliceInterlacing(); }},
        {"SetTestMode", [](D& d) { d.SetTestMode(false); }},
        {"GetTestMode", [](D& d) { d.GetTestMode(); }},
        {"ToggleOnBoardLinearization", [](D& d) { d.ToggleOnBoardLinearization(true); }},
        {"GetOnBoardLinearizationState", [](D& d) { d.GetOnBoardLinearizationState(); }},
        {"ToggleOnBoardXTalkCorrection", [](D& d) { d.ToggleOnBoardXTalkCorrection(false); }},
        {"GetOnBoardXTalkCorrectionState", [](D& d) { d.GetOnBoardXTalkCorrectionState(); }},
        {"SetExposureTime", [](D& d) { d.SetExposureTime(20.0F); }},
        {"GetExposureTime", [](D& d) { d.GetExposureTime(); }},
        {"GetMinimumExposureTime", [](D& d) { d.GetMinimumExposureTime(); }},
        {"GetReadOutTime", [](D& d) { d.GetReadOutTime(); }},
        {"SetGapTime", [](D& d) { d.SetGapTime(0.0F); }},
        {"GetGapTime", [](D& d) { d.GetGapTime(); }},
        {"SetPreProgrammedExposureTimes", [](D& d) { d.SetPreProgrammedExposureTimes(times.data(), times.size()); }},
        {"GetPreProgrammedExposureTimes", [](D& d) { d.GetPreProgrammedExposureTimes(times.data(), times.size()); }},
        {"SetROIArea", [](D& d) { d.SetROIArea(3072, 864); }},
        {"SetROIArea", [](D& d) { d.SetROIArea(3072, 864, 0); }},
        {"SetROIArea", [](D& d) { d.SetROIArea(3072, 864, 0, 0); }},
        {"GetROIArea", [](D& d) { d.GetROIArea(numbers[0], numbers[1], numbers[2], numbers[3]); }},
        {"IsROIEnabled", [](D& d) { d.IsROIEnabled(); }},
        {"SetROIEnabled", [](D& d) { d.SetROIEnabled(false); }},
        {"SetROIMarginEnabled", [](D& d) { d.SetROIMarginEnabled(false); }},
        {"IsROIMarginEnabled", [](D& d) { d.IsROIMarginEnabled(); }},
        {"GetMaximumROISize", [](D& d) { d.GetMaximumROISize(numbers[0], numbers[1]); }},
        {"Snap", [](D& d) { d.Snap(0, 5000); }},
        {"GoLiveSeq", [](D& d) { d.GoLiveSeq(); }},
        {"GoLiveSeq", [](D& d) { d.GoLiveSeq(0, 1, 0); }},
        {"GoUnLive", [](D& d) { d.GoUnLive(); }},
        {"IsLive", [](D& d) { d.IsLive(); }},
        {"SoftwareTrigger", [](D& d) { d.SoftwareTrigger(); }},
        {"CheckForLiveError", [](D& d) { d.CheckForLiveError(); }},
        {"GetCapturedBuffer", [](D& d) { d.GetCapturedBuffer(); }},
        {"GetFieldCount", [](D& d) { d.GetFieldCount(); }},
        {"WaitImage", [](D& d) { d.WaitImage(1); }},
        {"GetNumBuffers", [](D& d) { d.GetNumBuffers(); }},
        {"ClearBuffers", [](D& d) { d.ClearBuffers(); }},
        {"ClearCameraBuffer", [](D& d) { d.ClearCameraBuffer(0); }},
        {"ReadBuffer", [](D& d) { d.ReadBuffer(0, frame.data()); }},
        {"ReadBuffer",
         [](D& d) {
             QorImage image;
             d.ReadBuffer(0, image, 1);
         }},
        {"WriteBuffer", [](D& d) { d.WriteBuffer(0, frame.data(), static_cast<int>(frame.size())); }},
        {"SetCallback", [](D& d) { d.SetCallback(ignoreFrame); }},
        {"SetCallbackData", [](D& d) { d.SetCallbackData(d.GetCallbackData()); }},
        {"GetCallbackData", [](D& d) { d.GetCallbackData(); }},
        {"StopCallback", [](D& d) { d.StopCallback(); }},
        {"IsCallbackActive", [](D& d) { d.IsCallbackActive(); }},
        {"CheckForCallbackError", [](D& d) { d.CheckForCallbackError(); }},
        {"EnablePulseGenerator", [](D& d) { d.EnablePulseGenerator(); }},
        {"EnablePulseGenerator", [](D& d) { d.EnablePulseGenerator(20.0F); }},
        {"DisablePulseGenerator", [](D& d) { d.DisablePulseGenerator(); }},
        {"ToggleGenerator", [](D& d) { d.ToggleGenerator(false); }},
        {"ReadRegister", [](D& d) { d.ReadRegister(124, 1); }},
        {"WriteRegister", [](D& d) { d.WriteRegister(600, 1, 0); }},
        {"SendCommand", [](D& d) { d.SendCommand("R1124", reply.data()); }},
        {"SendCommand", [](D& d) { d.SendCommand("R1124", 5, reply.data()); }},
        {"LoadSensorConfigFile", [](D& d) { d.LoadSensorConfigFile(configuration.path().c_str()); }},
        {"UploadFirmware", [](D& d) { d.UploadFirmware(firmware.path().c_str(), 1, false); }, true},
        {"SetSlowed", [](D& d) { d.SetSlowed(false); }},
    };
    return calls;
}

}  // namespace support
