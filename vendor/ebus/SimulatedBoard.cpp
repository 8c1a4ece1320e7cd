#include "SimulatedBoard.h"

#include <algorithm>
#include <map>
#include <utility>

#include "simulator/Rack.h"

namespace ebus {
namespace {

/// Output changes that come closer are too short for the detector's input; a timer that is set so fast is sampled.
constexpr platform::Time shortestPlan = std::chrono::microseconds(10);

/// Changes that are late by less are made up one by one, so that no edge is missed; later ones are skipped.
constexpr platform::Time longestCatchUp = std::chrono::milliseconds(100);

constexpr std::uint16_t largestPixel = 0x3FFF;

struct Grab {
    std::size_t width;
    std::size_t height;
    TestImage testImage;
};

/// What the board makes of the detector's picture: cut where it is larger, zero where it has nothing.
std::vector<std::uint16_t> regrab(const simulator::Frame& frame, const Grab& grab) {
    std::vector<std::uint16_t> pixels(grab.width * grab.height);
    const std::size_t sourceWidth = static_cast<std::size_t>(std::max(frame.width, 0));
    for (std::size_t row = 0; row < grab.height; ++row) {
        std::uint16_t* const target = pixels.data() + row * grab.width;
        if (grab.testImage == TestImage::GreyVerticalRamp) {
            std::fill_n(target, grab.width, static_cast<std::uint16_t>(row & largestPixel));
        } else if (grab.testImage == TestImage::GreyHorizontalRamp) {
            for (std::size_t column = 0; column < grab.width; ++column)
                target[column] = static_cast<std::uint16_t>(column & largestPixel);
        } else if (row < static_cast<std::size_t>(std::max(frame.height, 0))) {
            const std::size_t begin = std::min(row * sourceWidth, frame.pixels.size());
            const std::size_t count = std::min({sourceWidth, grab.width, frame.pixels.size() - begin});
            std::copy_n(frame.pixels.data() + begin, count, target);
        }
    }
    return pixels;
}

bool isSizeOf(const simulator::Frame& frame, const Grab& grab) {
    return grab.testImage == TestImage::Off && std::cmp_equal(frame.width, grab.width) &&
           std::cmp_equal(frame.height, grab.height) && frame.pixels.size() == grab.width * grab.height;
}

simulator::FrameFate toDetector(FrameFate fate) {
    switch (fate) {
        case FrameFate::Delivered:
            return simulator::FrameFate::Delivered;
        case FrameFate::NoBuffer:
            return simulator::FrameFate::NoBuffer;
        case FrameFate::Dropped:
            return simulator::FrameFate::InFlight;
        case FrameFate::NoReceiver:
            break;
    }
    return simulator::FrameFate::NoReceiver;
}

/// The boards that were looked at, by address; a detector that is mounted in place of another gets a new board.
class Boards {
public:
    static Boards& instance() {
        // Never destroyed: devices that go during the end of the process still find it.
        static Boards& theInstance = *new Boards;  // NOLINT
        return theInstance;
    }

    std::shared_ptr<SimulatedBoard> find(const std::string& address) EXCLUDES(mutex) {
        const std::shared_ptr<simulator::SimulatedDetector> detector = simulator::Rack::instance().find(address);
        if (detector == nullptr) return nullptr;
        const platform::MutexLock lock(mutex);
        Entry& entry = boards[address];
        if (entry.detector != detector) entry = {detector, std::make_shared<SimulatedBoard>(detector)};
        return entry.board;
    }

private:
    struct Entry {
        std::shared_ptr<simulator::SimulatedDetector> detector;
        std::shared_ptr<SimulatedBoard> board;
    };
    platform::Mutex mutex;
    std::map<std::string, Entry> boards GUARDED_BY(mutex);
};

}  // namespace

std::shared_ptr<SimulatedBoard> SimulatedBoard::at(const std::string& address) {
    return Boards::instance().find(address);
}

SimulatedBoard::SimulatedBoard(std::shared_ptr<simulator::SimulatedDetector> behind)
    : detector(std::move(behind)), features(makeDeviceFeatures()) {
    features.put(placeOf(DeviceFeature::Width), detector->frameWidth());
    features.put(placeOf(DeviceFeature::Height), detector->frameHeight());
}

SimulatedBoard::~SimulatedBoard() = default;

bool SimulatedBoard::answers() {
    if (!detector->faults().strikes(simulator::Fault::Unplugged)) return true;
    {
        const platform::MutexLock lock(stateMutex);
        ++losses;
        controller = nullptr;
        destination = {};
    }
    stopAcquisition();
    return false;
}

std::uint64_t SimulatedBoard::linkLosses() const {
    const platform::MutexLock lock(stateMutex);
    return losses;
}

bool SimulatedBoard::takeControl(const void* user) {
    const platform::MutexLock lock(stateMutex);
    if (controller != nullptr) return false;
    controller = user;
    return true;
}

void SimulatedBoard::releaseControl(const void* user) {
    {
        const platform::MutexLock lock(stateMutex);
        if (controller != user) return;
        destination = {};
    }
    stopAcquisition();
    const platform::MutexLock lock(stateMutex);
    if (controller == user) controller = nullptr;
}

bool SimulatedBoard::isControlledBy(const void* user) const {
    const platform::MutexLock lock(stateMutex);
    return controller == user;
}

std::int64_t SimulatedBoard::stored(std::size_t feature, std::size_t bank) const {
    if (feature != placeOf(DeviceFeature::PayloadSize)) return features.get(feature, bank);
    return features.get(placeOf(DeviceFeature::Width)) * features.get(placeOf(DeviceFeature::Height)) *
           static_cast<std::int64_t>(bytesPerPixel);
}

std::size_t SimulatedBoard::bankOf(const FeatureRow& row) const {
    if (row.banks == Banks::One) return 0;
    return static_cast<std::size_t>(features.get(placeOf(DeviceFeature::TimerSelector)));
}

PvResult SimulatedBoard::setFeature(std::string_view name, const FeatureValue& value) {
    const platform::MutexLock order(logicMutex);
    const platform::Time time = platform::now();
    {
        const platform::MutexLock lock(stateMutex);
        const std::size_t feature = features.find(name);
        if (feature == FeatureStore::npos) return unknownFeature(name);
        const FeatureRow& row = features.row(feature);
        std::int64_t written = 0;
        if (const PvResult result = checkWrite(row, value, written); result.IsFailure()) return result;
        const std::size_t bank = bankOf(row);
        if (row.banks == Banks::PerTimer) timerStarts[bank] = time;
        features.put(feature, written, bank);
        if (feature == placeOf(DeviceFeature::Uart0Loopback)) loopback.clear();
    }
    settleLogic(time);
    return {};
}

PvResult SimulatedBoard::getFeature(std::string_view name, FeatureType type, FeatureValue& value) const {
    const platform::MutexLock lock(stateMutex);
    const std::size_t feature = features.find(name);
    if (feature == FeatureStore::npos) return unknownFeature(name);
    const FeatureRow& row = features.row(feature);
    if (const PvResult result = checkType(row, type); result.IsFailure()) return result;
    const std::size_t bank = bankOf(row);
    if (feature == placeOf(DeviceFeature::TimerFrequency))
        value = logicOf(features).timers[bank].frequencyHz();
    else
        value = toValue(row, stored(feature, bank));
    return {};
}

void SimulatedBoard::setStreamDestination(const Endpoint& endpoint) {
    const platform::MutexLock lock(stateMutex);
    destination = endpoint;
}

void SimulatedBoard::settleLogic(platform::Time time) {
    Logic logic;
    {
        const platform::MutexLock lock(stateMutex);
        logic = logicOf(features);
        for (std::size_t i = 0; i < timerCount; ++i) logic.timers[i].startedAt = timerStarts[i];
    }
    const bool level = logic.outputAt(time);
    if (level != triggerLevel) {
        triggerLevel = level;
        detector->setTriggerInput(level);
    }
    const std::uint64_t plan = ++currentPlan;
    const platform::Time change = logic.nextChange(time);
    if (change == platform::never) return;
    const platform::Time due = std::max(change, time + shortestPlan);
    platform::schedule(due, [board = weak_from_this(), plan, due] {
        if (const std::shared_ptr<SimulatedBoard> alive = board.lock()) alive->runPlannedChange(plan, due);
    });
}

void SimulatedBoard::runPlannedChange(std::uint64_t plan, platform::Time due) {
    const platform::MutexLock order(logicMutex);
    if (plan != currentPlan) return;
    const platform::Time time = platform::now();
    settleLogic(time - due > longestCatchUp ? time : due);
}

bool SimulatedBoard::startAcquisition() {
    const platform::MutexLock order(acquisitionMutex);
    {
        const platform::MutexLock lock(stateMutex);
        if (acquiring) return false;
        acquiring = true;
    }
    detector->setFrameReceiver([board = weak_from_this()](const simulator::Frame& frame) {
        const std::shared_ptr<SimulatedBoard> alive = board.lock();
        return alive != nullptr ? alive->deliver(frame) : simulator::FrameFate::NoReceiver;
    });
    return true;
}

bool SimulatedBoard::stopAcquisition() {
    const platform::MutexLock order(acquisitionMutex);
    {
        const platform::MutexLock lock(stateMutex);
        if (!acquiring) return false;
        acquiring = false;
    }
    detector->setFrameReceiver({});
    return true;
}

bool SimulatedBoard::isAcquiring() const {
    const platform::MutexLock lock(stateMutex);
    return acquiring;
}

simulator::FrameFate SimulatedBoard::deliver(const simulator::Frame& frame) {
    Grab grab{};
    Endpoint receiver;
    {
        const platform::MutexLock lock(stateMutex);
        if (!acquiring) return simulator::FrameFate::NoReceiver;
        receiver = destination;
        grab = {static_cast<std::size_t>(features.get(placeOf(DeviceFeature::Width))),
                static_cast<std::size_t>(features.get(placeOf(DeviceFeature::Height))),
                static_cast<TestImage>(features.get(placeOf(DeviceFeature::TestImageSelector)))};
    }
    const std::shared_ptr<FrameSink> sink = LocalPorts::instance().find(receiver);
    if (sink == nullptr) return simulator::FrameFate::NoReceiver;
    std::vector<std::uint16_t> regrabbed;
    if (!isSizeOf(frame, grab)) regrabbed = regrab(frame, grab);
    return toDetector(
        sink->receive({frame.number, static_cast<std::uint32_t>(grab.width), static_cast<std::uint32_t>(grab.height),
                       frame.complete, regrabbed.empty() ? frame.pixels.data() : regrabbed.data()}));
}

std::size_t SimulatedBoard::readSerial(std::uint8_t* bytes, std::size_t capacity, platform::Time deadline) {
    {
        const platform::MutexLock lock(stateMutex);
        if (features.get(placeOf(DeviceFeature::Uart0Loopback)) != 0) {
            while (loopback.empty() && loopbackArrived.waitUntil(stateMutex, deadline)) {
            }
            const std::size_t count = std::min(capacity, loopback.size());
            const auto end = loopback.begin() + static_cast<std::ptrdiff_t>(count);
            std::copy(loopback.begin(), end, bytes);
            loopback.erase(loopback.begin(), end);
            return count;
        }
    }
    return detector->serialRead(reinterpret_cast<char*>(bytes), capacity, deadline);
}

void SimulatedBoard::writeSerial(std::string_view bytes) {
    {
        const platform::MutexLock lock(stateMutex);
        if (features.get(placeOf(DeviceFeature::Uart0Loopback)) != 0) {
            loopback.insert(loopback.end(), bytes.begin(), bytes.end());
            loopbackArrived.notifyAll();
            return;
        }
    }
    detector->serialWrite(bytes);
}

void SimulatedBoard::flushSerialInput() {
    {
        const platform::MutexLock lock(stateMutex);
        loopback.clear();
    }
    detector->serialDropInput();
}

}  // namespace ebus
