#include "tools/CommandLine.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "tools/CallLog.h"
#include "tools/nearest.h"
#include "tools/run.h"

namespace tool {
namespace {

const std::map<std::string, simulator::Picture>& pictureNames() {
    static const std::map<std::string, simulator::Picture> names{{"pattern", simulator::Picture::Pattern},
                                                                 {"phantom", simulator::Picture::Phantom}};
    return names;
}

/// As the library takes it, if it is a finite number above 0 there.
float positive(double value, const std::string& option, const std::string& unit) {
    const auto number = static_cast<float>(value);
    if (!std::isfinite(number) || number <= 0.0F)
        throw UsageError(option + ": must be a finite number of " + unit + " above 0");
    return number;
}

}  // namespace

CommandLine::CommandLine() {
    app.set_version_flag("--version", "qrapi " QRAPI_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough();
    detectorOption = choices(
        app.add_option("-d,--detector", detector,
                       "The detector: " + std::string(allowedDetectors) + ". Otherwise " + std::string(defaultDetector))
            ->type_name("D"),
        simulatedDetectors());
    app.add_flag("--json", json,
                 "Print one JSON object and nothing else on the standard output; a failure is its member \"error\"");
    app.add_flag("-q,--quiet", quiet, "Print results and errors, and nothing else");
    app.add_flag("-v,--verbose", verbose, "Print each call of the library with its time, on the standard error");
    app.add_flag("--log", showLog, "Print the path of the library's log file");
    choices(app.add_option("--generate", generated, "Print the man page or a shell's completion"), generatedTexts(),
            true)
        ->group("");  // for the build
    app.footer(
        "Exit status: 0 success; 1 a call or file failed; 2 bad command line; 3 frames were lost (live); 130 ended by "
        "Ctrl-C, SIGTERM or SIGHUP (snap, live, pulse run, temperature --watch, selftest; power, config load and "
        "firmware upload finish first).");
    addShow();
    addFrames();
    addSettings();
    addRegion();
    addPulses();
    addMaintenance();
    addService();
}

CLI::App* CommandLine::addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                                  Action action) {
    CLI::App* const command = parent.add_subcommand(name, description);
    commands.push_back({command, std::move(action)});
    return command;
}

CLI::Option* CommandLine::choices(CLI::Option* option, std::vector<std::string> names, bool checked) {
    if (checked)
        option->check([names](const std::string& text) -> std::string {
            if (std::find(names.begin(), names.end(), text) != names.end()) return {};
            return "\"" + text + "\" is none" + suggestion(text, names, "allowed is");
        });
    completions[option].names = std::move(names);
    return option;
}

CLI::Option* CommandLine::fileName(CLI::Option* option) {
    completions[option].files = true;
    return option;
}

void CommandLine::addPreparation(CLI::App& command, bool withPulses) {
    choices(
        command
            .add_option("--set", changes, "Change a setting after the open; repeatable (qrapi set --help lists them)")
            ->type_name("NAME=VALUE")
            ->allow_extra_args(false),
        assignmentChoices());
    command.add_option("--roi", region, "Set the region of interest after that and turn it on")->type_name("W,H[,ROW]");
    if (!withPulses) return;
    command.add_option("--pulse", pulseHz, "Let the pulse generator run, up to 500, below it on Camera Link")
        ->type_name("HZ")
        ->expected(1);
}

void CommandLine::addExposure(CLI::App& command) {
    command.add_option("--exposure", exposureMs, "Exposure time; otherwise as the detector is set")
        ->type_name("MS")
        ->expected(1);
}

void CommandLine::addPicture(CLI::App& command) {
    std::vector<std::string> names;
    for (const auto& [name, value] : pictureNames()) names.push_back(name);
    choices(command.add_option("--picture", picture, "What a simulated detector sees: pattern or phantom")
                ->type_name("NAME"),
            names);
}

void CommandLine::addDestination(CLI::App& command) {
    fileName(command
                 .add_option("--output", destination.path,
                             "The file to write; its extension chooses the format, " + allowedFormats() +
                                 ". Or an existing directory without frames of an earlier run: one file each, "
                                 "frame_000001.tif and so on")
                 ->type_name("FILE|DIR")
                 ->required());
    choices(command
                .add_option("--format", destination.format,
                            "The format, whatever the extension; for a directory otherwise tif")
                ->type_name("NAME"),
            formatNames());
    command
        .add_option("--window", destination.window,
                    "The grey levels that are black and white in a png; otherwise each frame's 1st and 99th percentile")
        ->type_name("LOW,HIGH");
    command
        .add_option("--compress", destination.compression,
                    "Level of gzip in h5, hdf5 and nxs, 1 to 9; otherwise 0, none")
        ->type_name("N");
}

void CommandLine::addShow() {
    addCommand(app, "list", "List the simulated detectors", [](Output& told) {
        list(told);
        return exitSuccess;
    });
    CLI::App* const command =
        addCommand(app, "info", "Open a detector and print what it is and can do", [this](Output& told) {
            info(preparation(told), told);
            return exitSuccess;
        });
    addAddress(*command);
    addPreparation(*command);
}

void CommandLine::addFrames() {
    CLI::App* const snapCommand = addCommand(app, "snap", "Take single frames and write them to a file",
                                             [this](Output& told) { return doSnap(told); });
    addAddress(*snapCommand);
    addExposure(*snapCommand);
    snapCommand->add_option("--count", count, "Number of frames; otherwise 1")->type_name("N");
    addPicture(*snapCommand);
    addDestination(*snapCommand);
    addPreparation(*snapCommand);
    snapCommand->footer(
        "After Ctrl-C, SIGTERM or SIGHUP the frame in progress is the last one: snap ends when it has come, or after "
        "its\ntime-out, keeps the frames and exits with 130. A second Ctrl-C or SIGTERM ends it immediately, without a "
        "file.");

    CLI::App* const liveCommand = addCommand(app, "live", "Take the frames of a live run and write them as they come",
                                             [this](Output& told) { return doLive(told); });
    addAddress(*liveCommand);
    addExposure(*liveCommand);
    liveCommand->add_option("--count", count, "Number of frames")->type_name("N")->required();
    addPicture(*liveCommand);
    addDestination(*liveCommand);
    liveCommand->add_flag("--callback", callback, "Take the frames by the library's callback in place of waiting");
    addPreparation(*liveCommand);
    liveCommand->footer(
        "The closing line tells the frames exposed (simulated detectors only), delivered into the library's ring and\n"
        "skipped, that is overwritten there before they could be read, and the rate of delivery.\n"
        "Lost frames make the exit status 3; standard error tells why they were lost.\n"
        "Ctrl-C, SIGTERM or SIGHUP ends the run, keeps the frames that came before it and exits with 130; a second "
        "Ctrl-C or\nSIGTERM ends it immediately, without a file.");
}

void CommandLine::addSettings() {
    CLI::App* const getCommand =
        addCommand(app, "get", "Print settings as \"set\" takes them", [this](Output& told) { return doGet(told); });
    choices(getCommand->add_option("NAME", names, "The settings to print; otherwise all"), settingNames());
    addPreparation(*getCommand);
    getCommand->footer(settingsHelp());

    CLI::App* const setCommand =
        addCommand(app, "set", "Change settings in the order given and print what the detector made of them",
                   [this](Output& told) { return doSet(told); });
    choices(setCommand->add_option("NAME=VALUE", assignments, "What to change")->required(), assignmentChoices());
    addPreparation(*setCommand);
    setCommand->footer(settingsHelp() +
                       "\nA simulated detector lives as long as the command: give the settings that a command needs "
                       "by its --set.");
}

void CommandLine::addRegion() {
    CLI::App* const roiCommand = app.add_subcommand("roi", "Show or change the region of interest");
    roiCommand->require_subcommand(1);
    addPreparation(*roiCommand);
    const auto add = [&](const std::string& name, const std::string& description, const Change& change) {
        return addCommand(*roiCommand, name, description, [this, change](Output& told) { return doRoi(told, change); });
    };
    addAddress(*add("show", "Print it", [](QuorinDetector&) {}));
    CLI::App* const setCommand = add("set", "Set it; it takes effect when it is on", [this](QuorinDetector& opened) {
        Region wanted = area;
        if (startRowOption->count() > 0) wanted.startRow = startRow;
        setRegion(opened, wanted);
    });
    setCommand->add_option("W", area.width, "Width in pixels: the panel's")->required();
    setCommand->add_option("H", area.height, "Height in pixels: from 128 on, in steps of 8")->required();
    startRowOption = setCommand->add_option("ROW", startRow, "The first row; otherwise it is centred");
    addAddress(*add("on", "Turn it on; turns legacy timing and slice interlacing off",
                    [](QuorinDetector& opened) { opened.SetROIEnabled(true); }));
    addAddress(*add("off", "Turn it off", [](QuorinDetector& opened) { opened.SetROIEnabled(false); }));
    CLI::App* const marginCommand = add("margin", "Turn the margin around it on or off",
                                        [this](QuorinDetector& opened) { opened.SetROIMarginEnabled(margin == "on"); });
    choices(marginCommand->add_option("STATE", margin, "on or off")->required(), {"on", "off"}, true);
}

void CommandLine::addPulses() {
    CLI::App* const pulseCommand = app.add_subcommand("pulse", "Drive the pulse generator");
    pulseCommand->require_subcommand(1);
    addPreparation(*pulseCommand, false);
    pulseCommand->footer(
        "The generator goes off when the board is closed, which each command does at its end. Frames follow the pulses "
        "once\nthe detector is triggered: --set trigger_source=bits_5_and_6. While it runs free its frames come "
        "without them.");
    const auto add = [&](const std::string& name, const std::string& description, PulseAction action) {
        return addCommand(*pulseCommand, name, description,
                          [this, action](Output& told) { return doPulse(told, action); });
    };
    const auto addFrequency = [this](CLI::App& command) {
        command.add_option("HZ", frequencyHz, "The frequency, up to 500, below it on Camera Link")->required();
    };
    addFrequency(*add("on", "Set it up and let it pulse", PulseAction::On));
    addAddress(*add("off", "Take it out of the trigger's way", PulseAction::Off));
    CLI::App* const run =
        add("run", "Take the frames of a live run while it pulses, and say how many came", PulseAction::Run);
    addFrequency(*run);
    run->add_option("--for", seconds, "How long")->type_name("SECONDS")->required();
    addAddress(*add("hold", "Hold its pulses back", PulseAction::Hold));

    CLI::App* const triggerCommand =
        addCommand(app, "trigger", "Send one trigger edge by software", [this](Output& told) {
            trigger(preparation(told), told);
            return exitSuccess;
        });
    addAddress(*triggerCommand);
    addPreparation(*triggerCommand);
}

std::optional<DetectorAddress> CommandLine::detectorAddress() const {
    const std::string& named = address.empty() ? detector : address;
    return parseDetectorAddress(named.empty() ? defaultDetector : named);
}

DetectorAddress CommandLine::detectorOrDefault(Output& told) const {
    const bool isOption = detectorOption->count() > 0;
    if (isOption && !address.empty())
        throw UsageError("ADDRESS: the detector is named twice, by ADDRESS and by --detector; once is enough");
    if (!isOption && address.empty())
        told.remarks() << "detector: " << defaultDetector << " (none was named)\n";
    else if (isOption && detector.empty())
        throw UsageError("--detector: it is empty; allowed is " + std::string(allowedDetectors));
    const std::optional<DetectorAddress> parsed = detectorAddress();
    if (!parsed) {
        const std::string& named = isOption ? detector : address;
        const std::string guess =
            parseDetectorAddress("ge:" + named) ? "; did you mean \"ge:" + named + "\"? A" : "; a";
        throw UsageError(std::string(isOption ? "--detector: " : "ADDRESS: ") + named + " is none" + guess +
                         "llowed is " + std::string(allowedDetectors));
    }
    return *parsed;
}

Preparation CommandLine::preparation(Output& told) const {
    Preparation asked;
    for (const std::string& change : changes) asked.changes.push_back(parseAssignment(change).change);
    if (!region.empty()) {
        asked.region = parseRegion(region);
        if (!asked.region) throw UsageError("--roi: " + region + " is none; allowed is W,H[,ROW] in pixels");
    }
    if (!pulseHz.empty()) asked.pulseHz = positive(pulseHz.back(), "--pulse", "Hz");
    if (!exposureMs.empty()) asked.exposureMs = positive(exposureMs.back(), "--exposure", "milliseconds");
    if (!picture.empty()) {
        const auto named = pictureNames().find(picture);
        if (named == pictureNames().end())
            throw UsageError("--picture: " + picture + " is none; allowed is pattern or phantom");
        asked.picture = named->second;
    }
    asked.detector = detectorOrDefault(told);
    const std::string problem = logProblem();
    if (!problem.empty()) told.remarks() << "warning: no log is written: " << problem << "\n";
    if (asked.picture && !asked.detector.isSimulated())
        throw UsageError("--picture: only simulated detectors (ge:sim:... and cl:...) let their picture be chosen");
    return asked;
}

int CommandLine::checkedCount() const {
    if (count < 1) throw UsageError("--count: must be at least 1");
    return count;
}

Destination CommandLine::checkedDestination(Output& told) const {
    Destination files = parseDestination(destination);
    files.warn = [&told](const std::string& text) {
        told.remarks() << "warning: " << text << "\n";
        told.facts["warning"] = text;
    };
    return files;
}

int CommandLine::doSnap(Output& told) const {
    const int frames = checkedCount();
    const Destination files = checkedDestination(told);
    return snap({preparation(told), frames, files}, told);
}

int CommandLine::doLive(Output& told) const {
    const int frames = checkedCount();
    const Destination files = checkedDestination(told);
    LiveRequest request;
    request.preparation = preparation(told);
    request.count = frames;
    request.output = files;
    request.callback = callback;
    return live(request, told);
}

int CommandLine::doGet(Output& told) const {
    GetRequest request;
    for (const std::string& name : names) request.settings.push_back(&findSetting(name));
    if (names.empty())
        for (const Setting& setting : settings()) request.settings.push_back(&setting);
    request.preparation = preparation(told);
    get(request, told);
    return exitSuccess;
}

int CommandLine::doSet(Output& told) const {
    SetRequest request;
    for (const std::string& text : assignments) request.assignments.push_back(parseAssignment(text));
    request.preparation = preparation(told);
    set(request, told);
    return exitSuccess;
}

int CommandLine::doRoi(Output& told, const Change& change) const {
    roi({preparation(told), change}, told);
    return exitSuccess;
}

int CommandLine::doPulse(Output& told, PulseAction action) const {
    PulseRequest request;
    request.action = action;
    if (action == PulseAction::On || action == PulseAction::Run)
        request.frequencyHz = positive(frequencyHz, "HZ", "Hz");
    if (action == PulseAction::Run) {
        constexpr double longest = 1e9;  // thirty years, and within the clock's range
        if (seconds > longest) throw UsageError("--for: must be at most 1e9 seconds");
        request.duration = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(positive(seconds, "--for", "seconds")));
    }
    request.preparation = preparation(told);
    return pulse(request, told);
}

int CommandLine::execute(Output& told) const {
    if (quiet && verbose) throw UsageError("--quiet and --verbose: only one of them makes sense");
    told.isJson = json;
    told.isQuiet = quiet;
    const std::optional<CallLog> log = verbose ? std::make_optional<CallLog>(told.errors()) : std::nullopt;
    return runCommand(told);
}

}  // namespace tool
