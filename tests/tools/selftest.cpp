#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/Watchdog.h"
#include "tests/tools/ToolRun.h"

using nlohmann::json;
using simulator::Fault;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* profile = "6112-kestrane";

class ToolSelftest : public testing::Test {
protected:
    void SetUp() override { simulator::Rack::instance().reset(); }

    static std::shared_ptr<simulator::SimulatedDetector> hardware() {
        return simulator::Rack::instance().find(std::string("sim:") + profile);
    }
    static ToolRun selftest(std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"selftest", std::string("ge:sim:") + profile});
        return runTool(more);
    }
    /// What settings are made of.
    static std::map<int, int> registers() {
        std::map<int, int> all;
        for (const int number : {0, 1, 3, 9, 10, 11, 12, 17, 18, 27, 28, 33, 34, 401, 402, 403})
            all[number] = hardware()->readRegister(number);
        return all;
    }
    static std::vector<std::string> stepsThat(const json& answer, const std::string& result) {
        std::vector<std::string> names;
        for (const json& step : answer.at("steps"))
            if (step.at("result") == result) names.push_back(step.at("step"));
        return names;
    }

    const support::Watchdog watchdog;
};

TEST_F(ToolSelftest, PassesOnASoundDetectorAndLeavesItAsItWas) {
    ASSERT_EQ(runTool({"info"}).status, 0);  // an open may raise the exposure time
    hardware()->writeRegister(17, 7);
    hardware()->writeRegister(simulator::reg::mode, 0x60);
    const std::map<int, int> before = registers();
    const ToolRun run = selftest();
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(registers(), before);
    EXPECT_THAT(run.out, testing::ContainsRegex("passed +set num_of_exposures +[0-9.]+ ms  7 -> 2 -> 7\n"));
    EXPECT_THAT(run.out, testing::ContainsRegex("passed +snap +[0-9.]+ ms  3072 x 864 pixels"));
    EXPECT_THAT(run.out, HasSubstr("24 passed, 0 skipped, 0 failed\n"));
}

TEST_F(ToolSelftest, SkipsWhatAnOlderDetectorCannotDo) {
    const ToolRun run = runTool({"selftest", "cl:2", "--json"});
    EXPECT_EQ(run.status, 0) << run.out;
    const json answer = json::parse(run.out);
    EXPECT_THAT(stepsThat(answer, "failed"), IsEmpty());
    EXPECT_THAT(stepsThat(answer, "skipped"), testing::Contains("region of interest"));
    for (const json& step : answer.at("steps")) EXPECT_EQ(step.at("time_ms").is_null(), step.at("result") == "skipped");
}

struct Disturbed {
    const char* name;
    Fault fault;
    simulator::When when;
    const char* step;  ///< the one that fails
    const char* text;  ///< what its detail tells

    friend std::ostream& operator<<(std::ostream& out, const Disturbed& disturbed) { return out << disturbed.name; }
};

class ToolSelftestOfADisturbed : public ToolSelftest, public testing::WithParamInterface<Disturbed> {};

TEST_P(ToolSelftestOfADisturbed, DetectorFailsInTheRightStepAndGoesOn) {
    const Disturbed& disturbed = GetParam();
    ASSERT_EQ(runTool({"info"}).status, 0);
    const std::map<int, int> before = registers();
    hardware()->faults().set(disturbed.fault, disturbed.when);
    const ToolRun run = selftest({"--json"});
    EXPECT_EQ(run.status, 1);
    const json answer = json::parse(run.out);
    EXPECT_THAT(stepsThat(answer, "failed"), ElementsAre(disturbed.step)) << run.out;
    EXPECT_EQ(answer.at("passed"), 23);
    for (const json& step : answer.at("steps"))
        if (step.at("result") == "failed") {
            EXPECT_THAT(step.at("detail").get<std::string>(), HasSubstr(disturbed.text));
        }
    EXPECT_EQ(registers(), before) << "put back, also after the failure";
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ToolSelftestOfADisturbed,
    testing::Values(
        Disturbed{"StuckExposureCount", Fault::StuckRegister, {1, true, 17}, "set num_of_exposures", "reads back as 1"},
        Disturbed{"StuckGapTime", Fault::StuckRegister, {1, true, 18}, "set gap_time_ms", "reads back as"},
        Disturbed{"StuckRegion", Fault::StuckRegister, {1, true, 403}, "region of interest", "gives frames of"},
        Disturbed{"FailedFirstFrame", Fault::FailedFrame, {1}, "snap", "(code 13 DerrAcquisition"},
        Disturbed{"FailedLiveFrame", Fault::FailedFrame, {4}, "live run", "(code 5 DerrTransport"},
        Disturbed{"ColdThermometer", Fault::NoTemperature, {1, true}, "temperature", "sensor 1 reads 0.0 C"}),
    [](const auto& disturbed) { return std::string(disturbed.param.name); });

TEST_F(ToolSelftest, TellsWhyADetectorDoesNotOpen) {
    hardware()->faults().set(Fault::RefusedConnect, {1, true});
    const ToolRun run = selftest();
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("0 passed, 20 skipped, 1 failed\nhint: another program may have the detector open"));
    EXPECT_THAT(runTool({"selftest", "ge:sim:nothing"}).out, HasSubstr("hint: no detector at ge:sim:nothing"));
}

TEST_F(ToolSelftest, GoesOnWithADetectorThatIsUnplugged) {
    std::thread user([] {
        support::until([] { return hardware()->ledger().exposed >= 1; });
        hardware()->faults().set(Fault::Unplugged, {1, true});
    });
    const ToolRun run = selftest({"--json"});
    user.join();
    EXPECT_EQ(run.status, 1);
    const json answer = json::parse(run.out);
    EXPECT_THAT(stepsThat(answer, "passed"), testing::Contains("open"));
    EXPECT_THAT(stepsThat(answer, "failed"), testing::IsSupersetOf({"live run", "settings as before"}));
}

TEST_F(ToolSelftest, AnInterruptLeavesOutTheRestAndPutsTheSettingsBack) {
    ASSERT_EQ(runTool({"info"}).status, 0);
    const std::map<int, int> before = registers();
    std::thread user([] {
        support::until([] { return hardware()->ledger().exposed >= 2; });
        std::raise(SIGINT);
    });
    const ToolRun run = selftest({"--json"});
    user.join();
    EXPECT_EQ(run.status, 130);
    EXPECT_THAT(stepsThat(json::parse(run.out), "skipped"), testing::Contains("temperature"));
    EXPECT_EQ(registers(), before);
}

}  // namespace
