#pragma once

#include <string>

#include "tools/Output.h"
#include "tools/preparation.h"

/// The commands that look at a detector as a whole.
namespace tool {

/// Runs a detector through what applications do with it, prints a table of how each step ended, and puts back what it
/// changed. Returns `exitFailedCall` if a step failed, `exitInterrupted` after an interrupt.
int selftest(const Preparation& preparation, Output& output);

struct ReportRequest {
    Preparation preparation;
    std::string output;
    int logLines = 0;
};

/// Collects in one archive what somebody needs who looks into a fault. What can't be had is told there.
void report(const ReportRequest& request, Output& output);

/// Where the library writes its log. Throws if the user's data folder isn't known.
std::string logPath();

}  // namespace tool
