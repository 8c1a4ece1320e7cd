#include "benchmarks/Board.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "detector/EpixDetector.h"
#include "detector/PleoraDetector.h"
#include "logging.h"

namespace bench {
namespace {

struct Facade : QuorinDetector {
    static baseDetector& core(QuorinDetector& facade) { return (facade.*(&Facade::detector))(); }
};

/// What is hidden in a detector.
struct Hidden : PleoraDetector {
    static auto& ring(PleoraDetector& detector) { return detector.*(&Hidden::frameBuffers); }
    static auto& event(PleoraDetector& detector) { return detector.*(&Hidden::frameCapturedEvent); }
};
struct HiddenGrabber : EpixDetector {
    static auto& event(EpixDetector& detector) { return detector.*(&HiddenGrabber::frameCapturedEvent); }
    static auto& seam(EpixDetector& detector) { return detector.*(&HiddenGrabber::xclibLib); }
};

constexpr int firstSlot = 60;

std::string addressOf(const Board::Setup& setup) {
    return "sim:bench" + std::to_string(setup.number);
}

int slotOf(const Board::Setup& setup) {
    return firstSlot + setup.number;
}

}  // namespace

std::shared_ptr<simulator::SimulatedDetector> Board::mount(const Setup& setup) {
    constexpr std::uint16_t edgesOnly = 0x60;
    auto made = simulator::SimulatedDetector::create(*simulator::findProfile(setup.profile));
    made->writeRegister(0, edgesOnly);
    if (setup.transport == TransportGE)
        simulator::Rack::instance().mount(addressOf(setup), made);
    else
        simulator::Rack::instance().mountSlot(slotOf(setup), made);
    return made;
}

std::unique_ptr<QuorinDetector> Board::makeFacade(const Setup& setup) {
    return std::make_unique<QuorinDetector>(setup.transport, slotOf(setup), addressOf(setup).c_str());
}

Board::Board(const Setup& how) : setup(how), hardware(mount(how)), facade(makeFacade(how)) {
    facade->OpenBoard(ringFrames);
    if (setup.rows != 0) {
        facade->SetROIArea(facade->GetBufferXdim(), setup.rows);
        facade->SetROIEnabled(true);
    }
    if (setup.binning != Bin1x1) facade->SetBinningMode(setup.binning);
    facade->ClearBuffers();
}

Board::~Board() = default;

baseDetector& Board::core() {
    return Facade::core(*facade);
}

std::size_t Board::frameBytes() const {
    return static_cast<std::size_t>(facade->GetBufferXdim()) * static_cast<std::size_t>(facade->GetBufferYdim()) *
           pixelBytes;
}

void* Board::ringBlock(int buffer) {
    return Hidden::ring(static_cast<PleoraDetector&>(core()))->GetBuffer(buffer);
}

void* Board::frameEvent() {
    if (setup.transport == TransportGE) return Hidden::event(static_cast<PleoraDetector&>(core()));
    return HiddenGrabber::event(static_cast<EpixDetector&>(core()));
}

std::shared_ptr<xclib>& Board::grabberSeam(QuorinDetector& facade) {
    return HiddenGrabber::seam(static_cast<EpixDetector&>(Facade::core(facade)));
}

void Board::awaitEnd() {
    while (core().IsLive()) {
        core().CheckForLiveError();  // a run that failed stays live
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    core().GoUnLive();
}

void Board::runLive(int frames) {
    core().GoLiveSeq(0, ringFrames - 1, frames);
    awaitEnd();
}

std::function<void()> LogLines::take() {
    class Notes : public spdlog::sinks::base_sink<std::mutex> {
    public:
        explicit Notes(std::vector<Line>& toFill) : lines(toFill) {}

    protected:
        void sink_it_(const spdlog::details::log_msg& message) override {
            lines.push_back(
                {message.level, message.thread_id, std::string(message.payload.data(), message.payload.size())});
        }
        void flush_() override {}

    private:
        std::vector<Line>& lines;
    };
    const auto notes = std::make_shared<Notes>(lines);
    getQorLogger()->sinks().push_back(notes);
    return [notes] {
        auto& sinks = getQorLogger()->sinks();
        sinks.erase(std::remove(sinks.begin(), sinks.end(), notes), sinks.end());
    };
}

void LogLines::write() const {
    for (const Line& line : lines) getQorLogger()->log(line.level, line.text);  // each line asks for the logger afresh
}

LogLines LogLines::expecting(std::size_t number) const {
    if (lines.size() != number)
        throw std::logic_error("the log has " + std::to_string(lines.size()) + " lines in place of " +
                               std::to_string(number));
    return *this;
}

std::pair<LogLines, LogLines> LogLines::round(const std::string& start, const std::string& end) const {
    const auto beginsWith = [](const std::string& text) {
        return [&text](const Line& line) { return line.text.rfind(text, 0) == 0; };
    };
    const auto next = std::find_if(lines.rbegin(), lines.rend(), beginsWith(start));
    const auto first = next == lines.rend() ? next : std::find_if(std::next(next), lines.rend(), beginsWith(start));
    if (first == lines.rend()) throw std::logic_error("the log has no two lines that begin with " + start);
    std::pair<LogLines, LogLines> round;
    LogLines* part = &round.first;
    for (auto line = std::prev(first.base()); line != std::prev(next.base()); ++line) {
        if (line->thread != next->thread) continue;
        part->lines.push_back(*line);
        if (beginsWith(end)(*line)) part = &round.second;
    }
    return round;
}

QuietLog::QuietLog() : level(getQorLogger()->level()) {
    getQorLogger()->set_level(spdlog::level::off);
}

QuietLog::~QuietLog() {
    getQorLogger()->set_level(level);
}

}  // namespace bench
