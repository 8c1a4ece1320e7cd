#include "tools/usage.h"

#include <algorithm>

#include "tools/generate.h"
#include "tools/nearest.h"

namespace tool {
namespace {

/// The innermost command that was named.
const CLI::App& chosenCommand(const CLI::App& app) {
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return parsed.empty() ? app : chosenCommand(*parsed.front());
}

std::string calledName(const CLI::App& command) {
    const std::string path = commandPath(command);
    return path.empty() ? "qrapi" : "qrapi " + path;
}

std::vector<std::string> commandNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* inner : innerCommands(command)) names.push_back(inner->get_name());
    return names;
}

/// The options that may stand behind the command: its own, and those of the commands around it.
std::vector<std::string> namesOfOptions(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* at = &command; at != nullptr; at = at->get_parent())
        for (const CLI::Option* option : dashedOptions(*at))
            for (const std::string& name : optionNames(*option))
                if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    return names;
}

std::string explainUnexpected(const std::vector<std::string>& unexpected, const CLI::App& command) {
    const auto dashed = std::find_if(unexpected.begin(), unexpected.end(),
                                     [](const std::string& word) { return word.size() > 1 && word.front() == '-'; });
    const std::string name = calledName(command);
    if (dashed != unexpected.end()) {
        const std::string option = dashed->substr(0, dashed->find('='));
        const std::vector<std::string> options = namesOfOptions(command);
        if (std::find(options.begin(), options.end(), option) != options.end())
            return option + " goes behind the command: " + name + " " + option + " ...";
        return name + " has no option \"" + option + "\"" + suggestion(option, options, "there are");
    }
    const std::string& word = unexpected.front();
    const std::vector<std::string> names = commandNames(command);
    if (names.empty())
        return name + " takes no further argument \"" + word + "\"; \"" + name + " --help\" tells what it takes";
    return name + " has no command \"" + word + "\"" + suggestion(word, names, "there are");
}

/// The parser says `Could not convert: --count = 2.5`.
std::string explainConversion(const std::string& text) {
    constexpr std::string_view before = "Could not convert: ";
    constexpr std::string_view between = " = ";
    const std::size_t begin = text.find(before);
    const std::size_t middle = text.find(between);
    if (begin == std::string::npos || middle == std::string::npos) return text;
    const std::string option = text.substr(begin + before.size(), middle - begin - before.size());
    const std::string value = text.substr(middle + between.size());
    double number = 0;
    const bool isNumber = CLI::detail::lexical_cast(value, number);
    return option + ": \"" + value + "\" is no " + (isNumber ? "whole number in range" : "number");
}

}  // namespace

std::string explain(const CLI::ParseError& mistake, const CLI::App& app) {
    const CLI::App& command = chosenCommand(app);
    const std::vector<std::string> unexpected = app.remaining(true);
    if (!unexpected.empty()) return explainUnexpected(unexpected, command);
    const std::string name = calledName(command);
    const std::vector<std::string> names = commandNames(command);
    if (dynamic_cast<const CLI::RequiredError*>(&mistake) != nullptr && !names.empty())
        return name + " needs a command behind it: " + listed(names);
    const bool isConversion = dynamic_cast<const CLI::ConversionError*>(&mistake) != nullptr;
    return (isConversion ? explainConversion(mistake.what()) : mistake.what()) + "; \"" + name +
           " --help\" tells what is allowed";
}

}  // namespace tool
