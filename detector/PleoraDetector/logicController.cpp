#include <array>
#include <chrono>

#include "InternalUtils/Failure.h"
#include "detector/PleoraDetector.h"
#include "platform/Clock.h"

void PleoraDetector::ConfigurePLC() {
    constexpr const char* here = "PleoraDetector::ConfigurePLC";
    constexpr const char* message = "Problem Configuring Detector!";
    struct Wire {
        const char* feature;
        const char* value;
    };
    // Q4 = I0 Or Zero Or Zero Or Zero: the output follows the control bit that a software trigger pulses.
    constexpr std::array<Wire, 8> wiring{{{"PLC_I7", "Timer1Out"},
                                          {"PLC_Q4_Variable0", "PLC_I0"},
                                          {"PLC_Q4_Operator0", "Or"},
                                          {"PLC_Q4_Variable1", "Zero"},
                                          {"PLC_Q4_Operator1", "Or"},
                                          {"PLC_Q4_Variable2", "Zero"},
                                          {"PLC_Q4_Operator2", "Or"},
                                          {"PLC_Q4_Variable3", "Zero"}}};
    setEnum(Test::NotFailure, "PLC_I0", "PLC_ctrl0", message, here);
    for (const char* bit : {"PLC_ctrl0", "PLC_ctrl1", "PLC_ctrl2", "PLC_ctrl3"})
        expect(Test::NotFailure, pleoraLib->Dev_SetBooleanValue(bit, false), message, here);
    for (const Wire& wire : wiring) setEnum(Test::NotFailure, wire.feature, wire.value, message, here);
}

void PleoraDetector::SoftwareTrigger() {
    constexpr std::chrono::milliseconds settle{1};
    CheckConnected();
    if (!softwareTriggerEnabled) return;
    for (const bool level : {true, false})
        expect(Test::IsOK, pleoraLib->Dev_SetBooleanValue("PLC_ctrl0", level), "Problem Sending Software Trigger!",
               "PleoraDetector::SoftwareTrigger");
    platform::sleepFor(settle);
}
