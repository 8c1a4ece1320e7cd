#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The name that was probably meant; empty if none is near. A few letters may be missing, added, changed or swapped.
std::string nearestOf(std::string_view text, const std::vector<std::string>& names);

/// `; did you mean "..."?` if a name is near, and in any case all names behind `lead`, such as "allowed are".
std::string suggestion(std::string_view text, const std::vector<std::string>& names, std::string_view lead);

/// The names with ", " between.
std::string listed(const std::vector<std::string>& names);

}  // namespace tool
