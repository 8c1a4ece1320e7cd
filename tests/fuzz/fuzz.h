#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "QuorinException.h"
#include "platform/DataFolder.h"

/// Each fuzzer is one file that defines this; the input is text where that can be, so that seeds can be read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);  // NOLINT: the fuzzer's name

/// Neither a log file nor what the library prints: both would cost more than what is looked at.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {  // NOLINT: the fuzzer's name
    static const platform::ScopedDataFolder nowhere("", -1);
    std::cout.rdbuf(nullptr);
    return 0;
}

namespace fuzz {

/// Ends the process unless the condition holds, which is how the fuzzer learns of it.
inline void require(bool condition, const char* rule, std::string_view detail = {}) {
    if (condition) return;
    std::fprintf(stderr, "BROKEN: %s: %.*s\n", rule, static_cast<int>(detail.size()), detail.data());
    std::abort();
}

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// The code of the one exception that may leave a call; nothing if the call returned. Any other exception ends the
/// process.
template <class Call>
std::optional<Derr> failureOf(Call&& call) {
    try {
        call();
        return std::nullopt;
    } catch (const QuorinException& failure) {
        const std::string_view name = DerrName(failure.GetCode());
        require(name != "unknown", "a failure has a code with a name", failure.what());
        require(std::string_view(failure.what()).find(name) != std::string_view::npos, "its text names the code",
                failure.what());
        require(*failure.GetFunctionName() != '\0', "it tells where it was thrown", failure.what());
        return failure.GetCode();
    }
}

/// The input from its front on: lines, then what is left.
class Input {
public:
    explicit Input(std::string_view all) : left(all) {}

    /// Without its line feed; empty at the end.
    std::string_view line() {
        const std::size_t end = left.find('\n');
        const std::string_view found = left.substr(0, end);
        left.remove_prefix(end == std::string_view::npos ? left.size() : end + 1);
        return found;
    }
    bool atEnd() const { return left.empty(); }
    std::string_view rest() const { return left; }

private:
    std::string_view left;
};

/// The numbers of a text, in order; what is between them doesn't count.
class Numbers {
public:
    explicit Numbers(std::string_view text) : left(text) {}

    /// 0 once there are no more.
    std::int32_t next() {
        while (!left.empty()) {
            std::int32_t value = 0;
            const auto [stop, error] = std::from_chars(left.data(), left.data() + left.size(), value);
            const bool found = error == std::errc();
            left.remove_prefix(found ? static_cast<std::size_t>(stop - left.data()) : 1);
            if (found) return value;
        }
        return 0;
    }

    /// From `lowest` to `highest`; a number outside is folded into that range.
    std::int32_t next(std::int32_t lowest, std::int32_t highest) {
        const std::int64_t count = std::int64_t{highest} - lowest + 1;
        const std::int64_t place = (std::int64_t{next()} - lowest) % count;
        return static_cast<std::int32_t>(lowest + (place < 0 ? place + count : place));
    }

private:
    std::string_view left;
};

/// A file that has a path and no place on a disk.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content) : descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {
        const bool written =
            descriptor >= 0 && write(descriptor, content.data(), content.size()) == std::ssize(content);
        if (!written) std::abort();
        name = "/proc/self/fd/" + std::to_string(descriptor);
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    const char* path() const { return name.c_str(); }

private:
    int descriptor;
    std::string name;
};

}  // namespace fuzz
