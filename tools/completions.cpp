#include <ostream>
#include <string_view>

#include "tools/generate.h"

namespace tool {
namespace {

/// Within single quotes of a shell.
std::string shellQuoted(const std::string& text) {
    std::string all = "'";
    for (const char letter : text) {
        if (letter == '\'')
            all += "'\\''";
        else
            all += letter;
    }
    return all + "'";
}

std::string spaced(const std::vector<std::string>& words) {
    std::string all;
    for (const std::string& word : words) all += (all.empty() ? "" : " ") + word;
    return all;
}

const Completion& completionOf(const CLI::Option& option, const Definitions& definitions) {
    static const Completion none;
    const auto found = definitions.completions.find(&option);
    return found == definitions.completions.end() ? none : found->second;
}

/// A shell function that prints a text for each command path.
template <class Text>
void writeBashTable(const std::string& name, const Definitions& definitions, Text text, std::ostream& out) {
    out << name << "() {\n    case $1 in\n";
    for (const CLI::App* command : allCommands(definitions.app)) {
        const std::string line = text(*command);
        if (!line.empty())
            out << "        " << shellQuoted(commandPath(*command)) << ") echo " << shellQuoted(line) << " ;;\n";
    }
    out << "    esac\n}\n\n";
}

std::string commandNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* inner : innerCommands(command)) names.push_back(inner->get_name());
    return spaced(names);
}

std::string namesOfOptions(const CLI::App& command, bool onlyWithValue) {
    std::string all;
    for (const CLI::Option* option : dashedOptions(command)) {
        if (onlyWithValue && !takesValue(*option)) continue;
        if (!all.empty()) all += " ";
        all += spaced(optionNames(*option));
    }
    return all;
}

/// What an option or argument takes: `files`, or its names. Options of the program itself have the empty path.
void writeBashValues(const Definitions& definitions, std::ostream& out) {
    out << "_qrapi_values() {\n    case $1 in\n";
    for (const CLI::App* command : allCommands(definitions.app)) {
        const auto write = [&](const std::string& pattern, const CLI::Option& option) {
            const Completion& offered = completionOf(option, definitions);
            if (!offered.files && offered.names.empty()) return;
            out << "        " << pattern << ") echo " << shellQuoted(offered.files ? "files" : spaced(offered.names))
                << " ;;\n";
        };
        const std::string path = commandPath(*command);
        for (const CLI::Option* option : dashedOptions(*command)) {
            std::string pattern;
            for (const std::string& name : optionNames(*option)) {
                std::string key = path;
                key.append(":").append(name);
                pattern.append(pattern.empty() ? "" : "|").append(shellQuoted(key));
            }
            write(pattern, *option);
        }
        for (const CLI::Option* option : positionals(*command)) write(shellQuoted(path + ":"), *option);
    }
    out << "    esac\n}\n\n";
}

constexpr std::string_view bashCompletion =
    R"bash(# The values of an option: those of the command, of the command around it, or of the program.
_qrapi_values_of() {
    local path=$1 values
    while :; do
        values=$(_qrapi_values "$path:$2")
        if [[ -n $values || -z $path ]]; then
            echo "$values"
            return
        fi
        case $path in
            *' '*) path=${path% *} ;;
            *) path= ;;
        esac
    done
}

_qrapi() {
    local line=${COMP_LINE:0:COMP_POINT} words=() word current path= expected= offered options broken reply
    read -ra words <<<"$line"
    if [[ $line == *[[:space:]] ]]; then words+=(''); fi
    current=${words[${#words[@]} - 1]}
    for word in "${words[@]:1:${#words[@]}-2}"; do
        options=" $(_qrapi_valued '') $(_qrapi_valued "${path% *}") $(_qrapi_valued "$path") "
        if [[ -n $expected ]]; then
            expected=
        elif [[ $word == -* ]]; then
            if [[ $options == *" $word "* ]]; then expected=$word; fi
        elif [[ " $(_qrapi_commands "$path") " == *" $word "* ]]; then
            path=${path:+$path }$word
        fi
    done
    if [[ -z $expected && $current == --*=* ]]; then
        expected=${current%%=*}
        current=${current#*=}
    fi
    if [[ -n $expected ]]; then
        offered=$(_qrapi_values_of "$path" "$expected")
    elif [[ $current == -* ]]; then
        offered="$(_qrapi_options "$path") $(_qrapi_options "${path% *}") $(_qrapi_options '')"
    else
        offered=$(_qrapi_commands "$path")
        if [[ -z $offered ]]; then offered=$(_qrapi_values "$path:"); fi
    fi
    COMPREPLY=()
    if [[ $offered == files ]]; then
        compopt -o filenames 2>/dev/null
        while IFS= read -r reply; do COMPREPLY+=("$reply"); done < <(compgen -f -- "$current")
        return
    fi
    # Names of settings first, their values behind the equals sign. Bash has cut off what stands before : and =.
    broken=${current%"${current##*[:=]}"}
    while IFS= read -r reply; do
        if [[ $current != *=* && $reply == *=?* ]]; then continue; fi
        if [[ $current == *= && $reply == "$current" ]]; then continue; fi
        if [[ -n $broken && $COMP_WORDBREAKS == *"${broken: -1}"* ]]; then reply=${reply#"$broken"}; fi
        COMPREPLY+=("$reply")
    done < <(compgen -W "$offered" -- "$current" | sort -u)
    if [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *= ]]; then compopt -o nospace 2>/dev/null; fi
}

complete -F _qrapi qrapi
)bash";

/// Within brackets of a zsh specification, which stands in single quotes.
std::string zshText(const std::string& text) {
    std::string all;
    for (const char letter : text) {
        if (letter == '\'')
            all += "'\\''";
        else if (letter == '[' || letter == ']' || letter == ':' || letter == '\\')
            all += std::string("\\") + letter;
        else
            all += letter;
    }
    return all;
}

/// `MESSAGE:ACTION` behind an option or argument.
std::string zshAction(const CLI::Option& option, const Definitions& definitions) {
    const Completion& offered = completionOf(option, definitions);
    std::string action = offered.files ? "_files" : " ";
    if (!offered.names.empty()) action = "(" + zshText(spaced(offered.names)) + ")";
    return zshText(valueWord(option)) + ":" + action;
}

void writeZshOptions(const CLI::App& command, const Definitions& definitions, std::ostream& out) {
    for (const CLI::Option* option : dashedOptions(command))
        for (const std::string& name : optionNames(*option)) {
            const bool repeats = option->get_items_expected_max() > 1;
            out << "        '" << (repeats ? "*" : "") << name << "[" << zshText(option->get_description()) << "]";
            if (takesValue(*option)) out << ":" << zshAction(*option, definitions);
            out << "' \\\n";
        }
}

std::string zshFunction(const CLI::App& command) {
    std::string name = "_qrapi";
    if (command.get_parent() != nullptr) name += "_" + commandPath(command);
    for (char& letter : name)
        if (letter == ' ' || letter == '-') letter = '_';
    return name;
}

void writeZshFunction(const CLI::App& command, const Definitions& definitions, std::ostream& out) {
    const std::vector<const CLI::App*> inner = innerCommands(command);
    out << zshFunction(command) << "() {\n";
    if (!inner.empty()) out << "    local state line\n    local -a commands\n";
    out << "    _arguments " << (inner.empty() ? "" : "-C ") << "\\\n";
    writeZshOptions(command, definitions, out);
    for (const CLI::App* around = command.get_parent(); around != nullptr; around = around->get_parent())
        writeZshOptions(*around, definitions, out);
    if (inner.empty()) {
        for (const CLI::Option* option : positionals(command))
            out << "        '" << (option->get_items_expected_max() > 1 ? "*" : "") << ":"
                << zshAction(*option, definitions) << "' \\\n";
        out << "        && return 0\n}\n\n";
        return;
    }
    out << "        '1: :->command' \\\n        '*:: :->arguments'\n    case $state in\n        command)\n"
        << "            commands=(\n";
    for (const CLI::App* next : inner)
        out << "                '" << next->get_name() << ":" << zshText(next->get_description()) << "'\n";
    out << "            )\n            _describe command commands\n            ;;\n        arguments)\n"
        << "            case $line[1] in\n";
    for (const CLI::App* next : inner)
        out << "                " << next->get_name() << ") " << zshFunction(*next) << " ;;\n";
    out << "            esac\n            ;;\n    esac\n}\n\n";
}

}  // namespace

void writeBashCompletion(const Definitions& definitions, std::ostream& out) {
    out << "# What bash completes behind qrapi; made from its commands.\n\n";
    writeBashTable("_qrapi_commands", definitions, commandNames, out);
    writeBashTable(
        "_qrapi_options", definitions, [](const CLI::App& command) { return namesOfOptions(command, false); }, out);
    writeBashTable(
        "_qrapi_valued", definitions, [](const CLI::App& command) { return namesOfOptions(command, true); }, out);
    writeBashValues(definitions, out);
    out << bashCompletion;
}

void writeZshCompletion(const Definitions& definitions, std::ostream& out) {
    out << "#compdef qrapi\n# What zsh completes behind qrapi; made from its commands.\n\n";
    for (const CLI::App* command : allCommands(definitions.app)) writeZshFunction(*command, definitions, out);
    out << "_qrapi \"$@\"\n";
}

}  // namespace tool
