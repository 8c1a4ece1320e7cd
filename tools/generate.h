#pragma once

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

/// What is made from the command line's declaration, so that it can't tell anything else: the man page and what shells
/// complete.
namespace tool {

/// What a shell offers for an option or argument.
struct Completion {
    bool files = false;
    std::vector<std::string> names;  ///< one that ends with "=" goes on
};

struct Definitions {
    const CLI::App& app;
    const std::map<const CLI::Option*, Completion>& completions;
};

/// What `--generate` takes.
const std::vector<std::string>& generatedTexts();
void generate(const std::string& what, const Definitions& definitions, std::ostream& out);

void writeManPage(const Definitions& definitions, std::ostream& out);
void writeBashCompletion(const Definitions& definitions, std::ostream& out);
void writeZshCompletion(const Definitions& definitions, std::ostream& out);

/// The addresses that `--detector` takes for the simulated detectors.
std::vector<std::string> simulatedDetectors();

/// "snap", or "roi set" for a command within a command; empty for the program itself.
std::string commandPath(const CLI::App& command);
/// Every command, one before those within it; the program itself first.
std::vector<const CLI::App*> allCommands(const CLI::App& app);
std::vector<const CLI::App*> innerCommands(const CLI::App& command);
/// The options with a dash that are shown in the help, and the arguments without one.
std::vector<const CLI::Option*> dashedOptions(const CLI::App& command);
std::vector<const CLI::Option*> positionals(const CLI::App& command);
/// "-d" and "--detector", with their dashes.
std::vector<std::string> optionNames(const CLI::Option& option);
bool takesValue(const CLI::Option& option);
/// The word that stands for an option's value, such as "MS".
std::string valueWord(const CLI::Option& option);

}  // namespace tool
