#include "tools/nearest.h"

#include <algorithm>
#include <cctype>

namespace tool {
namespace {

char lowered(char letter) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

/// Another digit is another thing more often than a slip: 3x3 doesn't mean 1x1.
std::size_t changeCost(char letter) {
    return std::isdigit(static_cast<unsigned char>(letter)) != 0 ? 2 : 1;
}

/// How many letters were missed, added, changed or swapped with their neighbour; capitals count as small letters.
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::vector<std::size_t>> steps(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
    for (std::size_t row = 0; row <= from.size(); ++row) steps[row][0] = row;
    for (std::size_t column = 0; column <= to.size(); ++column) steps[0][column] = column;
    const auto same = [&](std::size_t row, std::size_t column) {
        return lowered(from[row - 1]) == lowered(to[column - 1]);
    };
    for (std::size_t row = 1; row <= from.size(); ++row)
        for (std::size_t column = 1; column <= to.size(); ++column) {
            const std::size_t changed =
                steps[row - 1][column - 1] + (same(row, column) ? 0 : changeCost(from[row - 1]));
            steps[row][column] = std::min({changed, steps[row - 1][column] + 1, steps[row][column - 1] + 1});
            const bool swapped = row > 1 && column > 1 && lowered(from[row - 1]) == lowered(to[column - 2]) &&
                                 lowered(from[row - 2]) == lowered(to[column - 1]);
            if (swapped) steps[row][column] = std::min(steps[row][column], steps[row - 2][column - 2] + 1);
        }
    return steps[from.size()][to.size()];
}

/// A guess beyond this is more likely wrong than right.
std::size_t furthest(std::size_t length) {
    constexpr std::size_t lettersPerSlip = 3;
    return length / lettersPerSlip;
}

}  // namespace

std::string nearestOf(std::string_view text, const std::vector<std::string>& names) {
    constexpr std::size_t longest = 100;  // what is longer is no slip of a finger
    if (text.size() > longest) return {};
    std::string nearest;
    std::size_t least = furthest(text.size()) + 1;
    for (const std::string& name : names) {
        const std::size_t steps = distance(text, name);
        if (steps >= least) continue;
        least = steps;
        nearest = name;
    }
    if (!nearest.empty() || text.size() < 2) return nearest;
    // The beginning of just one name, such as "temp".
    for (const std::string& name : names) {
        if (std::string_view(name).substr(0, text.size()) != text) continue;
        if (!nearest.empty()) return {};
        nearest = name;
    }
    return nearest;
}

std::string suggestion(std::string_view text, const std::vector<std::string>& names, std::string_view lead) {
    const std::string nearest = nearestOf(text, names);
    std::string rest = std::string(lead) + " " + listed(names);
    if (nearest.empty()) return "; " + rest;
    rest.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(rest.front())));
    return "; did you mean \"" + nearest + "\"? " + rest;
}

std::string listed(const std::vector<std::string>& names) {
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? "" : ", ") + name;
    return all;
}

}  // namespace tool
