#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/Clock.h"

namespace simulator {

/// The flash memory of each sensor's controller. An erase sets every bit; a write only clears bits, so that a block
/// written over an old one holds neither. Knows neither locks nor commands.
class FlashMemory {
public:
    explicit FlashMemory(int sensorCount) : chips(static_cast<std::size_t>(sensorCount)) {}

    /// Erases at once and reports the erase as running until `ends`. Sensor 0 is every sensor.
    void erase(int sensor, platform::Time ends);

    bool eraseRunning(int sensor) const;

    /// Writes bytes at an offset. Gives the checksum of what the memory holds there now.
    std::uint8_t write(int sensor, std::size_t offset, std::string_view bytes);

    /// Everything up to the highest byte that was ever written.
    const std::vector<std::uint8_t>& content(int sensor) const { return chip(sensor).bytes; }

private:
    struct Chip {
        std::vector<std::uint8_t> bytes;
        platform::Time eraseEnds{platform::Time::min()};
    };
    const Chip& chip(int sensor) const { return chips[static_cast<std::size_t>(sensor == 0 ? 0 : sensor - 1)]; }

    std::vector<Chip> chips;
};

}  // namespace simulator
