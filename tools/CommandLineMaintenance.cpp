#include <iostream>

#include "tools/CommandLine.h"
#include "tools/run.h"

/// The command line of the maintenance commands.
namespace tool {
namespace {

constexpr int highestSensor = 9;
constexpr int highestRegister = 999;
constexpr int highestValue = 65535;

void checkRange(const char* name, int value, int lowest, int highest) {
    if (value < lowest || value > highest)
        throw UsageError(std::string(name) + ": must be between " + std::to_string(lowest) + " and " +
                         std::to_string(highest));
}

}  // namespace

void CommandLine::addMaintenance() {
    CLI::App* const temperatureCommand =
        addCommand(app, "temperature", "Print temperatures", [this](Output& told) { return doTemperature(told); });
    addAddress(*temperatureCommand);
    sensorOptions.push_back(temperatureCommand->add_option(
        "--sensor", sensor, "The sensor, from 1 on; one more than there are is the auxiliary probe. Otherwise all"));
    watchOption = temperatureCommand->add_option("--watch", seconds, "Print again after this time, until Ctrl-C")
                      ->type_name("SECONDS");
    addPreparation(*temperatureCommand, false);

    CLI::App* const powerCommand = app.add_subcommand("power", "Switch the detector's power");
    powerCommand->require_subcommand(1);
    const auto addPower = [&](const char* name, const char* description, PowerAction action) {
        CLI::App* const command = addCommand(*powerCommand, name, description, [this, action](Output& told) {
            return power(preparation(told), action, told);
        });
        command->footer(
            "After Ctrl-C, SIGTERM or SIGHUP the switch is completed, of a reset also switching on; the exit status is "
            "130.\nA second Ctrl-C or SIGTERM ends it immediately, and the detector may be off then.");
        addAddress(*command);
    };
    addPower("on", "Switch it on; the detector comes up with its power-on settings", PowerAction::On);
    addPower("off", "Switch it off, on Kestrane electronics to low power", PowerAction::Off);
    addPower("reset", "Switch it off and on again", PowerAction::Reset);
    CLI::App* const interfaceCommand = addCommand(
        *powerCommand, "interface", "Switch a detector's Camera Link interface on or off", [this](Output& told) {
            powerInterface(preparation(told), interfaceState == "on", told);
            return exitSuccess;
        });
    choices(interfaceCommand->add_option("STATE", interfaceState, "on or off")->required(), {"on", "off"}, true);

    addCommand(app, "persistent-ip", "Set the network address that a GigE detector keeps for itself",
               [this](Output& told) {
                   const auto address = parseNetworkAddress(networkAddress);
                   if (!address)
                       throw UsageError("A.B.C.D: " + networkAddress +
                                        " is none; allowed are four numbers of 0 to 255 with points between");
                   setPersistentAddress(preparation(told), *address, told);
                   return exitSuccess;
               })
        ->add_option("A.B.C.D", networkAddress, "The address, such as 192.168.1.20")
        ->required();

    CLI::App* const configCommand = app.add_subcommand("config", "Sensor configuration files");
    configCommand->require_subcommand(1);
    CLI::App* const loadCommand =
        addCommand(*configCommand, "load", "Check every line of a file, then send its commands", [this](Output& told) {
            return loadConfiguration({preparation(told), inputFile, checkOnly}, told);
        });
    fileName(loadCommand->add_option("FILE", inputFile, "The file: one serial command a line")->required());
    loadCommand->add_flag("--check", checkOnly, "Send nothing; print FILE:LINE: reason for each line that is refused");
    loadCommand->footer(
        "After Ctrl-C, SIGTERM or SIGHUP the rest of the file is still sent, so that no detector is left half "
        "configured; the\nexit status is 130. A second Ctrl-C or SIGTERM ends it immediately, between two commands.");

    CLI::App* const firmwareCommand = app.add_subcommand("firmware", "Firmware of the sensors' controllers");
    firmwareCommand->require_subcommand(1);
    CLI::App* const uploadCommand =
        addCommand(*firmwareCommand, "upload", "Erase a sensor's flash memory and write a firmware image into it",
                   [this](Output& told) { return doUpload(told); });
    fileName(uploadCommand->add_option("FILE", inputFile, "The firmware image")->required());
    sensorOptions.push_back(uploadCommand->add_option("--sensor", sensor, "The sensor, 0 to 9")->required());
    uploadCommand->add_flag("--yes", yes, "Do not ask before the erase");
    uploadCommand->add_flag("--force", force,
                            "Allow a file of which no block would be written: the upload only erases then");
    uploadCommand->add_flag("--dry-run", dryRun, "Show what would be sent, with checksums, and do nothing");
    uploadCommand->footer(
        "After Ctrl-C, SIGTERM or SIGHUP the upload is completed, or not begun; the exit status is 130. A second "
        "Ctrl-C "
        "or\nSIGTERM ends it immediately and leaves the sensor unusable until the next upload.");

    addRegisters();
}

void CommandLine::addRegisters() {
    CLI::App* const registerCommand = app.add_subcommand("register", "The detector's registers");
    registerCommand->require_subcommand(1);
    const auto add = [&](const char* name, const char* description, int lowestSensor,
                         void (*action)(const RegisterRequest&, Output&)) {
        CLI::App* const command =
            addCommand(*registerCommand, name, description, [this, lowestSensor, action](Output& told) {
                action(registerRequest(told, lowestSensor), told);
                return exitSuccess;
            });
        sensorOptions.push_back(command->add_option(
            "--sensor", sensor, lowestSensor == 0 ? "The sensor; otherwise all" : "The sensor; otherwise 1"));
        return command;
    };
    add("read", "Print what a register holds", 1, readRegister)
        ->add_option("N", number, "The register, 0 to 999")
        ->required();
    CLI::App* const write = add("write", "Write a register and print what it holds then", 0, writeRegister);
    write->add_option("N", number, "The register, 0 to 999")->required();
    write->add_option("VALUE", value, "What to write, 0 to 65535")->required();
    addAddress(*add("dump", "Print the registers that the library knows", 1, dumpRegisters));

    addCommand(app, "send", "Send a serial command and print the reply",
               [this](Output& told) {
                   sendCommand(preparation(told), serialCommand, told);
                   return exitSuccess;
               })
        ->add_option("COMMAND", serialCommand, "Up to 23 characters")
        ->required();
}

bool CommandLine::sensorGiven() const {
    for (const CLI::Option* option : sensorOptions)
        if (option->count() > 0) return true;
    return false;
}

RegisterRequest CommandLine::registerRequest(Output& told, int lowestSensor) const {
    const int asked = sensorGiven() ? sensor : lowestSensor;
    checkRange("--sensor", asked, lowestSensor, highestSensor);
    checkRange("N", number, 0, highestRegister);
    checkRange("VALUE", value, 0, highestValue);
    return {preparation(told), number, asked, value};
}

int CommandLine::doTemperature(Output& told) const {
    constexpr double longestPause = 86400;
    TemperatureRequest request;
    if (sensorGiven()) request.sensor = sensor;
    if (watchOption->count() > 0) {
        if (!(seconds > 0 && seconds <= longestPause))
            throw UsageError("--watch: must be a number of seconds above 0, at most 86400");
        request.watchSeconds = seconds;
    }
    request.preparation = preparation(told);
    return temperature(request, told);
}

int CommandLine::doUpload(Output& told) const {
    checkRange("--sensor", sensor, 0, highestSensor);
    if (told.isJson && !yes && !dryRun) throw UsageError("--json: nothing can be asked then; add --yes or --dry-run");
    return uploadFirmware({preparation(told), inputFile, sensor, yes, force, dryRun}, std::cin, told);
}

}  // namespace tool
