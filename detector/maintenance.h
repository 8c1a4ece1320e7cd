#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "export.h"

/// How the maintenance operations interpret their files, as functions on values, so that an application can check a
/// file before it sends it. Nothing here touches a detector.

/// How one line of a sensor configuration file is treated.
enum class ConfigLineKind : std::uint8_t {
    Comment,    ///< begins with '#': skipped without a pause
    Skipped,    ///< an interface power command on GigE: skipped without a pause
    PauseOnly,  ///< too short to be a command: nothing is sent, the pause follows
    Command,    ///< sent, the pause follows
    Refused,    ///< ends the file with code 9
};

/// A classified line.
struct ConfigLine {
    ConfigLineKind kind;  ///< how the line is treated
    std::string command;  ///< for `Command` the text to send, without its carriage return; else empty
};

/// Longest line in characters, line feed included; the rest of a longer one is ignored.
constexpr std::size_t longestConfigLine = 256;

/// Reads the next line of a configuration file. A line longer than `longestConfigLine` is cut, its line feed included.
/// @param nextByte  reads the next byte; false at the end of the file
/// @return the line with its line feed, added to a last line without one unless it was cut; empty at the end
QRAPI_EXPORT std::optional<std::string> NextConfigLine(const std::function<bool(char&)>& nextByte);

/// Classifies a line.
/// @param line  with its line feed
/// @param gigE  true for a detector on GigE
/// @return the kind and, for a command, the text to send
QRAPI_EXPORT ConfigLine ClassifyConfigLine(const std::string& line, bool gigE);

constexpr std::size_t firmwareBlockSize = 1024;           ///< bytes of the image in one packet
constexpr std::size_t firmwarePacketSize = 1030;          ///< bytes of a packet without its carriage return
constexpr std::size_t highestFirmwareBlockCount = 16384;  ///< blocks that a packet's address can name

/// The byte with its bits in reverse order.
QRAPI_EXPORT std::uint8_t ReverseBits(std::uint8_t byte);

/// The number of blocks of a firmware image that are sent: whole blocks up to the last one with a byte other than 255.
/// A remainder of less than a block is left out.
QRAPI_EXPORT std::size_t CountFirmwareBlocks(const std::vector<std::uint8_t>& image);

/// The exclusive or of `size` bytes.
QRAPI_EXPORT std::uint8_t FirmwareChecksum(const std::uint8_t* bytes, std::size_t size);

/// Makes the packet of one block: "WFD", the sensor's digit, the block number times 4 as a 16-bit big-endian value, the
/// block's bytes.
/// @param reversed  the image, the bits of each byte reversed
/// @param block     counted from 0; the image holds all of it
/// @param sensor    0 to 9
/// @return the packet without its carriage return
QRAPI_EXPORT std::array<std::uint8_t, firmwarePacketSize> MakeFirmwarePacket(const std::vector<std::uint8_t>& reversed,
                                                                             std::size_t block, int sensor);
