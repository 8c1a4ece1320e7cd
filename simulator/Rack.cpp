#include "simulator/Rack.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "platform/Mutex.h"

namespace simulator {
namespace {

constexpr std::string_view scheme = "sim:";
// Their readout times are known for Camera Link only.
constexpr std::array<std::string_view, 2> withoutGige{"6213", "8131"};

/// The profile that an address names, with the serial number of that specimen; nothing for any other address.
std::optional<Profile> profileAt(std::string_view address) {
    if (address.substr(0, scheme.size()) != scheme) return std::nullopt;
    std::string_view name = address.substr(scheme.size());
    int specimen = 1;
    if (const std::size_t mark = name.find('#'); mark != std::string_view::npos) {
        const std::string_view number = name.substr(mark + 1);
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), specimen);
        if (error != std::errc() || end != number.data() + number.size()) return std::nullopt;
        if (number.front() == '0' || specimen < 2) return std::nullopt;
        name = name.substr(0, mark);
    }
    const Profile* named = findProfile(name);
    if (named == nullptr) return std::nullopt;
    Profile profile = *named;
    constexpr std::int64_t serialNumbers = 0x10000;
    profile.serialNumber = static_cast<int>((std::int64_t{profile.serialNumber} + specimen - 1) % serialNumbers);
    return profile;
}

bool isProfileSlot(int number) {
    return number >= 0 && std::cmp_less(number, namedProfiles().size());
}

Profile profileInSlot(int number) {
    constexpr int firstSlotSpecimen = 500;  // far from the specimens that the addresses count
    Profile profile = namedProfiles()[static_cast<std::size_t>(number)];
    profile.serialNumber += firstSlotSpecimen;
    profile.link = Link::CameraLink;
    return profile;
}

}  // namespace

struct Rack::State {
    platform::Mutex mutex;
    std::map<std::string, std::shared_ptr<SimulatedDetector>, std::less<>> detectors GUARDED_BY(mutex);
    std::map<int, std::shared_ptr<SimulatedDetector>> slots GUARDED_BY(mutex);  ///< null: taken out
};

Rack::Rack() : state(std::make_unique<State>()) {}
Rack::~Rack() = default;

Rack& Rack::instance() {
    // Never destroyed: a detector that is opened or closed during the end of the process still finds it.
    static Rack& theInstance = *new Rack;  // NOLINT
    return theInstance;
}

std::shared_ptr<SimulatedDetector> Rack::find(std::string_view address) {
    const platform::MutexLock lock(state->mutex);
    if (const auto place = state->detectors.find(address); place != state->detectors.end()) return place->second;
    const std::optional<Profile> profile = profileAt(address);
    if (!profile) return nullptr;
    return state->detectors.emplace(address, SimulatedDetector::create(*profile)).first->second;
}

void Rack::mount(std::string_view address, std::shared_ptr<SimulatedDetector> detector) {
    if (address.substr(0, scheme.size()) != scheme || address.size() == scheme.size())
        throw std::invalid_argument("an address of the rack begins with sim: and goes on");
    if (!detector) throw std::invalid_argument("no detector to mount");
    const platform::MutexLock lock(state->mutex);
    // What was there goes after the lock does.
    std::swap(state->detectors[std::string(address)], detector);
}

std::vector<std::string> Rack::gigeAddresses() const {
    std::vector<std::string> addresses;
    for (const Profile& profile : namedProfiles())
        if (std::find(withoutGige.begin(), withoutGige.end(), profile.name) == withoutGige.end())
            addresses.push_back(std::string(scheme) + profile.name);
    const auto profiles = static_cast<std::ptrdiff_t>(addresses.size());
    const platform::MutexLock lock(state->mutex);
    for (const auto& [address, detector] : state->detectors)
        if (std::find(addresses.begin(), addresses.begin() + profiles, address) == addresses.begin() + profiles)
            addresses.push_back(address);
    return addresses;
}

std::shared_ptr<SimulatedDetector> Rack::slot(int number) {
    const platform::MutexLock lock(state->mutex);
    if (const auto place = state->slots.find(number); place != state->slots.end()) return place->second;
    if (!isProfileSlot(number)) return nullptr;
    return state->slots.emplace(number, SimulatedDetector::create(profileInSlot(number))).first->second;
}

void Rack::mountSlot(int number, std::shared_ptr<SimulatedDetector> detector) {
    if (number < 0) throw std::invalid_argument("the slots of the rack are numbered from 0 on");
    const platform::MutexLock lock(state->mutex);
    // What was there goes after the lock does.
    std::swap(state->slots[number], detector);
}

std::vector<int> Rack::slots() const {
    std::set<int> occupied;
    for (int number = 0; isProfileSlot(number); ++number) occupied.insert(number);
    const platform::MutexLock lock(state->mutex);
    for (const auto& [number, detector] : state->slots)
        if (detector)
            occupied.insert(number);
        else
            occupied.erase(number);
    return {occupied.begin(), occupied.end()};
}

void Rack::reset() {
    std::map<std::string, std::shared_ptr<SimulatedDetector>, std::less<>> gone;
    std::map<int, std::shared_ptr<SimulatedDetector>> outOfSlots;
    const platform::MutexLock lock(state->mutex);
    gone.swap(state->detectors);
    outOfSlots.swap(state->slots);
}

}  // namespace simulator
