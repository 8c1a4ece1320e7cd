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
}

TEST_F(RackTest, KeepsADetectorAndItsRegisters) {
    rack.find("sim:5101")->writeRegister(18, 77);
    EXPECT_EQ(rack.find("sim:5101")->readRegister(18), 77);
    rack.reset();
    EXPECT_EQ(rack.find("sim:5101")->readRegister(18), 0);
}

TEST_F(RackTest, GivesEveryDetectorItsOwnSerialNumber) {
    std::set<int> numbers;
    for (const simulator::Profile& profile : simulator::namedProfiles())
        for (const char* specimen : {"", "#2", "#3"})
            numbers.insert(rack.find("sim:" + profile.name + specimen)->readRegister(125));
    EXPECT_EQ(numbers.size(), 30U);
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

TEST_F(RackTest, RefusesWhatCannotBeMounted) {
    EXPECT_THROW(rack.mount("odd", rack.find("sim:5101")), std::invalid_argument);
    EXPECT_THROW(rack.mount("sim:odd", nullptr), std::invalid_argument);
    EXPECT_THROW(SimulatedDetector::create({}), std::invalid_argument);
}

}  // namespace
