#include "QuorinException.h"

#include <string>
#include <utility>
#include <vector>

namespace {

std::string textOf(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

const char* DerrName(Derr code) noexcept {
    switch (code) {
        case DerrWrongTransport:
            return "DerrWrongTransport";
        case DerrBadRequest:
            return "DerrBadRequest";
        case DerrTransport:
            return "DerrTransport";
        case DerrExposure:
            return "DerrExposure";
        case DerrSerialCommand:
            return "DerrSerialCommand";
        case DerrFile:
            return "DerrFile";
        case DerrGrabberSetup:
            return "DerrGrabberSetup";
        case DerrResources:
            return "DerrResources";
        case DerrAcquisition:
            return "DerrAcquisition";
        case DerrBinning:
            return "DerrBinning";
        case DerrWrapped:
            return "DerrWrapped";
        case DerrNullPointer:
            return "DerrNullPointer";
        case DerrCallback:
            return "DerrCallback";
    }
    return "unknown";
}

struct QuorinException::Content {
    std::string message;
    Derr code = DerrWrapped;
    int line = 0;
    std::string file;
    std::string function;
    int transportError = 0;
    std::string transportMessage;
    std::vector<std::string> layers;
    std::string report;

    /// "message (code 5 DerrTransport; in f, file.cpp:12; transport error 30: text; through a, b)"
    void composeReport() {
        report = message + " (code " + std::to_string(code) + " " + DerrName(code) + "; in " + function + ", " + file +
                 ":" + std::to_string(line);
        if (transportError != 0 || !transportMessage.empty()) {
            report += "; transport error " + std::to_string(transportError);
            if (!transportMessage.empty()) report += ": " + transportMessage;
        }
        const char* separator = "; through ";
        for (const std::string& layer : layers) {
            report += std::exchange(separator, ", ") + layer;
        }
        report += ")";
    }
};

QuorinException::QuorinException(const char* message, Derr code, int line, const char* file, const char* function,
                                 int transportError, const char* transportMessage) {
    auto made = std::make_shared<Content>();
    made->message = textOf(message);
    made->code = code;
    made->line = line;
    made->file = textOf(file);
    made->function = textOf(function);
    made->transportError = transportError;
    made->transportMessage = textOf(transportMessage);
    made->composeReport();
    content = std::move(made);
}

QuorinException::QuorinException(const QuorinException& inner, const char* function) {
    auto made = std::make_shared<Content>(*inner.content);
    made->layers.push_back(textOf(function));
    made->composeReport();
    content = std::move(made);
}

QuorinException::QuorinException(const QuorinException& other) noexcept = default;
QuorinException& QuorinException::operator=(const QuorinException& other) noexcept = default;
QuorinException::~QuorinException() = default;

const char* QuorinException::what() const noexcept {
    return content->report.c_str();
}
Derr QuorinException::GetCode() const noexcept {
    return content->code;
}
int QuorinException::GetTransportError() const noexcept {
    return content->transportError;
}
const char* QuorinException::GetTransportMessage() const noexcept {
    return content->transportMessage.c_str();
}
int QuorinException::GetLineNumber() const noexcept {
    return content->line;
}
const char* QuorinException::GetFileName() const noexcept {
    return content->file.c_str();
}
const char* QuorinException::GetFunctionName() const noexcept {
    return content->function.c_str();
}
