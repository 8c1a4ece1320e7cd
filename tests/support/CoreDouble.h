#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "detector/baseDetector.h"
#include "platform/Event.h"
#include "support/RegisterScript.h"

namespace support {

/// The core over a transport that is a script: the serial line is a `RegisterScript`, frames are what a test puts into
/// `frame`. Protected members are open to tests.
class CoreDouble : public baseDetector {
public:
    explicit CoreDouble(DetectorInterface kind = TransportGE) : baseDetector(nullptr) {
        transport = kind;
        numBuffers = 4;
    }

    /// A core that is open for calls without the traffic of `OpenBoard`: registers of a 6112, binning 1x1.
    static void present(CoreDouble& core, int model, int family = 0, int firmware = 1) {
        core.line.registers[124] = model;
        core.line.registers[126] = firmware;
        core.line.registers[129] = family;
        core.line.registers[9] = core.line.registers[10] = 1;
        core.connected = true;
    }

    RegisterScript line;
    std::vector<std::string> transportCalls;
    std::vector<unsigned char> frame;
    std::optional<QuorinException> liveFailure;
    bool liveNow = false;
    int serialConfigurations = 0;
    float transportMinimumMs = 0.0F;
    int fields = 0;
    std::string openText;
    bool serialReadFails = false;
    std::vector<std::pair<int, std::vector<unsigned char>>> written;

    float TransportMinimumExposureTime() override { return transportMinimumMs; }
    void* CreateDetectorHandle() override {
        transportCalls.emplace_back("CreateDetectorHandle");
        return platform::createAutoResetEvent();
    }
    int CloseDetectorHandle() override { return platform::closeEvent(frameCapturedEvent); }
    void SerialConfigure(double, int, int, int) override { ++serialConfigurations; }
    void OpenBrd(char* text, int) override { OpenBrd(text); }
    void OpenBrd(char* text) override {
        transportCalls.emplace_back("OpenBrd");
        openText = text;
    }
    void CloseBrd() override { transportCalls.emplace_back("CloseBrd"); }
    using baseDetector::EnablePulseGenerator;
    void EnablePulseGenerator(float frequencyHz) override { pulseFrequency = frequencyHz; }
    using baseDetector::ReadBuffer;
    void ReadBuffer(int, void* target) override {
        checkPlane(target, static_cast<std::int64_t>(frame.size()));
        std::copy(frame.begin(), frame.end(), static_cast<unsigned char*>(target));
    }
    void Snap(int, int) override {}
    int GetCapturedBuffer() override { return 0; }
    int GetFieldCount() override { return fields; }
    int SerialRead(char* buffer, int capacity) override {
        if (serialReadFails) return -1;
        const std::string chunk = line.read();
        const std::size_t count = std::min(chunk.size(), static_cast<std::size_t>(capacity));
        std::memcpy(buffer, chunk.data(), count);
        return static_cast<int>(count);
    }
    int SerialWrite(char* buffer, int size) override {
        line.write(std::string(buffer, static_cast<std::size_t>(size)));
        return 0;
    }
    void WriteBuffer(int buffer, const void* source, int size) override {
        const auto* bytes = static_cast<const unsigned char*>(source);
        written.emplace_back(buffer, std::vector<unsigned char>(bytes, bytes + size));
    }
    int bufferXdim() override { return 8; }
    int bufferYdim() override { return 3; }
    void GoLiveSeq() override {}
    using baseDetector::GoLiveSeq;
    void GoUnLive() override {}
    void SoftwareTrigger() override {}
    void DisablePulseGenerator() override {}
    void configurePGFrequency(float) override {}
    void ToggleGenerator(bool) override {}
    void CheckForLiveError() override {
        if (liveFailure) throw QuorinException(*liveFailure);
    }
    bool IsLive() override { return liveNow; }
    void PrepareInterfaceForImageSizeChange() override { transportCalls.emplace_back("Prepare"); }
    void UpdateInterfaceImageSize() override { transportCalls.emplace_back("Update"); }

    float pulseFrequency = 0.0F;

    using baseDetector::AreExposureTimesEqual, baseDetector::binningMode, baseDetector::cachedROIArea,
        baseDetector::commsOpen, baseDetector::connected, baseDetector::detectorTimings, baseDetector::exposureTime,
        baseDetector::frameCapturedEvent, baseDetector::GetCachedROIEnabled, baseDetector::GetCachedSliceInterlacing,
        baseDetector::GetFirmwareMinimumExposureWindow, baseDetector::GetROIArea, baseDetector::InitializeExposureTime,
        baseDetector::minimumExposureWindow, baseDetector::modelNumber, baseDetector::numBuffers, baseDetector::opening,
        baseDetector::readoutTime, baseDetector::readsOwnTiming, baseDetector::sliceInterlacing, baseDetector::unit,
        baseDetector::UpdateReadoutTime, baseDetector::WaitUntilFlashReady;
};

}  // namespace support
