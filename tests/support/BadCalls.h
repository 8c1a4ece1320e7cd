#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>
#include <vector>

#include "QuorinDetector.h"
#include "support/expectFailure.h"

namespace support {

inline constexpr int most = std::numeric_limits<int>::max();
inline constexpr int least = std::numeric_limits<int>::min();
inline constexpr std::size_t hugeCount = std::numeric_limits<std::size_t>::max();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
inline constexpr float infinite = std::numeric_limits<float>::infinity();
inline constexpr float denormal = std::numeric_limits<float>::denorm_min();
inline constexpr float largest = std::numeric_limits<float>::max();

/// Calls with an argument that no caller should give, by how they end. Code 0: they are let through.
struct BadCalls {
    Derr code;
    const char* text;
    std::vector<std::function<void(QuorinDetector&)>> calls;
    Derr codeOnCameraLink = code;
};

inline constexpr Derr letThrough{};

inline char* replySpace() {
    static std::array<char, 100> reply{};
    return reply.data();
}

/// Exactly as much memory as the characters take, so that a sanitizer sees who reads behind them.
inline std::vector<char> unterminated(std::size_t length) {
    return std::vector<char>(length, 'R');
}

inline void readInto(QuorinDetector& detector, int plane, int width) {
    QorImage image;
    if (width != 0) image.Build(width, 1, 1, PixelU16);
    detector.ReadBuffer(0, image, plane);
}

inline void preProgram(QuorinDetector& detector, const std::vector<float>& timesMs) {
    detector.SetPreProgrammedExposureTimes(timesMs.data(), timesMs.size());
}

inline const std::vector<BadCalls>& badCalls() {
    using D = QuorinDetector;
    static std::array<float, 4> times{};
    static std::vector<unsigned char> frame(std::size_t{3072} * 864 * 2);
    static const int frameBytes = static_cast<int>(frame.size());
    static const std::vector<BadCalls> groups{
        {DerrBadRequest,
         "Invalid sensor number.",
         {[](D& d) { d.GetSensorWidth(0); }, [](D& d) { d.GetSensorHeight(65535); }, [](D& d) { d.ReadRegister(0, 0); },
          [](D& d) { d.ReadRegister(0, 65537); }, [](D& d) { d.WriteRegister(600, 0, least); },
          [](D& d) { d.UploadFirmware("/dev/null", least, true); }}},
        {DerrBadRequest,
         "The register you are trying to access is out of range",
         {[](D& d) { d.ReadRegister(-1, 1); }, [](D& d) { d.ReadRegister(most, 1); },
          [](D& d) { d.WriteRegister(least, 0, 0); }}},
        {DerrBadRequest,
         "The register value",
         {[](D& d) { d.WriteRegister(600, 65536, 0); }, [](D& d) { d.WriteRegister(600, least, 0); }}},
        {DerrBadRequest,
         "Invalid number of exposures",
         {[](D& d) { d.SetNumOfExposures(0); }, [](D& d) { d.SetNumOfExposures(least); },
          [](D& d) { d.SetNumOfExposures(most); }, [](D& d) { d.SetPreProgrammedExposureTimes(nullptr, 2); },
          [](D& d) { d.SetPreProgrammedExposureTimes(nullptr, hugeCount); }, [](D& d) { preProgram(d, {}); },
          [](D& d) {
              preProgram(d, {1, 2, 3, 4, 5});
          },
          [](D& d) { d.SetPreProgrammedExposureTimes(times.data(), hugeCount); }}},
        {DerrBadRequest, "Cannot get pre-programmed exposure times", {[](D& d) {
             d.GetPreProgrammedExposureTimes(times.data(), 3);
         }}},
        {DerrExposure,
         "Failed to set exposure time.",
         {[](D& d) { d.SetExposureTime(infinite); }, [](D& d) { d.SetExposureTime(largest); },
          [](D& d) {
              preProgram(d, {notANumber, infinite});
          }}},
        {DerrBadRequest,
         "Gap time must be",
         {[](D& d) { d.SetGapTime(notANumber); }, [](D& d) { d.SetGapTime(infinite); }}},
        {DerrBadRequest,
         "Cannot set ROI: ROI ",
         {[](D& d) { d.SetROIArea(least, least); }, [](D& d) { d.SetROIArea(3072, most); },
          [](D& d) { d.SetROIArea(3072, 128, most); }, [](D& d) { d.SetROIArea(3072, 128, least); },
          [](D& d) { d.SetROIArea(3072, 128, 0, least); }}},
        {DerrResources,
         "",
         {[](D& d) { d.Snap(-1, 5000); }, [](D& d) { d.Snap(most, 5000); }, [](D& d) { d.Snap(least, 5000); }},
         DerrAcquisition},
        {DerrResources,
         "",
         {[](D& d) { d.ReadBuffer(-1, frame.data()); }, [](D& d) { d.ReadBuffer(most, frame.data()); }},
         DerrTransport},
        {DerrBadRequest,
         "The requested buffer is outside of the allocated range!",
         {[](D& d) { d.ClearCameraBuffer(-1); }, [](D& d) { d.ClearCameraBuffer(2); }}},
        {DerrResources, "The requested buffer is outside of the allocated range!", {[](D& d) {
             d.WriteBuffer(2, frame.data(), frameBytes);
         }}},
        {DerrBadRequest, "The frame needs a place to go to: the pointer is null!", {[](D& d) {
             d.ReadBuffer(0, nullptr);
         }}},
        {DerrBadRequest, "The plane number must be 0 or greater!", {[](D& d) { readInto(d, -1, 0); }}},
        {DerrBadRequest, "Dimensions of image", {[](D& d) { readInto(d, 0, 1); }}},
        {DerrBadRequest, "There is no frame to write", {[](D& d) { d.WriteBuffer(0, nullptr, frameBytes); }}},
        {DerrBadRequest,
         "Size of input buffer",
         {[](D& d) { d.WriteBuffer(0, frame.data(), least); }, [](D& d) { d.WriteBuffer(0, frame.data(), most); }}},
        {DerrBadRequest,
         "The stop parameter",
         {[](D& d) { d.GoLiveSeq(1, 0, 0); }, [](D& d) { d.GoLiveSeq(most, least, least); }}},
        {letThrough,
         "",
         {[](D& d) { EXPECT_EQ(d.GetDetectorTemp(least), 0.0F); },
          [](D& d) { EXPECT_EQ(d.GetDetectorTemp(most), 0.0F); }, [](D& d) { d.SetGapTime(-infinite); },
          [](D& d) { d.SetGapTime(denormal); },
          [](D& d) {
              preProgram(d, {notANumber, -infinite, denormal, -1.0F});
          },
          [](D& d) { EXPECT_EQ(d.GetPreProgrammedExposureTimes(nullptr, hugeCount), 4); },
          [](D& d) { d.GetPreProgrammedExposureTimes(times.data(), hugeCount); }, [](D& d) { d.Snap(0, most); },
          [](D& d) { d.Snap(0, -2); }, [](D& d) { d.Snap(0, least); }, [](D& d) { d.SetCallback(nullptr); },
          [](D& d) { d.SetCallbackData(nullptr); }, [](D& d) { d.LoadSensorConfigFile("/dev/null"); },
          [](D& d) { failureOf([&] { d.WaitImage(0); }); }}},
        {DerrAcquisition,
         "Image did not arrive within the timeout.",
         {[](D& d) { d.WaitImage(-2); }, [](D& d) { d.WaitImage(least); }, [](D& d) { d.WaitImage(most); }}},
        {DerrBadRequest,
         "Problem sending serial command!",
         {[](D& d) { d.SendCommand(nullptr, replySpace()); }, [](D& d) { d.SendCommand(nullptr, 5, replySpace()); },
          [](D& d) { d.SendCommand("R1124", nullptr); }, [](D& d) { d.SendCommand("R1124", 5, nullptr); },
          [](D& d) { d.SendCommand(unterminated(24).data(), replySpace()); }}},
        {DerrWrapped, "Caught a std::exception: no command has this length", {[](D& d) {
             d.SendCommand("R1124", hugeCount, replySpace());
         }}},
        {DerrFile,
         "Unable to open file!",
         {[](D& d) { d.LoadSensorConfigFile(nullptr); }, [](D& d) { d.LoadSensorConfigFile("/no/such"); }}},
        {DerrFile, "Problem reading from file", {[](D& d) { d.LoadSensorConfigFile("/"); }}},
        {DerrBadRequest,
         "Failed to open file.",
         {[](D& d) { d.UploadFirmware(nullptr, 1, true); }, [](D& d) { d.UploadFirmware("/", 1, true); }}},
        {DerrBadRequest, "The firmware image is too large", {[](D& d) { d.UploadFirmware("/dev/zero", 1, true); }}},
    };
    return groups;
}

}  // namespace support
