#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <limits>
#include <tuple>

#include "support/SettingsRig.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::SettingsCore;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Settings : public support::SettingsTest {};

using Core = SettingsCore;
using Registers = std::map<int, int>;
using Change = std::function<void(Core&)>;

enum Electronics { Plain, Kestrane };
enum Timing { Stale, Fresh };  ///< whether the setting works the readout time out afresh

template <auto operation, class... Values>
Change call(Values... values) {
    return [=](Core& core) { (core.*operation)(values...); };
}

/// A change of a setting, and whether its getter tells the new value.
struct Step {
    Change change;
    std::function<bool(Core&)> isTold;
};
template <auto setter, auto getter, class Value>
Step kept(Value value) {
    return {call<setter>(value), [=](Core& core) { return (core.*getter)() == value; }};
}
/// Sets what the getter doesn't tell: a value without a name, a setting that the electronics lack.
template <auto setter, class Value>
Step untold(Value value) {
    return {call<setter>(value), [](Core&) { return true; }};
}

constexpr auto testMode = kept<&Core::SetTestMode, &Core::GetTestMode, bool>;
constexpr auto crossTalk = kept<&Core::ToggleOnBoardXTalkCorrection, &Core::GetOnBoardXTalkCorrectionState, bool>;
constexpr auto linear = kept<&Core::ToggleOnBoardLinearization, &Core::GetOnBoardLinearizationState, bool>;
constexpr auto exposure = kept<&Core::SetExposureMode, &Core::GetExposureMode, ExposureModes>;
constexpr auto trigger = kept<&Core::SetTriggerSource, &Core::GetTriggerSource, ExposureTriggerSource>;
constexpr auto fullWell = kept<&Core::SetFullWellMode, &Core::GetFullWellMode, FullWellModes>;
constexpr auto readout = kept<&Core::SetReadoutMode, &Core::GetReadoutMode, ReadoutModes>;
constexpr auto counter = kept<&Core::SetPixelFrameCounter, &Core::IsPixelFrameCounterEnabled, bool>;
constexpr auto slices = kept<&Core::SetSliceInterlacing, &Core::GetSliceInterlacing, bool>;
constexpr auto legacy = kept<&Core::SetLegacyTiming, &Core::IsLegacyTimingEnabled, bool>;

struct BitCase {
    Electronics electronics;
    Timing timing;
    Registers before;
    Registers written;  ///< past the exposure window
    Step step;
};

const BitCase bitCases[] = {
    {Plain, Stale, {{0, 0xFFFE}}, {{0, 0xFFFF}}, testMode(true)},
    {Plain, Stale, {{0, 0xFFFF}}, {{0, 0xFFFE}}, testMode(false)},
    {Plain, Stale, {{0, 1}}, {{0, 0x4001}}, crossTalk(true)},
    {Plain, Stale, {{0, 0xFFFF}}, {{0, 0xBFFF}}, crossTalk(false)},
    {Plain, Stale, {{1, 0xFFFF}}, {{1, 0xFFFB}}, linear(true)},
    {Plain, Stale, {{1, 0xFF00}}, {{1, 0xFF04}}, linear(false)},
    {Plain, Fresh, {{0, 0xFFE7}}, {{0, 0xCFFF}}, exposure(ExposureBits3And4)},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xCFF7}}, exposure(ExposureBitsClear)},
    {Plain, Fresh, {{0, 0xDFFF}}, {{0, 0xEFF7}}, exposure(ExposureBit13)},
    {Plain, Fresh, {{0, 0x2018}}, {{0, 0x1010}}, exposure(ExposureBit12)},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xFFFF}}, untold<&Core::SetExposureMode>(ExposureModes{4})},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xFE7F}}, trigger(TriggerBits5And6)},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xFE1F}}, trigger(TriggerBitsClear)},
    {Plain, Fresh, {{0, 0x0140}}, {{0, 0x00A0}}, trigger(TriggerBits5And7)},
    {Plain, Stale, {{3, 0xFFFF}}, {{3, 0xFFFB}, {5, 514}}, fullWell(FullWellBit2Clear)},
    {Plain, Stale, {{3, 0x1C0}}, {{3, 0x1C4}, {5, 514}}, fullWell(FullWellBit2Set)},
    {Plain, Stale, {{3, 0xFFFF}}, {{5, 514}}, untold<&Core::SetFullWellMode>(FullWellModes{2})},
    {Plain, Fresh, {{1, 0xFF00}}, {{1, 0xFF08}}, readout(ReadoutBit3Set)},
    {Plain, Fresh, {{1, 0xFFFF}}, {{1, 0xFFF7}}, readout(ReadoutBit3Clear)},
    {Plain, Fresh, {{1, 0xFFFF}}, {{1, 0xFFF7}}, untold<&Core::SetReadoutMode>(ReadoutModes{7})},
    {Kestrane, Stale, {{1, 0xFF00}}, {{1, 0xFF80}}, counter(true)},
    {Kestrane, Stale, {{1, 0xFFFF}}, {{1, 0x7F}}, counter(false)},
    {Plain, Stale, {{1, 0xFFFF}}, {}, counter(false)},
    {Kestrane, Stale, {{401, 0xFFFF}, {1, 10}}, {{401, 0xFE}, {1, 10}}, slices(true)},
    {Kestrane, Stale, {{401, 0xFF00}, {1, 74}}, {{401, 0xFF01}, {1, 74}}, slices(false)},
    {Plain, Stale, {{401, 0xFFFF}}, {}, slices(true)},
    {Kestrane, Fresh, {{401, 0xFFFF}, {1, 10}}, {{401, 0xF7}, {1, 10}}, legacy(true)},
    {Kestrane, Fresh, {{401, 0xFF00}, {1, 74}}, {{401, 0xFF08}, {1, 74}}, legacy(false)},
    {Plain, Stale, {{401, 0xFFFF}}, {}, untold<&Core::SetLegacyTiming>(true)},
};

}  // namespace

TEST_F(Settings, TouchTheirBitsAndNoOthersAndAreReadFromThem) {
    constexpr float staleReadoutMs = 1.25F;
    for (const BitCase& test : bitCases) {
        const std::string row = "row " + std::to_string(&test - bitCases);
        Core& core = test.electronics == Plain ? plain : kestrane;
        core.line.commands.clear();
        core.readoutTime = staleReadoutMs;
        core.exposureTime = 500.0F;
        core.cachedROIEnabled.reset();
        for (const auto& [reg, value] : test.before) core.line.registers[reg] = value;
        test.step.change(core);
        EXPECT_EQ(written(core), test.written) << row;
        EXPECT_TRUE(test.step.isTold(core)) << row;
        const float fresh = test.electronics == Plain ? 37.78F : Core::newReadoutMs;
        EXPECT_FLOAT_EQ(core.readoutTime, test.timing == Fresh ? fresh : staleReadoutMs) << row;
        EXPECT_TRUE(core.transportCalls.empty()) << row;
    }
}

TEST_F(Settings, BinningKeepsOtherBitsAndItsOrderBetweenPrepareAndUpdate) {
    std::vector<platform::Time> writeTimes;
    kestrane.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare")) << command;
        if (command.front() == 'W') writeTimes.push_back(clock.now());
        return {};
    };
    kestrane.line.registers[3] = kestrane.line.registers[1] = 0xFFFF;
    kestrane.SetBinningMode(Bin4x4Flagged);
    std::vector<std::string> writes = kestrane.line.writes();
    ASSERT_GE(writes.size(), 5U);
    writes.resize(5);
    EXPECT_THAT(writes, ElementsAre("W001000001", "W000900001", "W0003" + std::to_string(0xFE3F | 0x140),
                                    "W0001" + std::to_string(0xFFED | 0x10), "W000500514"));
    for (std::size_t i = 1; i < 5; ++i)
        EXPECT_GE(writeTimes[i] - writeTimes[i - 1], std::chrono::milliseconds(1)) << "write " << i;
    EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare", "Update"));
    EXPECT_EQ(kestrane.binningMode.get(), Bin4x4Flagged);
}

TEST_F(Settings, BinningThatIsNoneOrHasNoTimesIsRefused) {
    for (const int mode : {0, 12, -1}) {
        kestrane.line.commands.clear();
        kestrane.line.registers[1] = 0xFF;
        kestrane.line.registers[3] = 0xFFFF;
        kestrane.SetBinningMode(static_cast<bins>(mode));
        EXPECT_EQ(written(kestrane), mode == 0 ? (Registers{{1, 0xED}}) : (Registers{{1, 0xED}, {5, 514}})) << mode;
        EXPECT_EQ(kestrane.binningMode.get(), mode);
        expectFailure([&] { kestrane.GetBufferXdim(); }, "Invalid Binning Mode!", DerrBinning);
    }
    const auto failure = expectFailure([&] { plain.SetBinningMode(Bin1x2); },
                                       "There is no readout time stored for these detector settings.", DerrBadRequest);
    EXPECT_THAT(failure->what(), HasSubstr("through baseDetector::CheckBin, baseDetector::SetBinningMode)"));
    plain.line.registers[3] = -7;
    expectFailure([&] { plain.SetBinningMode(Bin2x2); }, "Problem reading detector register!", DerrBadRequest, -7);
    EXPECT_TRUE(plain.line.writes().empty());
    EXPECT_THAT(plain.transportCalls, ElementsAre("Prepare", "Prepare"));
    EXPECT_FALSE(plain.binningMode.get());
}

TEST_F(Settings, BinningIsReadFromItsRegisters) {
    /// Registers 10, 9, 1 and 3, the mode, and the mode for a detector that lacks `Bin4x4Flagged`.
    const std::vector<std::tuple<int, int, int, int, bins, bins>> cases{
        {1, 2, 0, 0, Bin1x2, Bin1x2},
        {2, 4, 0, 0, Bin2x4, Bin2x4},
        {4, 1, 0xFFED, 0xFFFF, Bin4x1, Bin4x1},
        {2, 3, 0, 0, Bin1x1, Bin1x1},
        {1, 1, 0x12, 0x140, Bin2x2Flagged, Bin2x2Flagged},
        {1, 1, 0x10, 0x40, Bin4x4Flagged, Bin1x1},
        {2, 2, 0x10, 0x100, Bin4x4Flagged, Bin2x2},
        {1, 2, 0x10, 0xFEBF, Bin1x2, Bin1x2}};
    for (const auto& [column, row, control, code, expected, withoutFlagged] : cases) {
        for (Core* core : {&kestrane, &plain}) {
            auto& registers = core->line.registers;
            std::tie(registers[10], registers[9], registers[1], registers[3]) = std::tie(column, row, control, code);
        }
        EXPECT_EQ(kestrane.GetBinningMode(), expected);
        EXPECT_EQ(plain.GetBinningMode(), withoutFlagged);
        EXPECT_EQ(plain.binningMode.get(), withoutFlagged);
    }
}

// The old minimum is 16 + 0.5 ms, the new one 12 ms; each setting has its own idea of what "at the minimum" is.
TEST_F(Settings, ExposureAtTheMinimumStaysThereAndAnyOtherStaysWhatItIs) {
    const Change binning = call<&Core::SetBinningMode>(Bin2x2);
    const Change noLegacy = call<&Core::SetLegacyTiming>(false);
    const Change mode = call<&Core::SetExposureMode>(ExposureBit12);
    const Change region = [](Core& core) { core.SetROIArea(3072, 128); };
    const Change regionOn = call<&Core::SetROIEnabled>(true);
    const Change regionOff = call<&Core::SetROIEnabled>(false);
    constexpr float fresh = Core::newReadoutMs;
    const struct {
        Change change;
        float before, after;
    } cases[] = {{binning, 16.0F, fresh},
                 {binning, 16.5F, 16.5F},
                 {binning, std::nextafter(16.0F, 17.0F), 16.0F},
                 {binning, 5.0F, fresh},
                 {noLegacy, 16.5F, fresh},
                 {noLegacy, 16.0F, 16.0F},
                 {mode, 16.0F, 16.5F},
                 {mode, 100.0F, 100.0F},
                 {noLegacy, std::nextafter(16.5F, 17.0F), 16.5F},
                 {region, 16.5F, fresh},
                 {region, 16.0F, 16.0F},
                 {region, 5.0F, fresh},
                 {regionOn, 16.5F, fresh},
                 {regionOn, 16.0F, 16.0F},
                 {regionOff, 16.5F, fresh},
                 {regionOff, 100.0F, 100.0F},
                 {call<&Core::SetTriggerSource>(TriggerBits5And6), 100.0F, 100.0F},
                 {call<&Core::SetReadoutMode>(ReadoutBit3Set), 5.0F, 5.0F}};
    for (const auto& test : cases) {
        kestrane.line.registers[1] = &test - cases >= 14 ? 0x40 : 0;
        for (const auto& [reg, value] : Registers{{402, 0}, {403, 864}, {404, 0}, {405, 1536}})
            kestrane.line.registers[reg] = value;
        kestrane.readoutTime = 16.0F;
        kestrane.minimumExposureWindow = 0.5F;
        kestrane.exposureTime = test.before;
        test.change(kestrane);
        EXPECT_NEAR(*kestrane.exposureTime.get(), test.after, 0.006F) << &test - cases;
        EXPECT_FLOAT_EQ(kestrane.readoutTime, Core::newReadoutMs);
    }
    const std::pair<Change, int> windows[] = {// by the old readout time, and by the new one
                                              {mode, 10000 - 1600},
                                              {binning, 10000 - 1200},
                                              {call<&Core::SetLegacyTiming>(true), 10000 - 1200}};
    kestrane.line.registers[1] = 0;
    for (const auto& [change, windowCount] : windows) {
        kestrane.readoutTime = 16.0F;
        kestrane.exposureTime = 100.0F;
        change(kestrane);
        EXPECT_EQ(kestrane.line.registers[11], windowCount);
    }
}

TEST_F(Settings, GapTimeIncludesTheReadoutTimeAndHasALimitPerElectronics) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    constexpr int huge = 2147483520;
    constexpr int refused = -1;
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    /// Time, counts of the plain and the Kestrane detector, transport error of a refusal.
    const std::vector<std::tuple<float, int, int, int>> cases{
        {1676.0F, 16382, 16382, 0},        {1676.05F, 16383, 16383, 0}, {1676.17F, refused, 16384, 1638},
        {6591.4F, refused, refused, 6553}, {37.82F, 0, 0, 0},           {37.84F, 1, 1, 0},
        {inf, refused, refused, huge},     {nan, refused, refused, 0}};
    for (const auto& [time, plainCount, kestraneCount, transportError] : cases) {
        for (Core* core : {&plain, &kestrane}) {
            const int count = core == &plain ? plainCount : kestraneCount;
            core->readoutTime = 37.78F;
            core->line.commands.clear();
            const auto change = [core, gap = time] { core->SetGapTime(gap); };
            if (count == refused)
                expectFailure(change, "Gap time must be a positive number and be must be less than 1639ms!",
                              DerrBadRequest, transportError);
            else
                EXPECT_NO_THROW(change()) << time;
            EXPECT_EQ(written(*core), count == refused ? Registers{} : (Registers{{18, count}})) << time;
        }
    }
    plain.line.registers[18] = 105;
    EXPECT_FLOAT_EQ(plain.GetGapTime(), 10.5F + 37.78F);
    plain.line.registers[18] = -3;
    expectFailure([&] { plain.GetGapTime(); }, "Problem reading exposure time!", DerrTransport, -3);
}

TEST_F(Settings, PreProgrammedTimesFillAllFourWindowsAndSetTheirCount) {
    plain.readoutTime = 37.78F;
    plain.minimumExposureWindow = 32.89F;
    const std::vector<float> times{100.0F, 1037.78F, 0.0F, 200.0F};
    const Registers windows{{27, 6222}, {28, 0}, {29, 34464}, {30, 1}, {31, 3289}, {32, 0}, {34, 0}};
    for (const int count : {2, 3, 4}) {
        for (const bool again : {false, true}) {
            plain.line.commands.clear();
            plain.SetPreProgrammedExposureTimes(times.data(), static_cast<std::size_t>(count));
            Registers expected = windows;
            expected[33] = count == 4 ? 16222 : 3289;
            if (!again) expected[17] = count;  // then it is known to stand
            EXPECT_EQ(written(plain), expected);
        }
    }
    plain.line.commands.clear();
    const std::vector<float> many(10, 100.0F);
    for (const int count : {0, 1, 5, 10}) {
        const char* const text =
            "Invalid number of exposures. In pre-programmed exposure mode, number of exposures should be between 2 and "
            "4.";
        expectFailure([&] { plain.SetPreProgrammedExposureTimes(many.data(), static_cast<std::size_t>(count)); }, text,
                      DerrBadRequest, count);
        expectFailure(
            [&] {
                plain.SetPreProgrammedExposureTimes({many.begin(), many.begin() + count});
            },
            text, DerrBadRequest, count);
    }
    EXPECT_TRUE(plain.line.commands.empty());

    plain.line.registers = {{27, 6222}, {28, 0}, {29, 34464}, {30, 1}, {31, 65535}, {32, 65535}, {33, 50}, {34, 0}};
    EXPECT_EQ(plain.GetPreProgrammedExposureTimes(nullptr, 0), 4);
    float read[5] = {9, 9, 9, 9, 9};
    expectFailure([&] { plain.GetPreProgrammedExposureTimes(read, 3); },
                  "Cannot get pre-programmed exposure times: target array must be size 4 or greater", DerrBadRequest);
    EXPECT_TRUE(plain.line.commands.empty());
    EXPECT_EQ(plain.GetPreProgrammedExposureTimes(read, 5), 4);
    EXPECT_THAT(read, testing::Pointwise(testing::FloatEq(), {100.0F, 1037.78F, 37.77F, 38.28F, 9.0F}))
        << "signed counts plus the readout time";
}

TEST_F(Settings, ImpossibleValuesAreRefusedBeforeAnythingIsWritten) {
    for (const int count : {0, -1, 65536})
        expectFailure([&] { plain.SetNumOfExposures(count); },
                      "Invalid number of exposures! Number of exposures must be an integer value between (1-65535).",
                      DerrBadRequest, count);
    EXPECT_TRUE(plain.line.commands.empty());
    for (const int source : {-1, 3}) {
        const auto failure = expectFailure([&] { plain.SetTriggerSource(static_cast<ExposureTriggerSource>(source)); },
                                           "Unsupported exposure trigger source!", DerrBadRequest, source);
        EXPECT_STREQ(failure->GetFunctionName(), "baseDetector::SetTriggerSource");
    }
    EXPECT_THAT(plain.line.commands, testing::Contains("R1000").Times(2));
    kestrane.line.registers[1] = 0x40;
    expectFailure([&] { kestrane.SetSliceInterlacing(true); }, "Cannot enable slice interlacing when ROI is enabled.",
                  DerrBadRequest);
    expectFailure([&] { kestrane.SetLegacyTiming(true); }, "Cannot enable legacy timing when ROI is enabled.",
                  DerrBadRequest);
    for (const Core* core : {&plain, &kestrane}) EXPECT_TRUE(core->line.writes().empty());
    EXPECT_NO_THROW(kestrane.SetLegacyTiming(false));
    for (const int count : {1, 65535}) {
        plain.SetNumOfExposures(count);
        EXPECT_EQ(plain.line.writes().back(), count == 1 ? "W001700001" : "W001765535");
        EXPECT_EQ(plain.numOfExposures.get(), count);
        EXPECT_EQ(plain.GetNumOfExposures(), count);
    }
}

namespace {

using Named = std::pair<std::string, Change>;

template <auto operation, class... Values>
Named named(const char* name, Values... values) {
    return {name, call<operation>(values...)};
}

}  // namespace

TEST_F(Settings, NameTheirLayerOnADeadLineButForSomeThatPassItThrough) {
    const Named layers[] = {named<&Core::SetBinningMode>("SetBinningMode", Bin2x2),
                            named<&Core::GetBinningMode>("GetBinningMode"),
                            named<&Core::SetExposureMode>("SetExposureMode", ExposureBit12),
                            named<&Core::GetExposureMode>("GetExposureMode"),
                            named<&Core::SetTriggerSource>("SetTriggerSource", TriggerBitsClear),
                            named<&Core::GetTriggerSource>("GetTriggerSource"),
                            named<&Core::SetFullWellMode>("SetFullWellMode", FullWellBit2Set),
                            named<&Core::GetFullWellMode>("GetFullWellMode"),
                            named<&Core::SetReadoutMode>("SetReadoutMode", ReadoutBit3Set),
                            named<&Core::GetReadoutMode>("GetReadoutMode"),
                            named<&Core::SetGapTime>("SetGapTime", 100.0F),
                            named<&Core::GetGapTime>("GetGapTime"),
                            named<&Core::SetNumOfExposures>("SetNumOfExposures", 2),
                            named<&Core::GetNumOfExposures>("GetNumOfExposures"),
                            named<&Core::GetSliceInterlacing>("GetSliceInterlacing"),
                            named<&Core::IsLegacyTimingEnabled>("IsLegacyTimingEnabled"),
                            named<&Core::SetTestMode>("SetTestMode", true),
                            named<&Core::GetTestMode>("GetTestMode"),
                            named<&Core::IsPixelFrameCounterEnabled>("IsPixelFrameCounterEnabled"),
                            named<&Core::ToggleOnBoardLinearization>("ToggleOnBoardLinearization", true),
                            named<&Core::GetOnBoardLinearizationState>("GetOnBoardLinearizationState"),
                            named<&Core::ToggleOnBoardXTalkCorrection>("ToggleOnBoardXTalkCorrection", true),
                            named<&Core::GetOnBoardXTalkCorrectionState>("GetOnBoardXTalkCorrectionState"),
                            Named("GetPreProgrammedExposureTimes", [](Core& d) { d.GetPreProgrammedExposureTimes(); })};
    const Named passing[] = {named<&Core::SetSliceInterlacing>("SetSliceInterlacing", true),
                             named<&Core::SetLegacyTiming>("SetLegacyTiming", true),
                             named<&Core::SetPixelFrameCounter>("SetPixelFrameCounter", true),
                             Named("SetPreProgrammedExposureTimes", [](Core& d) {
                                 d.SetPreProgrammedExposureTimes({1.0F, 2.0F});
                             })};
    const SilentAt everything(kestrane, "");
    const auto namesItself = [this](const Named& operation) {
        const auto failure = support::failureOf([&] { operation.second(kestrane); });
        return failure && std::string(failure->what()).find(", baseDetector::" + operation.first) != std::string::npos;
    };
    for (const Named& operation : layers) EXPECT_TRUE(namesItself(operation)) << operation.first;
    for (const Named& operation : passing) EXPECT_FALSE(namesItself(operation)) << operation.first;
}
