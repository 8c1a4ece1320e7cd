#include <ostream>
#include <sstream>

#include "tools/generate.h"
#include "tools/settings.h"

namespace tool {
namespace {

/// Text of a man page: dashes stay dashes, and no line is taken for a request.
std::string escaped(const std::string& text) {
    std::string all;
    bool atBegin = true;
    for (const char letter : text) {
        if (atBegin && (letter == '.' || letter == '\'')) all += "\\&";
        if (letter == '-')
            all += "\\-";
        else if (letter == '\\')
            all += "\\e";
        else
            all += letter;
        atBegin = letter == '\n';
    }
    return all;
}

std::string bold(const std::string& text) {
    return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(const std::string& text) {
    return "\\fI" + escaped(text) + "\\fR";
}

std::string optionLine(const CLI::Option& option) {
    if (option.get_positional()) return italic(valueWord(option));
    std::string line;
    for (const std::string& name : optionNames(option)) line += (line.empty() ? "" : ", ") + bold(name);
    if (takesValue(option)) line += " " + italic(valueWord(option));
    return line;
}

/// The names that the help doesn't tell already, and that are few enough to be read.
std::string namesOf(const CLI::Option& option, const Definitions& definitions) {
    constexpr std::size_t most = 20;
    const auto found = definitions.completions.find(&option);
    if (found == definitions.completions.end() || found->second.names.size() > most) return {};
    std::string all;
    for (const std::string& name : found->second.names) {
        if (option.get_description().find(name) != std::string::npos) return {};
        all += (all.empty() ? "One of " : ", ") + name;
    }
    return all.empty() ? all : all + ".";
}

void writeOptions(const std::vector<const CLI::Option*>& options, const Definitions& definitions, std::ostream& out) {
    for (const CLI::Option* option : options) {
        out << ".TP\n" << optionLine(*option) << "\n" << escaped(option->get_description()) << ".\n";
        const std::string names = namesOf(*option, definitions);
        if (!names.empty()) out << escaped(names) << "\n";
    }
}

void writeUsage(const CLI::App& command, std::ostream& out) {
    out << bold("qrapi " + commandPath(command));
    for (const CLI::Option* option : positionals(command)) {
        const std::string word = italic(valueWord(*option)) + (option->get_items_expected_max() > 1 ? " ..." : "");
        out << " " << (option->get_required() ? word : "[" + word + "]");
    }
    for (const CLI::Option* option : dashedOptions(command)) {
        if (!option->get_required()) continue;
        out << " " << bold(optionNames(*option).back()) << " " << italic(valueWord(*option));
    }
    out << " [" << italic("options") << "]\n";
}

void writeParagraphs(const std::string& text, std::ostream& out) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) out << ".PP\n" << escaped(line) << "\n";
}

void writeCommand(const CLI::App& command, const Definitions& definitions, std::ostream& out) {
    out << ".SS \"" << escaped(commandPath(command)) << "\"\n";
    if (innerCommands(command).empty()) {
        writeUsage(command, out);
        out << ".PP\n";
    }
    out << escaped(command.get_description()) << ".\n";
    // The table of settings has a section of its own, and so has what a command takes over from the program.
    const std::string footer = command.get_footer();
    if (footer.find(settingsHelp()) == std::string::npos && footer != definitions.app.get_footer())
        writeParagraphs(footer, out);
    writeOptions(positionals(command), definitions, out);
    std::vector<const CLI::Option*> options;
    for (const CLI::Option* option : dashedOptions(command))
        if (option != command.get_help_ptr()) options.push_back(option);
    writeOptions(options, definitions, out);
}

void writeSettings(std::ostream& out) {
    out << ".SH SETTINGS\nWhat " << bold("set") << ", " << bold("get") << " and " << bold("--set") << " name.\n";
    for (const Setting& setting : settings()) {
        out << ".TP\n" << bold(std::string(setting.name)) << "\n" << escaped(std::string(setting.help));
        out << ". Allowed: " << escaped(setting.allowed());
        if (!setting.unit.empty()) out << " (" << escaped(std::string(setting.unit)) << ")";
        out << ".\n";
    }
}

constexpr const char* closing =
    ".SH \"EXIT STATUS\"\n"
    ".TP\n0\nDone.\n"
    ".TP\n1\nA call or a file failed, or a check of \\fBselftest\\fR or \\fBconfig load\\fR did.\n"
    ".TP\n2\nThe command line is wrong; nothing was done.\n"
    ".TP\n3\nA live run lost frames; the others are written.\n"
    ".TP\n130\nEnded by Ctrl\\-C, SIGTERM or SIGHUP; what came before is kept.\n"
    ".SH ENVIRONMENT\n"
    ".TP\n\\fBNO_COLOR\\fR\nIf it is set and not empty, nothing is printed in colour. Colour goes to terminals only.\n"
    ".SH FILES\n"
    ".TP\n\\fI~/.local/share/Selvo/QRAPI/qrapi_log.txt\\fR\nThe log of every call; \\fBqrapi \\-\\-log\\fR prints its "
    "path.\n"
    ".SH EXAMPLES\n"
    ".TP\nWhich detectors are there?\n\\fBqrapi list\\fR\n"
    ".TP\nThree frames of 300 ms into one file\n\\fBqrapi \\-d ge:sim:7127 snap \\-\\-exposure 300 \\-\\-count 3 "
    "\\-\\-output frames.tif\\fR\n"
    ".TP\nIs this detector all right?\n\\fBqrapi selftest cl:4\\fR\n";

}  // namespace

void writeManPage(const Definitions& definitions, std::ostream& out) {
    out << ".TH QRAPI 1 \"\" \"qrapi " QRAPI_VERSION "\" \"QRAPI\"\n"
        << ".SH NAME\nqrapi \\- drives image detectors\n"
        << ".SH SYNOPSIS\n.B qrapi\n[\\fIoptions\\fR] \\fIcommand\\fR [\\fIarguments\\fR]\n"
        << ".SH DESCRIPTION\n"
        << escaped(definitions.app.get_description()) << "\n"
        << ".SH OPTIONS\nThese go with every command, before or behind it.\n";
    writeOptions(dashedOptions(definitions.app), definitions, out);
    out << ".SH COMMANDS\n";
    for (const CLI::App* command : allCommands(definitions.app))
        if (command != &definitions.app) writeCommand(*command, definitions, out);
    writeSettings(out);
    out << closing;
}

}  // namespace tool
