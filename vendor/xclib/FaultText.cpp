#include "FaultText.h"

#include <array>
#include <utility>

#include "xcliball.h"

namespace grabber {
namespace {

struct ErrorText {
    int error;
    const char* text;
};

constexpr std::array<ErrorText, 9> errorTexts{{
    {PXERNOTOPEN, "no library state, or its board is not open"},
    {PXERALREADYOPEN, "the board is open already"},
    {PXERNOBOARD, "there is no board of that number"},
    {PXERUNITMAP, "the board has unit map 1 only"},
    {PXERBADPARAM, "an argument is outside its range"},
    {PXERFORMAT, "not a video format, or none has been loaded"},
    {PXERMEMORY, "the frame memory is too small"},
    {PXERBUSY, "a sequence is running"},
    {PXERIO, "the link to the detector doesn't work"},
}};

}  // namespace

void FaultText::put(std::string text) {
    const platform::MutexLock lock(mutex);
    last = std::move(text);
}

bool FaultText::take(char* buffer, std::size_t size) {
    const platform::MutexLock lock(mutex);
    const bool any = !last.empty();
    buffer[last.copy(buffer, size - 1)] = '\0';
    last.clear();
    return any;
}

std::string errorText(const char* function, int error) {
    const std::string prefix = std::string(function) + ": ";
    for (const ErrorText& row : errorTexts)
        if (row.error == error) return prefix + row.text;
    return prefix + "error " + std::to_string(error);
}

}  // namespace grabber
