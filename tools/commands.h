#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/FrameFiles.h"
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
    Destination output;
};

struct LiveRequest {
    Preparation preparation;
    int count = 1;
    Destination output;
    bool callback = false;
    // Where memory is what bounds what may wait for the disk. The library has its ring for itself on Camera Link.
    std::int64_t ringBytes = std::int64_t{1} << 30;
    std::int64_t queueBytes = std::int64_t{1} << 29;
    std::function<std::unique_ptr<FrameFiles>(const Destination&, const RunFacts&, int)> makeFiles = makeFrameFiles;
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

/// Takes frames and writes them. A failure leaves no file, in a directory the files that are whole; a failure to write
/// a frame leaves the frames before it. After a signal the frame in progress is the last one. Returns `exitSuccess` or
/// `exitInterrupted`.
int snap(const SnapRequest& request, Output& output);

/// Takes the frames of one live run and writes them as they come. A signal ends the run; the frames before it are
/// written. A failure is as with `snap`. Lost frames are reported on the error stream.
/// @return  `exitSuccess`, `exitFramesLost` or `exitInterrupted`
int live(const LiveRequest& request, Output& output);

/// Prints settings as `set` takes them.
void get(const GetRequest& request, Output& output);

/// Changes settings in the order given, then prints what the detector made of them.
void set(const SetRequest& request, Output& output);

/// Changes the region of interest and prints it.
void roi(const RoiRequest& request, Output& output);

/// Drives the pulse generator. Returns `exitSuccess` or `exitInterrupted`.
int pulse(const PulseRequest& request, Output& output);

/// Sends one trigger edge by software.
void trigger(const Preparation& preparation, Output& output);

}  // namespace tool
