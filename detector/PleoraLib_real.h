#pragma once

#include <string>

#include "detector/PleoraLib.h"

class PvDeviceAdapter;
class PvDeviceGEV;
class PvPipeline;
class PvStreamGEV;
class PvSystem;

/// The real seam: owns the eBUS objects between `init` and `deinit` and logs each call but serial traffic, and each
/// failure.
class QRAPI_EXPORT PleoraLib_real final : public PleoraLib {
public:
    PleoraLib_real();
    ~PleoraLib_real();
    PleoraLib_real(const PleoraLib_real&) = delete;
    PleoraLib_real& operator=(const PleoraLib_real&) = delete;

    void init() override;
    void deinit() override;
    PvResult Dev_Connect(PvString address) override;
    PvResult Dev_NegotiatePacketSize() override;
    PvResult Dev_SetStreamDestination(PvString address, std::uint16_t port) override;
    PvResult Dev_SetBooleanValue(PvString name, bool value) override;
    PvResult Dev_SetEnumValue(PvString name, std::int64_t value) override;
    PvResult Dev_SetEnumValue(PvString name, PvString value) override;
    PvResult Dev_GetIntegerValue(PvString name, std::int64_t& value) override;
    PvResult Dev_SetIntegerValue(PvString name, std::int64_t value) override;
    PvResult Dev_GetFloatValue(PvString name, double& value) override;
    bool Dev_IsConnected() override;
    PvResult Dev_Disconnect() override;
    PvResult Stream_Open(PvString address) override;
    PvString Stream_GetLocalIPAddress() override;
    std::uint16_t Stream_GetLocalPort() override;
    PvResult Stream_SetIntegerValue(PvString name, std::int64_t value) override;
    bool Stream_IsOpen() override;
    PvResult Stream_Close() override;
    void Pipeline_SetBufferSize(std::uint32_t size) override;
    PvResult Pipeline_SetBufferCount(std::uint32_t count) override;
    PvResult Pipeline_Start() override;
    bool Pipeline_IsStarted() override;
    PvResult Pipeline_Stop() override;
    PvResult Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult,
                                         std::int32_t timeoutMs) override;
    PvResult Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult) override;
    PvResult Pipeline_ReleaseBuffer(PvBuffer* released) override;
    PvAcquisitionState State_GetState() override;
    PvResult State_Stop() override;
    PvResult State_Start() override;
    PvResult IP_Open(PvDeviceSerial port) override;
    bool IP_IsOpened() override;
    PvResult IP_Close() override;
    PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead) override;
    PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead,
                     std::uint32_t timeoutMs) override;
    PvResult IP_FlushRxBuffer() override;
    PvResult IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& bytesWritten) override;
    PvString DevInfo_GetIPAddress() override;
    std::uint32_t Interface_GetDeviceCount() override;
    void Interface_GetDeviceInfo(std::uint32_t index) override;
    void System_SetDetectionTimeout(std::uint32_t timeoutMs) override;
    PvResult System_Find() override;
    std::uint32_t System_GetInterfaceCount() override;
    void System_GetInterface(std::uint32_t index) override;
    std::uint32_t System_GetDeviceCount() const override;
    void System_GetDeviceInfo(std::uint32_t index) override;
    PvBuffer* Buffer_GetBuffer() override;
    PvBuffer** Buffer_GetBufferPtr() override;
    std::uint8_t* Buffer_GetImagePointer() override;

    /// Passes a retrieved buffer to the stream for another frame. Not called by the library.
    PvResult Stream_QueueBuffer(PvBuffer* queued);

private:
    struct PleoraClasses;

    PleoraClasses& getClasses() const;
    PvSystem* pvSystem() const;
    PvDeviceGEV* pvDeviceGEV() const;
    PvStreamGEV* pvStreamGEV() const;
    PvPipeline* pvPipeline() const;
    PvAcquisitionStateManager* pvAcquisitionStateManager() const;
    PvDeviceAdapter* pvDeviceAdapter() const;
    PvDeviceSerialPort* pvDeviceSerialPort() const;

    const PvDeviceInfoGEV* deviceInfo = nullptr;       ///< points into data that eBUS owns
    const PvNetworkAdapter* networkAdapter = nullptr;  ///< points into data that eBUS owns
    PvBuffer* buffer = nullptr;                        ///< the buffer retrieved last
    std::shared_ptr<PleoraClasses> classes;            ///< empty: not initialised
};

/// "PvResult(code string (code): description. Internal code n. OS code n)"
std::string FormatPvResult(const PvResult& result);
