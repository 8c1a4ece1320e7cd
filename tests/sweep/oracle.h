#pragma once

#include <string>
#include <vector>

#include "sweep/Application.h"

namespace sweep {

/// What is wrong with the way in which a run's faults were reported, a line each.
///
/// A call that failed must name one of the faults that struck it, or one that struck another thread before it, as the
/// table of failures has it. A fault that nobody reported must stand in the list of harmless ones.
std::vector<std::string> judge(const Road& road, const std::vector<Outcome>& outcomes);

std::string describe(const Strike& strike);

/// Rows of the list of harmless faults that no run has needed since the start of the process.
std::vector<std::string> unusedHarmlessRows();
/// Marks a row as needed, which another process has needed.
void noteHarmlessRow(std::size_t row);
std::vector<std::size_t> usedHarmlessRows();

}  // namespace sweep
