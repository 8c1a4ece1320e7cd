#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/VirtualClock.h"
#include "simulator/SimulatedDetector.h"

/// One simulated detector on the virtual clock, with the words to drive it.
class SimulatorTest : public testing::Test {
protected:
    using Ms = std::chrono::duration<double, std::milli>;

    explicit SimulatorTest(std::string_view profile = "6112-kestrane") { use(profile); }

    void use(std::string_view profile) {
        detector = simulator::SimulatedDetector::create(*simulator::findProfile(profile));
    }

    /// Sends the command and reads until the line has been quiet for `patience`.
    std::string ask(std::string_view command, Ms patience = Ms(100)) {
        detector->serialWrite(std::string(command) + '\r');
        return receive(patience);
    }

    std::string receive(Ms patience) {
        std::string all;
        std::array<char, 100> chunk{};
        while (const std::size_t count = detector->serialRead(
                   chunk.data(), chunk.size(), platform::now() + std::chrono::duration_cast<platform::Time>(patience)))
            all.append(chunk.data(), count);
        return all;
    }

    void pass(double ms) { clock.advance(std::chrono::duration_cast<platform::Time>(Ms(ms))); }

    /// Milliseconds of virtual time since the first call.
    double elapsedMs() { return Ms(clock.now() - begin).count(); }

    void selectTrigger() { detector->writeRegister(0, 0x60); }

    void setWindowCount(unsigned count) {
        detector->writeRegister(11, static_cast<std::uint16_t>(count & 0xFFFFU));
        detector->writeRegister(12, static_cast<std::uint16_t>(count >> 16U));
    }

    void receiveFrames(simulator::FrameFate fate = simulator::FrameFate::Delivered) {
        detector->setFrameReceiver([this, fate](const simulator::Frame& frame) {
            frames.push_back(frame);
            return fate;
        });
    }

    void expectBalanced() const {
        const simulator::Ledger ledger = detector->ledger();
        EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
    }

    platform::ScopedVirtualClock clock;
    platform::Time begin = clock.now();
    std::shared_ptr<simulator::SimulatedDetector> detector;
    std::vector<simulator::Frame> frames;
};
