#pragma once

#include <fmt/compile.h>
#include <fmt/format.h>
#include <spdlog/common.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "detector/attempt.h"

/// Texts of calls, arguments and results for the log's lines. Every call of the library builds some, so they are built
/// in place: without the heap unless they are long.
namespace trace {

/// A text to append to.
class Text {
public:
    /// Inline, so that a literal's length is a constant.
    template <class... Pieces>
    [[gnu::always_inline]] void add(const Pieces&... pieces) {
        const std::size_t length = buffer.size();
        buffer.resize(length + (std::string_view(pieces).size() + ...));
        char* place = buffer.data() + length;
        const auto append = [&](std::string_view piece) {
            std::memcpy(place, piece.data(), piece.size());
            place += piece.size();
        };
        (append(pieces), ...);
    }
    /// Appends the formatted values.
    template <class... Values>
    void format(fmt::format_string<const Values&...> pattern, const Values&... values) {
        fmt::format_to(fmt::appender(buffer), pattern, values...);
    }
    /// Output iterator that appends to the text.
    fmt::appender end() { return fmt::appender(buffer); }
    void cut(std::size_t lastCharacters) { buffer.resize(buffer.size() - lastCharacters); }
    void clear() { buffer.clear(); }
    std::string_view view() const { return {buffer.data(), buffer.size()}; }

private:
    static constexpr std::size_t ordinaryLine = 250;
    fmt::basic_memory_buffer<char, ordinaryLine> buffer;
};

void put(Text& to, const char* value);         ///< in double quotes; a null pointer as an address
void put(Text& to, const std::string& value);  ///< in double quotes

/// Numbers, bool, enumerations as their number, pointers as addresses.
template <class T>
void put(Text& to, const T& value) {
    if constexpr (std::is_enum_v<T>)
        put(to, static_cast<int>(value));
    else if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>)
        put(to, reinterpret_cast<const void*>(value));
    else if constexpr (std::is_pointer_v<T> && !std::is_void_v<std::remove_pointer_t<T>>)
        put(to, static_cast<const void*>(value));
    else
        fmt::format_to(to.end(), FMT_COMPILE("{}"), value);
}

/// Appends the values, separated by ", ". A type is printed by its `put` in this namespace.
template <class... Values>
void putList(Text& to, const Values&... values) {
    constexpr std::string_view separator = ", ";
    ((put(to, values), to.add(separator)), ...);
    if constexpr (sizeof...(values) > 0) to.cut(separator.size());
}

/// Writes the line to the log.
void logLine(const Text& line, spdlog::level::level_enum level = spdlog::level::info);

/// Writes "<kind>: <call>(<arguments>)"; nothing if there is no memory for it.
template <class... Arguments>
void logCall(std::string_view kind, std::string_view call, const Arguments&... arguments) {
    logIfThereIsMemory([&] {
        Text line;
        line.add(kind, ": ", call, "(");
        putList(line, arguments...);
        line.add(")");
        logLine(line);
    });
}

/// Writes "<kind>: <call> returned <value>"; nothing if there is no memory for it.
template <class Value>
void logReturned(std::string_view kind, std::string_view call, const Value& value) {
    logIfThereIsMemory([&] {
        Text line;
        line.add(kind, ": ", call, " returned ");
        put(line, value);
        logLine(line);
    });
}

}  // namespace trace
