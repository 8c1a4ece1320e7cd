#include "detector/CallTrace.h"

#include <spdlog/spdlog.h>

#include <cstring>
#include <sstream>

#include "InternalUtils/Failure.h"
#include "detector/attempt.h"
#include "logging.h"

CallTrace::~CallTrace() {
    logIfThereIsMemory([&] {
        if (line.view().empty()) line.add("EXIT: ", name);
        trace::logLine(line);
    });
}

namespace trace {

void put(Text& to, const DevInfo& info) {
    // The application's text may fill the field without a terminator.
    const std::string_view param(info.param, strnlen(info.param, sizeof(info.param)));
    to.format("DevInfo{{{}, {}, {}, \"{}\", {}, {}}}", info.id0, info.id1, static_cast<int>(info.iface), param,
              info.unit, info.grabberFlag);
}

void put(Text& to, const QorImage& image) {
    to.format("QorImage{{{}x{}x{}:{}}}", image.GetImageXdim(), image.GetImageYdim(), image.GetImageDepth(),
              static_cast<int>(image.GetImagePixelType()));
}

void put(Text& to, const Floats& array) {
    to.add("{");
    for (std::size_t index = 0; index < array.count; ++index) {
        if (index > 0) to.add(", ");
        put(to, array.values[index]);
    }
    to.add("}");
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
