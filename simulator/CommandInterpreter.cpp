#include "simulator/CommandInterpreter.h"

#include <array>
#include <cstdio>
#include <utility>

namespace simulator {
namespace {

constexpr std::size_t sensorDigits = 1;
constexpr std::size_t registerDigits = 3;
constexpr std::size_t valueDigits = 5;
constexpr std::size_t readLength = 1 + sensorDigits + registerDigits;
constexpr std::size_t writeLength = readLength + valueDigits;
constexpr int highestValue = 65535;
constexpr std::string_view packetName = "WFD";
constexpr std::size_t packetHeader = 6;  // name, sensor digit, address
constexpr std::size_t packetLength = packetHeader + 1024;

/// At most five digits and nothing else.
std::optional<int> digits(std::string_view text) {
    int number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

std::optional<RegisterCommand> parseRegisterCommand(std::string_view text) {
    const bool read = text.size() == readLength && text.front() == 'R';
    const bool write = text.size() == writeLength && text.front() == 'W';
    if (!read && !write) return std::nullopt;
    const std::optional<int> sensor = digits(text.substr(1, sensorDigits));
    const std::optional<int> number = digits(text.substr(1 + sensorDigits, registerDigits));
    const std::optional<int> value = digits(text.substr(readLength));
    if (!sensor || !number || !value || *value > highestValue) return std::nullopt;
    return RegisterCommand{write, *sensor, *number, static_cast<std::uint16_t>(*value)};
}

std::string readReply(std::uint16_t value) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "S%05u", static_cast<unsigned>(value));
    return text.data();
}

std::optional<FlashCommand> parseFlashCommand(std::string_view text) {
    constexpr std::size_t bytesPerAddress = 256;
    if (text.size() < 4) return std::nullopt;
    const std::optional<int> sensor = digits(text.substr(3, sensorDigits));
    if (!sensor) return std::nullopt;
    const std::string_view name = text.substr(0, 3);
    if (text.size() == 4 && name == "WFE") return FlashCommand{FlashCommand::Kind::Erase, *sensor, 0, {}};
    if (text.size() == 4 && name == "RFS") return FlashCommand{FlashCommand::Kind::Status, *sensor, 0, {}};
    if (text.size() == packetLength && name == packetName) {
        const auto high = static_cast<std::uint8_t>(text[4]);
        const auto low = static_cast<std::uint8_t>(text[5]);
        const std::size_t address = (static_cast<std::size_t>(high) << 8U) | low;
        return FlashCommand{FlashCommand::Kind::Packet, *sensor, address * bytesPerAddress, text.substr(packetHeader)};
    }
    return std::nullopt;
}

bool CommandAssembler::insidePacket() const {
    return pending.compare(0, packetName.size(), packetName) == 0;
}

std::optional<std::string> CommandAssembler::feed(char byte) {
    if (insidePacket() && pending.size() < packetLength) {
        pending.push_back(byte);
        return std::nullopt;
    }
    if (byte == commandEnd) return std::exchange(pending, {});
    pending.push_back(byte);
    if (pending.size() < capacity) return std::nullopt;
    pending.clear();
    return std::string();
}

}  // namespace simulator
