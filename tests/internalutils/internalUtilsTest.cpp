#include "InternalUtils/InternalUtils.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>

#include "InternalUtils/Failure.h"
#include "InternalUtils/ROIArea.h"
#include "platform/SystemError.h"
#include "support/expectFailure.h"

using support::expectFailure;

namespace {

std::optional<QuorinException> expectNamed(const std::function<void()>& call, const char* text, Derr code,
                                           const char* function) {
    const auto failure = expectFailure(call, text, code);
    if (failure) {
        EXPECT_STREQ(failure->GetFunctionName(), function);
    }
    return failure;
}

}  // namespace

TEST(RAIIBuffer, BlocksAreReachedWithinTheirRangeOnly) {
    const char* const text = "The requested buffer is outside of the allocated range!";
    const RAIIBuffer ring(3, 16);
    for (int index = 0; index < 3; ++index) std::memset(ring.GetBuffer(index), index, 16);
    EXPECT_NE(ring.GetBuffer(0), ring.GetBuffer(2));
    for (const int index : {-1, 3, std::numeric_limits<int>::min()})
        expectNamed([&] { ring.GetBuffer(index); }, text, DerrResources, "RAIIBuffer::GetBuffer");
    const RAIIBuffer empty(0, 16);
    expectNamed([&] { empty.GetBuffer(0); }, text, DerrResources, "RAIIBuffer::GetBuffer");
}

TEST(RAIIBuffer, ImpossibleSizesFailAndLeaveTheTruth) {
    const char* const text = "Insufficient Memory on system!";
    expectNamed([] { RAIIBuffer ring(-1, 16); }, text, DerrResources, "RAIIBuffer::RAIIBuffer");
    expectNamed([] { RAIIBuffer ring(2, -16); }, text, DerrResources, "RAIIBuffer::RAIIBuffer");
    RAIIBuffer ring(3, 16);
    ring.ReAlloc(64);
    EXPECT_EQ(ring.GetBlockSize(2), 64U);
    expectNamed([&] { ring.ReAlloc(-5); }, text, DerrResources, "RAIIBuffer::ReAlloc");
    EXPECT_EQ(ring.GetBuffer(0), nullptr);
    EXPECT_EQ(ring.GetBlockSize(0), 0U);
    EXPECT_EQ(ring.GetBlockSize(1), 64U) << "the rest keep their old size";
    ring.ReAlloc(8);
    EXPECT_EQ(ring.GetBlockSize(0), 8U);
}

TEST(RAIIFile, ReadsToTheEndAndRefusesTheRest) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("qrapi-file-" + std::to_string(getpid()))).string();
    std::ofstream(path, std::ios::binary) << "abc\r\n";
    char buffer[16] = {};
    RAIIFile file(path.c_str(), false);
    EXPECT_EQ(file.read(buffer, 2), 2U);
    EXPECT_EQ(file.feof(), 0);
    EXPECT_EQ(file.read(buffer + 2, 14), 3U);
    EXPECT_NE(file.feof(), 0);
    EXPECT_STREQ(buffer, "abc\r\n");
    expectNamed([&] { RAIIFile(path.c_str(), true).read(buffer, 1); },
                "Attempting to read from file but it was openned for writing", DerrFile, "RAIIFile::read");
    std::filesystem::remove(path);
    expectNamed([&] { RAIIFile missing(path.c_str(), false); }, "Unable to open file!", DerrFile, "RAIIFile::RAIIFile");
    RAIIFile directory(std::filesystem::temp_directory_path().c_str(), false);
    const auto failure =
        expectFailure([&] { directory.read(buffer, 1); }, "Problem reading from file", DerrFile, EISDIR);
    EXPECT_EQ(failure->GetTransportMessage(), platform::systemErrorText(EISDIR));
}

TEST(ROIArea, NegativeValuesAreRefusedInTheirOrder) {
    const struct {
        int column, row, width, height;
        const char* text;
    } cases[] = {{-1, -1, -1, -1, "Invalid ROI: Start column must be positive"},
                 {0, -1, -1, -1, "Invalid ROI: Start row must be positive"},
                 {0, 0, -1, -1, "Invalid ROI: Width must be positive"},
                 {0, 0, 0, -1, "Invalid ROI: Height must be positive"}};
    for (const auto& test : cases)
        expectNamed([&] { ROIArea(test.column, test.row, test.width, test.height); }, test.text, DerrBadRequest,
                    "ROIArea::ROIArea");
    EXPECT_NO_THROW(ROIArea(0, 0, 0, 0));
}

TEST(ROIArea, ContainmentAndInequalityLookAtEverySide) {
    const ROIArea outer(10, 20, 100, 50);
    const struct {
        ROIArea inner;
        bool contained;
    } cases[] = {{outer, true},
                 {ROIArea(11, 21, 98, 48), true},
                 {ROIArea(9, 20, 100, 50), false},
                 {ROIArea(10, 19, 100, 50), false},
                 {ROIArea(10, 20, 101, 50), false},
                 {ROIArea(10, 20, 100, 51), false},
                 {ROIArea(60, 69, 50, 1), true},
                 {ROIArea(60, 70, 50, 1), false}};
    for (const auto& test : cases) EXPECT_EQ(test.inner.IsContainedIn(outer), test.contained);
    EXPECT_EQ(outer.GetEndRow(), 70);
    EXPECT_FALSE(outer != ROIArea(10, 20, 100, 50));
    for (const ROIArea& other :
         {ROIArea(9, 20, 100, 50), ROIArea(10, 9, 100, 50), ROIArea(10, 20, 9, 50), ROIArea(10, 20, 100, 9)})
        EXPECT_TRUE(outer != other);
}

TEST(SmallFunctions, RoundingIsHalvesUpInSinglePrecision) {
    EXPECT_EQ(RoundToDecimals(47.375F, 2), 47.38F);
    EXPECT_EQ(RoundToDecimals(47.374F, 2), 47.37F);
    EXPECT_EQ(RoundToDecimals(-0.5F, 0), 0.0F);
}

TEST(SmallFunctions, BaseNameStandsBehindTheLastSeparatorOfEitherKind) {
    EXPECT_STREQ(baseName("/a/b.cpp"), "b.cpp");
    EXPECT_STREQ(baseName("c:\\a\\b.cpp"), "b.cpp");
    EXPECT_STREQ(baseName(""), "");
}
