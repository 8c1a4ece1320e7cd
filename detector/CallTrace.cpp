#include "detector/CallTrace.h"

#include <spdlog/spdlog.h>

#include <cstring>
#include <sstream>

#include "InternalUtils/Failure.h"
#include "detector/attempt.h"
#include "logging.h"

CallTrace::CallTrace(const char* methodName, const std::string& arguments) : name(methodName) {
    logIfThereIsMemory([&] { getQorLogger()->info("ENTER: {}({})", name, arguments); });
}

CallTrace::~CallTrace() {
    getQorLogger()->info("EXIT: {}{}", name, resultText);
}

namespace trace {

std::string text(const DevInfo& info) {
    // The record comes from the application: its text may fill the field without a terminator.
    const std::string param(info.param, strnlen(info.param, sizeof(info.param)));
    return fmt::format("DevInfo{{{}, {}, {}, \"{}\", {}, {}}}", info.id0, info.id1, static_cast<int>(info.iface), param,
                       info.unit, info.grabberFlag);
}

std::string text(const QorImage& image) {
    return fmt::format("QorImage{{{}x{}x{}:{}}}", image.GetImageXdim(), image.GetImageYdim(), image.GetImageDepth(),
                       static_cast<int>(image.GetImagePixelType()));
}

std::string text(const char* value) {
    return value == nullptr ? addressText(value) : text(std::string(value));
}

std::string text(const std::string& value) {
    return fmt::format("\"{}\"", value);
}

std::string addressText(const void* address) {
    return fmt::format("{}", address);
}

std::string text(const Floats& array) {
    std::string all;
    for (std::size_t index = 0; index < array.count; ++index)
        all += (index == 0 ? "" : ", ") + fmt::format("{}", array.values[index]);
    return "{" + all + "}";
}

}  // namespace trace

void leaveWithException(const MethodName& method) {
    const auto wrapped = [&](const std::string& message) {
        return QuorinException(message.c_str(), DerrWrapped, method.line, baseName(method.file), method.name, 0, "");
    };
    const auto replacement = [&]() -> QuorinException {
        try {
            throw;
        } catch (const QuorinException& caught) {
            return named(caught, method.name);
        } catch (const std::exception& caught) {
            std::ostringstream message;
            message << "Caught a std::exception: " << caught.what();
            return wrapped(message.str());
        } catch (...) {
            return wrapped("Caught an unknown exception.");
        }
    };
    try {
        throw madeOrOutOfMemory(replacement);
    } catch (const QuorinException& leaving) {
        getQorLogger()->error("EXCEPTION: {}", leaving.what());
        throw;
    }
}
