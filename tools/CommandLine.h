#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/maintenance.h"

namespace tool {

/// The command line as it is declared, and what it said.
class CommandLine {
public:
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// After the parsing: does what was asked for and answers with the exit status.
    int execute(std::ostream& out, std::ostream& err) const;

    CLI::App app{"Drives image detectors: what they are, their settings, and frames from them.", "qrapi"};

private:
    struct Streams {
        std::ostream& out;
        std::ostream& err;
    };
    using Action = std::function<int(const Streams&)>;

    CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description, Action action);
    void addPreparation(CLI::App& command, bool withPulses = true);
    void addExposure(CLI::App& command);
    void addPicture(CLI::App& command);
    void addShow();
    void addFrames();
    void addSettings();
    void addRegion();
    void addPulses();
    void addMaintenance();
    void addRegisters();

    Preparation preparation(std::ostream& err) const;
    DetectorAddress detectorOrDefault(std::ostream& err) const;
    int checkedCount() const;
    int doSnap(const Streams& streams) const;
    int doLive(const Streams& streams) const;
    int doGet(const Streams& streams) const;
    int doSet(const Streams& streams) const;
    int doRoi(const Streams& streams, const Change& change) const;
    bool sensorGiven() const;
    RegisterRequest registerRequest(const Streams& streams, int lowestSensor) const;
    int doTemperature(const Streams& streams) const;
    int doUpload(const Streams& streams) const;
    int doPulse(const Streams& streams, PulseAction action) const;

    struct Command {
        CLI::App* declared;
        Action action;
    };
    std::vector<Command> commands;  ///< a command within a command stands behind it

    std::string detector;
    CLI::Option* detectorOption = nullptr;
    bool showLog = false;
    bool json = false;
    bool callback = false;
    std::vector<double> exposureMs;  ///< one at most, none if not given
    int count = 1;
    std::string picture;
    std::string output;
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
    bool dryRun = false;
    std::string serialCommand;
};

}  // namespace tool
