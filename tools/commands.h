#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/Output.h"
#include "tools/preparation.h"
#include "tools/settings.h"

/// The tool's commands. Each takes a request whose form was checked and throws what goes wrong.
namespace tool {

/// The command line asks for something that can't be: exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct SnapRequest {
    Preparation preparation;
    int count = 1;
    std::string output;
};

struct LiveRequest {
    Preparation preparation;
    int count = 1;
    std::string output;  ///< a file for all pages, or an existing directory for numbered files
    bool callback = false;
};

struct GetRequest {
    Preparation preparation;
    std::vector<const Setting*> settings;
};

struct SetRequest {
    Preparation preparation;
    std::vector<Assignment> assignments;
};

struct RoiRequest {
    Preparation preparation;
    Change change;  ///< made before the region is printed
};

enum class PulseAction { On, Off, Run, Hold };

struct PulseRequest {
    Preparation preparation;
    PulseAction action = PulseAction::On;
    float frequencyHz = 0;                ///< for `On` and `Run`
    std::chrono::nanoseconds duration{};  ///< for `Run`
};

/// Prints the simulated detectors and what each is.
void list(Output& output);

/// What an open detector is and can do.
Json describeDetector(const QuorinDetector& detector);
/// One line per value; the keys of an inner object are indented below its name.
void printFacts(const Json& facts, std::ostream& out);

/// Opens a detector and prints what it is and can do.
void info(const Preparation& preparation, Output& output);

/// Takes frames and writes them to a TIFF file, one page each. Leaves no file behind if anything fails.
void snap(const SnapRequest& request, Output& output);

/// Takes the frames of one live run and writes them as they come. An interrupt ends the run; the frames before it are
/// written. A failure leaves no file, in a directory the files that are whole.
/// @return  `exitSuccess` or `exitInterrupted`
int live(const LiveRequest& request, Output& output);

/// Prints settings as `set` takes them.
void get(const GetRequest& request, Output& output);

/// Changes settings in the order given, then prints what the detector made of them.
void set(const SetRequest& request, Output& output);

/// Changes the region of interest and prints it.
void roi(const RoiRequest& request, Output& output);

/// Drives the pulse generator. Returns as `live` does.
int pulse(const PulseRequest& request, Output& output);

/// Sends one trigger edge by software.
void trigger(const Preparation& preparation, Output& output);

}  // namespace tool
