#include "tools/Output.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace tool {
namespace {

/// A stream that keeps nothing.
std::ostream& nowhere() {
    static std::ostream stream(nullptr);
    return stream;
}

bool isTerminal(const std::ostream& stream) {
    if (&stream == &std::cout) return isatty(STDOUT_FILENO) == 1;
    return &stream == &std::cerr && isatty(STDERR_FILENO) == 1;
}

/// https://no-color.org: whatever the variable's value, but for an empty one.
bool showsColour(const std::ostream& stream) {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    if (refused != nullptr && *refused != '\0') return false;
    return isTerminal(stream) && kind != nullptr && std::string_view(kind) != "dumb";
}

std::string paintedFor(const std::ostream& stream, std::string_view words, Tone tone) {
    std::string text(words);
    if (!showsColour(stream)) return text;
    const char* const begin = tone == Tone::Good ? "\033[32m" : tone == Tone::Bad ? "\033[1;31m" : "\033[2m";
    return begin + text + "\033[0m";
}

}  // namespace

Output::Output(std::ostream& results, std::ostream& errors) : out(results), err(errors) {}

std::ostream& Output::text() {
    return isJson ? nowhere() : out;
}

std::ostream& Output::news() {
    return isQuiet ? nowhere() : text();
}

std::ostream& Output::remarks() {
    return isJson || isQuiet ? nowhere() : err;
}

std::ostream* Output::terminal() {
    return !isJson && !isQuiet && isTerminal(err) ? &err : nullptr;
}

void Output::printRecord() {
    if (!isJson) return;
    // Bytes that are no UTF-8 come from a noisy serial line; they must not lose the rest.
    out << facts.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
    facts = Json::object();
}

void Output::finish() {
    constexpr int jsonIndent = 2;
    if (!isJson || facts.empty()) return;
    out << facts.dump(jsonIndent, ' ', false, Json::error_handler_t::replace) << "\n";
    facts = Json::object();
}

std::string Output::painted(std::string_view words, Tone tone) const {
    return paintedFor(out, words, tone);
}

std::string Output::paintedError(std::string_view words, Tone tone) const {
    return paintedFor(err, words, tone);
}

}  // namespace tool
