#pragma once

#include <PvAcquisitionStateManager.h>
#include <PvBuffer.h>
#include <PvDeviceSerialPort.h>
#include <PvResult.h>
#include <PvString.h>

#include <cstdint>
#include <memory>

#include "export.h"

class PvDeviceInfoGEV;
class PvNetworkAdapter;

/// Everything that the GigE transport asks of the eBUS SDK: the seam at which its logic runs without the SDK.
///
/// A failed call is no error here: the `PvResult` is handed back. Nothing locks; callers serialise. `buffer` has one
/// value, so only one thread at a time may retrieve. The destructor is not virtual: hold an implementation by a shared
/// pointer that was made from its own type.
class QRAPI_EXPORT PleoraLib {
public:
    virtual void init() = 0;
    virtual void deinit() = 0;

    virtual PvResult Dev_Connect(PvString address) = 0;
    virtual PvResult Dev_NegotiatePacketSize() = 0;
    virtual PvResult Dev_SetStreamDestination(PvString address, std::uint16_t port) = 0;
    virtual PvResult Dev_SetBooleanValue(PvString name, bool value) = 0;
    virtual PvResult Dev_SetEnumValue(PvString name, std::int64_t value) = 0;
    virtual PvResult Dev_SetEnumValue(PvString name, PvString value) = 0;
    virtual PvResult Dev_GetIntegerValue(PvString name, std::int64_t& value) = 0;
    virtual PvResult Dev_SetIntegerValue(PvString name, std::int64_t value) = 0;
    virtual PvResult Dev_GetFloatValue(PvString name, double& value) = 0;
    virtual bool Dev_IsConnected() = 0;
    virtual PvResult Dev_Disconnect() = 0;

    virtual PvResult Stream_Open(PvString address) = 0;
    virtual PvString Stream_GetLocalIPAddress() = 0;
    virtual std::uint16_t Stream_GetLocalPort() = 0;
    virtual PvResult Stream_SetIntegerValue(PvString name, std::int64_t value) = 0;
    virtual bool Stream_IsOpen() = 0;
    virtual PvResult Stream_Close() = 0;

    virtual void Pipeline_SetBufferSize(std::uint32_t size) = 0;
    virtual PvResult Pipeline_SetBufferCount(std::uint32_t count) = 0;
    virtual PvResult Pipeline_Start() = 0;
    virtual bool Pipeline_IsStarted() = 0;
    virtual PvResult Pipeline_Stop() = 0;
    /// Two results: the returned one says whether a buffer was handed over (code 30: none within the time-out), the
    /// one behind `operationResult` whether the frame in it is good. A buffer handed over must be released.
    virtual PvResult Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult,
                                                 std::int32_t timeoutMs) = 0;
    virtual PvResult Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult) = 0;
    virtual PvResult Pipeline_ReleaseBuffer(PvBuffer* released) = 0;

    virtual PvAcquisitionState State_GetState() = 0;
    virtual PvResult State_Stop() = 0;
    virtual PvResult State_Start() = 0;

    virtual PvResult IP_Open(PvDeviceSerial port) = 0;
    virtual bool IP_IsOpened() = 0;
    virtual PvResult IP_Close() = 0;
    virtual PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead) = 0;
    /// Returns at the first bytes; an OK result with 0 bytes after the time-out.
    virtual PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead,
                             std::uint32_t timeoutMs) = 0;
    virtual PvResult IP_FlushRxBuffer() = 0;
    virtual PvResult IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& bytesWritten) = 0;

    virtual PvString DevInfo_GetIPAddress() = 0;
    virtual std::uint32_t Interface_GetDeviceCount() = 0;
    virtual void Interface_GetDeviceInfo(std::uint32_t index) = 0;

    virtual void System_SetDetectionTimeout(std::uint32_t timeoutMs) = 0;
    virtual PvResult System_Find() = 0;
    virtual std::uint32_t System_GetInterfaceCount() = 0;
    virtual void System_GetInterface(std::uint32_t index) = 0;
    virtual std::uint32_t System_GetDeviceCount() const = 0;
    virtual void System_GetDeviceInfo(std::uint32_t index) = 0;

    virtual PvBuffer* Buffer_GetBuffer() = 0;
    virtual PvBuffer** Buffer_GetBufferPtr() = 0;
    virtual std::uint8_t* Buffer_GetImagePointer() = 0;
};
