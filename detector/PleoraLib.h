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
/// Results: a failed eBUS call is returned as its `PvResult`, never thrown. Some callers require `IsOK`, others accept
/// whatever is not `IsFailure`; code and description end up in the exception that the transport throws. Before `init`
/// and after `deinit` an operation that needs an eBUS object throws a `QuorinException` with code 5; between them only
/// the discovery operations throw one.
///
/// Threads, in the words of `baseDetector`: `init`, `deinit`, opening and closing are for the control thread. The live
/// thread calls `Pipeline_RetrieveNextBuffer`, `Pipeline_ReleaseBuffer`, the `Buffer_` and the `State_` operations.
/// `Dev_`, `State_` and `Pipeline_` operations come from any thread and may overlap these, so an implementation
/// tolerates simultaneous calls. The `IP_` calls of an exchange come under `serialLock`, one at a time. Only one thread
/// at a time may retrieve: there is one current buffer. Callers may hold `acquisitionLock`; an implementation calls no
/// operation of a detector.
///
/// "Open." and "Close." name the step of the transport that makes a call.
///
/// The destructor is not virtual: hold an implementation by a shared pointer that was made from its own type.
class QRAPI_EXPORT PleoraLib {
public:
    /// Makes the eBUS objects, unconnected; does nothing if they exist. First step of an open. Throws std::bad_alloc at
    /// most.
    virtual void init() = 0;
    /// Destroys the eBUS objects and closes what is open; retrieved buffers become invalid. Last step of a close and of
    /// a failed open, when no live thread runs. Throws nothing.
    virtual void deinit() = 0;

    /// @name Device
    /// Features are set and read by their GenICam names. A set has reached the device when the call returns.
    /// @{

    /// Takes control of the device at a network address. Open.
    virtual PvResult Dev_Connect(PvString address) = 0;
    /// Finds the largest packet size that the network path carries and sets it. Open, after `Stream_Open`.
    virtual PvResult Dev_NegotiatePacketSize() = 0;
    /// Sets where the device sends its frames. Open, with the stream's local address and port.
    virtual PvResult Dev_SetStreamDestination(PvString address, std::uint16_t port) = 0;
    /// Sets a feature: control bits of the logic controller (software trigger, pulses), loopback of the serial port,
    /// use of the persistent address.
    virtual PvResult Dev_SetBooleanValue(PvString name, bool value) = 0;
    /// Sets an enumeration by number: the pixel format. Open.
    virtual PvResult Dev_SetEnumValue(PvString name, std::int64_t value) = 0;
    /// Sets an enumeration by its entry's name: serial port, wiring of the logic controller, timer, test image.
    virtual PvResult Dev_SetEnumValue(PvString name, PvString value) = 0;
    /// Reads Width (pixels), Height (rows) or PayloadSize (bytes of a frame). `value` keeps its content on a failure.
    virtual PvResult Dev_GetIntegerValue(PvString name, std::int64_t& value) = 0;
    /// Sets Width, Height, a timer count or the persistent address. The device may round; the caller reads the value
    /// back where it matters.
    virtual PvResult Dev_SetIntegerValue(PvString name, std::int64_t value) = 0;
    /// Reads TimerFrequency, in Hz. `value` keeps its content on a failure.
    virtual PvResult Dev_GetFloatValue(PvString name, double& value) = 0;
    /// True while the device is under control and answers. Close.
    virtual bool Dev_IsConnected() = 0;
    /// Gives up control of the device. Close, and after a failed open, where the result does not matter.
    virtual PvResult Dev_Disconnect() = 0;
    /// @}

    /// @name Stream
    /// Where the host receives the frames. Open and close.
    /// @{

    /// Opens a receiving port for the device at a network address.
    virtual PvResult Stream_Open(PvString address) = 0;
    virtual PvString Stream_GetLocalIPAddress() = 0;  ///< address of the open stream on this host
    virtual std::uint16_t Stream_GetLocalPort() = 0;  ///< port of the open stream on this host
    /// Sets a stream parameter: RequestTimeout, FirstPacketTimeout, InterPacketTimeout.
    virtual PvResult Stream_SetIntegerValue(PvString name, std::int64_t value) = 0;
    virtual bool Stream_IsOpen() = 0;  ///< true while the stream is open
    /// Closes the stream. Close, and after a failed open, where the result does not matter.
    virtual PvResult Stream_Close() = 0;
    /// @}

    /// @name Pipeline
    /// The buffers that the stream fills. The pipeline runs from open to close, except while the frame size changes.
    /// @{

    /// Bytes of each buffer, from the next start on. Open, and at a change of the frame size.
    virtual void Pipeline_SetBufferSize(std::uint32_t size) = 0;
    /// Number of buffers, from the next start on. Open.
    virtual PvResult Pipeline_SetBufferCount(std::uint32_t count) = 0;
    /// Allocates the buffers and lets the stream fill them; the stream is open.
    virtual PvResult Pipeline_Start() = 0;
    virtual bool Pipeline_IsStarted() = 0;  ///< true from start to stop
    /// Drops the frames that were not retrieved. May come while another thread waits for a buffer, whose wait then ends
    /// with its time-out at the latest.
    virtual PvResult Pipeline_Stop() = 0;
    /// Takes the oldest filled buffer, or waits for one. A retrieved buffer is valid until `Pipeline_ReleaseBuffer`,
    /// also across a stop. The live thread waits 100 ms at a time, `Snap` as long as its caller asked for.
    /// @param bufferLocation   receives the buffer: `Buffer_GetBufferPtr()`
    /// @param operationResult  receives whether the frame in the buffer is good; a bad one is released all the same
    /// @param timeoutMs        in ms; 0 polls, -1 waits without end
    /// @return whether a buffer was retrieved; code 30: none within the time-out
    virtual PvResult Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult,
                                                 std::int32_t timeoutMs) = 0;
    /// As above with a time-out of 0. Not called by the library.
    virtual PvResult Pipeline_RetrieveNextBuffer(PvBuffer** bufferLocation, PvResult* operationResult) = 0;
    /// Returns a retrieved buffer to the pipeline, once. Live thread, or the thread of a `Snap`, also for the last
    /// buffer of a run.
    virtual PvResult Pipeline_ReleaseBuffer(PvBuffer* released) = 0;
    /// @}

    /// @name Acquisition
    /// @{

    /// 1 while the device acquires. Asked before each start and stop, so that neither is repeated.
    virtual PvAcquisitionState State_GetState() = 0;
    /// Ends the device's acquisition. `Snap`, end of a live run, before a change of the frame size.
    virtual PvResult State_Stop() = 0;
    /// Starts the device's acquisition: frames come after a trigger. `Snap`, start of a live run.
    virtual PvResult State_Start() = 0;
    /// @}

    /// @name Serial port of the device
    /// @{

    virtual PvResult IP_Open(PvDeviceSerial port) = 0;  ///< opens the port (`PvDeviceSerial0`); open
    virtual bool IP_IsOpened() = 0;                     ///< true while the port is open; close
    /// Closes the port. Close, and after a failed open, where the result does not matter.
    virtual PvResult IP_Close() = 0;
    /// As below with a time-out of 0. Not called by the library.
    virtual PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead) = 0;
    /// Takes what has arrived, up to `size` bytes; waits up to `timeoutMs` for the first byte. A line without bytes is
    /// no failure: OK, `bytesRead` 0.
    virtual PvResult IP_Read(std::uint8_t* target, std::uint32_t size, std::uint32_t& bytesRead,
                             std::uint32_t timeoutMs) = 0;
    /// Drops what has arrived and was not read. Before each write.
    virtual PvResult IP_FlushRxBuffer() = 0;
    /// Sends `size` bytes. OK means that all were sent; no caller reads `bytesWritten`.
    virtual PvResult IP_Write(const std::uint8_t* source, std::uint32_t size, std::uint32_t& bytesWritten) = 0;
    /// @}

    /// @name Discovery
    /// Not called by the library. For one thread at a time; indexes count from 0. A selection is valid until the next
    /// `System_Find` or `deinit`.
    /// @{

    /// Address of the selected device. Throws with code 16 if none is selected.
    virtual PvString DevInfo_GetIPAddress() = 0;
    /// Devices of the selected interface. Throws with code 5 if none is selected.
    virtual std::uint32_t Interface_GetDeviceCount() = 0;
    /// Selects a device of the selected interface. Throws with code 5 if no interface is selected, 4 for an index out
    /// of range; no device is selected after code 4.
    virtual void Interface_GetDeviceInfo(std::uint32_t index) = 0;
    virtual void System_SetDetectionTimeout(std::uint32_t timeoutMs) = 0;  ///< how long `System_Find` waits for answers
    virtual PvResult System_Find() = 0;                                    ///< looks for interfaces and devices
    virtual std::uint32_t System_GetInterfaceCount() = 0;                  ///< interfaces found
    /// Selects an interface. Throws with code 4 for an index out of range; none is selected then.
    virtual void System_GetInterface(std::uint32_t index) = 0;
    virtual std::uint32_t System_GetDeviceCount() const = 0;  ///< devices found, over all interfaces
    /// Selects a device. Throws with code 4 for an index out of range; none is selected then.
    virtual void System_GetDeviceInfo(std::uint32_t index) = 0;
    /// @}

    /// @name Current buffer
    /// Live thread, or the thread of a `Snap`.
    /// @{
    virtual PvBuffer* Buffer_GetBuffer() = 0;      ///< the buffer retrieved last; may be released already
    virtual PvBuffer** Buffer_GetBufferPtr() = 0;  ///< where a retrieval stores its buffer; never null
    /// First pixel of the frame in the current buffer, valid until the buffer is released; null if there is no picture.
    virtual std::uint8_t* Buffer_GetImagePointer() = 0;
    /// @}
};
