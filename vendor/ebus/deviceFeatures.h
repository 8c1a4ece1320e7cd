#pragma once

#include "FeatureStore.h"
#include "LogicController.h"

/// The features of a GigE interface board and the logic that some of them make up.
namespace ebus {

/// The places in the table; families of features stand one behind the other.
enum class DeviceFeature : std::size_t {
    Width,
    Height,
    PayloadSize,
    PixelFormat,
    TestImageSelector,
    Uart0BaudRate,
    Uart0NumOfStopBits,
    Uart0Parity,
    Uart0Loopback,
    GevCurrentIPConfigurationPersistentIP,
    GevPersistentIPAddress,
    PlcI0,
    PlcControl0 = PlcI0 + inputCount,
    PlcQ4Variable0 = PlcControl0 + controlBitCount,
    PlcQ4Operator0 = PlcQ4Variable0 + variableCount,
    TimerSelector = PlcQ4Operator0 + operatorCount,
    TimerTriggerSource,
    TimerTriggerActivation,
    TimerGranularityFactor,
    TimerDurationRaw,
    TimerDelayRaw,
    TimerFrequency,
    Count,
};

constexpr std::size_t placeOf(DeviceFeature feature, std::size_t offset = 0) {
    return static_cast<std::size_t>(feature) + offset;
}

enum class TestImage : std::int64_t { Off, GreyHorizontalRamp, GreyVerticalRamp };

/// A store over the device's table, with its start values.
FeatureStore makeDeviceFeatures();

/// The logic as the features stand; the timers' start times are the caller's.
Logic logicOf(const FeatureStore& features);

}  // namespace ebus
