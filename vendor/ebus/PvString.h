#pragma once

#include <string>

#include "platform/export.h"

/// A text value that is handed over by copy.
class QRAPI_EXPORT PvString {
public:
    PvString();
    /// From a text that ends with a zero byte; null gives the empty text.
    PvString(const char* text);  // NOLINT(google-explicit-constructor): texts are passed where a PvString is asked for
    PvString(const PvString& other);
    PvString& operator=(const PvString& other);
    ~PvString();

    /// The text, ending with a zero byte; valid until the object changes or goes.
    const char* GetAscii() const;

    bool operator==(const PvString& other) const;
    bool operator!=(const PvString& other) const;
    bool operator<(const PvString& other) const;

private:
    std::string text;
};
