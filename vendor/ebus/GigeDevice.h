#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "FeatureStore.h"
#include "PvResult.h"
#include "platform/Clock.h"

/// The device side of the Pv classes: what any GigE Vision device offers, wherever it is.
namespace ebus {

inline constexpr std::size_t bytesPerPixel = 2;

constexpr std::size_t rowBytes(std::uint32_t widthPixels) {
    return widthPixels * bytesPerPixel;
}

/// One frame on its way from a device to a stream; the pixels are only valid during the call.
struct StreamFrame {
    std::uint64_t number = 0;
    std::uint32_t width = 0;   ///< pixels per row, as the device grabs them
    std::uint32_t height = 0;  ///< rows
    bool complete = true;      ///< false: part of the frame was lost; its place is zero
    const std::uint16_t* pixels = nullptr;

    std::size_t sizeBytes() const { return rowBytes(width) * height; }
};

enum class FrameFate {
    Delivered,   ///< waits for the user
    NoReceiver,  ///< nobody receives
    NoBuffer,    ///< every buffer is taken
    Dropped,     ///< the receiver went away while it was being taken in
};

/// Who takes the frames of a stream. Called from any thread, without a lock held.
class FrameSink {
public:
    virtual ~FrameSink() = default;
    virtual FrameFate receive(const StreamFrame& frame) = 0;
};

/// Where a stream is received.
struct Endpoint {
    std::string address;
    std::uint16_t port = 0;  ///< 0: none
};

/// What discovery tells about a device.
struct DeviceRecord {
    std::string address;
    std::string modelName;
    std::string serialNumber;
};

/// One user's channel to one device. Every call may take as long as a network does, and may fail; any thread may
/// call. What the device holds (features, destination) is the device's own and outlives the channel.
///
/// `ConnectionLost` from any call means that the device stopped answering: the channel is then no longer connected,
/// and can be connected again.
class GigeDevice : public FeatureAccess {
public:
    /// Gives up control and closes the stream.
    ~GigeDevice() override = default;

    /// @name Control channel
    /// @{
    /// Takes exclusive control; `AccessDenied` while another channel has it.
    virtual PvResult connect() = 0;
    /// Stops acquisition, closes the serial bridge and gives up control.
    virtual PvResult disconnect() = 0;
    virtual bool isConnected() = 0;
    virtual PvResult negotiatePacketSize(std::uint32_t channel, std::uint32_t defaultSizeBytes) = 0;
    /// Where the device sends its frames from now on; port 0 sends them nowhere.
    virtual PvResult setStreamDestination(const Endpoint& destination, std::uint32_t channel) = 0;
    /// @}

    /// @name Acquisition
    /// @{
    virtual PvResult startAcquisition(std::uint32_t source) = 0;
    virtual PvResult stopAcquisition(std::uint32_t source) = 0;
    virtual bool isAcquiring() = 0;
    /// @}

    /// @name Serial bridge
    /// @{
    virtual PvResult openSerial(std::uint32_t port) = 0;
    virtual PvResult closeSerial() = 0;
    virtual bool isSerialOpen() = 0;
    /// Ends at the first bytes or at the deadline, then with `count` 0 and an OK result.
    virtual PvResult readSerial(std::uint8_t* bytes, std::size_t capacity, platform::Time deadline,
                                std::size_t& count) = 0;
    virtual PvResult writeSerial(std::string_view bytes) = 0;
    virtual PvResult flushSerialInput() = 0;
    /// @}

    /// @name Stream; needs no control
    /// @{
    /// Makes an endpoint on this host; frames that reach it go to the sink.
    virtual PvResult openStream(std::shared_ptr<FrameSink> sink, Endpoint& local) = 0;
    virtual PvResult closeStream() = 0;
    /// Whether the device behind the stream can still be there.
    virtual PvResult streamStatus() = 0;
    /// The user dropped frames that the sink had reported as delivered.
    virtual void reportDropped(std::uint64_t frames) = 0;
    /// Asked before an operation that needs this host only, so that a device that is made to misbehave has its say.
    virtual PvResult permitHostOperation(std::string_view operation) = 0;
    /// @}
};

/// A new channel to the device at the address. `NotFound` says which addresses there are.
PvResult makeDevice(const std::string& address, std::shared_ptr<GigeDevice>& device);

/// All devices that can be reached now.
std::vector<DeviceRecord> discoverDevices();

}  // namespace ebus
