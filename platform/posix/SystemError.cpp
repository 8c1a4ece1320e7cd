#include "platform/SystemError.h"

#include <cerrno>
#include <system_error>

namespace platform {

int lastError() {
    return errno;
}

void setLastError(int error) {
    errno = error;
}

std::string systemErrorText(int error) {
    return std::generic_category().message(error);
}

}  // namespace platform
