#include "sweep/scenarios.h"

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "QorImage.h"
#include "platform/Clock.h"

namespace sweep {
namespace {

bool near(float first, float second) {
    constexpr float tolerance = 0.11F;
    return std::fabs(first - second) < tolerance;
}

/// A file for the library to read, for as long as the process runs.
std::string fileWith(const std::string& name, const std::string& content) {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("qrapi-sweep-" + std::to_string(getpid()) + "-" + name);
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
}

/// Sets, and asks the detector what it holds.
template <class Value>
void setAndGet(Application& app, const std::string& setter, void (QuorinDetector::*set)(Value),
               const std::string& getter, Value (QuorinDetector::*get)() const, Value value) {
    app.call(setter, [&] { ((*app.detector).*set)(value); });
    app.call(getter, [&] { app.expect(((*app.detector).*get)() == value, getter + " reads what was set"); });
}

void open(Application& app) {
    app.call("OpenBoard", [&] { app.detector->OpenBoard(); });
    app.call("GetModelNumber", [&] { app.expect(app.detector->GetModelNumber() == 6112, "the model is known"); });
}

void openWithCount(Application& app) {
    app.call("OpenBoard", [&] { app.detector->OpenBoard(3); });
    app.call("GetNumBuffers", [&] { app.expect(app.detector->GetNumBuffers() == 3, "the ring has the asked size"); });
}

void configure(Application& app) {
    using D = QuorinDetector;
    D& detector = *app.detector;
    setAndGet(app, "SetBinningMode", &D::SetBinningMode, "GetBinningMode", &D::GetBinningMode, Bin2x2);
    setAndGet(app, "SetExposureMode", &D::SetExposureMode, "GetExposureMode", &D::GetExposureMode, ExposureBit12);
    setAndGet(app, "SetExposureMode", &D::SetExposureMode, "GetExposureMode", &D::GetExposureMode, ExposureBits3And4);
    setAndGet(app, "SetFullWellMode", &D::SetFullWellMode, "GetFullWellMode", &D::GetFullWellMode, FullWellBit2Set);
    setAndGet(app, "SetReadoutMode", &D::SetReadoutMode, "GetReadoutMode", &D::GetReadoutMode, ReadoutBit3Set);
    setAndGet(app, "SetTriggerSource", &D::SetTriggerSource, "GetTriggerSource", &D::GetTriggerSource,
              TriggerBits5And6);
    setAndGet(app, "SetTestMode", &D::SetTestMode, "GetTestMode", &D::GetTestMode, true);
    setAndGet(app, "SetTestMode", &D::SetTestMode, "GetTestMode", &D::GetTestMode, false);
    setAndGet(app, "SetNumOfExposures", &D::SetNumOfExposures, "GetNumOfExposures", &D::GetNumOfExposures, 3);
    setAndGet(app, "ToggleOnBoardLinearization", &D::ToggleOnBoardLinearization, "GetOnBoardLinearizationState",
              &D::GetOnBoardLinearizationState, false);
    setAndGet(app, "ToggleOnBoardXTalkCorrection", &D::ToggleOnBoardXTalkCorrection, "GetOnBoardXTalkCorrectionState",
              &D::GetOnBoardXTalkCorrectionState, true);
    const bool kestrane = app.road.kestrane;
    setAndGet(app, "SetLegacyTiming", &D::SetLegacyTiming, "IsLegacyTimingEnabled", &D::IsLegacyTimingEnabled,
              kestrane);
    setAndGet(app, "SetSliceInterlacing", &D::SetSliceInterlacing, "GetSliceInterlacing", &D::GetSliceInterlacing,
              !kestrane);
    setAndGet(app, "SetPixelFrameCounter", &D::SetPixelFrameCounter, "IsPixelFrameCounterEnabled",
              &D::IsPixelFrameCounterEnabled, kestrane);
    const auto setsTime = [&](const char* setter, void (D::*set)(float), const char* getter, float (D::*get)() const,
                              float time) {
        app.call(setter, [&] { (detector.*set)(time); });
        app.call(getter,
                 [&] { app.expect(near((detector.*get)(), time), std::string(getter) + " reads what was set"); });
    };
    setsTime("SetExposureTime", &D::SetExposureTime, "GetExposureTime", &D::GetExposureTime, 700.0F);
    setsTime("SetGapTime", &D::SetGapTime, "GetGapTime", &D::GetGapTime, 900.0F);
    app.call("SetPreProgrammedExposureTimes", [&] {
        const std::array<float, 2> times{500.0F, 600.0F};
        detector.SetPreProgrammedExposureTimes(times.data(), times.size());
    });
    app.call("GetPreProgrammedExposureTimes", [&] {
        std::array<float, 4> times{};
        detector.GetPreProgrammedExposureTimes(times.data(), times.size());
        app.expect(near(times[0], 500.0F) && near(times[1], 600.0F), "the pre-programmed times read what was set");
    });
    app.call("GetSerialNumber", [&] { app.expect(detector.GetSerialNumber() > 0, "the serial number is read"); });
    app.call("GetFirmwareVersion", [&] { app.expect(detector.GetFirmwareVersion() > 0, "the firmware is read"); });
    app.call("GetFirmwareBuild", [&] {
        int first = 0;
        int second = 0;
        int third = 0;
        detector.GetFirmwareBuild(first, second, third);
        app.expect(second == 6112, "the build is read");
    });
    app.call("GetSensorWidth", [&] { app.expect(detector.GetSensorWidth(1) > 0, "the sensor's width is read"); });
    app.call("GetSensorHeight", [&] { app.expect(detector.GetSensorHeight(1) > 0, "the sensor's height is read"); });
    app.call("WriteRegister", [&] { detector.WriteRegister(200, 4711, 0); });
    app.call("ReadRegister",
             [&] { app.expect(detector.ReadRegister(200, 1) == 4711, "a register reads what was written"); });
    app.call("SendCommand", [&] {
        std::array<char, 100> reply{};
        detector.SendCommand("R1124", reply.data());
    });
}

void snap(Application& app) {
    QuorinDetector& detector = *app.detector;
    app.call("Snap", [&] { detector.Snap(1, Application::waitMs); });
    if (app.road.isGigE()) app.call("WaitImage", [&] { detector.WaitImage(Application::waitMs); });
    app.expectNewestFrame(1);
    app.call("GetCapturedBuffer",
             [&] { app.expect(detector.GetCapturedBuffer() == 1, "the captured buffer is the asked one"); });
    app.call("GetFieldCount", [&] { app.expect(detector.GetFieldCount() == 1, "one field was captured"); });
    QorImage image;
    app.call("ReadBuffer", [&] { detector.ReadBuffer(1, image, 0); });
    std::vector<unsigned char> frame(2 * static_cast<std::size_t>(image.GetImageXdim() * image.GetImageYdim()), 7);
    app.call("WriteBuffer", [&] { detector.WriteBuffer(0, frame.data(), static_cast<int>(frame.size())); });
    app.call("ClearCameraBuffer", [&] { detector.ClearCameraBuffer(0); });
    app.call("ClearBuffers", [&] { detector.ClearBuffers(); });
    app.call("SoftwareTrigger", [&] { detector.SoftwareTrigger(); });
    app.call("CheckForLiveError", [&] { detector.CheckForLiveError(); });
}

/// A frame of a live run, on an edge, and its signal taken.
void takeLiveFrame(Application& app) {
    app.call("SoftwareTrigger", [&] { app.detector->SoftwareTrigger(); });
    app.call("WaitImage", [&] { app.detector->WaitImage(Application::waitMs); });
}

void stop(Application& app) {
    app.call("GoUnLive", [&] { app.detector->GoUnLive(); });
    app.noteStop();
    app.call("CheckForLiveError", [&] { app.detector->CheckForLiveError(); });
}

void liveLimited(Application& app) {
    QuorinDetector& detector = *app.detector;
    app.call("GoLiveSeq", [&] { detector.GoLiveSeq(0, 1, 3); });
    for (int frame = 0; frame < 3; ++frame) takeLiveFrame(app);
    app.call("GetFieldCount",
             [&] { app.expect(detector.GetFieldCount() == (app.road.isGigE() ? 4 : 3), "three frames were counted"); });
    stop(app);
    app.call("IsLive", [&] { app.expect(!detector.IsLive(), "the run is over"); });
    app.expectNewestFrame(0);
}

void liveWithCallback(Application& app) {
    QuorinDetector& detector = *app.detector;
    app.call("SetCallback", [&] { detector.SetCallback(Application::callback); });
    app.call("GoLiveSeq", [&] { detector.GoLiveSeq(); });
    for (int frame = 1; frame <= 2; ++frame) {
        app.call("SoftwareTrigger", [&] { detector.SoftwareTrigger(); });
        // An application that misses a callback asks what became of the frame.
        if (!app.awaitCallbacks(frame)) app.call("WaitImage", [&] { detector.WaitImage(0); });
    }
    app.call("IsLive", [&] { app.expect(detector.IsLive(), "the run goes on"); });
    app.call("CheckForCallbackError", [&] { detector.CheckForCallbackError(); });
    app.call("CheckForLiveError", [&] { detector.CheckForLiveError(); });
    app.expect(Application::callbackCalls == 2, "both frames were called back");
    stop(app);
    app.call("StopCallback", [&] { detector.StopCallback(); });
}

void sizeChangeWhileLive(Application& app) {
    QuorinDetector& detector = *app.detector;
    app.call("GoLiveSeq", [&] { detector.GoLiveSeq(); });
    takeLiveFrame(app);
    app.call("SetBinningMode", [&] { detector.SetBinningMode(Bin2x2); });
    takeLiveFrame(app);
    stop(app);
    app.call("GetCapturedBuffer",
             [&] { app.expect(detector.GetCapturedBuffer() == 1, "the second frame is in the second buffer"); });
    app.expectNewestFrame(1);
}

void refusedSettingWhileLive(Application& app) {
    QuorinDetector& detector = *app.detector;
    if (app.road.kestrane) return;  // these electronics are asked for any mode
    app.call("GoLiveSeq", [&] { detector.GoLiveSeq(); });
    takeLiveFrame(app);
    app.call("SetBinningMode", [&] {
        try {
            detector.SetBinningMode(Bin2x1);
            app.expect(false, "a mode without a timing is refused");
        } catch (const QuorinException& refusal) {
            if (refusal.GetCode() != DerrBadRequest) throw;
        }
    });
    stop(app);
    app.expectNewestFrame(0);
}

void region(Application& app) {
    QuorinDetector& detector = *app.detector;
    if (!app.road.kestrane) {  // these electronics have none
        app.call("IsROIEnabled", [&] { app.expect(!detector.IsROIEnabled(), "there is no region"); });
        return;
    }
    app.call("SetROIArea", [&] { detector.SetROIArea(3072, 256, 128); });
    app.call("SetROIEnabled", [&] { detector.SetROIEnabled(true); });
    app.call("SetROIMarginEnabled", [&] { detector.SetROIMarginEnabled(false); });
    app.call("IsROIEnabled", [&] { app.expect(detector.IsROIEnabled(), "the region is on"); });
    app.call("IsROIMarginEnabled", [&] { app.expect(!detector.IsROIMarginEnabled(), "the margin is off"); });
    app.call("GetROIArea", [&] {
        int width = 0;
        int height = 0;
        int row = 0;
        int column = 1;
        detector.GetROIArea(width, height, row, column);
        app.expect(width == 3072 && height == 256 && row == 128 && column == 0, "the region reads what was set");
    });
    app.call("Snap", [&] { detector.Snap(0, Application::waitMs); });
    app.expectNewestFrame(0);
    app.call("SetROIEnabled", [&] { detector.SetROIEnabled(false); });
}

void pulses(Application& app) {
    QuorinDetector& detector = *app.detector;
    app.call("EnablePulseGenerator", [&] { detector.EnablePulseGenerator(2.0F); });
    app.call("ToggleGenerator", [&] { detector.ToggleGenerator(true); });
    app.call("Snap", [&] { detector.Snap(0, Application::waitMs); });
    app.call("ToggleGenerator", [&] { detector.ToggleGenerator(false); });
    // The close that follows takes it down, or this call does.
    app.call("DisablePulseGenerator", [&] { detector.DisablePulseGenerator(); });
    app.call("EnablePulseGenerator", [&] { detector.EnablePulseGenerator(20.0F); });
}

void temperature(Application& app) {
    const auto reads = [&](int sensor, float low, float high) {
        app.call("GetDetectorTemp", [&] {
            const float celsius = app.detector->GetDetectorTemp(sensor);
            app.expect(celsius > low && celsius < high, "the temperature of probe " + std::to_string(sensor));
        });
    };
    reads(1, 30.0F, 40.0F);
    if (app.road.kestrane) reads(3, 27.0F, 37.0F);
}

void powerCycle(Application& app) {
    app.call("PowerSwitch", [&] { app.detector->PowerSwitch(false); });
    app.call("PowerSwitch", [&] { app.detector->PowerSwitch(true); });
    app.call("SoftReset", [&] { app.detector->SoftReset(); });
    app.call("GetModelNumber", [&] { app.expect(app.detector->GetModelNumber() == 6112, "it is back"); });
}

void firmware(Application& app) {
    static const std::string file = fileWith("image", std::string(2048, 'q'));
    app.call("UploadFirmware", [&] { app.detector->UploadFirmware(file.c_str(), 1, false); });
    app.expect(app.hardware->flashContent(1).size() == 2048, "the image is in the flash memory");
}

void configurationFile(Application& app) {
    static const std::string file = fileWith("configuration", "# settings\nW018600042\nW020000007\n");
    app.call("LoadSensorConfigFile", [&] { app.detector->LoadSensorConfigFile(file.c_str()); });
    app.expect(app.hardware->readRegister(200) == 7, "the file's last command is in force");
}

void address(Application& app) {
    if (app.road.isGigE()) {
        app.call("SetPersistentIPAddress",
                 [&] { static_cast<QuorinDetectorGE&>(*app.detector).SetPersistentIPAddress(10, 0, 0, 9); });
        app.call("GetModelNumber", [&] { app.expect(app.detector->GetModelNumber() == 6112, "it is open again"); });
        return;
    }
    auto& onGrabber = static_cast<QuorinDetectorCL&>(*app.detector);
    app.call("PowerCLInterface", [&] { onGrabber.PowerCLInterface(false); });
    app.call("PowerCLInterface", [&] { onGrabber.PowerCLInterface(true); });
}

void reopen(Application& app) {
    app.call("CloseBoard", [&] { app.detector->CloseBoard(); });
    app.call("OpenBoard", [&] { app.detector->OpenBoard(); });
    app.call("Snap", [&] { app.detector->Snap(0, Application::waitMs); });
}

void nothing(Application& /*app*/) {}

void goLiveAndLeaveIt(Application& app) {
    app.call("GoLiveSeq", [&] { app.detector->GoLiveSeq(); });
    app.call("SoftwareTrigger", [&] { app.detector->SoftwareTrigger(); });
}

}  // namespace

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all{
        {"open", true, false, Scenario::Alone, open},
        {"open with count", true, false, Scenario::Alone, openWithCount},
        {"configure", false, false, Scenario::Alone, configure},
        {"snap", false, false, Scenario::Alone, snap},
        {"live limited", false, false, Scenario::ThreadsOnGigE, liveLimited},
        {"live with callback", false, false, Scenario::Threads, liveWithCallback},
        {"size change while live", false, false, Scenario::ThreadsOnGigE, sizeChangeWhileLive},
        {"refused setting while live", false, false, Scenario::ThreadsOnGigE, refusedSettingWhileLive},
        {"region of interest", false, false, Scenario::Alone, region},
        {"pulses", false, false, Scenario::Alone, pulses},
        {"temperature", false, false, Scenario::Alone, temperature},
        {"power cycle", false, false, Scenario::Alone, powerCycle},
        {"firmware", false, false, Scenario::Alone, firmware},
        {"configuration file", false, false, Scenario::Alone, configurationFile},
        {"address or interface power", false, false, Scenario::Alone, address},
        {"close", false, false, Scenario::Alone, nothing},
        {"reopen", false, false, Scenario::Alone, reopen},
        {"destroy open", false, true, Scenario::Alone, nothing},
        {"destroy live", false, true, Scenario::ThreadsOnGigE, goLiveAndLeaveIt},
    };
    return all;
}

}  // namespace sweep
