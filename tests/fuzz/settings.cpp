#include "tools/settings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

#include "fuzz/fuzz.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "tools/DetectorAddress.h"
#include "tools/commands.h"
#include "tools/maintenance.h"
#include "tools/run.h"

using fuzz::require;

namespace {

/// Commands that neither write files nor run for as long as they are told.
constexpr std::array<std::string_view, 5> reportingCommands{"set", "get", "info", "roi", "list"};

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

void checkAddress(const std::string& text) {
    const auto address = tool::parseDetectorAddress(text);
    if (!address) return;
    if (address->transport == TransportGE)
        require("ge:" + address->address == text && !address->address.empty(), "an address is kept whole", text);
    else
        require(text.substr(0, 3) == "cl:" && isNumber(text.substr(3)) && address->unit >= 0, "a unit is a number",
                text);
}

void checkRegion(const std::string& text) {
    const auto region = tool::parseRegion(text);
    if (!region) return;
    require(region->width >= 0 && region->height >= 0 && region->startRow.value_or(0) >= 0, "a region has a size",
            text);
    std::string again = std::to_string(region->width) + "," + std::to_string(region->height);
    if (region->startRow) again += "," + std::to_string(*region->startRow);
    const auto same = tool::parseRegion(again);
    require(
        same && same->width == region->width && same->height == region->height && same->startRow == region->startRow,
        "a region that is spelled again is the same", text);
}

void checkNetworkAddress(const std::string& text) {
    const auto address = tool::parseNetworkAddress(text);
    if (!address) return;
    require(std::count(text.begin(), text.end(), '.') == 3, "an address has four parts", text);
    for (const int part : *address) require(part >= 0 && part <= 255, "a part is a byte", text);
}

/// Whether the C library reads a time in ms from the whole of the text.
bool isTime(const std::string& text) {
    char* end = nullptr;
    const float time = std::strtof(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(time) && time >= 0;
}

bool areTimes(const std::string& text) {
    std::istringstream parts(text + ',');
    std::size_t count = 0;
    for (std::string part; std::getline(parts, part, ','); ++count)
        if (!isTime(part)) return false;
    return count >= 2 && count <= 4;
}

/// What the values of a setting are made of.
bool isValueOf(std::string_view setting, const std::string& value) {
    if (setting == "exposure_time_ms" || setting == "gap_time_ms") return isTime(value);
    if (setting == "pre_programmed_exposure_times_ms") return areTimes(value);
    if (setting == "num_of_exposures") return isNumber(value) && std::stod(value) >= 1 && std::stod(value) <= 65535;
    if (setting == "roi") return value.find_first_not_of("0123456789,-") == std::string::npos;
    return value == "on" || value == "off" || value.find('x') == 1 || value.substr(0, 3) == "bit";
}

bool isAssignment(const std::string& text) {
    try {
        const tool::Assignment assignment = tool::parseAssignment(text);
        require(assignment.setting != nullptr && assignment.change, "an assignment has what it needs", text);
        const std::size_t equals = text.find('=');
        require(text.substr(0, equals) == assignment.setting->name, "it names its setting", text);
        require(isValueOf(assignment.setting->name, text.substr(equals + 1)), "all of its value counts", text);
        return true;
    } catch (const tool::UsageError& mistake) {
        require(*mistake.what() != '\0', "a mistake has a text", text);
        return false;
    }
}

/// What is printed of a setting is what `set` takes.
void checkPrinted(const std::string& printed) {
    std::istringstream lines(printed);
    for (std::string line; std::getline(lines, line);) {
        const std::string value = line.substr(line.find('=') + 1);
        require(value == "not supported" || value == "unknown" || isAssignment(line), "a value can be set again", line);
    }
}

void checkRun(const std::vector<std::string>& words) {
    std::vector<const char*> arguments{"qrapi"};
    for (const std::string& word : words) arguments.push_back(word.c_str());
    const platform::ScopedVirtualClock clock;
    simulator::Rack::instance().reset();
    std::ostringstream out;
    std::ostringstream err;
    const int status = tool::run(static_cast<int>(arguments.size()), arguments.data(), out, err);
    simulator::Rack::instance().reset();
    const auto has = [&](std::string_view word) { return std::find(words.begin(), words.end(), word) != words.end(); };
    require(status == tool::exitSuccess || status == tool::exitFailedCall || status == tool::exitBadCommandLine,
            "a command line ends by its statuses");
    if (status != tool::exitSuccess) {
        // With --json on the standard output, otherwise on the other.
        const std::string told = err.str() + out.str();
        require(told.find("error") != std::string::npos && told.back() == '\n', "a failure is told");
        return;
    }
    const bool help = std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word.substr(0, 2) == "-h" || word.substr(0, 3) == "--h" || word.substr(0, 5) == "--ver" ||
               word.substr(0, 10) == "--generate" || word.substr(0, 5) == "--log";
    });
    if (help) return;
    if ((words.front() == "set" || words.front() == "get") && !has("--json")) checkPrinted(out.str());
    if (has("--json")) require(nlohmann::json::accept(out.str()), "JSON is JSON", out.str());
}

}  // namespace

/// A command line, one word a line. A first word that isn't one of the reporting commands counts as a word of `set`.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t mostWords = 8;
    const std::string text = fuzz::textOf(data, size);
    std::vector<std::string> words;
    for (fuzz::Input input(text); !input.atEnd() && words.size() < mostWords;)
        words.emplace_back(std::string(input.line()).c_str());  // a word of a command line has no zero
    for (const std::string& word : words) {
        checkAddress(word);
        checkRegion(word);
        checkNetworkAddress(word);
        isAssignment(word);
    }
    if (words.empty()) return 0;
    if (std::find(reportingCommands.begin(), reportingCommands.end(), words.front()) == reportingCommands.end())
        words.insert(words.begin(), "set");
    // The default detector's ring costs more than all that is done with it; the grabber's memory costs nothing.
    const bool named = std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word.substr(0, 2) == "-d" || word.substr(0, 3) == "--d";
    });
    if (!named) words.insert(words.begin() + 1, {"-d", "cl:4"});
    checkRun(words);
    return 0;
}
