#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "GigeDevice.h"
#include "SimulatedBoard.h"
#include "platform/Mutex.h"

namespace ebus {

/// A channel to a simulated detector of this process. Any thread may call any member.
///
/// The detector's faults act here. Besides the features themselves, these operations ask as features: Disconnect,
/// NegotiatePacketSize, SetStreamDestination, AcquisitionStart, AcquisitionStop, SerialOpen, SerialClose, SerialRead,
/// SerialWrite, SerialFlush, StreamClose, and what `permitHostOperation` is asked.
class SimulatedGigeDevice : public GigeDevice {
public:
    static constexpr std::string_view addressPrefix = "sim:";
    static std::shared_ptr<GigeDevice> make(const std::string& address);
    static std::vector<DeviceRecord> discover();

    explicit SimulatedGigeDevice(std::shared_ptr<SimulatedBoard> board);
    ~SimulatedGigeDevice() override;

    PvResult connect() override;
    PvResult disconnect() override;
    bool isConnected() override;
    PvResult negotiatePacketSize(std::uint32_t channel, std::uint32_t defaultSizeBytes) override;
    PvResult setStreamDestination(const Endpoint& destination, std::uint32_t channel) override;

    PvResult setFeature(std::string_view name, const FeatureValue& value) override;
    PvResult getFeature(std::string_view name, FeatureType type, FeatureValue& value) override;

    PvResult startAcquisition(std::uint32_t source) override;
    PvResult stopAcquisition(std::uint32_t source) override;
    bool isAcquiring() override;

    PvResult openSerial(std::uint32_t port) override;
    PvResult closeSerial() override;
    bool isSerialOpen() override;
    PvResult readSerial(std::uint8_t* bytes, std::size_t capacity, platform::Time deadline,
                        std::size_t& count) override;
    PvResult writeSerial(std::string_view bytes) override;
    PvResult flushSerialInput() override;

    PvResult openStream(std::shared_ptr<FrameSink> sink, Endpoint& local) override;
    PvResult closeStream() override;
    PvResult streamStatus() override;
    void reportDropped(std::uint64_t frames) override;
    PvResult permitHostOperation(std::string_view operation) override;

private:
    /// What every call over the control channel meets first: is there a connection, does the device answer, is it
    /// slow, does it refuse.
    PvResult reach(std::string_view operation);
    PvResult reachSerial(std::string_view operation);

    const std::shared_ptr<SimulatedBoard> board;
    platform::Mutex mutex;  ///< before the board's
    bool connected GUARDED_BY(mutex) = false;
    bool serialOpen GUARDED_BY(mutex) = false;
    std::uint16_t streamPort GUARDED_BY(mutex) = 0;
    std::uint64_t lossesAtOpen GUARDED_BY(mutex) = 0;
};

}  // namespace ebus
