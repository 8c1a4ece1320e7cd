#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <utility>

#include "logging.h"
#include "platform/Clock.h"
#include "sweep/MeteredPleora.h"
#include "sweep/Sweep.h"

/// The sweep can fail: the library's double is broken on purpose, and the oracle catches it.

using sweep::Application;
using sweep::Kind;
using sweep::Plan;
using sweep::Scenario;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr sweep::Road onGigE{TransportGE, true};

const Scenario& scenario(const std::string& name) {
    const auto& all = sweep::scenarios();
    return *std::find_if(all.begin(), all.end(), [&](const Scenario& each) { return each.name == name; });
}

/// The plan that strikes the nth call of this name.
Plan strike(const sweep::Learned& learned, Kind kind, const std::string& name, const std::string& detail = "") {
    const std::vector<sweep::CallPoint>& calls = learned.calls.at(0);
    for (std::size_t index = 0; index < calls.size(); ++index)
        if (calls[index].name == name && calls[index].detail == detail) return {kind, 0, static_cast<int>(index) + 1};
    ADD_FAILURE() << "a clean run makes no call of " << name;
    return {kind, 0, 0};
}

struct Locks : baseDetector {
    static auto& acquisition(baseDetector& core) { return core.*(&Locks::acquisitionLock); }
};

template <class Lock>
void keepLocked(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
    lock.lock();
}

class Oracle : public testing::Test {
protected:
    Oracle() { getQorLogger()->set_level(spdlog::level::off); }
    ~Oracle() override { getQorLogger()->set_level(spdlog::level::debug); }

    const Scenario& snap = scenario("snap");
    const sweep::Learned learned = sweep::learn(snap, onGigE);
    const Plan trigger = strike(learned, Kind::FailsOnce, "Dev_Set", "PLC_ctrl0");
};

TEST_F(Oracle, FindsNothingWrongWithASoundLibrary) {
    EXPECT_THAT(learned.violations, IsEmpty());
    const sweep::Run run = sweep::runOnce(snap, onGigE, {trigger});
    EXPECT_THAT(run.violations, IsEmpty());
    ASSERT_FALSE(run.outcomes.empty());
    EXPECT_EQ(run.outcomes[2].operation, "Snap");
    EXPECT_TRUE(run.outcomes[2].failure);
}

TEST_F(Oracle, CatchesABrokenDouble) {
    const struct {
        const char* what;
        sweep::Sabotage sabotage;
        std::vector<Plan> faults;
        const char* violation;
    } cases[] = {
        {"an error is swallowed",
         [](Application& app) { app.pleora->swallowsFailures = true; },
         {strike(learned, Kind::FailsOnce, "State_Stop")},
         "Snap went on as if nothing had happened: State_Stop fails once"},
        {"another error is told than that which happened",
         [](Application& app) { app.pleora->toldCode = PvResult::AccessDenied; },
         {trigger},
         "Snap failed with what no fault explains: Problem Sending Software Trigger!"},
        {"an error without a fault",
         [](Application& app) {
             app.onCall([](const std::string& name) {
                 if (name == "State_Start") throw std::runtime_error("out of nothing");
             });
         },
         {},
         "Snap failed with what no fault explains: Caught a std::exception: out of nothing"},
        {"a buffer is leaked",
         [](Application& app) { app.pleora->leaksBuffers = true; },
         {},
         "not so: every frame went back to the pipeline"},
        {"a lock is kept",
         [](Application& app) {
             app.onCall([&app, kept = false](const std::string& name) mutable {
                 if (name == "State_Stop" && !std::exchange(kept, true)) keepLocked(Locks::acquisition(app.core()));
             });
         },
         {},
         "not so: acquisitionLock is free"},
        {"a wait is beyond its bound",
         [](Application& app) {
             app.onCall([](const std::string& name) {
                 if (name == "State_Start") platform::sleepFor(std::chrono::minutes(2));
             });
         },
         {},
         "Snap took "},
    };
    for (const auto& broken : cases) {
        SCOPED_TRACE(broken.what);
        sweep::Run run = sweep::runOnce(snap, onGigE, broken.faults, broken.sabotage);
        sweep::judgeWaits(run, learned);
        EXPECT_THAT(run.violations, Contains(HasSubstr(broken.violation)));
    }
}

}  // namespace
