#include "tools/run.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <ostream>
#include <string_view>

#include "platform/SystemError.h"
#include "tools/CommandLine.h"
#include "tools/failure.h"
#include "tools/usage.h"

namespace tool {
namespace {

/// Throws `UsageError` for a line that can't be parsed. Answers false if it asked for help or the version, which was
/// printed then.
bool parse(CommandLine& line, int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    try {
        line.app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& ending) {
        if (ending.get_exit_code() != 0) throw UsageError(explain(ending, line.app));
        line.app.exit(ending, out, err);
        return false;
    }
}

int runTold(CommandLine& line, int argc, const char* const* argv, std::ostream& out, Output& output) {
    try {
        if (!parse(line, argc, argv, out, output.errors())) return exitSuccess;
        return line.execute(output);
    } catch (const UsageError& mistake) {
        tellFailure(mistake, {}, output);
        return exitBadCommandLine;
    } catch (const std::exception& failure) {
        // A QuorinException's text tells message, code with its name, origin and transport error.
        tellFailure(failure, remedyFor(failure, line.detectorAddress()), output);
        return exitFailedCall;
    }
}

}  // namespace

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    Output output(out, err);
    // A line that can't be parsed is told in the form that was asked for, too.
    output.isJson = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
    try {
        CommandLine line;
        const int status = runTold(line, argc, argv, out, output);
        output.finish();
        errno = 0;
        if (out.flush()) return status;
        err << "error: cannot write to the standard output"
            << (errno != 0 ? ": " + platform::systemErrorText(errno) : "") << "\n";
        return exitFailedCall;
    } catch (const std::exception& failure) {
        err << "error: " << failure.what() << "\n";
        return exitFailedCall;
    }
}

}  // namespace tool
