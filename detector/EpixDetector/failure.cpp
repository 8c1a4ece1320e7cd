#include "InternalUtils/Failure.h"

#include <array>

#include "detector/EpixDetector.h"

char* EpixDetector::GetErrorMessage() {
    constexpr std::size_t longestText = 1024;
    thread_local std::array<char, longestText> text;
    text.fill(0);
    if (xclibLib->mesgFaultText(xcState, unitMap, text.data(), text.size()) == 0) text.front() = 0;
    text.back() = 0;  // whatever the grabber's library has written
    return text.data();
}

void EpixDetector::failWith(int result, const char* message, const char* function, Derr code, int line,
                            const char* file) {
    fail(message, code, function, result, GetErrorMessage(), line, file);
}

void EpixDetector::expectZero(int result, const char* message, const char* function, Derr code, int line,
                              const char* file) {
    if (result != 0) failWith(result, message, function, code, line, file);
}

int EpixDetector::expectCount(int result, const char* message, const char* function, int line, const char* file) {
    if (result < 0) failWith(result, message, function, DerrTransport, line, file);
    return result;
}
