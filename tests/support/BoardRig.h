#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VirtualGrabber.h"
#include "detector/EpixDetector.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/LogCapture.h"

namespace support {

/// An `EpixDetector` with what is hidden in it.
class OpenEpix : public EpixDetector {
public:
    explicit OpenEpix(int slot) : EpixDetector(slot, "", nullptr) {}
    using EpixDetector::buffersFixed;
    using EpixDetector::connected;
    using EpixDetector::frameCapturedEvent;
    using EpixDetector::numBuffers;
    using EpixDetector::pulseDivider;
    using EpixDetector::pulseGeneratorEnabled;
    using EpixDetector::startThread;
    using EpixDetector::xclibLib;
    using EpixDetector::xcState;
    baseDetector& core() { return *this; }  ///< where the transport's own operations are public

    std::function<void()> meanwhile;  ///< runs once, after the next look at the frame size
    int GetBufferYdim() override {
        const int rows = EpixDetector::GetBufferYdim();
        if (const auto change = std::exchange(meanwhile, nullptr)) change();
        return rows;
    }
};

/// A detector on a frame grabber of a fresh rack, and what was asked of the grabber.
class BoardRig {
public:
    explicit BoardRig(int slot = 4) {
        simulator::Rack::instance().reset();
        hardware = simulator::Rack::instance().slot(slot);
        grabber = grabber::VirtualGrabber::inSlot(slot);
        board = std::make_unique<OpenEpix>(slot);
        board->xclibLib->mesgFaultText(board->xcState, 1, nullptr, 0);  // so that every test begins with none
    }
    ~BoardRig() {
        board.reset();
        simulator::Rack::instance().reset();
    }
    BoardRig(const BoardRig&) = delete;
    BoardRig& operator=(const BoardRig&) = delete;

    OpenEpix& operator*() { return *board; }
    OpenEpix* operator->() { return board.get(); }

    platform::ScopedVirtualClock clock;
    std::shared_ptr<simulator::SimulatedDetector> hardware;
    std::shared_ptr<grabber::VirtualGrabber> grabber;
    std::unique_ptr<OpenEpix> board;
};

/// The grabber's functions that were called while this object exists, as "goSnap(S, 1, 1)": S is the library state.
/// Those without effect are left out.
class GrabberCalls {
public:
    std::vector<std::string> all() const {
        static const std::vector<std::string> questions{"mesgFaultText", "goneLive", "imageXdims", "imageYdims",
                                                        "capturedFieldCount"};
        std::vector<std::string> calls;
        for (const std::string& line : log.linesFrom("info|EPIX: pxe_")) {
            std::string call = line.substr(std::string("info|EPIX: pxe_").size());
            const std::size_t bracket = call.find('(');
            if (bracket == std::string::npos) continue;  // the line of a result
            if (std::count(questions.begin(), questions.end(), call.substr(0, bracket)) > 0) continue;
            const std::size_t stateEnd = call.find_first_of(",)", bracket);
            if (stateEnd > bracket + 1) call.replace(bracket + 1, stateEnd - bracket - 1, "S");
            calls.push_back(call);
        }
        return calls;
    }
    /// The arguments behind the state of the calls of one function.
    std::vector<std::string> of(const std::string& function) const {
        std::vector<std::string> arguments;
        for (const std::string& call : all())
            if (call.rfind(function + "(S, ", 0) == 0)
                arguments.push_back(call.substr(function.size() + 4, call.size() - function.size() - 5));
        return arguments;
    }
    /// The serial commands that were answered.
    std::vector<std::string> serialCommands() const {
        std::vector<std::string> commands;
        for (const std::string& line : log.linesFrom("debug|SERIAL: ")) {
            const std::size_t start = std::string("debug|SERIAL: ").size();
            commands.push_back(line.substr(start, line.find(" -> ") - start));
        }
        return commands;
    }

private:
    LogCapture log;
};

}  // namespace support
