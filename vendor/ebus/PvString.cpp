#include "PvString.h"

PvString::PvString() = default;
PvString::PvString(const char* text) : text(text == nullptr ? "" : text) {}
PvString::PvString(const PvString& other) = default;
PvString& PvString::operator=(const PvString& other) = default;
PvString::~PvString() = default;

const char* PvString::GetAscii() const {
    return text.c_str();
}

bool PvString::operator==(const PvString& other) const {
    return text == other.text;
}
bool PvString::operator!=(const PvString& other) const {
    return text != other.text;
}
bool PvString::operator<(const PvString& other) const {
    return text < other.text;
}
