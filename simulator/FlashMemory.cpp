#include "simulator/FlashMemory.h"

#include <algorithm>

namespace simulator {
namespace {

constexpr std::uint8_t erasedByte = 0xFF;

}  // namespace

void FlashMemory::erase(int sensor, platform::Time ends) {
    for (std::size_t each = 0; each < chips.size(); ++each) {
        if (sensor != 0 && static_cast<std::size_t>(sensor - 1) != each) continue;
        std::fill(chips[each].bytes.begin(), chips[each].bytes.end(), erasedByte);
        chips[each].eraseEnds = ends;
    }
}

bool FlashMemory::eraseRunning(int sensor) const {
    return platform::now() < chip(sensor).eraseEnds;
}

std::uint8_t FlashMemory::write(int sensor, std::size_t offset, std::string_view bytes) {
    std::uint8_t checksum = 0;
    for (std::size_t each = 0; each < chips.size(); ++each) {
        if (sensor != 0 && static_cast<std::size_t>(sensor - 1) != each) continue;
        std::vector<std::uint8_t>& memory = chips[each].bytes;
        if (memory.size() < offset + bytes.size()) memory.resize(offset + bytes.size(), erasedByte);
        checksum = 0;
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            std::uint8_t& cell = memory[offset + at];
            cell = static_cast<std::uint8_t>(cell & static_cast<std::uint8_t>(bytes[at]));
            checksum = static_cast<std::uint8_t>(checksum ^ cell);
        }
    }
    return checksum;
}

}  // namespace simulator
