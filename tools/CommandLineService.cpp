#include <ostream>

#include "tools/CommandLine.h"
#include "tools/run.h"
#include "tools/service.h"

/// The command line of the commands that look at a detector as a whole, and which command is carried out.
namespace tool {

void CommandLine::addAddress(CLI::App& command) {
    choices(command.add_option("ADDRESS", address, "The detector, as --detector names it"), simulatedDetectors());
}

void CommandLine::addService() {
    CLI::App* const selftestCommand =
        addCommand(app, "selftest", "Run a detector through its paces and tell what works",
                   [this](Output& told) { return doSelftest(told); });
    addAddress(*selftestCommand);
    selftestCommand->footer(
        "Opens the detector, sets each setting to another value and back, takes a frame and a live run of five, tries "
        "the\nregion of interest, reads temperatures and closes. What it changed is put back, also after a failure "
        "and Ctrl-C.\nThe exit status is 1 if a step failed.");

    CLI::App* const reportCommand = addCommand(app, "report", "Collect in one archive what a report of a fault needs",
                                               [this](Output& told) { return doReport(told); });
    addAddress(*reportCommand);
    fileName(reportCommand->add_option("--output", output, "The archive to write, such as report.tar.gz")
                 ->type_name("FILE")
                 ->required());
    reportCommand->add_option("--log-lines", logLines, "How many of the log's last lines go in; otherwise 500")
        ->type_name("N");
    reportCommand->footer(
        "In it are: the versions of tool, library, compiler and system; what the detector is and can do, its settings "
        "and\nregisters; the last lines of the log. The log tells the calls of every program of this user, with names "
        "of files\nand addresses of detectors. No frames, passwords or environment variables go in. Nothing is sent "
        "anywhere: look at\nthe archive before you pass it on. A detector that can't be opened gives an archive, too, "
        "with the failure in it.");
}

int CommandLine::doSelftest(Output& told) const {
    return selftest(preparation(told), told);
}

int CommandLine::doReport(Output& told) const {
    constexpr int mostLines = 1000000;
    if (logLines < 0 || logLines > mostLines)
        throw UsageError("--log-lines: must be between 0 and " + std::to_string(mostLines));
    report({preparation(told), output, logLines}, told);
    return exitSuccess;
}

int CommandLine::runCommand(Output& told) const {
    const int asked = static_cast<int>(!app.get_subcommands().empty()) + static_cast<int>(showLog) +
                      static_cast<int>(!generated.empty());
    if (asked > 1) throw UsageError("--log stands alone, without a command");
    if (showLog) {
        told.text() << logPath() << "\n";
        told.facts["log_file"] = logPath();
        return exitSuccess;
    }
    if (!generated.empty()) {
        generate(generated, {app, completions}, told.text());
        return exitSuccess;
    }
    for (const Command& command : commands)
        if (command.declared->parsed()) return command.action(told);
    throw UsageError("a command is needed, such as list, info, snap, live, get or set (qrapi --help lists them all)");
}

}  // namespace tool
