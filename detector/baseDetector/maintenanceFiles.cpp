#include "maintenance.h"

#include <algorithm>

std::optional<std::string> NextConfigLine(const std::function<bool(char&)>& nextByte) {
    std::string line;
    bool any = false;
    for (char byte = '\0'; nextByte(byte);) {
        any = true;
        if (line.size() < longestConfigLine) line.push_back(byte);
        if (byte == '\n') return line;
    }
    if (!any) return std::nullopt;
    if (line.size() < longestConfigLine) line.push_back('\n');
    return line;
}

ConfigLine ClassifyConfigLine(const std::string& line, bool gigE) {
    constexpr std::size_t shortCommand = 3;
    constexpr std::size_t longCommand = 10;
    const char first = line.empty() ? '\n' : line.front();
    if (first == '#') return {ConfigLineKind::Comment, {}};
    if (first != 'W' && first != 'R') return {ConfigLineKind::Refused, {}};
    if (line.size() <= shortCommand) return {ConfigLineKind::PauseOnly, {}};
    const char second = line[1];
    if (second == 'C' && gigE) return {ConfigLineKind::Skipped, {}};
    const bool isShort = second == 'P' || second == 'C';
    return {ConfigLineKind::Command, line.substr(0, isShort ? shortCommand : longCommand)};
}

std::uint8_t ReverseBits(std::uint8_t byte) {
    unsigned reversed = 0;
    for (unsigned bit = 0; bit < 8; ++bit) reversed |= ((byte >> bit) & 1U) << (7U - bit);
    return static_cast<std::uint8_t>(reversed);
}

std::size_t CountFirmwareBlocks(const std::vector<std::uint8_t>& image) {
    constexpr std::uint8_t erased = 255;
    for (std::size_t count = image.size() / firmwareBlockSize; count > 0; --count) {
        const auto end = image.begin() + static_cast<std::ptrdiff_t>(count * firmwareBlockSize);
        const auto begin = end - static_cast<std::ptrdiff_t>(firmwareBlockSize);
        if (std::any_of(begin, end, [](std::uint8_t byte) { return byte != erased; })) return count;
    }
    return 0;
}

std::uint8_t FirmwareChecksum(const std::uint8_t* bytes, std::size_t size) {
    std::uint8_t sum = 0;
    for (std::size_t at = 0; at < size; ++at) sum = static_cast<std::uint8_t>(sum ^ bytes[at]);
    return sum;
}

std::array<std::uint8_t, firmwarePacketSize> MakeFirmwarePacket(const std::vector<std::uint8_t>& reversed,
                                                                std::size_t block, int sensor) {
    constexpr std::size_t addressUnits = 4;  // a block is four units of 256 bytes
    constexpr unsigned byteBits = 8;
    const std::size_t address = block * addressUnits;
    std::array<std::uint8_t, firmwarePacketSize> packet{'W', 'F', 'D'};
    packet[3] = static_cast<std::uint8_t>('0' + sensor);
    packet[4] = static_cast<std::uint8_t>(address >> byteBits);
    packet[5] = static_cast<std::uint8_t>(address);
    std::copy_n(reversed.begin() + static_cast<std::ptrdiff_t>(block * firmwareBlockSize), firmwareBlockSize,
                packet.begin() + 6);
    return packet;
}
