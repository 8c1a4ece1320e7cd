#pragma once

#include <cstdint>

/// Enumerations shared by the library, the image component and the application. The values are fixed: they are part of
/// the binary interface and keys of the timing tables.

/// The transport between application and detector.
enum DetectorInterface : std::int32_t {
    TransportCL = 0,  ///< Camera Link through a frame grabber
    TransportGE = 1,  ///< GigE Vision
};

/// Binning modes. `Bin1x2` combines 1 sensor column and 2 sensor rows into one output pixel, and so on. The flagged
/// modes have the geometry of the unflagged ones and are set by flag bits, with both binning registers at 1. There is
/// no value 0.
enum bins : std::int32_t {
    Bin1x1 = 1,
    Bin1x2 = 2,
    Bin1x4 = 3,
    Bin2x1 = 4,
    Bin2x2 = 5,
    Bin2x4 = 6,
    Bin4x1 = 7,
    Bin4x2 = 8,
    Bin4x4 = 9,
    Bin2x2Flagged = 10,
    Bin4x4Flagged = 11,
    BinUnknown = 12,  ///< no detector mode: an image whose parameters were never set
};

/// Exposure modes, held in register 0.
enum ExposureModes : std::int32_t {
    ExposureBits3And4 = 0,
    ExposureBitsClear = 1,
    ExposureBit13 = 2,
    ExposureBit12 = 3,
};

/// Trigger sources, held in register 0 bits 5 to 8.
enum ExposureTriggerSource : std::int32_t {
    TriggerBits5And6 = 0,
    TriggerBitsClear = 1,
    TriggerBits5And7 = 2,
};

/// Full well modes, held in register 3 bit 2.
enum FullWellModes : std::int32_t {
    FullWellBit2Clear = 0,
    FullWellBit2Set = 1,
};

/// Readout modes, held in register 1 bit 3.
enum ReadoutModes : std::int32_t {
    ReadoutBit3Clear = 0,
    ReadoutBit3Set = 1,
};

/// Pixel types of the image component. Only 16-bit unsigned is used.
enum pType : std::int32_t {
    PixelU16 = 2,
};
