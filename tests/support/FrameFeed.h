#pragma once

#include <xcliball.h>

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "detector/EpixDetector.h"
#include "detector/PleoraDetector.h"
#include "simulator/Rack.h"
#include "support/ThreadedPleora.h"
#include "support/Watchdog.h"

namespace support {

/// A detector whose frames come when a test says, or one after the other: what the suites ask of either transport.
class FrameFeed {
public:
    FrameFeed() = default;
    virtual ~FrameFeed() = default;
    FrameFeed(const FrameFeed&) = delete;
    FrameFeed& operator=(const FrameFeed&) = delete;

    /// A detector of this feed, open with a ring of `ringFrames` small frames.
    virtual std::unique_ptr<baseDetector> open(QuorinDetector* owner, int ringFrames) = 0;
    virtual void give(int frames) = 0;
    virtual void setEndless(bool on) = 0;
    virtual void dropFrames() {}  ///< that were given and not taken
    virtual bool isAcquiring() = 0;
    virtual bool isOpen() = 0;
    virtual int newestFrame() = 0;                                      ///< number of the last frame that was given
    virtual int numberOf(const std::vector<unsigned char>& frame) = 0;  ///< of one that was given
    virtual int fieldsOfFirstFrame() const = 0;
    virtual int framesHeld() { return 0; }                      ///< taken by the transport, not given back
    virtual void setAtRelease(const std::function<void()>&) {}  ///< while a frame is given back, where that is a step
};

/// GigE over a scripted eBUS seam: frames wait in its pipeline until they are taken.
class PleoraFeed final : public FrameFeed {
public:
    std::unique_ptr<baseDetector> open(QuorinDetector* owner, int ringFrames) override {
        struct Inside : PleoraDetector {
            static auto& library(PleoraDetector& detector) { return detector.*(&Inside::pleoraLib); }
        };
        // Electronics that tell their own timing, binned 4x4: frames of 384 x 216.
        pleora->line.registers = {{124, 5101}, {126, 1}, {129, 2}, {9, 4}, {10, 4}, {11, 60000}, {410, 1000}};
        pleora->frame.assign(1536 * 864 * 2, 0);
        auto detector = std::make_unique<PleoraDetector>("10.0.0.2", owner);
        Inside::library(*detector) = pleora;
        detector->OpenBoard(ringFrames);
        return detector;
    }
    void give(int frames) override { pleora->give(frames); }
    void setEndless(bool on) override { pleora->setEndless(on); }
    void dropFrames() override { pleora->dropFrames(); }
    bool isAcquiring() override { return pleora->isAcquiring(); }
    bool isOpen() override { return pleora->isOpen(); }
    int newestFrame() override { return pleora->framesTaken(); }
    int numberOf(const std::vector<unsigned char>& frame) override {
        int number = 0;
        std::memcpy(&number, frame.data(), sizeof(number));
        return number;
    }
    int fieldsOfFirstFrame() const override { return 2; }
    int framesHeld() override { return pleora->framesHeld(); }
    void setAtRelease(const std::function<void()>& action) override { pleora->atRelease = action; }

    const std::shared_ptr<ThreadedPleora> pleora = std::make_shared<ThreadedPleora>();
};

/// Camera Link over a frame grabber slot of its own: frames come from the simulated detector, by edges.
class GrabberFeed final : public FrameFeed {
public:
    GrabberFeed() {
        hardware->setReadoutTimeMs(0.1);
        hardware->setMinimumWindowMs(0.0);
        hardware->setReadoutTimeSettleMs(0.0);
        hardware->setFlashBusyMs(0.0);
        hardware->writeRegister(0, edgesOnly);
        simulator::Rack::instance().mountSlot(slot, hardware);
    }
    ~GrabberFeed() override { simulator::Rack::instance().mountSlot(slot, nullptr); }

    std::unique_ptr<baseDetector> open(QuorinDetector* owner, int ringFrames) override {
        struct Inside : EpixDetector {
            static pxdstate* state(EpixDetector& detector) { return detector.*(&Inside::xcState); }
        };
        auto detector = std::make_unique<EpixDetector>(slot, "", owner);
        state = Inside::state(*detector);
        detector->OpenBoard(ringFrames);
        detector->SetBinningMode(Bin4x4);
        detector->SetExposureTime(0.0F);
        return detector;
    }
    void give(int frames) override {
        for (int frame = 0; frame < frames; ++frame) {
            simulator::Ledger before;
            until([&] {  // an edge that meets a frame in progress is ignored
                before = hardware->ledger();
                hardware->injectEdge();
                return hardware->ledger().edgesIgnored == before.edgesIgnored;
            });
            until([&] {
                const simulator::Ledger now = hardware->ledger();
                return now.exposed > before.exposed && now.delivered + now.lost() == now.exposed;
            });
        }
    }
    void setEndless(bool on) override {
        hardware->writeRegister(0, on ? 0 : edgesOnly);
        if (!on && !isAcquiring()) give(1);  // the frame that was in progress is over, and this one got by nobody
    }
    bool isAcquiring() override { return pxe_goneLive(state, 1, 0) > 0; }
    bool isOpen() override { return pxe_infoUnits(state) == 1; }
    int newestFrame() override { return static_cast<int>(hardware->ledger().exposed); }
    int numberOf(const std::vector<unsigned char>& frame) override {
        std::uint16_t first = 0;
        std::memcpy(&first, frame.data(), sizeof(first));
        int number = newestFrame();
        while (number > 0 && simulator::patternPixel(static_cast<std::uint64_t>(number), 1, 0, 0) != first) --number;
        return number;
    }
    int fieldsOfFirstFrame() const override { return 1; }

private:
    static constexpr std::uint16_t edgesOnly = 0x60;
    static int nextSlot() {
        static std::atomic<int> next{100};
        return next++;
    }

    const int slot = nextSlot();
    const std::shared_ptr<simulator::SimulatedDetector> hardware =
        simulator::SimulatedDetector::create(*simulator::findProfile("5101-kestrane"));
    pxdstate* state = nullptr;
};

}  // namespace support
