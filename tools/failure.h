#pragma once

#include <exception>
#include <optional>

#include "tools/DetectorAddress.h"
#include "tools/Output.h"

/// How a failure is told.
namespace tool {

/// What the user can do about a failure of the detector at the address; empty where nothing is known to help.
std::string remedyFor(const std::exception& failure, const std::optional<DetectorAddress>& detector);

/// The failure as JSON: text, code, code_name, transport_error, transport_message and function; null where the failure
/// isn't the library's.
Json describeFailure(const std::exception& failure);

/// Tells the failure: the member "error" of the JSON object, or lines `error: ` and `hint: ` on the error stream.
void tellFailure(const std::exception& failure, const std::string& remedy, Output& output);

}  // namespace tool
