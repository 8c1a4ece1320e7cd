#include "detector/baseDetector/serialProtocol.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace serial {

std::string formatRead(int sensor, int reg) {
    return fmt::format("R{}{:03}", sensor, reg);
}

std::string formatWrite(int sensor, int reg, int value) {
    return fmt::format("W{}{:03}{:05}", sensor, reg, value);
}

std::optional<int> parseReadReply(std::string_view reply) {
    constexpr std::size_t replyLength = 7;
    constexpr std::size_t digits = 5;
    if (reply.size() != replyLength || reply.front() != readReplyStart) return std::nullopt;
    try {
        return std::stoi(std::string(reply.substr(1, digits)));
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

void copyText(char* target, std::size_t size, std::string_view text) {
    if (target == nullptr || size == 0) return;
    const std::size_t count = std::min(size - 1, text.size());
    std::copy_n(text.data(), count, target);
    target[count] = '\0';
}

}  // namespace serial

bool IsFlashRegisterWrite(std::string_view command) {
    constexpr std::array flashRegisters{20, 21, 22, 23, 24, 25, 26, 116, 125, 200, 201, 202, 203, 418};
    constexpr std::size_t writeLength = 10;
    const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
    if (command.size() != writeLength || command.front() != 'W' ||
        !std::all_of(command.begin() + 1, command.end(), isDigit))
        return false;
    const int reg = (command[2] - '0') * 100 + (command[3] - '0') * 10 + (command[4] - '0');
    return std::find(flashRegisters.begin(), flashRegisters.end(), reg) != flashRegisters.end();
}
