#include "tools/generate.h"

#include <array>
#include <ostream>
#include <utility>

#include "simulator/Rack.h"

namespace tool {
namespace {

using Writer = void (*)(const Definitions&, std::ostream&);

constexpr std::array<std::pair<const char*, Writer>, 3> writers{{
    {"man", writeManPage},
    {"bash", writeBashCompletion},
    {"zsh", writeZshCompletion},
}};

bool isShown(const CLI::Option& option) {
    return !option.get_group().empty();
}

void collect(const CLI::App& command, std::vector<const CLI::App*>& all) {
    all.push_back(&command);
    for (const CLI::App* inner : innerCommands(command)) collect(*inner, all);
}

}  // namespace

const std::vector<std::string>& generatedTexts() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(writers.size());
        for (const auto& [name, writer] : writers) all.emplace_back(name);
        return all;
    }();
    return names;
}

void generate(const std::string& what, const Definitions& definitions, std::ostream& out) {
    for (const auto& [name, writer] : writers)
        if (what == name) writer(definitions, out);
}

std::vector<std::string> simulatedDetectors() {
    const simulator::Rack& rack = simulator::Rack::instance();
    std::vector<std::string> names;
    for (const std::string& address : rack.gigeAddresses()) names.push_back("ge:" + address);
    for (const int slot : rack.slots()) names.push_back("cl:" + std::to_string(slot));
    return names;
}

std::string commandPath(const CLI::App& command) {
    const CLI::App* const parent = command.get_parent();
    if (parent == nullptr) return {};
    const std::string before = commandPath(*parent);
    return before + (before.empty() ? "" : " ") + command.get_name();
}

std::vector<const CLI::App*> innerCommands(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App* inner) { return !inner->get_name().empty(); });
}

std::vector<const CLI::App*> allCommands(const CLI::App& app) {
    std::vector<const CLI::App*> all;
    collect(app, all);
    return all;
}

std::vector<const CLI::Option*> dashedOptions(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->nonpositional() && isShown(*option); });
}

std::vector<const CLI::Option*> positionals(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->get_positional() && isShown(*option); });
}

std::vector<std::string> optionNames(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

std::string valueWord(const CLI::Option& option) {
    if (option.get_positional()) return option.get_name();
    const std::string word = option.get_type_name();
    // What the library calls a number says nothing about it.
    return word == "INT" || word == "FLOAT" || word == "UINT" ? "N" : word;
}

}  // namespace tool
