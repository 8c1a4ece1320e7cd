#pragma once

#include <optional>
#include <string_view>

/// Temperatures as functions on raw readings.

/// The first field of a reply such as "Sx1A3,x0,x0", without its carriage return. Empty for a malformed one.
std::optional<int> parseAuxiliaryReading(std::string_view reply);

/// Degrees Celsius of a raw reading of the auxiliary probe, on a 12-bit scale of 2.5 V; 0 for a reading without a
/// temperature.
float auxiliaryTemperature(int rawReading);
