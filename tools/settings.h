#pragma once

#include <qrapi/QuorinDetector.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The detector's settings as the command line names them: one table for `get`, `set`, `--set` and their help.
namespace tool {

/// A change whose form was checked, to be made once a detector is open.
using Change = std::function<void(QuorinDetector&)>;

/// A region of interest: the full width, centred where no start row is given.
struct Region {
    int width = 0;
    int height = 0;
    std::optional<int> startRow;
};

struct Setting {
    std::string_view name;
    std::string_view unit;  ///< empty where it has none
    std::string_view help;
    std::string (*allowed)();
    std::vector<std::string> (*values)();                    ///< all there are; empty for numbers
    nlohmann::ordered_json (*get)(const QuorinDetector&);    ///< null where the detector has no such thing
    std::optional<Change> (*parse)(std::string_view value);  ///< nothing for a value that isn't allowed
};

const std::vector<Setting>& settings();

/// The setting of that name. Throws `UsageError` with the names there are.
const Setting& findSetting(std::string_view name);

/// `NAME=VALUE`, taken apart. Throws `UsageError` with what is allowed.
struct Assignment {
    const Setting* setting = nullptr;
    Change change;
};
Assignment parseAssignment(std::string_view text);

/// NAME= of each setting, and behind it NAME=VALUE of each value where there is a fixed set: what a shell completes.
std::vector<std::string> assignmentChoices();
std::vector<std::string> settingNames();

/// "W,H" or "W,H,ROW". Nothing for another text.
std::optional<Region> parseRegion(std::string_view text);
void setRegion(QuorinDetector& detector, const Region& region);

/// Sets the exposure time. One that the detector's registers can't hold throws a `std::runtime_error` that names the
/// longest.
void setExposureTime(QuorinDetector& detector, float timeMs);

/// A value as `set` takes it.
std::string settingText(const nlohmann::ordered_json& value);

/// The table for `--help`.
std::string settingsHelp();

}  // namespace tool
