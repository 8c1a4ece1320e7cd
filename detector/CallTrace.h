#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>

#include "DevInfo.h"
#include "QorImage.h"
#include "QuorinException.h"
#include "detector/attempt.h"

/// The trace of one public call: an ENTER line when it is made, an EXIT line when it goes.
class CallTrace {
public:
    CallTrace(const char* methodName, const std::string& arguments);
    ~CallTrace();
    CallTrace(const CallTrace&) = delete;
    CallTrace& operator=(const CallTrace&) = delete;

    /// Records the text of the result, without its arrow. `make` gives it.
    template <class Make>
    void setResult(Make&& make) {
        logIfThereIsMemory([&] { resultText = " -> " + make(); });
    }

private:
    const char* name;
    std::string resultText;
};

/// Texts of arguments and results as the trace prints them.
namespace trace {

std::string text(const DevInfo& info);
std::string text(const QorImage& image);
std::string text(const char* value);         ///< in double quotes; a null pointer as an address
std::string text(const std::string& value);  ///< in double quotes
std::string addressText(const void* address);

/// An array of floats: the elements in braces.
struct Floats {
    const float* values;
    std::size_t count;
};
std::string text(const Floats& array);

template <class T>
std::string text(const T& value) {
    if constexpr (std::is_enum_v<T>) {
        return fmt::format("{}", static_cast<int>(value));
    } else if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>) {
        return addressText(reinterpret_cast<const void*>(value));
    } else if constexpr (std::is_pointer_v<T>) {
        return addressText(value);
    } else {
        return fmt::format("{}", value);
    }
}

/// The argument list: each text followed by ", ", the last one cut.
template <class... Arguments>
std::string list(const Arguments&... arguments) {
    std::string all;
    ((all += text(arguments) + ", "), ...);
    if (!all.empty()) all.resize(all.size() - 2);
    return all;
}

}  // namespace trace

/// The arguments of a call, as text once the frame asks for it.
template <class... Arguments>
auto traced(const Arguments&... arguments) {
    return [&] { return trace::list(arguments...); };
}

/// A public method's qualified name and where its frame stands.
struct MethodName {
    // NOLINTNEXTLINE(google-explicit-constructor): a name is given as plain text at each method
    MethodName(const char* qualifiedName, int lineOfFrame = __builtin_LINE(),
               const char* fileOfFrame = __builtin_FILE())
        : name(qualifiedName), line(lineOfFrame), file(fileOfFrame) {}

    const char* name;
    int line;
    const char* file;
};

/// Replaces the exception in flight by the `QuorinException` that leaves the method, logs its EXCEPTION line and
/// throws it. Call it in a catch clause.
[[noreturn]] void leaveWithException(const MethodName& method);

/// The frame that every public method runs in: trace, body, result text, and whatever is thrown turned into one
/// `QuorinException` that names the method.
///
/// @param arguments  makes the text of the argument list
/// @param body       makes the call. Its result is traced; a body that takes the `CallTrace&` records its result
///                   itself, or not at all.
template <class Arguments, class Body>
decltype(auto) callFrame(const MethodName& method, Arguments&& arguments, Body&& body) {
    try {
        std::string argumentText;
        logIfThereIsMemory([&] { argumentText = arguments(); });
        CallTrace trace(method.name, argumentText);
        if constexpr (std::is_invocable_v<Body, CallTrace&>) {
            return body(trace);
        } else if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
            body();
        } else {
            auto result = body();
            trace.setResult([&] { return trace::text(result); });
            return result;
        }
    } catch (...) {
        leaveWithException(method);
    }
}

template <class Body>
decltype(auto) callFrame(const MethodName& method, Body&& body) {
    return callFrame(
        method, [] { return std::string(); }, std::forward<Body>(body));
}
