#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

/// The detector's register map as its firmware sees it. Bit 0 is the least significant.
namespace simulator::reg {

inline constexpr int count = 1000;
inline constexpr int allSensors = 0;
inline constexpr int firstSensor = 1;

inline constexpr int mode = 0;     ///< exposure mode, trigger source
inline constexpr int control = 1;  ///< flagged binning, readout mode, region; its write takes up register 401
inline constexpr int code = 3;     ///< bits 6 to 8 binning code
inline constexpr int commit = 5;   ///< takes up the binning when `commitValue` is written
inline constexpr int sensorHeight = 7;
inline constexpr int sensorWidth = 8;
inline constexpr int rowBinning = 9;
inline constexpr int columnBinning = 10;
inline constexpr int windowLow = 11;
inline constexpr int windowHigh = 12;  ///< its write latches the exposure window
inline constexpr int exposureCount = 17;
inline constexpr int firstProgrammedWindow = 27;  ///< four pairs of low and high half
inline constexpr int lastProgrammedWindow = 34;
inline constexpr int featureWord36 = 36;
inline constexpr int featureWord37 = 37;
inline constexpr int firmwareBuild1 = 38;
inline constexpr int firmwareBuild2 = 39;
inline constexpr int firmwareBuild3 = 40;
inline constexpr int temperature = 109;         ///< Kestrane: bit 15 requests, bits 0 to 7 the result
inline constexpr int temperatureReading = 112;  ///< others: raw reading while one is requested
inline constexpr int temperatureRequest = 116;  ///< others: bit 0 requests
inline constexpr int model = 124;
inline constexpr int serialNumber = 125;
inline constexpr int firmwareVersion = 126;
inline constexpr int modelAndFirmware = 127;
inline constexpr int electronicsFamily = 129;
inline constexpr int featureWord130 = 130;
inline constexpr int staged = 401;
inline constexpr int roiStartRow = 402;
inline constexpr int roiHeight = 403;
inline constexpr int roiStartColumn = 404;
inline constexpr int roiWidth = 405;
inline constexpr int readoutTime = 410;
inline constexpr int flashStatus = 418;

inline constexpr std::uint16_t commitValue = 0x202;
inline constexpr std::uint16_t exposureModeBits = 0x3018;          ///< register 0, bits 3, 4, 12 and 13
inline constexpr std::uint16_t triggerSourceBits = 0x01E0;         ///< register 0, bits 5 to 8
inline constexpr std::uint16_t readoutModeBit = 1U << 3U;          ///< register 1
inline constexpr std::uint16_t roiEnableBit = 1U << 6U;            ///< register 1
inline constexpr std::uint16_t legacyTimingOffBit = 1U << 3U;      ///< register 401
inline constexpr std::uint16_t marginOffBit = 1U << 5U;            ///< register 401
inline constexpr std::uint16_t temperatureRequestBit = 1U << 15U;  ///< register 109
inline constexpr std::uint16_t thermistorRequestBit = 1U;          ///< register 116
inline constexpr std::uint16_t flashBusyBit = 1U << 15U;           ///< register 418

/// What the detector says about itself: a write leaves these as they are.
inline constexpr std::array readOnly{
    sensorHeight, sensorWidth,     featureWord36,    featureWord37,     firmwareBuild1, firmwareBuild2, firmwareBuild3,
    model,        firmwareVersion, modelAndFirmware, electronicsFamily, featureWord130, readoutTime,    flashStatus};

/// A write of these goes on to the flash memory, which is busy for a while then.
inline constexpr std::array flashHeld{20, 21, 22, 23, 24, 25, 26, 116, 125, 200, 201, 202, 203, 418};

constexpr bool isReadOnly(int number) {
    return std::find(readOnly.begin(), readOnly.end(), number) != readOnly.end();
}

constexpr bool isFlashHeld(int number) {
    return std::find(flashHeld.begin(), flashHeld.end(), number) != flashHeld.end();
}

}  // namespace simulator::reg
