#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "QuorinDetectorCL.h"
#include "QuorinDetectorGE.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/LogCapture.h"
#include "support/expectFailure.h"

/// The facades of one transport.

using support::expectFailure;
using support::LogCapture;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

constexpr const char* onlyCameraLink = "Only CameraLink detectors can be initialized as QuorinDetectorCL objects!";
constexpr const char* onlyGigE = "Only GigE detectors can be initialized as QuorinDetectorGE objects!";

class GuardedFacade : public testing::Test {
protected:
    GuardedFacade() { simulator::Rack::instance().reset(); }
    ~GuardedFacade() override { simulator::Rack::instance().reset(); }

    static DevInfo record(DetectorInterface transport) {
        DevInfo info{};
        info.iface = transport;
        info.unit = 3;
        info.grabberFlag = transport == TransportCL ? 1 : 0;
        std::strncpy(info.param, "sim:5101", sizeof(info.param) - 1);
        return info;
    }
    /// How the lines of the facade begin, without levels and arguments.
    static std::vector<std::string> trace(const LogCapture& log) {
        std::vector<std::string> begun;
        for (const std::string& line : log.lines())
            for (const char* kind : {"info|ENTER: ", "info|EXIT: ", "error|EXCEPTION: "})
                if (line.rfind(kind, 0) == 0) begun.push_back(line.substr(0, line.find_first_of("(", 0)));
        return begun;
    }

    const platform::ScopedVirtualClock clock;
};

static_assert(!std::is_move_constructible_v<QuorinDetectorCL> && !std::is_move_assignable_v<QuorinDetectorCL>);
static_assert(!std::is_move_constructible_v<QuorinDetectorGE> && !std::is_move_assignable_v<QuorinDetectorGE>);

}  // namespace

TEST_F(GuardedFacade, DetectorOfTheOtherTransportIsBuiltAndDiscarded) {
    DevInfo camera = record(TransportCL);
    DevInfo network = record(TransportGE);
    {
        const LogCapture log;
        const auto failure =
            expectFailure([&] { QuorinDetectorCL detector(network); }, onlyCameraLink, DerrWrongTransport);
        EXPECT_STREQ(failure->GetFunctionName(), "QuorinDetectorCL::QuorinDetectorCL");
        EXPECT_THAT(
            trace(log),
            ElementsAre("info|ENTER: QuorinDetector::QuorinDetector", "info|EXIT: QuorinDetector::QuorinDetector",
                        "info|ENTER: QuorinDetectorCL::QuorinDetectorCL",
                        "info|EXIT: QuorinDetectorCL::QuorinDetectorCL", StartsWith("error|EXCEPTION: ")));
    }
    const LogCapture log;
    expectFailure([&] { QuorinDetectorGE detector(camera); }, onlyGigE, DerrWrongTransport);
    EXPECT_EQ(log.linesFrom("info|EPIX: pxe_XCLIBuninstantiate(").size(), 1U) << "the wrong core is destroyed";
    expectFailure([] { QuorinDetectorGE detector(TransportCL, 3, ""); }, onlyGigE, DerrWrongTransport);
    expectFailure([] { QuorinDetectorCL detector(TransportGE, 0, "sim:5101"); }, onlyCameraLink, DerrWrongTransport);
    expectFailure([] { QuorinDetectorCL detector(DetectorInterface(2), 0, ""); }, "Unsupported transport type",
                  DerrBadRequest);
}

TEST_F(GuardedFacade, OpensAsTheBaseDoesWithItsOwnFrameAround) {
    DevInfo camera = record(TransportCL);
    QuorinDetectorCL detector(camera);
    QuorinDetector& base = detector;
    {
        const LogCapture log;
        base.OpenBoard();  // the override
        EXPECT_THAT(trace(log),
                    ElementsAre("info|ENTER: QuorinDetectorCL::OpenBoard", "info|ENTER: QuorinDetector::OpenBoard",
                                "info|EXIT: QuorinDetector::OpenBoard", "info|EXIT: QuorinDetectorCL::OpenBoard"));
    }
    const LogCapture log;
    const auto failure = support::failureOf([&] { detector.OpenBoard(4); });
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->what(), testing::HasSubstr("QuorinDetectorCL::OpenBoard"));
    EXPECT_EQ(log.linesFrom("error|EXCEPTION: ").size(), 2U);
    detector.PowerCLInterface(true);
    EXPECT_EQ(log.linesFrom("info|ENTER: QuorinDetectorCL::PowerCLInterface(true)").size(), 1U);
    base.CloseBoard();
    base.OpenBoard(4);  // not virtual
    EXPECT_EQ(log.linesFrom("info|ENTER: QuorinDetectorCL::OpenBoard").size(), 1U);
    EXPECT_EQ(detector.GetNumBuffers(), 4);

    QuorinDetectorGE network(TransportGE, 0, "sim:5101");
    network.OpenBoard(6);
    EXPECT_EQ(network.GetNumBuffers(), 6);
    network.SetPersistentIPAddress(10, 0, 0, 5);
    expectFailure([&] { network.SetPersistentIPAddress(10, 0, 0, 256); },
                  "The desired IP Address is invalid! Each byte parameter must be an integer between 0-255!",
                  DerrBadRequest);
}

TEST_F(GuardedFacade, CoreThatCameInByAMoveIsCheckedAtEachUse) {
    QuorinDetectorCL camera(TransportCL, 3, "");
    QuorinDetectorGE network(TransportGE, 0, "sim:5101");
    static_cast<QuorinDetector&>(camera) = std::move(static_cast<QuorinDetector&>(network));
    const auto emptied = support::failureOf([&] { network.OpenBoard(); });
    EXPECT_FALSE(!emptied) << "the assignment swaps: the other one has the Camera Link core";
    EXPECT_EQ(emptied->GetCode(), DerrWrongTransport);
    for (const auto& failing : std::vector<std::function<void()>>{
             [&] { camera.OpenBoard(); }, [&] { camera.OpenBoard(4); }, [&] { camera.PowerCLInterface(true); }})
        expectFailure(failing, onlyCameraLink, DerrWrongTransport);
    for (const auto& failing :
         std::vector<std::function<void()>>{[&] { network.OpenBoard(); }, [&] { network.OpenBoard(4); },
                                            [&] { network.SetPersistentIPAddress(10, 0, 0, 1); }})
        expectFailure(failing, onlyGigE, DerrWrongTransport);
    const QuorinDetector taken(std::move(static_cast<QuorinDetector&>(network)));
    expectFailure([&] { network.OpenBoard(); }, "This object was moved from and has no detector.", DerrBadRequest);
}
