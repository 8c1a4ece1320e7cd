#pragma once

#include <cstddef>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "DevInfo.h"
#include "QorImage.h"
#include "QuorinException.h"
#include "detector/LogText.h"
#include "detector/attempt.h"

/// Arguments and results that only the trace of public calls prints.
namespace trace {

void put(Text& to, const DevInfo& info);
void put(Text& to, const QorImage& image);

/// An array of floats: the elements in braces.
struct Floats {
    const float* values;
    std::size_t count;
};
void put(Text& to, const Floats& array);

}  // namespace trace

/// The trace of one public call: writes an ENTER line when it is made and an EXIT line when it is destroyed. Without
/// memory a line is left out.
class CallTrace {
public:
    /// @param methodName    qualified name; must outlive the object
    /// @param putArguments  appends the argument list to a `trace::Text`
    template <class PutArguments>
    CallTrace(std::string_view methodName, const PutArguments& putArguments) : name(methodName) {
        logIfThereIsMemory([&] {
            line.add("ENTER: ", name, "(");
            putArguments(line);
            line.add(")");
            trace::logLine(line);
        });
        line.clear();
    }
    ~CallTrace();
    CallTrace(const CallTrace&) = delete;
    CallTrace& operator=(const CallTrace&) = delete;

    /// Records the result.
    template <class... Values>
    void setResult(const Values&... values) {
        try {
            line.add("EXIT: ", name, " -> ");
            trace::putList(line, values...);
        } catch (const std::bad_alloc&) {
            line.clear();
        } catch (...) {
            line.clear();
            throw;
        }
    }

private:
    const std::string_view name;
    trace::Text line;  ///< the EXIT line once there is a result
};

/// The arguments of a call, formatted when the trace needs them.
template <class... Arguments>
auto traced(const Arguments&... arguments) {
    return [&](trace::Text& to) { trace::putList(to, arguments...); };
}

/// A public method's qualified name and the source location of its frame.
struct MethodName {
    // NOLINTNEXTLINE(google-explicit-constructor): a name is given as plain text at each method
    MethodName(const char* qualifiedName, int lineOfFrame = __builtin_LINE(),
               const char* fileOfFrame = __builtin_FILE())
        : name(qualifiedName), line(lineOfFrame), file(fileOfFrame) {}

    const char* name;
    int line;
    const char* file;
};

/// Turns the exception that is being handled into the `QuorinException` that leaves the method, logs its EXCEPTION line
/// and throws it. Call it in a catch clause.
[[noreturn]] void leaveWithException(const MethodName& method);

/// The frame of every public method: writes the trace, runs the body, and turns any exception into one
/// `QuorinException` that names the method.
///
/// @param method     the method's name
/// @param arguments  appends the argument list to a `trace::Text`, as `traced` does
/// @param body       makes the call; its result is traced. A body that takes the `CallTrace&` records its own result,
///                   or none.
/// @return the body's result
template <class Arguments, class Body>
decltype(auto) callFrame(const MethodName& method, Arguments&& arguments, Body&& body) {
    try {
        CallTrace trace(method.name, arguments);
        if constexpr (std::is_invocable_v<Body, CallTrace&>) {
            return body(trace);
        } else if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
            body();
        } else {
            auto result = body();
            trace.setResult(result);
            return result;
        }
    } catch (...) {
        leaveWithException(method);
    }
}

template <class Body>
decltype(auto) callFrame(const MethodName& method, Body&& body) {
    return callFrame(method, traced(), std::forward<Body>(body));
}
