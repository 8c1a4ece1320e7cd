#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "export.h"

/// What the maintenance operations make of their files, as functions on values, so that an application can look at a
/// file before it is sent. Nothing here touches a detector.

/// What becomes of one line of a sensor configuration file.
enum class ConfigLineKind : std::uint8_t {
    Comment,    ///< begins with '#': skipped without a pause
    Skipped,    ///< an interface power command on GigE: skipped without a pause
    PauseOnly,  ///< too short to be a command: nothing is sent, the pause follows
    Command,    ///< sent, the pause follows
    Refused,    ///< ends the file with code 9
};

/// One line as it is treated.
struct ConfigLine {
    ConfigLineKind kind;  ///< what is done with the line
    std::string command;  ///< what is sent for `Command`, without its carriage return; else empty
};

/// The most characters of a line that count, line feed included.
constexpr std::size_t longestConfigLine = 256;

/// The next line of a configuration file, with its line feed; nothing at the end. A last line without line feed gets
/// one; of a line that is too long the first characters count and the rest, its line feed included, is passed over.
/// @param nextByte  gives the next byte; false at the end
QRAPI_EXPORT std::optional<std::string> NextConfigLine(const std::function<bool(char&)>& nextByte);

/// Classifies a line, its line feed included.
/// @param gigE  true for a detector on GigE
QRAPI_EXPORT ConfigLine ClassifyConfigLine(const std::string& line, bool gigE);

constexpr std::size_t firmwareBlockSize = 1024;           ///< bytes of the image in one packet
constexpr std::size_t firmwarePacketSize = 1030;          ///< bytes of a packet without its carriage return
constexpr std::size_t highestFirmwareBlockCount = 16384;  ///< what a packet's block address has room for

/// The byte with its bit order reversed: bit 7 swaps with bit 0, and so on.
QRAPI_EXPORT std::uint8_t ReverseBits(std::uint8_t byte);

/// The number of blocks of a firmware image that are sent: whole blocks up to the last one that holds any byte other
/// than 255. What is behind it, a remainder of less than a block included, is left out.
QRAPI_EXPORT std::size_t CountFirmwareBlocks(const std::vector<std::uint8_t>& image);

/// The exclusive or of `size` bytes.
QRAPI_EXPORT std::uint8_t FirmwareChecksum(const std::uint8_t* bytes, std::size_t size);

/// The packet of block `block`, counted from 0, for a sensor from 0 to 9: "WFD", the sensor's digit, the block number
/// times 4 as a 16-bit big-endian value, the block's bytes. `reversed` is the image with the bits of its bytes
/// reversed.
QRAPI_EXPORT std::array<std::uint8_t, firmwarePacketSize> MakeFirmwarePacket(const std::vector<std::uint8_t>& reversed,
                                                                             std::size_t block, int sensor);
