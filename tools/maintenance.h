#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "tools/Output.h"
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
    bool force = false;   ///< also an image of which no block would be written
    bool dryRun = false;  ///< shows what would be done
};

struct RegisterRequest {
    Preparation preparation;
    int number = 0;
    int sensor = 1;
    int value = 0;  ///< for a write
};

/// How many sensors a temperature is worth asking of: each one, and the auxiliary probe behind them.
int temperatureCount(const QuorinDetector& detector);

/// `FILE: ` and why it can't be read.
std::string unreadable(const std::string& file);

/// Prints temperatures. Returns as `live` does.
int temperature(const TemperatureRequest& request, Output& output);

/// Switches the power and prints the detector's settings afterwards. After a signal the switch is completed, or not
/// begun. Returns `exitSuccess` or `exitInterrupted`.
int power(const Preparation& preparation, PowerAction action, Output& output);

/// Switches a detector's Camera Link interface.
void powerInterface(const Preparation& preparation, bool on, Output& output);

/// Four bytes, most significant first.
using NetworkAddress = std::array<int, 4>;

/// Takes A.B.C.D apart; nothing for another form or a byte above 255.
std::optional<NetworkAddress> parseNetworkAddress(std::string_view text);

/// Sets the network address that a GigE detector keeps for itself.
void setPersistentAddress(const Preparation& preparation, const NetworkAddress& address, Output& output);

/// Looks at every line of a configuration file, and sends the file if all can be sent and it isn't only to be checked.
/// Lines that would be refused are printed as FILE:LINE: reason; the result is `exitFailedCall` then. After a signal
/// the whole file is sent, or nothing of it, and the result is `exitInterrupted`.
int loadConfiguration(const ConfigRequest& request, Output& output);

/// Shows what an upload will do, asks, and does it, with a progress bar on a terminal. Refuses a file of which nothing
/// would be written. After a signal the upload is completed, or not begun, and the result is `exitInterrupted`. A
/// failure reports where the upload stopped, what the flash memory holds now and what to do.
int uploadFirmware(const FirmwareRequest& request, std::istream& in, Output& output);

void readRegister(const RegisterRequest& request, Output& output);
void writeRegister(const RegisterRequest& request, Output& output);
/// Appends what the registers that the library knows hold, with their names. Stops at the first that can't be read,
/// since each further one would cost a time-out, and answers with that failure; null if there was none.
std::exception_ptr readKnownRegisters(const QuorinDetector& detector, int sensor, Json& registers);
void printRegisters(const Json& registers, std::ostream& out);
/// Prints the registers that the library knows, by name.
void dumpRegisters(const RegisterRequest& request, Output& output);

/// Sends one serial command and prints the reply.
void sendCommand(const Preparation& preparation, const std::string& command, Output& output);

}  // namespace tool
