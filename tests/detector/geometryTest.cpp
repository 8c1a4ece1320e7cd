#include "detector/baseDetector/geometry.h"

#include <gtest/gtest.h>

#include "detector/baseDetector.h"
#include "support/expectFailure.h"

using support::expectFailure;

namespace {

/// The record's fields in their order.
std::vector<int> fields(const baseDetector::SensorDesc& desc) {
    static_assert(sizeof(desc) == 18 * sizeof(std::int32_t));
    const auto* first = reinterpret_cast<const std::int32_t*>(&desc);
    return {first, first + 18};
}

}  // namespace

TEST(Geometry, EveryModelAndBinningGivesItsRecord) {
    const struct {
        int model;
        bins binning;
        std::vector<int> record;
    } cases[] = {
        {5101, Bin1x1, {1, 6, 256, 1536, 864, 1, 1, 1536, 864, 1536, 864, 1536, 864, 256, 1536, 864, 1536, 864}},
        {5309, Bin1x2, {1, 6, 256, 1536, 972, 1, 1, 1536, 972, 1536, 1944, 1536, 1944, 256, 1536, 972, 1536, 972}},
        {6112, Bin2x1, {2, 6, 128, 768, 864, 2, 1, 1536, 864, 1536, 864, 3072, 864, 256, 1536, 864, 1536, 864}},
        {7127, Bin2x4, {4, 6, 128, 768, 486, 2, 2, 1536, 972, 1536, 1944, 3072, 3888, 256, 1536, 972, 3072, 486}},
        {8131, Bin4x1, {6, 6, 42, 256, 1536, 3, 2, 768, 3072, 1024, 1536, 3072, 3072, 170, 768, 3072, 1536, 1536}},
    };
    for (const auto& test : cases)
        EXPECT_EQ(fields(describeSensor(test.model, test.binning, false, ROIArea())), test.record)
            << test.model << " " << test.binning;
    EXPECT_EQ(fields(describeSensor(7127, Bin2x2Flagged, false, {})), fields(describeSensor(7127, Bin2x2, false, {})));
    EXPECT_EQ(fields(describeSensor(7127, Bin4x4Flagged, false, {})), fields(describeSensor(7127, Bin4x4, false, {})));
}

TEST(Geometry, RegionReplacesTheSizesAndEachDimensionIsDividedOnItsOwn) {
    const ROIArea region(0, 8, 1000, 500);
    const std::vector<int> plain{2, 6, 256, 500, 500, 2, 1, 1000, 500, 500, 500, 1000, 500, 256, 1000, 500, 1000, 500};
    EXPECT_EQ(fields(describeSensor(6112, Bin1x1, true, region)), plain);
    const auto odd = describeSensor(7127, Bin2x2, true, ROIArea(0, 0, 1003, 507));
    EXPECT_EQ(odd.imageWidth, 501);
    EXPECT_EQ(odd.sensorWidth, 250);
    EXPECT_EQ(odd.imageHeight, 253);
    EXPECT_EQ(odd.sensorHeight, 126);
}

TEST(Geometry, ModelIsRefusedBeforeTheBinning) {
    for (const int binning : {0, -1, 12})
        expectFailure([&] { describeSensor(6112, bins(binning), false, ROIArea()); }, "Invalid Binning Mode!",
                      DerrBinning);
    for (const int model : {5204, 6318, 0})
        expectFailure([&] { describeSensor(model, bins(0), false, ROIArea()); }, "Unsupported detector model!",
                      DerrBadRequest, model);
}

TEST(TimingTables, AreExact) {
    const auto refused = [](int model, DetectorInterface transport, bins binning, bool slowed) {
        return support::failureOf([&] { getReadoutData(model, transport, binning, slowed); }).has_value();
    };
    EXPECT_EQ(getReadoutData(5309, TransportGE, Bin1x1, false), std::pair(37.78F, 32.89F));
    EXPECT_EQ(getReadoutData(5309, TransportCL, Bin1x1, true), std::pair(56.95F, 0.0F));
    EXPECT_EQ(getReadoutData(7127, TransportGE, Bin1x1, true), std::pair(188.68F, 0.0F));
    EXPECT_TRUE(refused(5309, TransportGE, Bin1x1, true));
    EXPECT_TRUE(refused(7127, TransportGE, Bin2x2, false));
    EXPECT_TRUE(refused(6213, TransportGE, Bin1x1, false));
    EXPECT_TRUE(refused(5204, TransportCL, Bin1x1, false));
}

TEST(TimingTables, OneDetectorAloneHasATableOfItsOwn) {
    EXPECT_EQ(createDetectorTimings(6213, TransportGE, 11138), nullptr);
    EXPECT_EQ(createDetectorTimings(6213, TransportCL, 11137), nullptr);
    EXPECT_EQ(createDetectorTimings(7127, TransportCL, 11138), nullptr);
    const auto timings = createDetectorTimings(6213, TransportCL, 11138);
    ASSERT_NE(timings, nullptr);
    for (const ReadoutModes mode : {ReadoutBit3Clear, ReadoutBit3Set}) {
        EXPECT_EQ(timings->getTimings(false, mode, Bin4x4), std::pair(11.69F, 11.76F));
        EXPECT_EQ(timings->getTimings(true, mode, Bin2x2), std::pair(14.25F, 14.25F));
        EXPECT_EQ(timings->getTimings(true, mode, Bin4x4Flagged), std::pair(33.216F, 54.816F));
    }
    expectFailure([&] { timings->getTimings(true, ReadoutBit3Set, Bin2x1); },
                  "There are no timings stored for these detector settings.", DerrBadRequest);
}
