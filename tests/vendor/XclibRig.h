#pragma once

#include <VirtualGrabber.h>
#include <gtest/gtest.h>
#include <xcliball.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Event.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"

/// A video format as a tree of records, to be bent by tests.
struct FormatTree {
    enum class Variant { Standard, Pulse };
    using Words = std::vector<std::uint32_t>;

    explicit FormatTree(Variant variant) {
        constexpr struct {
            std::uint32_t type;
            std::uint32_t size;
        } kinds[] = {{561, 1988}, {125, 484}, {79, 300}, {118, 656}, {251, 996}, {19, 60},
                     {72, 528},   {264, 800}, {32, 48},  {21, 40},   {45, 124}};
        root.resize(140 / 4);
        root[0] = 22U << 16U | 140U;
        for (const auto& kind : kinds) {
            records.emplace_back(kind.size / 4)[0] = kind.type << 16U | kind.size;
            point(records.size() - 1, records.back().data());
        }
        // Type, place, and the word in the standard and in the pulse variant.
        constexpr std::uint32_t words[] = {
            561, 16,  30819,      30819,      561, 20,  23,      23,      561, 24,  65288,      65288,
            561, 148, 3072,       3072,       561, 164, 3072,    3072,    561, 180, 1944,       1944,
            561, 196, 1944,       1944,       561, 496, 31232,   31232,   79,  68,  31232,      31232,
            125, 16,  3072,       3072,       125, 20,  3072,    3072,    125, 388, 3072,       3072,
            125, 392, 3072,       3072,       125, 396, 3072,    3072,    125, 400, 3072,       3072,
            125, 28,  3071,       3071,       125, 124, 1944,    1944,    125, 128, 1944,       1944,
            125, 268, 1944,       1944,       125, 272, 1944,    1944,    125, 136, 1943,       1943,
            125, 408, 5971968,    5971968,    125, 428, 5971968, 5971968, 125, 448, 88,         160,
            251, 44,  13,         13,         251, 48,  27,      27,      251, 64,  1,          1,
            251, 768, 0x9B8C8008, 0x9B8C8008, 264, 16,  30819,   30819,   264, 20,  23,         23,
            264, 24,  65288,      65288,      264, 124, 0x10000, 0,       264, 144, 0x0108003C, 0,
            264, 160, 30819,      0,          264, 164, 23,      0,       264, 168, 65288,      0,
            45,  20,  0x10020001, 0x053100EA, 45,  48,  0x20000, 0x20000, 45,  108, 0x10000,    0};
        const bool pulse = variant == Variant::Pulse;
        for (std::size_t i = 0; i < std::size(words); i += 4) word(words[i], words[i + 1]) = words[i + (pulse ? 3 : 2)];
        for (std::size_t place = 16; place < 656; place += 4) word(118, place) = pulse ? 0 : 7;
    }

    std::uint32_t& word(std::uint32_t type, std::size_t place) {
        const auto record =
            std::find_if(records.begin(), records.end(), [type](const Words& each) { return each[0] >> 16U == type; });
        return record->at(place / 4);
    }
    void point(std::size_t index, const void* record) {
        std::memcpy(&root[2 + index * sizeof(void*) / 4], &record, sizeof(record));
    }

    std::vector<Words> records;
    Words root;
};

/// A small detector in a slot of its own; a frame comes 2 ms after an edge.
inline std::shared_ptr<simulator::SimulatedDetector> mountSmallTriggeredDetector(int slot) {
    simulator::Profile profile = *simulator::findProfile("6112");
    profile.sensorWidth = 32;
    profile.sensorHeight = 16;
    const auto detector = simulator::SimulatedDetector::create(profile);
    constexpr std::uint16_t triggerBits5And6 = 1U << 5 | 1U << 6;
    detector->writeRegister(0, triggerBits5And6);
    detector->writeRegister(11, 100);  // 1 ms
    detector->writeRegister(12, 0);
    detector->setReadoutTimeMs(1);
    simulator::Rack::instance().mountSlot(slot, detector);
    return detector;
}

/// The library state of one user, and the calls in the forms in which he makes them.
struct XclibUser {
    static constexpr int width = 128;  // bytes
    static constexpr int height = 16;
    static constexpr std::size_t frameBytes = std::size_t{width} * height;

    XclibUser() = default;
    ~XclibUser() { pxe_XCLIBuninstantiate(state); }
    XclibUser(const XclibUser&) = delete;
    XclibUser& operator=(const XclibUser&) = delete;

    int open(int slot) const { return pxe_PIXCIopen(state, ("-DM 0x" + std::to_string(slot)).c_str(), "", ""); }

    /// The lesser of both results; -1000 if there is no escape.
    int load(const void* root) const {
        auto* const service = static_cast<unsigned char*>(pxe_xclibEscape(state, 0, 0, 0));
        if (service == nullptr) return -1000;
        pxe_FormatLoad loader = nullptr;
        std::memcpy(&loader, service + pxe_formatLoadOffset, sizeof(loader));
        const int loaded = loader(service + pxe_formatLoadAddend, 0, pxe_formatLoadKind, root);
        return std::min(loaded, pxe_xclibEscaped(state, 0, 0, 0));
    }
    int load(FormatTree::Variant variant) const { return load(FormatTree(variant).root.data()); }

    void use(int slot) const {
        ASSERT_EQ(open(slot), 0);
        ASSERT_EQ(load(FormatTree::Variant::Standard), 0);
        ASSERT_EQ(pxe_setVideoResolution(state, 1, width, height, 0, 0), 0);
    }

    void trigger() const {
        ASSERT_EQ(pxe_setCameraLinkCCOut(state, 1, 1), 0);
        ASSERT_EQ(pxe_setCameraLinkCCOut(state, 1, 0), 0);
    }

    std::vector<std::uint16_t> pixels(long buffer) const {
        std::vector<unsigned char> bytes(frameBytes);
        EXPECT_EQ(pxe_readuchar(state, 1, buffer, 0, 0, -1, -1, bytes.data(), bytes.size(), "Grey"),
                  static_cast<int>(frameBytes));
        std::vector<std::uint16_t> result(frameBytes / sizeof(std::uint16_t));
        std::memcpy(result.data(), bytes.data(), frameBytes);
        return result;
    }

    std::string faultText() const {
        std::array<char, 200> text{};
        return pxe_mesgFaultText(state, 1, text.data(), text.size()) > 0 ? text.data() : "";
    }

    pxdstate* const state = pxe_XCLIBinstantiate();
};

inline std::vector<std::uint16_t> smallPattern(std::uint64_t frame) {
    return simulator::patternFrame(frame, 64, XclibUser::height, 2, 1);
}

/// One user of a small detector's grabber, on the virtual clock.
class XclibRig : public testing::Test {
protected:
    static constexpr int slot = 10;

    ~XclibRig() override { simulator::Rack::instance().reset(); }

    void expose(int frames = 1) {
        for (int i = 0; i < frames; ++i) {
            user.trigger();
            clock.advance(std::chrono::milliseconds(5));
        }
    }

    void expectBalancedLedger() {
        const simulator::Ledger ledger = detector->ledger();
        EXPECT_EQ(ledger.delivered + ledger.lost(), ledger.exposed);
    }

    platform::ScopedVirtualClock clock;
    std::shared_ptr<simulator::SimulatedDetector> detector = mountSmallTriggeredDetector(slot);
    std::shared_ptr<grabber::VirtualGrabber> board = grabber::VirtualGrabber::inSlot(slot);
    XclibUser user;
};
