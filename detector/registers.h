#pragma once

/// The registers that the library uses. Numbers are decimal; bit 0 is the least significant.
namespace registers {

inline constexpr int highest = 999;
inline constexpr int highestValue = 65535;
inline constexpr int mask16 = 0xFFFF;

inline constexpr int mode = 0;         ///< test mode, exposure mode, trigger source, cross-talk correction
inline constexpr int control = 1;      ///< flagged binning, linearization, readout mode, region, frame counter
inline constexpr int binningCode = 3;  ///< bits 6 to 8 binning code, bit 2 full well mode
inline constexpr int applyModes = 5;   ///< 514 makes the detector apply binning and full well mode
inline constexpr int sensorHeight = 7;
inline constexpr int sensorWidth = 8;
inline constexpr int rowBinning = 9;
inline constexpr int columnBinning = 10;
inline constexpr int windowLow = 11;   ///< exposure window, low 16 bits of a count of 0.01 ms
inline constexpr int windowHigh = 12;  ///< exposure window, high 16 bits
inline constexpr int numOfExposures = 17;
inline constexpr int gapTime = 18;        ///< count of 0.1 ms
inline constexpr int preProgrammed = 27;  ///< 27 to 34: four windows as low and high halves, counts of 0.01 ms
inline constexpr int featureWord36 = 36;
inline constexpr int featureWord37 = 37;
inline constexpr int firmwareBuild1 = 38;
inline constexpr int firmwareBuild2 = 39;
inline constexpr int firmwareBuild3 = 40;
inline constexpr int temperature = 109;         ///< Kestrane: bit 15 request, bits 0 to 7 degrees Celsius
inline constexpr int temperatureReading = 112;  ///< others: raw thermistor reading
inline constexpr int temperatureRequest = 116;  ///< others: bit 0
inline constexpr int modelNumber = 124;
inline constexpr int serialNumber = 125;
inline constexpr int firmwareVersion = 126;
inline constexpr int modelAndFirmware = 127;  ///< older form: 12 bits of model, 4 bits of firmware
inline constexpr int electronicsFamily = 129;
inline constexpr int featureWord130 = 130;
inline constexpr int staged = 401;  ///< bit 0 interlacing off, bit 3 legacy timing off, bit 5 region margin off
inline constexpr int roiStartRow = 402;
inline constexpr int roiHeight = 403;
inline constexpr int roiStartColumn = 404;
inline constexpr int roiWidth = 405;     ///< of the region on one sensor
inline constexpr int readoutTime = 410;  ///< count of 0.002 ms; 0 until the detector has computed it
inline constexpr int flashStatus = 418;

inline constexpr int testModeBit = 1 << 0;          ///< register 0
inline constexpr int xTalkCorrectionBit = 1 << 14;  ///< register 0
inline constexpr int linearizationOffBit = 1 << 2;  ///< register 1
inline constexpr int frameCounterBit = 1 << 7;      ///< register 1
inline constexpr int frameCounterOffMask = 0x7F;    ///< register 1; clears the upper byte as well
inline constexpr int fullWellBit = 1 << 2;          ///< register 3
inline constexpr int interlacingOnMask = 0xFE;      ///< register 401; clears the upper byte as well
inline constexpr int legacyTimingOnMask = 0xF7;     ///< register 401; clears the upper byte as well
inline constexpr int roiMarginOffBit = 1 << 5;      ///< register 401
inline constexpr int roiEnableBit = 1 << 6;         ///< register 1
inline constexpr int interlacingOffBit = 1 << 0;    ///< register 401
inline constexpr int legacyTimingOffBit = 1 << 3;   ///< register 401
inline constexpr int readoutModeBit = 1 << 3;       ///< register 1
inline constexpr int flashBusyBit = 1 << 15;        ///< register 418

/// Settings are read from sensor 1 and written to all sensors.
inline constexpr int firstSensor = 1;
inline constexpr int allSensors = 0;

}  // namespace registers
