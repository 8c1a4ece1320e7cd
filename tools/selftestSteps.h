#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/Output.h"
#include "tools/preparation.h"

namespace tool {

/// What a step found: a text for the table, or why it had to be left out.
struct StepResult {
    bool skipped = false;
    std::string detail;
};

/// A step of the self-test on an open detector. What is wrong is thrown; what it changed it puts back.
struct SelftestStep {
    std::string name;
    std::function<StepResult(QuorinDetector&)> run;
};

/// The settings of a detector as they were, to be put back.
class SettingsKept {
public:
    /// Reads them all.
    explicit SettingsKept(const QuorinDetector& detector);
    /// Puts back each that is another one now. Throws with the names of those that can't be, after trying all.
    void putBack(QuorinDetector& detector) const;

private:
    struct Kept {
        const Setting* setting;
        Json value;
    };
    std::vector<Kept> all;  ///< in the order in which they are put back
    int modeRegister;
};

/// The steps between open and close, in their order.
std::vector<SelftestStep> selftestSteps();

}  // namespace tool
