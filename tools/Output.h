#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tool {

using Json = nlohmann::ordered_json;

enum class Tone { Good, Bad, Muted };

/// Where a command's results and news go.
///
/// Results are text as it comes, or with `--json` the members of one object that is printed at the end. News, such as
/// that a file was written, is text that a script doesn't need: neither `--json` nor `--quiet` shows it. One thread at
/// a time.
class Output {
public:
    Output(std::ostream& results, std::ostream& errors);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool isJson = false;
    bool isQuiet = false;

    std::ostream& text();     ///< results for people; goes nowhere with `--json`
    std::ostream& news();     ///< what isn't a result, beside the results
    std::ostream& remarks();  ///< what isn't a result and must not be among them: the error stream
    std::ostream& errors() { return err; }
    /// Where a progress bar goes: the error stream if somebody looks at it and wants it, else null.
    std::ostream* terminal();

    /// The members of the JSON object so far.
    Json facts = Json::object();
    /// Prints the object on one line and begins a new one; does nothing without `--json`.
    void printRecord();
    /// Prints the object unless nothing is in it; does nothing without `--json`.
    void finish();

    /// The text in colour if the results go to a terminal that shows colour.
    std::string painted(std::string_view words, Tone tone) const;
    /// The same for the error stream.
    std::string paintedError(std::string_view words, Tone tone) const;

private:
    std::ostream& out;
    std::ostream& err;
};

}  // namespace tool
