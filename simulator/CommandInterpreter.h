#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace simulator {

inline constexpr char commandEnd = '\r';

/// Replies without their carriage return.
inline constexpr std::string_view replyAccepted = "A";
inline constexpr std::string_view replyRefused = "E";

/// A register access as a command spells it: `R<sensor><register>` or `W<sensor><register><value>`.
struct RegisterCommand {
    bool write = false;
    int sensor = 0;
    int number = 0;
    std::uint16_t value = 0;
};

/// Reads a command without its carriage return; nothing if it is no register access.
std::optional<RegisterCommand> parseRegisterCommand(std::string_view text);

std::string readReply(std::uint16_t value);

/// A command for the flash memory: erase, status or data packet of a sensor.
struct FlashCommand {
    enum class Kind { Erase, Status, Packet } kind = Kind::Erase;
    int sensor = 0;
    std::size_t offset = 0;  ///< of a packet's data, in bytes
    std::string_view data;   ///< of a packet; borrowed from the command
};

/// Reads a command without its carriage return; nothing if it is none for the flash memory.
std::optional<FlashCommand> parseFlashCommand(std::string_view text);

/// Cuts the byte stream of the serial line into commands. A flash data packet is binary and ends by its length.
class CommandAssembler {
public:
    /// More bytes than this without a carriage return are no command and are dropped.
    static constexpr std::size_t capacity = 4096;

    /// Takes the next byte. Gives the command that it completes, or an empty one when the input was dropped.
    std::optional<std::string> feed(char byte);

    /// Part of a flash data packet has come.
    bool insidePacket() const;
    void reset() { pending.clear(); }

private:
    std::string pending;
};

}  // namespace simulator
