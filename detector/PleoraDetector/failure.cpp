#include "InternalUtils/Failure.h"

#include <string>

#include "detector/PleoraDetector.h"

void PleoraDetector::failWith(const PvResult& result, const char* message, const char* function, Derr code, int line,
                              const char* file) {
    constexpr std::size_t longestMessage = 1023;
    const std::string description = std::string(result.GetDescription().GetAscii()).substr(0, longestMessage);
    fail(message, code, function, static_cast<int>(result.GetCode()), description.c_str(), line, file);
}

void PleoraDetector::check(Test test, const PvResult& result, const char* message, const char* function, Derr code,
                           int line, const char* file) {
    if (test == Test::IsOK ? !result.IsOK() : result.IsFailure()) failWith(result, message, function, code, line, file);
}

void PleoraDetector::expect(Test test, const PvResult& result, const char* message, const char* function, Derr code,
                            int line, const char* file) {
    {
        const platform::MutexLock lock(cacheMutex);
        lastResult = result;
    }
    check(test, result, message, function, code, line, file);
}

void PleoraDetector::setEnum(Test test, const char* feature, const char* value, const char* message,
                             const char* function) {
    expect(test, pleoraLib->Dev_SetEnumValue(feature, PvString(value)), message, function);
}
