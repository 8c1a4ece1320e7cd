#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "tools/preparation.h"

/// The commands of the engineer who looks after a detector.
namespace tool {

struct TemperatureRequest {
    Preparation preparation;
    std::optional<int> sensor;           ///< all sensors if absent
    std::optional<double> watchSeconds;  ///< reads again after this time, until interrupted
};

enum class PowerAction : std::uint8_t { On, Off, Reset };

struct ConfigRequest {
    Preparation preparation;
    std::string file;
    bool checkOnly = false;
};

struct FirmwareRequest {
    Preparation preparation;
    std::string file;
    int sensor = 1;
    bool yes = false;     ///< erases without asking
    bool dryRun = false;  ///< shows what would be done
};

struct RegisterRequest {
    Preparation preparation;
    int number = 0;
    int sensor = 1;
    int value = 0;  ///< for a write
};

/// Prints temperatures. Returns as `live` does.
int temperature(const TemperatureRequest& request, std::ostream& out);

/// Switches the power and says what the detector made of it.
void power(const Preparation& preparation, PowerAction action, std::ostream& out);

/// Switches a detector's Camera Link interface.
void powerInterface(const Preparation& preparation, bool on, std::ostream& out);

/// Four bytes, most significant first.
using NetworkAddress = std::array<int, 4>;

/// Takes A.B.C.D apart; nothing for another form or a byte above 255.
std::optional<NetworkAddress> parseNetworkAddress(std::string_view text);

/// Sets the network address that a GigE detector keeps for itself.
void setPersistentAddress(const Preparation& preparation, const NetworkAddress& address, std::ostream& out);

/// Looks at every line of a configuration file, and sends the file if all can be sent and it isn't only to be checked.
/// Lines that would be refused go to `out` as FILE:LINE: reason; the answer is `exitFailedCall` then.
int loadConfiguration(const ConfigRequest& request, std::ostream& out);

/// Shows what an upload will do, asks, and does it, with a progress bar where `terminal` is not null. A failure tells
/// on `err` where it stopped, what the flash memory holds now and what to do.
int uploadFirmware(const FirmwareRequest& request, std::istream& in, std::ostream& out, std::ostream& err,
                   std::ostream* terminal);

void readRegister(const RegisterRequest& request, std::ostream& out);
void writeRegister(const RegisterRequest& request, std::ostream& out);
/// Prints the registers that the library knows, by name.
void dumpRegisters(const RegisterRequest& request, std::ostream& out);

/// Sends one serial command and prints the reply.
void sendCommand(const Preparation& preparation, const std::string& command, std::ostream& out);

}  // namespace tool
