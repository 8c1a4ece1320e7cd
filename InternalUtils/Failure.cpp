#include "InternalUtils/Failure.h"

void fail(const char* message, Derr code, const char* function, int transportError, const char* transportMessage,
          int line, const char* file) {
    throw QuorinException(message, code, line, baseName(file), function, transportError, transportMessage);
}

const char* baseName(const char* path) {
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at)
        if (*at == '/' || *at == '\\') name = at + 1;
    return name;
}
