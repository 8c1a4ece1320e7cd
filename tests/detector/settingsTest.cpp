#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <limits>

#include "support/SettingsRig.h"
#include "support/expectFailure.h"

using support::expectFailure;
using support::SettingsCore;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Settings : public support::SettingsTest {};

using Registers = std::map<int, int>;
using Change = void (*)(SettingsCore&);

enum Electronics { Plain, Kestrane };
enum Timing { Stale, Fresh };  ///< whether the setting works the readout time out afresh

struct BitCase {
    Electronics electronics;
    Timing timing;
    Registers before;
    Registers written;  ///< past the exposure window
    Change change;
};

const BitCase bitCases[] = {
    {Plain, Stale, {{0, 0xFFFE}}, {{0, 0xFFFF}}, [](auto& d) { d.SetTestMode(true); }},
    {Plain, Stale, {{0, 0xFFFF}}, {{0, 0xFFFE}}, [](auto& d) { d.SetTestMode(false); }},
    {Plain, Stale, {{0, 1}}, {{0, 0x4001}}, [](auto& d) { d.ToggleOnBoardXTalkCorrection(true); }},
    {Plain, Stale, {{0, 0xFFFF}}, {{0, 0xBFFF}}, [](auto& d) { d.ToggleOnBoardXTalkCorrection(false); }},
    {Plain, Stale, {{1, 0xFFFF}}, {{1, 0xFFFB}}, [](auto& d) { d.ToggleOnBoardLinearization(true); }},
    {Plain, Stale, {{1, 0xFF00}}, {{1, 0xFF04}}, [](auto& d) { d.ToggleOnBoardLinearization(false); }},
    {Plain, Fresh, {{0, 0xFFE7}}, {{0, 0xCFFF}}, [](auto& d) { d.SetExposureMode(ExposureBits3And4); }},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xCFF7}}, [](auto& d) { d.SetExposureMode(ExposureBitsClear); }},
    {Plain, Fresh, {{0, 0xDFFF}}, {{0, 0xEFF7}}, [](auto& d) { d.SetExposureMode(ExposureBit13); }},
    {Plain, Fresh, {{0, 0x2018}}, {{0, 0x1010}}, [](auto& d) { d.SetExposureMode(ExposureBit12); }},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xFFFF}}, [](auto& d) { d.SetExposureMode(ExposureModes{4}); }},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xFE7F}}, [](auto& d) { d.SetTriggerSource(TriggerBits5And6); }},
    {Plain, Fresh, {{0, 0xFFFF}}, {{0, 0xFE1F}}, [](auto& d) { d.SetTriggerSource(TriggerBitsClear); }},
    {Plain, Fresh, {{0, 0x0140}}, {{0, 0x00A0}}, [](auto& d) { d.SetTriggerSource(TriggerBits5And7); }},
    {Plain, Stale, {{3, 0xFFFF}}, {{3, 0xFFFB}, {5, 514}}, [](auto& d) { d.SetFullWellMode(FullWellBit2Clear); }},
    {Plain, Stale, {{3, 0x1C0}}, {{3, 0x1C4}, {5, 514}}, [](auto& d) { d.SetFullWellMode(FullWellBit2Set); }},
    {Plain, Stale, {{3, 0xFFFF}}, {{5, 514}}, [](auto& d) { d.SetFullWellMode(FullWellModes{2}); }},
    {Plain, Fresh, {{1, 0xFF00}}, {{1, 0xFF08}}, [](auto& d) { d.SetReadoutMode(ReadoutBit3Set); }},
    {Plain, Fresh, {{1, 0xFFFF}}, {{1, 0xFFF7}}, [](auto& d) { d.SetReadoutMode(ReadoutModes{7}); }},
    {Kestrane, Stale, {{1, 0xFF00}}, {{1, 0xFF80}}, [](auto& d) { d.SetPixelFrameCounter(true); }},
    {Kestrane, Stale, {{1, 0xFFFF}}, {{1, 0x7F}}, [](auto& d) { d.SetPixelFrameCounter(false); }},
    {Plain, Stale, {{1, 0xFFFF}}, {}, [](auto& d) { d.SetPixelFrameCounter(false); }},
    {Kestrane, Stale, {{401, 0xFFFF}, {1, 10}}, {{401, 0xFE}, {1, 10}}, [](auto& d) { d.SetSliceInterlacing(true); }},
    {Kestrane,
     Stale,
     {{401, 0xFF00}, {1, 74}},
     {{401, 0xFF01}, {1, 74}},
     [](auto& d) { d.SetSliceInterlacing(false); }},
    {Plain, Stale, {{401, 0xFFFF}}, {}, [](auto& d) { d.SetSliceInterlacing(true); }},
    {Kestrane, Fresh, {{401, 0xFFFF}, {1, 10}}, {{401, 0xF7}, {1, 10}}, [](auto& d) { d.SetLegacyTiming(true); }},
    {Kestrane, Fresh, {{401, 0xFF00}, {1, 74}}, {{401, 0xFF08}, {1, 74}}, [](auto& d) { d.SetLegacyTiming(false); }},
    {Plain, Stale, {{401, 0xFFFF}}, {}, [](auto& d) { d.SetLegacyTiming(true); }},
};

}  // namespace

TEST_F(Settings, TouchTheirBitsAndNoOthers) {
    constexpr float staleReadoutMs = 1.25F;
    for (const BitCase& test : bitCases) {
        const std::string row = "row " + std::to_string(&test - bitCases);
        SettingsCore& core = test.electronics == Plain ? plain : kestrane;
        core.line.commands.clear();
        core.readoutTime = staleReadoutMs;
        core.exposureTime = 500.0F;
        core.cachedROIEnabled.reset();
        for (const auto& [reg, value] : test.before) core.line.registers[reg] = value;
        test.change(core);
        EXPECT_EQ(written(core), test.written) << row;
        const float fresh = test.electronics == Plain ? 37.78F : SettingsCore::newReadoutMs;
        EXPECT_FLOAT_EQ(core.readoutTime, test.timing == Fresh ? fresh : staleReadoutMs) << row;
        EXPECT_TRUE(core.transportCalls.empty()) << row;
    }
}

TEST_F(Settings, AreReadFromTheirBits) {
    const struct {
        int reg;
        int value;
        int (*get)(SettingsCore&);
        int expected;
    } cases[] = {
        {0, 0x3018, [](auto& d) { return int{d.GetExposureMode()}; }, ExposureBits3And4},
        {0, 0x3010, [](auto& d) { return int{d.GetExposureMode()}; }, ExposureBit13},
        {0, 0x1010, [](auto& d) { return int{d.GetExposureMode()}; }, ExposureBit12},
        {0, 0xCFF7, [](auto& d) { return int{d.GetExposureMode()}; }, ExposureBitsClear},
        {0, 0x01C0, [](auto& d) { return int{d.GetTriggerSource()}; }, TriggerBitsClear},
        {0, 0x0160, [](auto& d) { return int{d.GetTriggerSource()}; }, TriggerBits5And6},
        {0, 0x00E0, [](auto& d) { return int{d.GetTriggerSource()}; }, TriggerBits5And7},
        {3, 0x0004, [](auto& d) { return int{d.GetFullWellMode()}; }, FullWellBit2Set},
        {3, 0xFFFB, [](auto& d) { return int{d.GetFullWellMode()}; }, FullWellBit2Clear},
        {1, 0x0008, [](auto& d) { return int{d.GetReadoutMode()}; }, ReadoutBit3Set},
        {1, 0xFFF7, [](auto& d) { return int{d.GetReadoutMode()}; }, ReadoutBit3Clear},
        {0, 0x0001, [](auto& d) { return int{d.GetTestMode()}; }, 1},
        {0, 0xFFFE, [](auto& d) { return int{d.GetTestMode()}; }, 0},
        {0, 0x4000, [](auto& d) { return int{d.GetOnBoardXTalkCorrectionState()}; }, 1},
        {0, 0xBFFF, [](auto& d) { return int{d.GetOnBoardXTalkCorrectionState()}; }, 0},
        {1, 0xFFFB, [](auto& d) { return int{d.GetOnBoardLinearizationState()}; }, 1},
        {1, 0x0004, [](auto& d) { return int{d.GetOnBoardLinearizationState()}; }, 0},
        {1, 0x0080, [](auto& d) { return int{d.IsPixelFrameCounterEnabled()}; }, 1},
        {1, 0xFF7F, [](auto& d) { return int{d.IsPixelFrameCounterEnabled()}; }, 0},
        {401, 0xFFFE, [](auto& d) { return int{d.GetSliceInterlacing()}; }, 1},
        {401, 0x0001, [](auto& d) { return int{d.GetSliceInterlacing()}; }, 0},
        {401, 0xFFF7, [](auto& d) { return int{d.IsLegacyTimingEnabled()}; }, 1},
        {401, 0x0008, [](auto& d) { return int{d.IsLegacyTimingEnabled()}; }, 0},
        {17, 65535, [](auto& d) { return int{d.GetNumOfExposures()}; }, 65535},
    };
    for (const auto& test : cases) {
        kestrane.line.registers[test.reg] = test.value;
        EXPECT_EQ(test.get(kestrane), test.expected) << test.reg << " " << test.value;
    }
    EXPECT_TRUE(kestrane.line.writes().empty());
    plain.line.registers[1] = 0x80;
    EXPECT_FALSE(plain.IsPixelFrameCounterEnabled());
    EXPECT_FALSE(plain.IsLegacyTimingEnabled());
    EXPECT_TRUE(plain.GetSliceInterlacing()) << "without the capability";
}

TEST_F(Settings, CachedOnesAreReadOnceAndFollowTheSetters) {
    kestrane.line.registers[401] = 0x9;
    kestrane.line.registers[1] = 8;
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(kestrane.GetCachedLegacyTiming());
        EXPECT_EQ(kestrane.GetCachedSliceInterlacing(), 0);
        EXPECT_EQ(kestrane.GetCachedReadoutMode(), ReadoutBit3Set);
        kestrane.line.registers[401] = 0;
        kestrane.line.registers[1] = 0;
    }
    EXPECT_THAT(kestrane.line.commands, testing::IsSupersetOf({"R1401", "R1001"}));
    kestrane.SetLegacyTiming(true);
    kestrane.SetSliceInterlacing(true);
    kestrane.SetReadoutMode(ReadoutBit3Clear);
    EXPECT_TRUE(kestrane.GetCachedLegacyTiming());
    EXPECT_EQ(kestrane.GetCachedSliceInterlacing(), 1);
    EXPECT_EQ(kestrane.GetCachedReadoutMode(), ReadoutBit3Clear);

    // A failure in the middle leaves in each cache what had been reached.
    {
        const SilentAt rewrite(kestrane, "W0001");
        EXPECT_TRUE(support::failureOf([&] { kestrane.SetSliceInterlacing(false); }));
        EXPECT_TRUE(support::failureOf([&] { kestrane.SetLegacyTiming(false); }));
    }
    {
        const SilentAt poll(kestrane, "R1410");
        EXPECT_TRUE(support::failureOf([&] { kestrane.SetReadoutMode(ReadoutBit3Set); }));
    }
    EXPECT_EQ(kestrane.GetCachedSliceInterlacing(), 0);
    EXPECT_TRUE(kestrane.GetCachedLegacyTiming());
    EXPECT_EQ(kestrane.GetCachedReadoutMode(), ReadoutBit3Clear);
}

TEST_F(Settings, BinningWritesItsFiveRegistersInOrderBetweenPrepareAndUpdate) {
    const struct {
        bins mode;
        const char* column;
        const char* row;
        int code;
        int flags;
    } cases[] = {
        {Bin1x1, "W001000001", "W000900001", 0, 0},
        {Bin1x2, "W001000001", "W000900002", 0, 0},
        {Bin1x4, "W001000001", "W000900004", 0x40, 0},
        {Bin2x1, "W001000002", "W000900001", 0x80, 0},
        {Bin2x2, "W001000002", "W000900002", 0x80, 0},
        {Bin2x4, "W001000002", "W000900004", 0xC0, 0},
        {Bin4x1, "W001000004", "W000900001", 0x100, 0},
        {Bin4x2, "W001000004", "W000900002", 0x100, 0},
        {Bin4x4, "W001000004", "W000900004", 0x140, 0},
        {Bin2x2Flagged, "W001000001", "W000900001", 0, 2},
        {Bin4x4Flagged, "W001000001", "W000900001", 0x140, 0x10},
    };
    std::vector<platform::Time> writeTimes;
    kestrane.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare")) << command;
        if (command.front() == 'W') writeTimes.push_back(clock.now());
        return {};
    };
    for (const auto& test : cases) {
        kestrane.line.registers[3] = 0xFFFF;
        kestrane.line.registers[1] = 0xFFFF;
        kestrane.line.commands.clear();
        kestrane.transportCalls.clear();
        kestrane.exposureTime.reset();
        writeTimes.clear();
        kestrane.SetBinningMode(test.mode);
        std::vector<std::string> writes = kestrane.line.writes();
        ASSERT_GE(writes.size(), 5U);
        writes.resize(5);
        EXPECT_THAT(writes, ElementsAre(test.column, test.row, "W0003" + std::to_string(0xFE3F | test.code),
                                        "W0001" + std::to_string(0xFFED | test.flags), "W000500514"));
        for (std::size_t i = 1; i < 5; ++i)
            EXPECT_GE(writeTimes[i] - writeTimes[i - 1], std::chrono::milliseconds(1)) << test.mode << " write " << i;
        EXPECT_THAT(kestrane.transportCalls, ElementsAre("Prepare", "Update"));
        EXPECT_EQ(kestrane.binningMode.get(), test.mode);
    }
}

TEST_F(Settings, BinningOfModel5204SettlesBeforeItsReadoutTimeIsAsked) {
    SettingsCore slow(5204, 0);
    slow.UpdateFeaturesFlags();
    slow.line.registers[410] = 8000;
    platform::Time taken{};
    platform::Time asked{};
    slow.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (command == "W000500514") taken = clock.now();
        if (command == "R1410" && asked == platform::Time{}) asked = clock.now();
        return {};
    };
    slow.SetBinningMode(Bin2x2);
    EXPECT_GE(asked - taken, std::chrono::milliseconds(82));
}

TEST_F(Settings, BinningThatIsNoneIsWrittenAsFarAsItsRegistersGoAndRefusedByTheGeometry) {
    for (const int mode : {0, 12, -1}) {
        kestrane.line.commands.clear();
        kestrane.line.registers[1] = 0xFF;
        kestrane.line.registers[3] = 0xFFFF;
        kestrane.SetBinningMode(static_cast<bins>(mode));
        EXPECT_EQ(written(kestrane), mode == 0 ? (Registers{{1, 0xED}}) : (Registers{{1, 0xED}, {5, 514}})) << mode;
        EXPECT_EQ(kestrane.binningMode.get(), mode);
        expectFailure([&] { kestrane.GetBufferXdim(); }, "Invalid Binning Mode!", DerrBinning);
    }
}

TEST_F(Settings, RefusedBinningWritesNothingAndDoesNotUpdateTheInterface) {
    const auto failure = expectFailure([&] { plain.SetBinningMode(Bin1x2); },
                                       "There is no readout time stored for these detector settings.", DerrBadRequest);
    EXPECT_THAT(failure->what(), HasSubstr("through baseDetector::CheckBin, baseDetector::SetBinningMode)"));
    for (const int reg : {3, 1}) {
        plain.line.registers[reg] = -7;
        expectFailure([&] { plain.SetBinningMode(Bin2x2); }, "Problem reading detector register!", DerrBadRequest, -7);
        plain.line.registers[reg] = 0;
    }
    EXPECT_TRUE(plain.line.writes().empty());
    EXPECT_THAT(plain.transportCalls, ElementsAre("Prepare", "Prepare", "Prepare"));
    EXPECT_FALSE(plain.binningMode.get());
}

TEST_F(Settings, BinningIsReadFromItsRegisters) {
    const struct {
        Registers registers;
        bins expected;
        bins withoutFlagged4x4;
    } cases[] = {
        {{{10, 2}, {9, 4}, {1, 0}}, Bin2x4, Bin2x4},
        {{{10, 4}, {9, 1}, {1, 0xFFED}, {3, 0xFFFF}}, Bin4x1, Bin4x1},
        {{{10, 2}, {9, 3}, {1, 0}}, Bin1x1, Bin1x1},
        {{{10, 1}, {9, 1}, {1, 0x12}, {3, 0x140}}, Bin2x2Flagged, Bin2x2Flagged},
        {{{10, 1}, {9, 1}, {1, 0x10}, {3, 0x40}}, Bin4x4Flagged, Bin1x1},
        {{{10, 2}, {9, 2}, {1, 0x10}, {3, 0x100}}, Bin4x4Flagged, Bin2x2},
        {{{10, 1}, {9, 2}, {1, 0x10}, {3, 0xFEBF}}, Bin1x2, Bin1x2},
    };
    for (const auto& test : cases) {
        for (SettingsCore* core : {&kestrane, &plain})
            for (const auto& [reg, value] : test.registers) core->line.registers[reg] = value;
        EXPECT_EQ(kestrane.GetBinningMode(), test.expected);
        EXPECT_EQ(plain.GetBinningMode(), test.withoutFlagged4x4);
        EXPECT_EQ(plain.binningMode.get(), test.withoutFlagged4x4);
    }
}

// The old minimum is 16 + 0.5 ms, the new one 12 ms; each setting has its own idea of what "at the minimum" is.
TEST_F(Settings, ExposureAtTheMinimumStaysThereAndAnyOtherStaysWhatItIs) {
    const struct {
        Change change;
        float before;
        float after;
    } cases[] = {
        {[](auto& d) { d.SetBinningMode(Bin2x2); }, 16.0F, SettingsCore::newReadoutMs},
        {[](auto& d) { d.SetBinningMode(Bin2x2); }, 16.5F, 16.5F},
        {[](auto& d) { d.SetBinningMode(Bin2x2); }, std::nextafter(16.0F, 17.0F), 16.0F},
        {[](auto& d) { d.SetBinningMode(Bin2x2); }, 5.0F, SettingsCore::newReadoutMs},
        {[](auto& d) { d.SetLegacyTiming(false); }, 16.5F, SettingsCore::newReadoutMs},
        {[](auto& d) { d.SetLegacyTiming(false); }, 16.0F, 16.0F},
        {[](auto& d) { d.SetLegacyTiming(false); }, std::nextafter(16.5F, 17.0F), 16.5F},
        {[](auto& d) { d.SetExposureMode(ExposureBit12); }, 16.0F, 16.5F},
        {[](auto& d) { d.SetExposureMode(ExposureBit12); }, 100.0F, 100.0F},
        {[](auto& d) { d.SetTriggerSource(TriggerBits5And6); }, 100.0F, 100.0F},
        {[](auto& d) { d.SetReadoutMode(ReadoutBit3Set); }, 5.0F, 5.0F},
    };
    for (const auto& test : cases) {
        kestrane.readoutTime = 16.0F;
        kestrane.minimumExposureWindow = 0.5F;
        kestrane.exposureTime = test.before;
        test.change(kestrane);
        EXPECT_NEAR(*kestrane.exposureTime.get(), test.after, 0.006F) << &test - cases;
        EXPECT_FLOAT_EQ(kestrane.readoutTime, SettingsCore::newReadoutMs);
    }
}

TEST_F(Settings, ExposureIsPutRightBeforeTheUpdateByTheExposureModeAndAfterItByOthers) {
    const struct {
        Change change;
        int windowCount;
    } cases[] = {{[](auto& d) { d.SetExposureMode(ExposureBit13); }, 10000 - 1600},
                 {[](auto& d) { d.SetBinningMode(Bin2x2); }, 10000 - 1200},
                 {[](auto& d) { d.SetLegacyTiming(true); }, 10000 - 1200}};
    for (const auto& test : cases) {
        kestrane.readoutTime = 16.0F;
        kestrane.exposureTime = 100.0F;
        test.change(kestrane);
        EXPECT_EQ(kestrane.line.registers[11], test.windowCount);
    }
}

TEST_F(Settings, GapTimeIncludesTheReadoutTimeAndHasALimitPerElectronics) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    constexpr int huge = 2147483520;
    constexpr int refused = -1;
    const struct {
        float time;
        int plainCount;
        int kestraneCount;
        int transportError;  ///< of a refusal
    } cases[] = {
        {1676.0F, 16382, 16382, 0},
        {1676.05F, 16383, 16383, 0},
        {1676.17F, refused, 16384, 1638},
        {1677.0F, refused, 16392, 1639},
        {6591.28F, refused, 65535, 6553},
        {6591.4F, refused, refused, 6553},
        {37.82F, 0, 0, 0},
        {37.84F, 1, 1, 0},
        {37.0F, 0, 0, 0},
        {-1e30F, 0, 0, 0},
        {inf, refused, refused, huge},
        {std::numeric_limits<float>::quiet_NaN(), refused, refused, 0},
    };
    for (const auto& test : cases) {
        for (SettingsCore* core : {&plain, &kestrane}) {
            const int count = core == &plain ? test.plainCount : test.kestraneCount;
            core->readoutTime = 37.78F;
            core->line.commands.clear();
            const auto set = [&] { core->SetGapTime(test.time); };
            if (count == refused)
                expectFailure(set, "Gap time must be a positive number and be must be less than 1639ms!",
                              DerrBadRequest, test.transportError);
            else
                EXPECT_NO_THROW(set()) << test.time;
            EXPECT_EQ(written(*core), count == refused ? Registers{} : (Registers{{18, count}})) << test.time;
        }
    }
    plain.line.registers[18] = 105;
    EXPECT_FLOAT_EQ(plain.GetGapTime(), 10.5F + 37.78F);
    plain.line.registers[18] = -3;
    expectFailure([&] { plain.GetGapTime(); }, "Problem reading exposure time!", DerrTransport, -3);
}

TEST_F(Settings, NumberOfExposuresIsASixteenBitCountFromOne) {
    for (const int count : {0, -1, 65536})
        expectFailure([&] { plain.SetNumOfExposures(count); },
                      "Invalid number of exposures! Number of exposures must be an integer value between (1-65535).",
                      DerrBadRequest, count);
    EXPECT_TRUE(plain.line.commands.empty());
    for (const int count : {1, 65535}) {
        plain.SetNumOfExposures(count);
        EXPECT_EQ(written(plain), (Registers{{17, count}}));
        EXPECT_EQ(plain.numOfExposures.get(), count);
    }
}

TEST_F(Settings, PreProgrammedTimesFillAllFourWindowsAndSetTheirCount) {
    plain.readoutTime = 37.78F;
    plain.minimumExposureWindow = 32.89F;
    const std::vector<float> times{100.0F, 1037.78F, 0.0F, 200.0F};
    for (const std::size_t count : {std::size_t{2}, std::size_t{3}, std::size_t{4}}) {
        plain.line.commands.clear();
        plain.SetPreProgrammedExposureTimes(times.data(), count);
        EXPECT_EQ(written(plain), (Registers{{17, static_cast<int>(count)},
                                             {27, 6222},
                                             {28, 0},
                                             {29, 34464},
                                             {30, 1},
                                             {31, 3289},
                                             {32, 0},
                                             {33, count == 4 ? 16222 : 3289},
                                             {34, 0}}));
        plain.line.commands.clear();
        plain.SetPreProgrammedExposureTimes(times.data(), count);
        EXPECT_EQ(written(plain).count(17), 0U) << "the count is known to stand";
    }
    plain.line.commands.clear();
    const std::vector<float> many(10, 100.0F);
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{5}, std::size_t{10}}) {
        const char* const text =
            "Invalid number of exposures. In pre-programmed exposure mode, number of exposures should be between 2 and "
            "4.";
        const auto entries = static_cast<std::ptrdiff_t>(count);
        expectFailure([&] { plain.SetPreProgrammedExposureTimes(many.data(), count); }, text, DerrBadRequest,
                      static_cast<int>(count));
        expectFailure(
            [&] { plain.SetPreProgrammedExposureTimes(std::vector<float>(many.begin(), many.begin() + entries)); },
            text, DerrBadRequest, static_cast<int>(count));
    }
    EXPECT_TRUE(plain.line.commands.empty());
}

TEST_F(Settings, PreProgrammedTimesAreReadAsSignedCountsPlusTheReadoutTime) {
    plain.readoutTime = 37.78F;
    plain.line.registers = {{27, 6222}, {28, 0}, {29, 34464}, {30, 1}, {31, 65535}, {32, 65535}, {33, 50}, {34, 0}};
    EXPECT_EQ(plain.GetPreProgrammedExposureTimes(nullptr, 0), 4);
    float times[5] = {9, 9, 9, 9, 9};
    expectFailure([&] { plain.GetPreProgrammedExposureTimes(times, 3); },
                  "Cannot get pre-programmed exposure times: target array must be size 4 or greater", DerrBadRequest);
    EXPECT_TRUE(plain.line.commands.empty());
    EXPECT_EQ(plain.GetPreProgrammedExposureTimes(times, 5), 4);
    EXPECT_THAT(times, testing::Pointwise(testing::FloatEq(), {100.0F, 1037.78F, 37.77F, 38.28F, 9.0F}));
}

TEST_F(Settings, TriggerSourceThatIsNoneIsRefusedAfterTheRead) {
    for (const int source : {-1, 3}) {
        const auto failure = expectFailure([&] { plain.SetTriggerSource(static_cast<ExposureTriggerSource>(source)); },
                                           "Unsupported exposure trigger source!", DerrBadRequest, source);
        EXPECT_STREQ(failure->GetFunctionName(), "baseDetector::SetTriggerSource");
    }
    EXPECT_THAT(plain.line.commands, testing::Contains("R1000").Times(2));
    EXPECT_TRUE(plain.line.writes().empty());
}

TEST_F(Settings, RegionThatIsOnForbidsInterlacingAndLegacyTiming) {
    kestrane.line.registers[1] = 0x40;
    expectFailure([&] { kestrane.SetSliceInterlacing(true); }, "Cannot enable slice interlacing when ROI is enabled.",
                  DerrBadRequest);
    expectFailure([&] { kestrane.SetLegacyTiming(true); }, "Cannot enable legacy timing when ROI is enabled.",
                  DerrBadRequest);
    EXPECT_TRUE(kestrane.line.writes().empty());
    EXPECT_NO_THROW(kestrane.SetLegacyTiming(false));
}

TEST_F(Settings, AreRefusedOnAClosedBoardAndNameTheirLayerOnADeadLine) {
    const struct {
        const char* name;
        bool addsItsName;
        Change call;
    } operations[] = {
        {"SetBinningMode", true, [](auto& d) { d.SetBinningMode(Bin2x2); }},
        {"GetBinningMode", true, [](auto& d) { d.GetBinningMode(); }},
        {"SetExposureMode", true, [](auto& d) { d.SetExposureMode(ExposureBit12); }},
        {"GetExposureMode", true, [](auto& d) { d.GetExposureMode(); }},
        {"SetTriggerSource", true, [](auto& d) { d.SetTriggerSource(TriggerBitsClear); }},
        {"GetTriggerSource", true, [](auto& d) { d.GetTriggerSource(); }},
        {"SetFullWellMode", true, [](auto& d) { d.SetFullWellMode(FullWellBit2Set); }},
        {"GetFullWellMode", true, [](auto& d) { d.GetFullWellMode(); }},
        {"SetReadoutMode", true, [](auto& d) { d.SetReadoutMode(ReadoutBit3Set); }},
        {"GetReadoutMode", true, [](auto& d) { d.GetReadoutMode(); }},
        {"SetGapTime", true, [](auto& d) { d.SetGapTime(100.0F); }},
        {"GetGapTime", true, [](auto& d) { d.GetGapTime(); }},
        {"SetNumOfExposures", true, [](auto& d) { d.SetNumOfExposures(2); }},
        {"GetNumOfExposures", true, [](auto& d) { d.GetNumOfExposures(); }},
        {"SetPreProgrammedExposureTimes", false,
         [](auto& d) {
             d.SetPreProgrammedExposureTimes({1.0F, 2.0F});
         }},
        {"GetPreProgrammedExposureTimes", true, [](auto& d) { d.GetPreProgrammedExposureTimes(); }},
        {"SetSliceInterlacing", false, [](auto& d) { d.SetSliceInterlacing(true); }},
        {"GetSliceInterlacing", true, [](auto& d) { d.GetSliceInterlacing(); }},
        {"SetLegacyTiming", false, [](auto& d) { d.SetLegacyTiming(true); }},
        {"IsLegacyTimingEnabled", true, [](auto& d) { d.IsLegacyTimingEnabled(); }},
        {"SetTestMode", true, [](auto& d) { d.SetTestMode(true); }},
        {"GetTestMode", true, [](auto& d) { d.GetTestMode(); }},
        {"SetPixelFrameCounter", false, [](auto& d) { d.SetPixelFrameCounter(true); }},
        {"IsPixelFrameCounterEnabled", true, [](auto& d) { d.IsPixelFrameCounterEnabled(); }},
        {"ToggleOnBoardLinearization", true, [](auto& d) { d.ToggleOnBoardLinearization(true); }},
        {"GetOnBoardLinearizationState", true, [](auto& d) { d.GetOnBoardLinearizationState(); }},
        {"ToggleOnBoardXTalkCorrection", true, [](auto& d) { d.ToggleOnBoardXTalkCorrection(true); }},
        {"GetOnBoardXTalkCorrectionState", true, [](auto& d) { d.GetOnBoardXTalkCorrectionState(); }},
    };
    for (const auto& operation : operations) {
        kestrane.connected = true;
        std::optional<QuorinException> failure;
        {
            const SilentAt everything(kestrane, "");
            failure = support::failureOf([&] { operation.call(kestrane); });
        }
        ASSERT_TRUE(failure) << operation.name;
        EXPECT_EQ(failure->GetCode(), DerrSerialCommand) << operation.name;
        const bool named =
            std::string(failure->what()).find(std::string(", baseDetector::") + operation.name) != std::string::npos;
        EXPECT_EQ(named, operation.addsItsName) << failure->what();
        kestrane.connected = false;
        expectFailure([&] { operation.call(kestrane); },
                      "OpenBoard must be called before doing any detector operations.", DerrTransport);
    }
}
