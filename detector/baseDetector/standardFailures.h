#pragma once

#include <stdexcept>
#include <string>

/// Failures of standard library operations, with the same texts for every standard library.
namespace standardText {

inline constexpr const char* stoiArgument = "invalid stoi argument";
inline constexpr const char* stoiRange = "stoi argument out of range";
inline constexpr const char* stringPosition = "invalid string position";
inline constexpr const char* mapKey = "invalid map<K, T> key";

}  // namespace standardText

/// `std::stoi` with those texts.
inline int standardStoi(const std::string& text) {
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(standardText::stoiArgument);
    } catch (const std::out_of_range&) {
        throw std::out_of_range(standardText::stoiRange);
    }
}
