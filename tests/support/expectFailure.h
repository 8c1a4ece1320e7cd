#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "QuorinException.h"

namespace support {

/// What a call threw; nothing if it returned.
template <class Call>
std::optional<QuorinException> failureOf(Call&& call) {
    try {
        call();
    } catch (const QuorinException& failure) {
        return failure;
    }
    return std::nullopt;
}

/// Expects a `QuorinException` with this message, code and transport error, and returns it.
template <class Call>
std::optional<QuorinException> expectFailure(Call&& call, const std::string& message, Derr code,
                                             int transportError = 0) {
    const std::optional<QuorinException> failure = failureOf(call);
    if (!failure) {
        ADD_FAILURE() << "nothing was thrown, expected: " << message;
        return failure;
    }
    const std::string text = failure->what();
    EXPECT_EQ(text.substr(0, text.find(" (code ")), message);
    EXPECT_EQ(failure->GetCode(), code) << text;
    EXPECT_EQ(failure->GetTransportError(), transportError) << text;
    return failure;
}

}  // namespace support
