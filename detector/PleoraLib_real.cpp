#include "detector/PleoraLib_real.h"

#include <PvDeviceAdapter.h>
#include <PvDeviceGEV.h>
#include <PvDeviceInfoGEV.h>
#include <PvGenParameterArray.h>
#include <PvImage.h>
#include <PvNetworkAdapter.h>
#include <PvPipeline.h>
#include <PvStreamGEV.h>
#include <PvSystem.h>
#include <fmt/format.h>

#include "InternalUtils/Failure.h"
#include "detector/LogText.h"
#include "detector/seams.h"

namespace trace {

static void put(Text& to, const PvString& value) {
    const char* const text = value.GetAscii();
    to.add(text != nullptr ? text : "");
}

static void put(Text& to, const PvResult& result) {
    to.add(FormatPvResult(result));
}

}  // namespace trace

namespace {

template <class... Arguments>
void traceCall(const char* callText, const Arguments&... arguments) {
    trace::logCall("PLEORA", callText, arguments...);
}

template <class T>
void traceReturned(const char* callText, const T& value) {
    trace::logReturned("PLEORA", callText, value);
}

/// Traces a call only if it fails, as for serial traffic.
template <class Call>
PvResult quietly(const char* callText, Call&& call) {
    PvResult result = call();
    if (!result.IsOK()) traceReturned(callText, result);
    return result;
}

template <class Call, class... Arguments>
PvResult traced(const char* callText, Call&& call, const Arguments&... arguments) {
    traceCall(callText, arguments...);
    return quietly(callText, std::forward<Call>(call));
}

template <class Call>
auto tracedValue(const char* callText, Call&& call) {
    traceCall(callText);
    auto value = call();
    traceReturned(callText, value);
    return value;
}

}  // namespace

std::string FormatPvResult(const PvResult& result) {
    return fmt::format("PvResult({} ({}): {}. Internal code {}. OS code {})", result.GetCodeString().GetAscii(),
                       result.GetCode(), result.GetDescription().GetAscii(), result.GetInternalCode(),
                       result.GetOSCode());
}

std::shared_ptr<PleoraLib> makePleoraLib() {
    return std::make_shared<PleoraLib_real>();
}

/// The eBUS objects. Those that use the device or the stream are made after it and destroyed before it.
struct PleoraLib_real::PleoraClasses {
    std::shared_ptr<PvSystem> pvSystem;
    std::shared_ptr<PvDeviceGEV> pvDeviceGEV;
    std::shared_ptr<PvStreamGEV> pvStreamGEV;
    std::shared_ptr<PvPipeline> pvPipeline;
    std::shared_ptr<PvAcquisitionStateManager> pvAcquisitionStateManager;
    std::shared_ptr<PvDeviceAdapter> pvDeviceAdapter;
    std::shared_ptr<PvDeviceSerialPort> pvDeviceSerialPort;

    PleoraClasses() {
        pvSystem = std::make_shared<PvSystem>();
        pvDeviceGEV = std::make_shared<PvDeviceGEV>();
        pvStreamGEV = std::make_shared<PvStreamGEV>();
        pvAcquisitionStateManager =
            std::make_shared<PvAcquisitionStateManager>(pvDeviceGEV.get(), pvStreamGEV.get(), 0U);
        pvDeviceAdapter = std::make_shared<PvDeviceAdapter>(pvDeviceGEV.get());
        pvDeviceSerialPort = std::make_shared<PvDeviceSerialPort>();
        pvPipeline = std::make_shared<PvPipeline>(pvStreamGEV.get());
    }
    ~PleoraClasses() {
        pvPipeline.reset();
        pvDeviceSerialPort.reset();
        pvDeviceAdapter.reset();
        pvAcquisitionStateManager.reset();
        pvStreamGEV.reset();
        pvDeviceGEV.reset();
        pvSystem.reset();
    }
    PleoraClasses(const PleoraClasses&) = delete;
    PleoraClasses& operator=(const PleoraClasses&) = delete;
};

PleoraLib_real::PleoraLib_real() = default;
PleoraLib_real::~PleoraLib_real() = default;

void PleoraLib_real::init() {
    if (classes == nullptr) classes = std::make_shared<PleoraClasses>();
}

void PleoraLib_real::deinit() {
    classes.reset();
}

PleoraLib_real::PleoraClasses& PleoraLib_real::getClasses() const {
    if (classes == nullptr)
        fail("Cannot make Pleora call, classes are not initialized.", DerrTransport, "PleoraLib_real::getClasses");
    return *classes;
}

PvSystem* PleoraLib_real::pvSystem() const {
    return getClasses().pvSystem.get();
}
PvDeviceGEV* PleoraLib_real::pvDeviceGEV() const {
    return getClasses().pvDeviceGEV.get();
}
PvStreamGEV* PleoraLib_real::pvStreamGEV() const {
    return getClasses().pvStreamGEV.get();
}
PvPipeline* PleoraLib_real::pvPipeline() const {
    return getClasses().pvPipeline.get();
}
PvAcquisitionStateManager* PleoraLib_real::pvAcquisitionStateManager() const {
    return getClasses().pvAcquisitionStateManager.get();
}
PvDeviceAdapter* PleoraLib_real::pvDeviceAdapter() const {
    return getClasses().pvDeviceAdapter.get();
}
PvDeviceSerialPort* PleoraLib_real::pvDeviceSerialPort() const {
    return getClasses().pvDeviceSerialPort.get();
}

PvResult PleoraLib_real::Dev_Connect(PvString address) {
    return traced(
        "pvDeviceGEV()->Connect", [&] { return pvDeviceGEV()->Connect(address); }, address);
}

PvResult PleoraLib_real::Dev_NegotiatePacketSize() {
    return traced("pvDeviceGEV()->NegotiatePacketSize", [&] { return pvDeviceGEV()->NegotiatePacketSize(0, 0); });
}

PvResult PleoraLib_real::Dev_SetStreamDestination(PvString address, std::uint16_t port) {
    return traced(
        "pvDeviceGEV()->SetStreamDestination", [&] { return pvDeviceGEV()->SetStreamDestination(address, port, 0); },
        address, port);
}

PvResult PleoraLib_real::Dev_SetBooleanValue(PvString name, bool value) {
    return traced(
        "pvDeviceGEV()->GetParameters()->SetBooleanValue",
        [&] { return pvDeviceGEV()->GetParameters()->SetBooleanValue(name, value); }, name, value);
}

PvResult PleoraLib_real::Dev_SetEnumValue(PvString name, std::int64_t value) {
    return traced(
        "pvDeviceGEV()->GetParameters()->SetEnumValue",
        [&] { return pvDeviceGEV()->GetParameters()->SetEnumValue(name, value); }, name, value);
}

PvResult PleoraLib_real::Dev_SetEnumValue(PvString name, PvString value) {
    return traced(
        "pvDeviceGEV()->GetParameters()->SetEnumValue",
        [&] { return pvDeviceGEV()->GetParameters()->SetEnumValue(name, value); }, name, value);
}

PvResult PleoraLib_real::Dev_GetIntegerValue(PvString name, std::int64_t& value) {
    return traced(
        "pvDeviceGEV()->GetParameters()->GetIntegerValue",
        [&] { return pvDeviceGEV()->GetParameters()->GetIntegerValue(name, value); }, name, value);
}

PvResult PleoraLib_real::Dev_SetIntegerValue(PvString name, std::int64_t value) {
    return traced(
        "pvDeviceGEV()->GetParameters()->SetIntegerValue",
        [&] { return pvDeviceGEV()->GetParameters()->SetIntegerValue(name, value); }, name, value);
}

PvResult PleoraLib_real::Dev_GetFloatValue(PvString name, double& value) {
    return traced(
        "pvDeviceGEV()->GetParameters()->GetFloatValue",
        [&] { return pvDeviceGEV()->GetParameters()->GetFloatValue(name, value); }, name, value);
}

bool PleoraLib_real::Dev_IsConnected() {
    return tracedValue("pvDeviceGEV()->IsConnected", [&] { return pvDeviceGEV()->IsConnected(); });
}

PvResult PleoraLib_real::Dev_Disconnect() {
    return traced("pvDeviceGEV()->Disconnect", [&] { return pvDeviceGEV()->Disconnect(); });
}

PvResult PleoraLib_real::Stream_Open(PvString address) {
    return traced(
        "pvStreamGEV()->Open", [&] { return pvStreamGEV()->Open(address); }, address);
}

PvString PleoraLib_real::Stream_GetLocalIPAddress() {
    return tracedValue("pvStreamGEV()->GetLocalIPAddress", [&] { return pvStreamGEV()->GetLocalIPAddress(); });
}

std::uint16_t PleoraLib_real::Stream_GetLocalPort() {
    return tracedValue("pvStreamGEV()->GetLocalPort", [&] { return pvStreamGEV()->GetLocalPort(); });
}

PvResult PleoraLib_real::Stream_SetIntegerValue(PvString name, std::int64_t value) {
    return traced(
        "pvStreamGEV()->GetParameters()->SetIntegerValue",
        [&] { return pvStreamGEV()->GetParameters()->SetIntegerValue(name, value); }, name, value);
}

bool PleoraLib_real::Stream_IsOpen() {
    return tracedValue("pvStreamGEV()->IsOpen", [&] { return pvStreamGEV()->IsOpen(); });
}

PvResult PleoraLib_real::Stream_Close() {
    return traced("pvStreamGEV()->Close", [&] { return pvStreamGEV()->Close(); });
}

PvResult PleoraLib_real::Stream_QueueBuffer(PvBuffer* queued) {
    return traced(
        "pvStreamGEV()->QueueBuffer", [&] { return pvStreamGEV()->QueueBuffer(queued); }, queued);
}

void PleoraLib_real::Pipeline_SetBufferSize(std::uint32_t size) {
    traceCall("pvPipeline()->SetBufferSize", size);
    pvPipeline()->SetBufferSize(size);
}

PvResult PleoraLib_real::Pipeline_SetBufferCount(std::uint32_t count) {
    return traced(
        "pvPipeline()->SetBufferCount", [&] { return pvPipeline()->SetBufferCount(count); }, count);
}

PvResult PleoraLib_real::Pipeline_Start() {
    return traced("pvPipeline()->Start", [&] { return pvPipeline()->Start(); });
}

bool PleoraLib_real::Pipeline_IsStarted() {
    return tracedValue("pvPipeline()->IsStarted", [&] { return pvPipeline()->IsStarted(); });
}

PvResult PleoraLib_real::Pipeline_Stop() {
    return traced("pvPipeline()->Stop", [&] { return pvPipeline()->Stop(); });
}

PvResult PleoraLib_real::Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult,
                                                     std::int32_t timeoutMs) {
    return traced(
        "pvPipeline()->RetrieveNextBuffer",
        [&] {
            return pvPipeline()->RetrieveNextBuffer(bufferLocation, static_cast<std::uint32_t>(timeoutMs),
                                                    operationResult);
        },
        bufferLocation, timeoutMs, operationResult);
}

PvResult PleoraLib_real::Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult) {
    return Pipeline_RetrieveNextBuffer(bufferLocation, operationResult, 0);
}

PvResult PleoraLib_real::Pipeline_ReleaseBuffer(PvBuffer* released) {
    return traced(
        "pvPipeline()->ReleaseBuffer", [&] { return pvPipeline()->ReleaseBuffer(released); }, released);
}

PvAcquisitionState PleoraLib_real::State_GetState() {
    return tracedValue("pvAcquisitionStateManager()->GetState",
                       [&] { return pvAcquisitionStateManager()->GetState(); });
}

PvResult PleoraLib_real::State_Stop() {
    return traced("pvAcquisitionStateManager()->Stop", [&] { return pvAcquisitionStateManager()->Stop(); });
}

PvResult PleoraLib_real::State_Start() {
    return traced("pvAcquisitionStateManager()->Start", [&] { return pvAcquisitionStateManager()->Start(); });
}

PvResult PleoraLib_real::IP_Open(PvDeviceSerial port) {
    PvDeviceAdapter* const adapter = pvDeviceAdapter();  // a traced argument, needed before the line
    return traced(
        "pvDeviceSerialPort()->Open", [&] { return pvDeviceSerialPort()->Open(adapter, port); }, adapter, port);
}

bool PleoraLib_real::IP_IsOpened() {
    return tracedValue("pvDeviceSerialPort()->IsOpened", [&] { return pvDeviceSerialPort()->IsOpened(); });
}

PvResult PleoraLib_real::IP_Close() {
    return traced("pvDeviceSerialPort()->Close", [&] { return pvDeviceSerialPort()->Close(); });
}

PvResult PleoraLib_real::IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead) {
    return IP_Read(target, size, bytesRead, 0);
}

PvResult PleoraLib_real::IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead,
                                 std::uint32_t timeoutMs) {
    return quietly("pvDeviceSerialPort()->Read",
                   [&] { return pvDeviceSerialPort()->Read(target, size, bytesRead, timeoutMs); });
}

PvResult PleoraLib_real::IP_FlushRxBuffer() {
    return quietly("pvDeviceSerialPort()->FlushRxBuffer", [&] { return pvDeviceSerialPort()->FlushRxBuffer(); });
}

PvResult PleoraLib_real::IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& bytesWritten) {
    return quietly("pvDeviceSerialPort()->Write",
                   [&] { return pvDeviceSerialPort()->Write(source, size, bytesWritten); });
}

PvString PleoraLib_real::DevInfo_GetIPAddress() {
    if (deviceInfo == nullptr)
        fail("Cannot get Pleora device IP address, device info pointer is null", DerrNullPointer,
             "PleoraLib_real::DevInfo_GetIPAddress");
    return deviceInfo->GetIPAddress();
}

std::uint32_t PleoraLib_real::Interface_GetDeviceCount() {
    if (networkAdapter == nullptr)
        fail("Cannot get device count, network adapter pointer is null", DerrTransport,
             "PleoraLib_real::Interface_GetDeviceCount");
    return networkAdapter->GetDeviceCount();
}

void PleoraLib_real::Interface_GetDeviceInfo(std::uint32_t index) {
    constexpr const char* here = "PleoraLib_real::Interface_GetDeviceInfo";
    if (networkAdapter == nullptr) fail("Cannot get device info, network adapter pointer is null", DerrTransport, here);
    deviceInfo = dynamic_cast<const PvDeviceInfoGEV*>(networkAdapter->GetDeviceInfo(index));
    if (deviceInfo == nullptr)
        fail("The desired index is out of bounds!", DerrBadRequest, here, static_cast<int>(index));
}

void PleoraLib_real::System_SetDetectionTimeout(std::uint32_t timeoutMs) {
    traceCall("pvSystem()->SetDetectionTimeout", timeoutMs);
    pvSystem()->SetDetectionTimeout(timeoutMs);
}

PvResult PleoraLib_real::System_Find() {
    return traced("pvSystem()->Find", [&] { return pvSystem()->Find(); });
}

std::uint32_t PleoraLib_real::System_GetInterfaceCount() {
    return tracedValue("pvSystem()->GetInterfaceCount", [&] { return pvSystem()->GetInterfaceCount(); });
}

void PleoraLib_real::System_GetInterface(std::uint32_t index) {
    traceCall("PvSystem::GetInterface", index);
    networkAdapter = dynamic_cast<const PvNetworkAdapter*>(pvSystem()->GetInterface(index));
    if (networkAdapter == nullptr)
        fail("Cannot get interface from PvSystem", DerrBadRequest, "PleoraLib_real::System_GetInterface",
             static_cast<int>(index));
}

std::uint32_t PleoraLib_real::System_GetDeviceCount() const {
    return tracedValue("pvSystem()->GetDeviceCount", [&] { return pvSystem()->GetDeviceCount(); });
}

void PleoraLib_real::System_GetDeviceInfo(std::uint32_t index) {
    traceCall("PvSystem::GetDeviceInfo", index);
    deviceInfo = dynamic_cast<const PvDeviceInfoGEV*>(pvSystem()->GetDeviceInfo(index));
    if (deviceInfo == nullptr)
        fail("Pleora device index is invalid", DerrBadRequest, "PleoraLib_real::System_GetDeviceInfo",
             static_cast<int>(index));
}

PvBuffer* PleoraLib_real::Buffer_GetBuffer() {
    return buffer;
}

PvBuffer** PleoraLib_real::Buffer_GetBufferPtr() {
    return &buffer;
}

std::uint8_t* PleoraLib_real::Buffer_GetImagePointer() {
    PvImage* const image = buffer != nullptr ? buffer->GetImage() : nullptr;
    return image != nullptr ? image->GetDataPointer() : nullptr;
}
