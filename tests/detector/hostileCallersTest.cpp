#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include "QuorinDetectorCL.h"
#include "QuorinDetectorGE.h"
#include "VirtualGrabber.h"
#include "support/BadCalls.h"
#include "support/FacadeCalls.h"
#include "support/TransportRig.h"

/// Applications that call what they shouldn't, when they shouldn't, with what they shouldn't: a clear failure each
/// time, and a detector that works afterwards.

using simulator::Fault;
using support::BadCalls;
using support::denormal;
using support::expectFailure;
using support::FacadeCall;
using support::facadeCalls;
using support::failureOf;
using support::infinite;
using support::largest;
using support::least;
using support::most;
using support::notANumber;

namespace {

constexpr const char* notOpenText = "OpenBoard must be called before doing any detector operations.";
constexpr const char* movedText = "This object was moved from and has no detector.";

/// A sanitizer's allocator ends the process where the system's says no.
#if defined(QRAPI_ADDRESS_SANITIZER) || defined(QRAPI_THREAD_SANITIZER)
constexpr bool underSanitizer = true;
#else
constexpr bool underSanitizer = false;
#endif

class Hostile : public support::VirtualRoadTest {
protected:
    std::shared_ptr<grabber::VirtualGrabber> grabberBehind() const {
        return grabber::VirtualGrabber::inSlot(road.slot());
    }
    void open() { detector->OpenBoard(2); }
    /// Takes every fault away, and expects a close, an open and a frame.
    void expectWorks() {
        hardware->faults().clearAll();
        if (!road.isGigE()) grabberBehind()->clearFailures();
        if (detector->IsConnected()) {
            EXPECT_NO_THROW(detector->CloseBoard());
        }
        replaceDetector();
        hardware->writeRegister(0, edgesOnly);
        ASSERT_NO_THROW(open());
        detector->DisablePulseGenerator();  // one that was half prepared mutes the trigger, after a close too
        expectSnap(1, panelWidth(), panelHeight());
        EXPECT_NO_THROW(detector->CloseBoard());
    }
    /// The call returns, or says itself what is wrong.
    static void expectClearEnd(const FacadeCall& call, QuorinDetector& victim) {
        try {
            call.make(victim);
        } catch (const QuorinException& failure) {
            EXPECT_NE(failure.GetCode(), DerrWrapped) << call.name << ": " << failure.what();
            EXPECT_NE(std::string(failure.what()).find_first_not_of(' '), std::string::npos) << call.name;
        } catch (...) {
            ADD_FAILURE() << call.name << " lets another exception out";
        }
    }
};

/// The name in front of the line's first bracket, if it is that of an operation.
std::string declaredIn(const std::string& line) {
    const std::size_t bracket = line.find('(');
    if (bracket == std::string::npos) return "";
    std::size_t begin = bracket;
    while (begin > 0 && std::isalnum(static_cast<unsigned char>(line[begin - 1])) != 0) --begin;
    const bool alone = begin == 0 || line[begin - 1] == ' ';
    const bool isName = begin < bracket && std::isupper(static_cast<unsigned char>(line[begin])) != 0;
    return alone && isName ? line.substr(begin, bracket - begin) : "";
}

}  // namespace

TEST(FacadeCalls, AreThoseOfTheHeader) {
    std::multiset<std::string> declared;
    std::ifstream header(std::filesystem::path(QRAPI_SOURCE_DIR) / "detector/QuorinDetector.h");
    ASSERT_TRUE(header);
    for (std::string line; std::getline(header, line) && line != "protected:";) {
        line.resize(std::min(line.find("//"), line.size()));
        const std::string name = declaredIn(line);
        if (!name.empty() && name != "QuorinDetector") declared.insert(name);
    }
    std::multiset<std::string> listed;
    for (const FacadeCall& call : facadeCalls()) listed.insert(call.name);
    EXPECT_EQ(listed, declared);
    EXPECT_GT(declared.size(), 90U);
}

TEST_P(Hostile, ClosedAndMovedFromObjectsRefuseEveryCall) {
    for (const FacadeCall& call : facadeCalls()) {
        SCOPED_TRACE(call.name);
        const std::string name = call.name;
        if (name == "OpenBoard" || name == "IsConnected") continue;
        const bool isClose = name == "CloseBoard";
        expectFailure(
            [&] { call.make(*detector); },
            isClose ? "The connection to the board is not open! Cannot close connection that isn't open!" : notOpenText,
            isClose ? DerrBadRequest : DerrTransport);
        EXPECT_FALSE(detector->IsConnected());
    }
    {
        QuorinDetector taker(std::move(*detector));
        for (const FacadeCall& call : facadeCalls()) {
            SCOPED_TRACE(call.name);
            expectFailure([&] { call.make(*detector); }, movedText, DerrBadRequest);
        }
        *detector = std::move(taker);
    }
    expectWorks();
    if (road.isGigE()) {
        QuorinDetectorGE one(TransportGE, 0, road.address().c_str());
        expectFailure([&] { one.SetPersistentIPAddress(10, 0, 0, 1); }, notOpenText, DerrTransport);
        QuorinDetector taker(std::move(static_cast<QuorinDetector&>(one)));
        expectFailure([&] { one.SetPersistentIPAddress(10, 0, 0, 1); }, movedText, DerrBadRequest);
    } else {
        QuorinDetectorCL one(TransportCL, road.slot(), "");
        expectFailure([&] { one.PowerCLInterface(true); }, notOpenText, DerrTransport);
        QuorinDetector taker(std::move(static_cast<QuorinDetector&>(one)));
        expectFailure([&] { one.PowerCLInterface(true); }, movedText, DerrBadRequest);
    }
}

namespace {

/// What a detector can be in when a call or its destruction comes.
struct Condition {
    std::string name;
    std::function<void()> bring;
};

class HostileConditions : public Hostile {
protected:
    std::vector<Condition> conditions() {
        static constexpr simulator::When onward{.onward = true};
        auto& faults = hardware->faults();
        const auto expectFailedOpen = [this] { EXPECT_TRUE(failureOf([&] { open(); })); };
        std::vector<Condition> all{{"open", [this] { open(); }},
                                   {"open refused",
                                    [&faults, expectFailedOpen] {
                                        faults.set(Fault::RefusedConnect);
                                        expectFailedOpen();
                                    }},
                                   {"open on a silent line",
                                    [&faults, expectFailedOpen] {
                                        faults.set(Fault::SilentLine, onward);
                                        expectFailedOpen();
                                    }},
                                   {"line silent since the open",
                                    [this, &faults] {
                                        open();
                                        faults.set(Fault::SilentLine, onward);
                                    }},
                                   {"unplugged since the open",
                                    [this, &faults] {
                                        open();
                                        faults.set(Fault::Unplugged, onward);
                                    }},
                                   {"pulses", [this] {
                                        open();
                                        detector->EnablePulseGenerator(20.0F);
                                        detector->ToggleGenerator(true);
                                    }}};
        if (road.isGigE()) {
            for (int step = 2; step <= 8; step += 3)
                all.push_back({"close unplugged at call " + std::to_string(step), [this, &faults, step] {
                                   open();
                                   faults.set(Fault::Unplugged, {.first = step, .onward = true});
                                   failureOf([&] { detector->CloseBoard(); });
                                   faults.clearAll();
                               }});
            return all;
        }
        for (const std::string_view step :
             {grabber::formatLoad, std::string_view("pxe_setPixelFormatGrey"),
              std::string_view("pxe_setVideoResolution"), std::string_view("pxe_eventCapturedFieldCreate2")})
            all.push_back({"half open: " + std::string(step), [this, step, expectFailedOpen] {
                               grabberBehind()->fail({.function = step});
                               expectFailedOpen();
                               EXPECT_TRUE(detector->IsConnected());
                           }});
        all.push_back({"half closed", [this] {
                           open();
                           grabberBehind()->fail({.function = "pxe_PIXCIclose"});
                           EXPECT_TRUE(failureOf([&] { detector->CloseBoard(); }));
                           EXPECT_TRUE(detector->IsConnected());
                       }});
        return all;
    }
    /// A live run on GigE has a thread, which the virtual clock doesn't serve.
    bool canBeMadeHere(const FacadeCall& call) const { return !road.isGigE() || call.name != std::string("GoLiveSeq"); }
};

}  // namespace

TEST_P(HostileConditions, EachCallEndsClearlyAndADetectorCanBeBroughtBack) {
    for (const Condition& condition : conditions()) {
        for (const FacadeCall& call : facadeCalls()) {
            if (!canBeMadeHere(call)) continue;
            SCOPED_TRACE(condition.name + ", " + call.name);
            condition.bring();  // an open at least: of what the call before has left
            expectClearEnd(call, *detector);
            hardware->faults().clearAll();
            if (!road.isGigE()) grabberBehind()->clearFailures();
            if (detector->IsConnected()) {
                EXPECT_NO_THROW(detector->CloseBoard());
            }
            if (HasFailure()) return;
        }
        expectWorks();
    }
}

TEST_P(HostileConditions, DestructionLeavesTheHardwareToTheNext) {
    for (const Condition& condition : conditions()) {
        SCOPED_TRACE(condition.name);
        condition.bring();
        detector.reset();
        detector = road.make();
        expectWorks();
    }
}

namespace {

class HostileArguments : public Hostile {
protected:
    void expectAnswers(const BadCalls& group) {
        const Derr code = road.isGigE() ? group.code : group.codeOnCameraLink;
        for (std::size_t index = 0; index < group.calls.size(); ++index) {
            SCOPED_TRACE(std::string(group.text) + ", call " + std::to_string(index));
            const auto failure = failureOf([&] { group.calls[index](*detector); });
            EXPECT_EQ(failure ? failure->GetCode() : support::letThrough, code) << (failure ? failure->what() : "");
            if (!failure) continue;
            EXPECT_EQ(std::string(failure->what()).rfind(group.text, 0), 0U) << failure->what();
        }
    }
};

}  // namespace

TEST_P(HostileArguments, AreRefusedWithATextOrMeanWhatTheySay) {
    open();
    for (const BadCalls& group : support::badCalls()) expectAnswers(group);
    if (!underSanitizer)
        expectFailure([&] { support::readInto(*detector, most, 0); }, "Insufficient Memory on system!", DerrResources,
                      most);
    EXPECT_EQ(detector->GetNumOfExposures(), 4) << "of the last times that were let through";
    for (const float time : {notANumber, -infinite, -1.0F, 0.0F, denormal}) {
        detector->SetExposureTime(time);
        EXPECT_FLOAT_EQ(detector->GetExposureTime(), detector->GetMinimumExposureTime()) << time;
    }
    expectSnap(0, panelWidth(), panelHeight());
}

TEST_P(HostileArguments, ModesOutsideTheirEnumerationsChangeNoFrame) {
    open();
    const int mode = hardware->readRegister(0, 1);
    for (const int value : {-1, 4, 13, most, least}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(detector->QueryBinningMode(bins(value == 4 ? 12 : value)), -1);
        EXPECT_EQ(detector->QueryExposureMode(ExposureModes(value)), -1);
        EXPECT_EQ(detector->QueryFullWellMode(FullWellModes(value)), -1);
        EXPECT_EQ(detector->QueryReadoutMode(ReadoutModes(value)), -1);
        EXPECT_EQ(detector->QueryTriggerSource(ExposureTriggerSource(value)), -1);
        expectFailure([&] { detector->SetTriggerSource(ExposureTriggerSource(value)); },
                      "Unsupported exposure trigger source!", DerrBadRequest, value);
        EXPECT_NO_THROW(detector->SetExposureMode(ExposureModes(value)));
        EXPECT_NO_THROW(detector->SetFullWellMode(FullWellModes(value)));
        EXPECT_NO_THROW(detector->SetReadoutMode(ReadoutModes(value)));
        EXPECT_EQ(hardware->readRegister(0, 1), mode);
        if (value == 4) continue;  // a binning
        const auto failure = failureOf([&] { detector->SetBinningMode(bins(value)); });
        EXPECT_TRUE(failure && failure->GetCode() == DerrBinning);
        detector->SetBinningMode(Bin1x1);
    }
    expectSnap(0, panelWidth(), panelHeight());
}

TEST_P(HostileArguments, FrequenciesThatAreNoneLeaveTheTriggerToTheNextDisable) {
    open();
    for (const float frequency : {notANumber, infinite, -infinite, largest, 0.0F, -1.0F, denormal, 501.0F}) {
        SCOPED_TRACE(frequency);
        const auto failure = failureOf([&] { detector->EnablePulseGenerator(frequency); });
        EXPECT_TRUE(failure && failure->GetCode() == DerrBadRequest);
        EXPECT_NO_THROW(detector->DisablePulseGenerator());
    }
    expectSnap(0, panelWidth(), panelHeight());
}

TEST_P(HostileArguments, OpensThatCannotBeLeaveTheObjectUsable) {
    for (const int count : {0, -1, least}) {
        const auto failure = failureOf([&] { detector->OpenBoard(count); });
        EXPECT_TRUE(failure && failure->GetCode() == DerrBadRequest) << count;
    }
    if (!underSanitizer || !road.isGigE()) {
        const auto failure = failureOf([&] { detector->OpenBoard(most); });
        EXPECT_TRUE(failure && failure->GetCode() == DerrResources);
    }
    expectWorks();

    const std::string endless(100000, 'a');
    std::vector<std::unique_ptr<QuorinDetector>> nobodys;
    for (const char* address : {static_cast<const char*>(nullptr), "", "sim:", "sim:6112#", endless.c_str()})
        if (road.isGigE()) nobodys.push_back(std::make_unique<QuorinDetector>(TransportGE, least, address));
    for (const int unit : {-1, most, least})
        if (!road.isGigE()) nobodys.push_back(std::make_unique<QuorinDetector>(TransportCL, unit, nullptr));
    DevInfo brimful{};
    std::memset(static_cast<void*>(&brimful), 'p', sizeof(brimful));
    brimful.iface = road.transport;
    brimful.grabberFlag = road.isGigE() ? 0 : 1;
    nobodys.push_back(std::make_unique<QuorinDetector>(brimful));
    for (const auto& nobody : nobodys) {
        const auto refusal = failureOf([&] { nobody->OpenBoard(); });
        EXPECT_TRUE(refusal && refusal->GetCode() == (road.isGigE() ? DerrTransport : DerrGrabberSetup));
        EXPECT_FALSE(nobody->IsConnected());
    }
    for (const int transport : {-1, 2, most, least})
        expectFailure([&] { QuorinDetector none(DetectorInterface(transport), 0, nullptr); },
                      "Unsupported transport type", DerrBadRequest);
    for (const int flag : {-1, 2, most, least}) {
        brimful.grabberFlag = flag;
        expectFailure([&] { QuorinDetector none(brimful); }, "Unsupported transport type", DerrBadRequest);
    }
}

INSTANTIATE_TEST_SUITE_P(Road, Hostile, testing::ValuesIn(support::roads({"5101-kestrane"})),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Road, HostileConditions,
                         testing::Values(support::Road{TransportGE, "5101-kestrane"},
                                         support::Road{TransportCL, "6112-kestrane"}),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Road, HostileArguments, testing::ValuesIn(support::roads({"6112-kestrane"})),
                         testing::PrintToStringParamName());
