#include "PvResult.h"

#include <array>

namespace {

struct CodeRow {
    std::uint32_t code;
    const char* name;
    const char* description;
};

constexpr std::array<CodeRow, 16> codeTable{{
    {PvResult::Ok, "OK", ""},
    {PvResult::NotConnected, "NOT_CONNECTED", "not connected"},
    {PvResult::ConnectionLost, "CONNECTION_LOST", "the connection to the device is lost"},
    {PvResult::AccessDenied, "ACCESS_DENIED", "another connection controls the device"},
    {PvResult::NotFound, "NOT_FOUND", "not found"},
    {PvResult::Refused, "REFUSED", "the device refused"},
    {PvResult::InvalidParameter, "INVALID_PARAMETER", "invalid parameter"},
    {PvResult::OutOfRange, "OUT_OF_RANGE", "value out of range"},
    {PvResult::WrongType, "WRONG_TYPE", "feature of another type"},
    {PvResult::ReadOnly, "READ_ONLY", "feature is read only"},
    {PvResult::StateError, "STATE_ERROR", "not possible in this state"},
    {PvResult::NoMemory, "NO_MEMORY", "not enough memory"},
    {PvResult::BufferTooSmall, "BUFFER_TOO_SMALL", "the frame is larger than its buffer"},
    {PvResult::FrameIncomplete, "FRAME_INCOMPLETE", "part of the frame is missing"},
    {PvResult::NotSupported, "NOT_SUPPORTED", "not supported by the device"},
    {PvResult::Timeout, "TIMEOUT", "nothing came within the time-out"},
}};

constexpr CodeRow unknownCode{0, "UNKNOWN", "unknown code"};

const CodeRow& rowOf(std::uint32_t code) {
    for (const CodeRow& row : codeTable)
        if (row.code == code) return row;
    return unknownCode;
}

}  // namespace

PvResult::PvResult() = default;
PvResult::PvResult(std::uint32_t code) : code(code), description(rowOf(code).description) {}
PvResult::PvResult(std::uint32_t code, const std::string& description) : code(code), description(description.c_str()) {}
PvResult::PvResult(const PvResult& other) = default;
PvResult& PvResult::operator=(const PvResult& other) = default;
PvResult::~PvResult() = default;

bool PvResult::IsOK() const {
    return code == Ok;
}
bool PvResult::IsFailure() const {
    return code != Ok;
}
std::uint32_t PvResult::GetCode() const {
    return code;
}
PvString PvResult::GetCodeString() const {
    return rowOf(code).name;
}
PvString PvResult::GetDescription() const {
    return description;
}
std::uint32_t PvResult::GetInternalCode() const {
    return 0;
}
std::uint32_t PvResult::GetOSCode() const {
    return 0;
}
