#include "tools/run.h"

#include <exception>
#include <ostream>

#include "tools/CommandLine.h"

namespace tool {

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    try {
        CommandLine line;
        try {
            line.app.parse(argc, argv);
        } catch (const CLI::ParseError& ending) {
            // Asking for help or the version ends the parsing this way as well.
            return line.app.exit(ending, out, err) == 0 ? exitSuccess : exitBadCommandLine;
        }
        return line.execute(out, err);
    } catch (const UsageError& mistake) {
        err << "error: " << mistake.what() << "\n";
        return exitBadCommandLine;
    } catch (const std::exception& failure) {
        // A QuorinException's text tells message, code with its name, origin and transport error.
        err << "error: " << failure.what() << "\n";
        return exitFailedCall;
    }
}

}  // namespace tool
