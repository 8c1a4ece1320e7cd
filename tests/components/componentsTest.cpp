#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QorImage.h"
#include "QuorinException.h"
#include "support/expectFailure.h"

using support::expectFailure;

TEST(QuorinException, TellsWhatItWasGiven) {
    const QuorinException thrown("message {}", DerrTransport, 12, "file.cpp", "A::b", 30, "late");
    EXPECT_EQ(thrown.GetCode(), DerrTransport);
    EXPECT_EQ(thrown.GetLineNumber(), 12);
    EXPECT_STREQ(thrown.GetFileName(), "file.cpp");
    EXPECT_STREQ(thrown.GetFunctionName(), "A::b");
    EXPECT_EQ(thrown.GetTransportError(), 30);
    EXPECT_STREQ(thrown.GetTransportMessage(), "late");
    EXPECT_STREQ(thrown.what(), "message {} (code 5 DerrTransport; in A::b, file.cpp:12; transport error 30: late)");
}

TEST(QuorinException, LayersAreAddedInnermostFirstAndTheThrowerStays) {
    const QuorinException thrown("m", DerrBadRequest, 1, "f.cpp", "inner", 0, "");
    const QuorinException once(thrown, "middle");
    const QuorinException twice(once, "outer");
    EXPECT_STREQ(twice.GetFunctionName(), "inner");
    EXPECT_STREQ(twice.what(), "m (code 4 DerrBadRequest; in inner, f.cpp:1; through middle, outer)");
    EXPECT_STREQ(thrown.what(), "m (code 4 DerrBadRequest; in inner, f.cpp:1)") << "a re-wrap changes a copy";
    QuorinException copy = twice;
    copy = thrown;
    EXPECT_STREQ(copy.what(), thrown.what());
    static_assert(std::is_nothrow_copy_constructible_v<QuorinException>);
    EXPECT_STREQ(QuorinException(nullptr, DerrFile, 0, nullptr, nullptr, 0, nullptr).GetTransportMessage(), "");
}

TEST(QorImage, PlanesKeepTheirPlaceWhileOthersAreAdded) {
    QorImage image;
    EXPECT_TRUE(image.IsEmpty());
    EXPECT_LT(image.GetImageModel(), 0);
    EXPECT_EQ(image.GetImageBinning(), BinUnknown);
    image.Build(3, 2, 1, PixelU16);
    auto* const first = static_cast<std::uint16_t*>(image.GetDataPointerToPlane(0));
    for (int pixel = 0; pixel < 6; ++pixel) first[pixel] = static_cast<std::uint16_t>(pixel + 1);
    for (int plane = 1; plane < 20; ++plane) image.AddImage();
    EXPECT_EQ(image.GetDataPointerToPlane(0), first);
    EXPECT_EQ(image.GetImageDepth(), 20);
    EXPECT_EQ(image.GetDataPointerToPlane(20), nullptr);
    EXPECT_EQ(image.GetDataPointerToPlane(-1), nullptr);
    const QorImage copy = image;
    first[0] = 99;
    EXPECT_EQ(*static_cast<std::uint16_t*>(copy.GetDataPointerToPlane(0)), 1);
    image.Build(1, 1, 1, PixelU16);
    EXPECT_EQ(*static_cast<std::uint16_t*>(image.GetDataPointerToPlane(0)), 0);
}

TEST(QorImage, ModelsSizeTheImageAsTheirDetectorsDo) {
    const struct {
        int model;
        bins binning;
        bool region;
        int width, height;
    } cases[] = {{6112, Bin1x1, false, 3072, 864},
                 {7127, Bin2x4, false, 1536, 972},
                 {5101, Bin4x4Flagged, false, 384, 216},
                 {6112, Bin1x1, true, 3072, 128},
                 {6112, Bin2x2, true, 1536, 64}};
    for (const auto& test : cases) {
        QorImage image;
        image.Build(test.model, test.binning, 2, PixelU16, 2, true, test.region, 0, 368, 3072, 128);
        EXPECT_EQ(image.GetImageXdim(), test.width);
        EXPECT_EQ(image.GetImageYdim(), test.height);
        EXPECT_EQ(image.GetImageModel(), test.model);
        EXPECT_EQ(image.GetImageParameters().sourceRow, 368);
    }
}

TEST(QorImage, ImpossibleImagesAreRefusedAndLeaveTheOldOne) {
    QorImage image;
    expectFailure([&] { image.AddImage(); }, "A plane can only be added to an image that was built.", DerrBadRequest);
    image.Build(2, 2, 1, PixelU16);
    expectFailure([&] { image.Build(0, 5, 1, PixelU16); }, "An image needs a width and a height of at least 1 pixel.",
                  DerrBadRequest);
    expectFailure([&] { image.Build(5, 5, 0, PixelU16); }, "An image needs at least 1 plane.", DerrBadRequest);
    expectFailure([&] { image.Build(5, 5, 1, pType(1)); }, "Only the pixel type PixelU16 is supported.", DerrBadRequest,
                  1);
    expectFailure([&] { image.Build(5204, Bin1x1, 1, PixelU16, 1, false, false, 0, 0, 0, 0); },
                  "The image has no geometry for this model.", DerrBadRequest, 5204);
    expectFailure([&] { image.Build(6112, BinUnknown, 1, PixelU16, 1, false, false, 0, 0, 0, 0); },
                  "The image has no geometry for this binning mode.", DerrBadRequest, 12);
    EXPECT_EQ(image.GetImageXdim(), 2);
    EXPECT_EQ(image.GetImageDepth(), 1);
}
