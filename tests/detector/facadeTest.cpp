#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <new>

#include "QuorinDetector.h"
#include "detector/CallTrace.h"
#include "platform/VirtualClock.h"
#include "simulator/Rack.h"
#include "support/LogCapture.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::LogCapture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

void function(int, int, QuorinDetector*) {}

template <class... Values>
std::string textOf(const Values&... values) {
    trace::Text text;
    trace::putList(text, values...);
    return std::string(text.view());
}

DevInfo record(DetectorInterface transport, int grabberFlag) {
    DevInfo info{7, -8, transport, "sim:5101", 3, grabberFlag};
    return info;
}

class Facade : public testing::Test {
protected:
    Facade() { simulator::Rack::instance().reset(); }
    ~Facade() override { simulator::Rack::instance().reset(); }
    platform::ScopedVirtualClock clock;
};

}  // namespace

TEST(CallTrace, ArgumentsPrintByTheirTypes) {
    float values[] = {1.5F, 0.1F, 100.0F};
    unsigned char bytes[1];
    char text[] = "x";
    DevInfo full = record(TransportGE, 0);
    std::memset(full.param, 'p', sizeof(full.param));
    QorImage image;
    image.Build(4, 3, 2, PixelU16);
    const auto address = [](const void* pointer) { return fmt::format("{}", pointer); };
    EXPECT_EQ(textOf(), "");
    EXPECT_EQ(textOf(-5, Bin4x4, static_cast<unsigned short>(65535), std::size_t{18446744073709551615U}),
              "-5, 9, 65535, 18446744073709551615");
    EXPECT_EQ(textOf(37.78F, 0.1F, 1e20F, true, false), "37.78, 0.1, 1e+20, true, false");
    EXPECT_EQ(textOf(static_cast<const char*>("a{}b"), std::string("c")), "\"a{}b\", \"c\"");
    EXPECT_EQ(textOf(static_cast<char*>(text)), address(text));
    EXPECT_EQ(textOf(static_cast<unsigned char*>(bytes), static_cast<float*>(values)),
              address(bytes) + ", " + address(values));
    EXPECT_EQ(textOf(static_cast<const char*>(nullptr)), "0x0");
    EXPECT_EQ(textOf(&function), address(reinterpret_cast<const void*>(&function)));
    EXPECT_EQ(textOf(record(TransportGE, 0)), "DevInfo{7, -8, 1, \"sim:5101\", 3, 0}");
    EXPECT_EQ(textOf(full), "DevInfo{7, -8, 1, \"" + std::string(52, 'p') + "\", 3, 0}");
    alignas(DevInfo) std::array<unsigned char, sizeof(DevInfo)> used;
    used.fill(0xFF);
    EXPECT_EQ(textOf(*new (used.data()) DevInfo), "DevInfo{0, 0, 0, \"\", 0, 0}");
    EXPECT_EQ(textOf(image), "QorImage{4x3x2:2}");
    EXPECT_EQ(textOf(trace::Floats{values, 3}, std::size_t{3}), "{1.5, 0.1, 100}, 3");
    EXPECT_EQ(textOf(trace::Floats{values, 0}, std::size_t{0}), "{}, 0");
}

TEST(CallFrame, EachKindOfExceptionLeavesAsOneQuorinException) {
    const auto throwing = [](const auto& thrown) {
        return support::failureOf([&] { callFrame("QuorinDetector::Test", [&] { throw thrown; }); });
    };
    const LogCapture log;
    const auto own = throwing(QuorinException("own {}", DerrBinning, 12, "a.cpp", "inner", 3, "m"));
    EXPECT_EQ(own->GetCode(), DerrBinning);
    EXPECT_STREQ(own->GetFunctionName(), "inner");
    EXPECT_THAT(own->what(), HasSubstr("through QuorinDetector::Test"));
    const auto foreign = throwing(std::out_of_range("far"));
    EXPECT_EQ(foreign->GetCode(), DerrWrapped);
    EXPECT_THAT(foreign->what(), StartsWith("Caught a std::exception: far (code 15"));
    EXPECT_STREQ(foreign->GetFunctionName(), "QuorinDetector::Test");
    EXPECT_STREQ(foreign->GetFileName(), "facadeTest.cpp");
    const auto unknown = throwing(42);
    EXPECT_THAT(unknown->what(), StartsWith("Caught an unknown exception. (code 15"));
    EXPECT_THAT(log.lines(), ElementsAre("info|ENTER: QuorinDetector::Test()", "info|EXIT: QuorinDetector::Test",
                                         StartsWith("error|EXCEPTION: own {} (code 14"),
                                         "info|ENTER: QuorinDetector::Test()", "info|EXIT: QuorinDetector::Test",
                                         StartsWith("error|EXCEPTION: Caught a std::exception: far"),
                                         "info|ENTER: QuorinDetector::Test()", "info|EXIT: QuorinDetector::Test",
                                         StartsWith("error|EXCEPTION: Caught an unknown exception.")));
}

TEST_F(Facade, TransportAndGrabberFlagMustAgree) {
    const struct { int transport, flag; } refused[] = {{0, 0}, {1, 1}, {2, 0}, {2, 1}, {-1, 1}, {1, 2}};
    for (const auto& test : refused) {
        DevInfo info = record(DetectorInterface(test.transport), test.flag);
        const auto failure =
            expectFailure([&] { QuorinDetector detector(info); }, "Unsupported transport type", DerrBadRequest);
        EXPECT_STREQ(failure->GetFunctionName(), "QuorinDetector::QuorinDetector");
    }
    expectFailure([] { QuorinDetector detector(DetectorInterface(2), 0, ""); }, "Unsupported transport type",
                  DerrBadRequest);
    DevInfo info = record(TransportGE, 0);
    EXPECT_NO_THROW(QuorinDetector detector(info));
    DevInfo camera = record(TransportCL, 1);
    EXPECT_NO_THROW(QuorinDetector detector(camera));
}

TEST_F(Facade, CallsLeaveTheirTraceWithResults) {
    QuorinDetector detector(TransportGE, 0, "sim:5101");
    detector.OpenBoard();
    const LogCapture log;
    int numbers[3] = {1, 2, 3};
    char reply[100] = "";
    detector.GetModelNumber();
    detector.IsConnected();
    detector.GetTransportMethod();
    detector.GetFirmwareBuild(numbers[0], numbers[1], numbers[2]);
    detector.SendCommand("R1124", reply);
    detector.SendCommand("R1124xyz", 5, reply);
    EXPECT_THROW(detector.ReadRegister(1000, 1), QuorinException);
    std::vector<std::string> frame;
    for (const std::string& line : log.lines())
        if (line.rfind("debug", 0) != 0) frame.push_back(line);
    const auto& build = detector;
    int words[3];
    build.GetFirmwareBuild(words[0], words[1], words[2]);
    EXPECT_THAT(
        frame,
        ElementsAre(
            "info|ENTER: QuorinDetector::GetModelNumber()", "info|EXIT: QuorinDetector::GetModelNumber -> 5101",
            "info|ENTER: QuorinDetector::IsConnected()", "info|EXIT: QuorinDetector::IsConnected -> true",
            "info|ENTER: QuorinDetector::GetTransportMethod()", "info|EXIT: QuorinDetector::GetTransportMethod",
            StartsWith("info|ENTER: QuorinDetector::GetFirmwareBuild(0x"),
            fmt::format("info|EXIT: QuorinDetector::GetFirmwareBuild -> {}, {}, {}", words[0], words[1], words[2]),
            StartsWith("info|ENTER: QuorinDetector::SendCommand(\"R1124\", 0x"),
            "info|EXIT: QuorinDetector::SendCommand -> \"S05101\r\"",
            StartsWith("info|ENTER: QuorinDetector::SendCommand(\"R1124\", 5, 0x"),
            "info|EXIT: QuorinDetector::SendCommand -> \"S05101\r\"",
            "info|ENTER: QuorinDetector::ReadRegister(1000, 1)", "info|EXIT: QuorinDetector::ReadRegister",
            StartsWith("error|EXCEPTION: The register you are trying to access is out of range (0-%d)!")));
}

TEST_F(Facade, MovingHandsTheDetectorOverAndLeavesARefusingObject) {
    const char* const movedText = "This object was moved from and has no detector.";
    QuorinDetector first(TransportGE, 0, "sim:5101");
    first.OpenBoard();
    QuorinDetector second(std::move(first));
    EXPECT_TRUE(second.IsConnected());
    expectFailure([&] { first.IsConnected(); }, movedText, DerrBadRequest);  // NOLINT(bugprone-use-after-move)
    expectFailure([&] { first.OpenBoard(); }, movedText, DerrBadRequest);
    {
        QuorinDetector third(TransportGE, 0, "sim:6112");
        third.OpenBoard();
        second = std::move(third);
        EXPECT_EQ(second.GetModelNumber(), 6112);
        EXPECT_EQ(third.GetModelNumber(), 5101);  // NOLINT(bugprone-use-after-move): a swap
    }
    QuorinDetector again(TransportGE, 0, "sim:5101");
    EXPECT_NO_THROW(again.OpenBoard()) << "the swapped-out detector was closed with its object";
}
