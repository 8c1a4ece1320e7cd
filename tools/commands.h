#pragma once

#include <chrono>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/preparation.h"
#include "tools/settings.h"

/// The tool's commands. Each takes a request whose form was checked and throws what goes wrong.
namespace tool {

/// The command line asks for something that can't be: exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct InfoRequest {
    Preparation preparation;
    bool json = false;
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
    bool json = false;
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
void list(std::ostream& out);

/// Opens a detector and prints what it is and can do.
void info(const InfoRequest& request, std::ostream& out);

/// Takes frames and writes them to a TIFF file, one page each. Leaves no file behind if anything fails.
void snap(const SnapRequest& request, std::ostream& out);

/// Takes the frames of one live run and writes them as they come. An interrupt ends the run; the frames before it are
/// written. A failure leaves no file, in a directory the files that are whole.
/// @param terminal  where a progress bar goes, or null
/// @return          `exitSuccess` or `exitInterrupted`
int live(const LiveRequest& request, std::ostream& out, std::ostream* terminal);

/// Prints settings as `set` takes them.
void get(const GetRequest& request, std::ostream& out);

/// Changes settings in the order given, then prints what the detector made of them.
void set(const SetRequest& request, std::ostream& out);

/// Changes the region of interest and prints it.
void roi(const RoiRequest& request, std::ostream& out);

/// Drives the pulse generator. Returns as `live` does.
int pulse(const PulseRequest& request, std::ostream& out);

/// Sends one trigger edge by software.
void trigger(const Preparation& preparation, std::ostream& out);

}  // namespace tool
