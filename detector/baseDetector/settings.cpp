#include <chrono>

#include "InternalUtils/Failure.h"
#include "binningTable.h"
#include "detector/baseDetector.h"
#include "detector/registers.h"
#include "platform/Clock.h"

/// Binning, and the read-modify-write of all settings. A change is two exchanges; no lock spans both.

using registers::allSensors;
using registers::firstSensor;

namespace {

constexpr std::chrono::milliseconds betweenWrites{1};
constexpr int applyModesCode = 514;  ///< written to register 5 after binning or full well changes
constexpr int model5204 = 5204;
constexpr std::chrono::milliseconds settle5204{82};

}  // namespace

void baseDetector::writeAll(int reg, int value) {
    WriteRegister(reg, value, allSensors);
}

bool baseDetector::bitOf(int reg, int bit) {
    return (ReadRegister(reg, firstSensor) & bit) != 0;
}

void baseDetector::changeBit(int reg, int bit, bool set) {
    const int value = ReadRegister(reg, firstSensor);
    writeAll(reg, set ? value | bit : value & ~bit);
}

int baseDetector::readForChange(int reg) {
    const int value = ReadRegister(reg, firstSensor);
    if (value < 0) fail("Problem reading detector register!", DerrBadRequest, "baseDetector::SetBinningMode", value);
    return value;
}

float baseDetector::exposureUnlessAt(float minimum) {
    // An exposure exactly at the minimum follows the minimum when that changes.
    const float exposure = GetCachedExposureTime();
    return exposure == minimum ? 0.0F : exposure;
}

void baseDetector::SetBinningMode(bins binning) {
    layer("baseDetector::SetBinningMode", [&] {
        CheckConnected();
        PrepareInterfaceForImageSizeChange();
        const float exposure = exposureUnlessAt(readoutTime);
        CheckBin(binning);
        const int code = readForChange(registers::binningCode) & ~int{binningCodeMask};
        int control = readForChange(registers::control) & ~int{binningFlagMask};
        const auto writeAndPause = [this](int reg, int value) {
            writeAll(reg, value);
            platform::sleepFor(betweenWrites);
        };
        if (const BinningMode* const mode = findBinning(binning)) {
            writeAndPause(registers::columnBinning, mode->columnRegister);
            writeAndPause(registers::rowBinning, mode->rowRegister);
            writeAndPause(registers::binningCode, code | mode->codeBits);
            control |= mode->flagBits;
        }
        writeAndPause(registers::control, control);
        if (binning != 0) writeAll(registers::applyModes, applyModesCode);
        binningMode = binning;
        if (GetCachedModelNumber() == model5204) platform::sleepFor(settle5204);
        UpdateReadoutTime();
        SetExposureTime(exposure);
        UpdateInterfaceImageSize();
    });
}

bins baseDetector::GetBinningMode() {
    return layer("baseDetector::GetBinningMode", [&] {
        CheckConnected();
        const int column = ReadRegister(registers::columnBinning, firstSensor);
        const int row = ReadRegister(registers::rowBinning, firstSensor);
        bins mode = binningFromRegisters(column, row);
        const int control = ReadRegister(registers::control, firstSensor);
        if ((control & binning2x2FlagBit) != 0) {
            mode = Bin2x2Flagged;
        } else if ((control & binning4x4FlagBit) != 0) {
            constexpr int code4x4Bits = 0x140;
            if (QueryBinningMode(Bin4x4Flagged) != 1)
                ignored4x4Flag = true;
            else if (bitOf(registers::binningCode, code4x4Bits))
                mode = Bin4x4Flagged;
        }
        binningMode = mode;
        return mode;
    });
}

bins baseDetector::GetCachedBinningMode() {
    const std::optional<bins> cached = binningMode.get();
    return cached ? *cached : GetBinningMode();
}

void baseDetector::SetFullWellMode(FullWellModes mode) {
    layer("baseDetector::SetFullWellMode", [&] {
        CheckConnected();
        const int code = ReadRegister(registers::binningCode, firstSensor);
        if (mode == FullWellBit2Clear) writeAll(registers::binningCode, code & ~registers::fullWellBit);
        if (mode == FullWellBit2Set) writeAll(registers::binningCode, code | registers::fullWellBit);
        writeAll(registers::applyModes, applyModesCode);
        fullWellMode = mode;
    });
}

FullWellModes baseDetector::GetFullWellMode() {
    return layer("baseDetector::GetFullWellMode", [&] {
        CheckConnected();
        const FullWellModes mode =
            bitOf(registers::binningCode, registers::fullWellBit) ? FullWellBit2Set : FullWellBit2Clear;
        fullWellMode = mode;
        return mode;
    });
}
