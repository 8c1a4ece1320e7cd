#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "simulator/Rack.h"

namespace {

using simulator::Rack;
using simulator::SimulatedDetector;

class RackTest : public testing::Test {
protected:
    ~RackTest() override { rack.reset(); }
    Rack& rack = Rack::instance();
};

TEST_F(RackTest, FindsExactlyTheAddressesOfItsProfiles) {
    for (const char* address : {"sim:5101", "sim:6213", "sim:8131", "sim:7127-slowed", "sim:6112-kestrane#2",
                                "sim:5309#10", "sim:5309#2147483647"})
        EXPECT_NE(rack.find(address), nullptr) << address;
    for (const char* address : {"", "sim:", "sim", "5101", "sim:5102", "SIM:5101", "sim:5101 ", "sim:5101#",
                                "sim:5101#0", "sim:5101#1", "sim:5101#02", "sim:5101#-2", "sim:5101#+2", "sim:5101#2x",
                                "sim:5101#2#3", "sim:#2", "sim:5101#99999999999", "192.168.0.5"})
        EXPECT_EQ(rack.find(address), nullptr) << address;
    EXPECT_THROW(rack.mount("odd", rack.find("sim:5101")), std::invalid_argument);
    EXPECT_THROW(rack.mount("sim:odd", nullptr), std::invalid_argument);
    EXPECT_THROW(SimulatedDetector::create({}), std::invalid_argument);
}

TEST_F(RackTest, KeepsEachDetectorWithItsRegistersAndItsOwnSerialNumber) {
    std::set<int> numbers;
    for (const simulator::Profile& profile : simulator::namedProfiles())
        for (const char* specimen : {"", "#2", "#3"})
            numbers.insert(rack.find("sim:" + profile.name + specimen)->readRegister(125));
    for (const int slot : rack.slots()) numbers.insert(rack.slot(slot)->readRegister(125));
    EXPECT_EQ(numbers.size(), 40U);
    rack.find("sim:5101")->writeRegister(18, 77);
    EXPECT_EQ(rack.find("sim:5101")->readRegister(18), 77);
    rack.reset();
    EXPECT_EQ(rack.find("sim:5101")->readRegister(18), 0);
}

TEST_F(RackTest, HoldsTheProfilesInItsFirstSlotsAndWhatIsMounted) {
    EXPECT_EQ(rack.slots(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    for (std::size_t slot = 0; slot < simulator::namedProfiles().size(); ++slot)
        EXPECT_EQ(rack.slot(static_cast<int>(slot))->profile().name, simulator::namedProfiles()[slot].name);
    EXPECT_EQ(rack.slot(10), nullptr);
    EXPECT_EQ(rack.slot(-1), nullptr);
    rack.slot(3)->writeRegister(18, 77);
    EXPECT_EQ(rack.slot(3)->readRegister(18), 77);
    EXPECT_EQ(rack.find("sim:6112")->readRegister(18), 0) << "another one than the address has";
    const auto mounted = SimulatedDetector::create(*simulator::findProfile("5101"));
    rack.mountSlot(12, mounted);
    rack.mountSlot(2, mounted);
    rack.mountSlot(4, nullptr);
    EXPECT_EQ(rack.slot(12), mounted);
    EXPECT_EQ(rack.slot(4), nullptr);
    EXPECT_EQ(rack.slots(), (std::vector<int>{0, 1, 2, 3, 5, 6, 7, 8, 9, 12}));
    EXPECT_THROW(rack.mountSlot(-1, mounted), std::invalid_argument);
    rack.reset();
    EXPECT_EQ(rack.slot(12), nullptr);
    EXPECT_NE(rack.slot(4), nullptr);
    EXPECT_EQ(rack.slot(3)->readRegister(18), 0);
}

TEST_F(RackTest, SlotsReadOutAtTheirLinksPace) {
    const struct {
        const char* profile;
        int slot;
        double gigeMs, cameraLinkMs;
    } cases[] = {{"6112", 3, 16.93, 16.93},
                 {"5309", 2, 37.78, 37.69},
                 {"7127", 7, 188.68, 37.74},
                 {"7127-slowed", 8, 188.68, 56.95},
                 {"6213-kestrane", 6, 37.77, 37.77}};
    for (const auto& test : cases) {
        EXPECT_EQ(rack.find(std::string("sim:") + test.profile)->readoutTimeMs(), test.gigeMs) << test.profile;
        EXPECT_EQ(rack.slot(test.slot)->readoutTimeMs(), test.cameraLinkMs) << test.profile;
    }
}

TEST_F(RackTest, ListsWhatGigeReaches) {
    const std::vector<std::string> profiles{"sim:5101",          "sim:5101-kestrane", "sim:5309", "sim:6112",
                                            "sim:6112-kestrane", "sim:6213-kestrane", "sim:7127", "sim:7127-slowed"};
    EXPECT_EQ(rack.gigeAddresses(), profiles);
    simulator::Profile odd = *simulator::findProfile("6112");
    odd.model = 5204;
    const auto mounted = SimulatedDetector::create(odd);
    rack.mount("sim:odd", mounted);
    rack.mount("sim:5309", mounted);
    rack.find("sim:5101#2");
    EXPECT_EQ(rack.find("sim:odd"), mounted);
    EXPECT_EQ(rack.find("sim:5309")->readRegister(124), 5204);
    std::vector<std::string> all = profiles;
    all.insert(all.end(), {"sim:5101#2", "sim:odd"});
    EXPECT_EQ(rack.gigeAddresses(), all);
}

}  // namespace
