#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/Output.h"
#include "tools/commands.h"
#include "tools/generate.h"
#include "tools/maintenance.h"

namespace tool {

/// The command line as it is declared, and what it said.
class CommandLine {
public:
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// After the parsing: does what was asked for and answers with the exit status.
    int execute(Output& told) const;

    /// The detector that the command line names, or the default; nothing if it names none that could be.
    std::optional<DetectorAddress> detectorAddress() const;

    CLI::App app{"Drives image detectors: what they are, their settings, and frames from them.", "qrapi"};

private:
    using Action = std::function<int(Output&)>;

    CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description, Action action);
    void addPreparation(CLI::App& command, bool withPulses = true);
    void addExposure(CLI::App& command);
    void addPicture(CLI::App& command);
    void addDestination(CLI::App& command);
    void addShow();
    void addFrames();
    void addSettings();
    void addRegion();
    void addPulses();
    void addMaintenance();
    void addRegisters();
    void addService();
    void addAddress(CLI::App& command);

    /// What a shell offers for the option; `checked` refuses anything else.
    CLI::Option* choices(CLI::Option* option, std::vector<std::string> names, bool checked = false);
    CLI::Option* fileName(CLI::Option* option);

    Preparation preparation(Output& told) const;
    DetectorAddress detectorOrDefault(Output& told) const;
    int checkedCount() const;
    Destination checkedDestination(Output& told) const;
    int doSnap(Output& told) const;
    int doLive(Output& told) const;
    int doGet(Output& told) const;
    int doSet(Output& told) const;
    int doRoi(Output& told, const Change& change) const;
    bool sensorGiven() const;
    RegisterRequest registerRequest(Output& told, int lowestSensor) const;
    int doTemperature(Output& told) const;
    int doUpload(Output& told) const;
    int doSelftest(Output& told) const;
    int doReport(Output& told) const;
    int runCommand(Output& told) const;
    int doPulse(Output& told, PulseAction action) const;

    struct Command {
        CLI::App* declared;
        Action action;
    };
    std::vector<Command> commands;  ///< a command within a command stands behind it

    std::map<const CLI::Option*, Completion> completions;

    std::string detector;
    std::string address;  ///< the detector as an argument of its own
    CLI::Option* detectorOption = nullptr;
    bool showLog = false;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::string generated;
    int logLines = 500;
    bool callback = false;
    std::vector<double> exposureMs;  ///< one at most, none if not given
    int count = 1;
    std::string picture;
    DestinationOptions destination;
    std::string output;  ///< of a report
    std::vector<std::string> changes;
    std::string region;
    std::vector<double> pulseHz;  ///< one at most, none if not given
    std::vector<std::string> names;
    std::vector<std::string> assignments;
    Region area;
    int startRow = 0;
    CLI::Option* startRowOption = nullptr;
    std::string margin;
    double frequencyHz = 0;
    double seconds = 0;
    std::vector<CLI::Option*> sensorOptions;
    CLI::Option* watchOption = nullptr;
    int sensor = 1;
    int number = 0;
    int value = 0;
    std::string inputFile;
    std::string interfaceState;
    std::string networkAddress;
    bool checkOnly = false;
    bool yes = false;
    bool force = false;
    bool dryRun = false;
    std::string serialCommand;
};

}  // namespace tool
