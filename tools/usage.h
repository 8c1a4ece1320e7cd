#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tool {

/// What is wrong with a command line that could not be parsed, and what is allowed in its place.
std::string explain(const CLI::ParseError& mistake, const CLI::App& app);

}  // namespace tool
