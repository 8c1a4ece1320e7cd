#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The wire format of the serial channel: ASCII commands and replies, each ended by one carriage return.
namespace serial {

inline constexpr double baud = 115200.0;
inline constexpr int dataBits = 8;
inline constexpr int noParity = 0;
inline constexpr int stopBits = 1;

inline constexpr char carriageReturn = '\r';
inline constexpr char readReplyStart = 'S';
inline constexpr std::size_t replySize = 100;     ///< every reply buffer, terminator included
inline constexpr std::size_t errorTextSize = 50;  ///< part of a reply buffer that "error" is copied into
inline constexpr std::size_t commandSize = 24;    ///< formatted command, terminator included
inline constexpr std::size_t longestStringCommand = 22;
inline constexpr int replyTimeoutMs = 1000;
inline constexpr int readAttempts = 5;
inline constexpr int plainPollDelayMs = 11;  ///< pause before each read on electronics other than Kestrane
inline constexpr int kestranePollDelayMs = 0;
inline constexpr int flashReadyTimeoutMs = 300;
inline constexpr int flashWritePauseMs = 200;
inline constexpr std::string_view familyRead = "R1129";
inline constexpr std::string_view flashStatusRead = "R1418";
inline constexpr std::string_view flashIdleReply = "S00000";

/// "R%d%03d": reads a register (0 to 999) of a sensor (1 to 9).
std::string formatRead(int sensor, int reg);

/// "W%d%03d%05d": writes a register (0 to 999) of a sensor (0 to 9, 0 for all) with 0 to 65535.
std::string formatWrite(int sensor, int reg, int value);

/// The value of a read reply: exactly 7 characters, the first an S, then a number that `std::stoi` accepts in
/// characters 1 to 5. Empty for any other text.
std::optional<int> parseReadReply(std::string_view reply);

/// Copies as much of `text` as fits before the terminator.
void copyText(char* target, std::size_t size, std::string_view text);

}  // namespace serial

/// True for a 10-character write to a register that is kept in flash memory: electronics other than Kestrane need a
/// pause after it.
bool IsFlashRegisterWrite(std::string_view command);
