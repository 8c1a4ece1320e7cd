#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "QuorinDetector.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/expectFailure.h"

namespace support {

/// A road from the facade to a simulated detector: the parameter of the suites that run on both transports. What the
/// transports do differently by design stands here, so that no case asks which one it is on.
struct Road {
    DetectorInterface transport;
    std::string profile;

    int specimen = 1;  ///< of several detectors of the profile

    bool isGigE() const { return transport == TransportGE; }
    std::string address() const {
        return isGigE() ? "sim:" + profile + (specimen == 1 ? "" : "#" + std::to_string(specimen)) : "";
    }
    /// The named profiles lie in the first slots in their order, further specimens behind.
    int slot() const {
        const auto& profiles = simulator::namedProfiles();
        const auto place = std::find_if(profiles.begin(), profiles.end(),
                                        [this](const simulator::Profile& each) { return each.name == profile; });
        return static_cast<int>(place - profiles.begin()) + (specimen - 1) * static_cast<int>(profiles.size());
    }
    std::shared_ptr<simulator::SimulatedDetector> hardware() const {
        simulator::Rack& rack = simulator::Rack::instance();
        if (isGigE()) return rack.find(address());
        if (rack.slot(slot()) == nullptr)
            rack.mountSlot(slot(), simulator::SimulatedDetector::create(*simulator::findProfile(profile)));
        return rack.slot(slot());
    }
    std::unique_ptr<QuorinDetector> make() const {
        return std::make_unique<QuorinDetector>(transport, isGigE() ? 0 : slot(), address().c_str());
    }

    int fieldsOfFirstFrame() const { return isGigE() ? 2 : 1; }  ///< added by the first frame of a live run
    int snapTimeout() const { return isGigE() ? 30 : 258; }      ///< transport error of a `Snap` without a frame
    const char* snapTimeoutText() const {
        return isGigE() ? "Problem Snapping Image!" : "Image did not arrive within the timeout.";
    }
    /// A damaged frame is the snap's own failure on GigE; the grabber's fault text makes the wait fail on Camera Link.
    Derr brokenFrameCode() const { return isGigE() ? DerrAcquisition : DerrTransport; }
    /// Camera Link: a frame or a read that meets a change of size is refused, with a fault text or code 5.
    bool sizeChangesAreSeamless() const { return isGigE(); }
    /// Preparing the pulse generator ends a live run at once, and waits for nobody.
    bool pulsesEndARun() const { return !isGigE(); }
    const char* layer() const { return isGigE() ? "PleoraDetector::" : "EpixDetector::"; }

    friend std::ostream& operator<<(std::ostream& out, const Road& road) {
        std::string name = (road.isGigE() ? "GE_" : "CL_") + road.profile;
        for (char& letter : name)
            if (letter == '-') letter = '_';
        return out << name;
    }
};

/// The transports that the suites run on.
inline constexpr DetectorInterface transports[] = {TransportGE, TransportCL};

inline std::vector<Road> roads(const std::vector<std::string>& profiles) {
    std::vector<Road> all;
    for (const DetectorInterface transport : transports)
        for (const std::string& profile : profiles) all.push_back({transport, profile});
    return all;
}

/// Every profile that its transport has timings for.
inline std::vector<Road> everyRoad() {
    std::vector<std::string> profiles;
    for (const simulator::Profile& profile : simulator::namedProfiles()) profiles.push_back(profile.name);
    std::vector<Road> all = roads(profiles);
    all.erase(std::remove_if(
                  all.begin(), all.end(),
                  [](const Road& road) { return road.isGigE() && (road.profile == "6213" || road.profile == "8131"); }),
              all.end());
    return all;
}

using Registers = std::map<int, int>;

/// A facade on a simulated detector that exposes on a trigger edge, with the pattern as its picture.
class RoadTest : public testing::TestWithParam<Road> {
protected:
    static constexpr std::uint16_t edgesOnly = 0x60;

    RoadTest() {
        simulator::Rack::instance().reset();
        hardware = road.hardware();
        hardware->setPicture(simulator::Picture::Pattern);
        hardware->writeRegister(0, edgesOnly);
        detector = road.make();
    }
    ~RoadTest() override {
        detector.reset();
        simulator::Rack::instance().reset();
    }

    /// A new object for the same detector, as after an open that failed: the old one may refuse to open again.
    void replaceDetector() {
        detector.reset();
        detector = road.make();
    }

    const simulator::Profile& panel() const { return hardware->profile(); }
    int panelWidth() const { return panel().sensorWidth * panel().sensorsAcross; }
    int panelHeight() const { return panel().sensorHeight * panel().sensorsDown; }

    /// The registers that `expected` names, as sensor 1 and 2 hold them.
    void expectRegisters(const Registers& expected) {
        for (const int sensor : {1, 2}) {
            if (sensor > panel().sensorCount()) continue;
            Registers held;
            for (const auto& [reg, value] : expected) held[reg] = hardware->readRegister(reg, sensor);
            EXPECT_EQ(held, expected) << "sensor " << sensor;
        }
    }

    /// The buffer holds the newest exposed frame in this size, each pixel where it belongs, and nothing is written
    /// behind the caller's frame.
    void expectFrame(int buffer, int width, int height) {
        EXPECT_EQ(detector->GetBufferXdim(), width);
        EXPECT_EQ(detector->GetBufferYdim(), height);
        const std::vector<std::uint16_t> expected = simulator::patternFrame(hardware->ledger().exposed, width, height,
                                                                            panel().sensorsAcross, panel().sensorsDown);
        const std::size_t bytes = expected.size() * 2;
        std::vector<unsigned char> pixels(bytes + 8, 0xEE);
        detector->ReadBuffer(buffer, pixels.data());
        EXPECT_EQ(std::memcmp(pixels.data(), expected.data(), bytes), 0) << width << " x " << height;
        EXPECT_EQ(std::string(pixels.begin() + static_cast<std::ptrdiff_t>(bytes), pixels.end()),
                  std::string(8, '\xEE'));
    }

    void expectSnap(int buffer, int width, int height) {
        detector->Snap(buffer, 5000);
        EXPECT_EQ(detector->GetCapturedBuffer(), buffer);
        expectFrame(buffer, width, height);
    }

    void expectBalancedLedger(std::uint64_t atLeastDelivered = 0) {
        const simulator::Ledger ledger = hardware->ledger();
        EXPECT_GE(ledger.delivered, atLeastDelivered);
        EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
    }

    const Road road = GetParam();
    std::shared_ptr<simulator::SimulatedDetector> hardware;
    std::unique_ptr<QuorinDetector> detector;
};

struct OnVirtualClock {
    platform::ScopedVirtualClock clock;
};
/// The clock is there before the detectors and outlives them.
class VirtualRoadTest : public OnVirtualClock, public RoadTest {};

}  // namespace support
