#include <array>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/registers.h"

/// The modes of registers 0 and 1: exposure, trigger, readout, test image, frame counter, on-board corrections.

using registers::firstSensor;

namespace {

/// How a mode changes register 0: the bits that it clears, then those that it sets.
struct BitChange {
    int clear;
    int set;
};

constexpr int bit(int number) {
    return 1 << number;
}

constexpr std::array<BitChange, 4> exposureModeBits{{
    {bit(12) | bit(13), bit(3) | bit(4)},  // ExposureBits3And4
    {bit(3) | bit(12) | bit(13), 0},       // ExposureBitsClear
    {bit(3) | bit(12), bit(13)},           // ExposureBit13
    {bit(3) | bit(13), bit(12)},           // ExposureBit12
}};

constexpr int triggerBits = bit(5) | bit(6) | bit(7) | bit(8);
constexpr std::array<BitChange, 3> triggerSourceBits{{
    {triggerBits, bit(5) | bit(6)},  // TriggerBits5And6
    {triggerBits, 0},                // TriggerBitsClear
    {triggerBits, bit(5) | bit(7)},  // TriggerBits5And7
}};

constexpr int apply(const BitChange& change, int value) {
    return (value & ~change.clear) | change.set;
}

template <std::size_t N>
const BitChange* find(const std::array<BitChange, N>& changes, int mode) {
    return mode >= 0 && mode < static_cast<int>(N) ? &changes[static_cast<std::size_t>(mode)] : nullptr;
}

}  // namespace

void baseDetector::SetExposureMode(ExposureModes mode) {
    layer("baseDetector::SetExposureMode", [&] {
        CheckConnected();
        const float exposure = GetCachedExposureTime();
        const int value = ReadRegister(registers::mode, firstSensor);
        const BitChange* const change = find(exposureModeBits, mode);
        writeAll(registers::mode, change == nullptr ? value : apply(*change, value));
        exposureMode = mode;
        SetExposureTime(exposure);
        UpdateReadoutTime();
    });
}

ExposureModes baseDetector::GetExposureMode() {
    return layer("baseDetector::GetExposureMode", [&] {
        CheckConnected();
        const int value = ReadRegister(registers::mode, firstSensor);
        ExposureModes mode = ExposureBitsClear;
        if ((value & bit(3)) != 0)
            mode = ExposureBits3And4;
        else if ((value & bit(13)) != 0)
            mode = ExposureBit13;
        else if ((value & bit(12)) != 0)
            mode = ExposureBit12;
        exposureMode = mode;
        return mode;
    });
}

void baseDetector::SetTriggerSource(ExposureTriggerSource source) {
    constexpr const char* here = "baseDetector::SetTriggerSource";
    layer(here, [&] {
        CheckConnected();
        const int value = ReadRegister(registers::mode, firstSensor);
        const BitChange* const change = find(triggerSourceBits, source);
        if (change == nullptr) fail("Unsupported exposure trigger source!", DerrBadRequest, here, source);
        writeAll(registers::mode, apply(*change, value));
        triggerSource = source;
        UpdateReadoutTime();
    });
}

ExposureTriggerSource baseDetector::GetTriggerSource() {
    return layer("baseDetector::GetTriggerSource", [&] {
        CheckConnected();
        const int value = ReadRegister(registers::mode, firstSensor);
        ExposureTriggerSource source = TriggerBitsClear;
        if ((value & bit(5)) != 0) source = (value & bit(7)) != 0 ? TriggerBits5And7 : TriggerBits5And6;
        triggerSource = source;
        return source;
    });
}

void baseDetector::SetReadoutMode(ReadoutModes mode) {
    layer("baseDetector::SetReadoutMode", [&] {
        CheckConnected();
        changeBit(registers::control, registers::readoutModeBit, mode == ReadoutBit3Set);
        UpdateReadoutTime();
        readoutMode = mode;
    });
}

ReadoutModes baseDetector::GetReadoutMode() {
    return layer("baseDetector::GetReadoutMode", [&] {
        CheckConnected();
        const ReadoutModes mode =
            bitOf(registers::control, registers::readoutModeBit) ? ReadoutBit3Set : ReadoutBit3Clear;
        readoutMode = mode;
        return mode;
    });
}

ReadoutModes baseDetector::GetCachedReadoutMode() {
    const std::optional<ReadoutModes> cached = readoutMode.get();
    return cached ? *cached : GetReadoutMode();
}

void baseDetector::SetTestMode(bool enable) {
    layer("baseDetector::SetTestMode", [&] {
        CheckConnected();
        changeBit(registers::mode, registers::testModeBit, enable);
        testMode = enable;
    });
}

bool baseDetector::GetTestMode() {
    return layer("baseDetector::GetTestMode", [&] {
        CheckConnected();
        const bool enabled = bitOf(registers::mode, registers::testModeBit);
        testMode = enabled;
        return enabled;
    });
}

void baseDetector::SetPixelFrameCounter(bool enable) {
    CheckConnected();
    if (!IsKestrane()) return;
    const int value = ReadRegister(registers::control, firstSensor);
    writeAll(registers::control, enable ? value | registers::frameCounterBit : value & registers::frameCounterOffMask);
}

bool baseDetector::IsPixelFrameCounterEnabled() {
    return layer("baseDetector::IsPixelFrameCounterEnabled", [&] {
        CheckConnected();
        return IsKestrane() && bitOf(registers::control, registers::frameCounterBit);
    });
}

void baseDetector::ToggleOnBoardLinearization(bool enable) {
    layer("baseDetector::ToggleOnBoardLinearization", [&] {
        CheckConnected();
        changeBit(registers::control, registers::linearizationOffBit, !enable);
    });
}

bool baseDetector::GetOnBoardLinearizationState() {
    return layer("baseDetector::GetOnBoardLinearizationState", [&] {
        CheckConnected();
        return !bitOf(registers::control, registers::linearizationOffBit);
    });
}

void baseDetector::ToggleOnBoardXTalkCorrection(bool enable) {
    layer("baseDetector::ToggleOnBoardXTalkCorrection", [&] {
        CheckConnected();
        changeBit(registers::mode, registers::xTalkCorrectionBit, enable);
    });
}

bool baseDetector::GetOnBoardXTalkCorrectionState() {
    return layer("baseDetector::GetOnBoardXTalkCorrectionState", [&] {
        CheckConnected();
        return bitOf(registers::mode, registers::xTalkCorrectionBit);
    });
}
