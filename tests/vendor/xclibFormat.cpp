#include "XclibRig.h"

namespace {

using Variant = FormatTree::Variant;

class XclibFormat : public XclibRig {
protected:
    XclibFormat() { EXPECT_EQ(user.open(slot), 0); }

    int resolution() const { return pxe_setVideoResolution(user.state, 1, XclibUser::width, XclibUser::height, 0, 0); }
};

TEST_F(XclibFormat, IsNeededByEverythingThatHasToDoWithFrames) {
    std::array<unsigned char, 4> bytes{};
    const std::function<int()> calls[] = {
        [&] { return pxe_setPixelFormatGrey(user.state, 1, 8, 0, 0, 4, 0, 0); },
        [&] { return resolution(); },
        [&] { return pxe_imageXdims(user.state, 1); },
        [&] { return pxe_imageZdims(user.state, 1); },
        [&] { return pxe_goSnap(user.state, 1, 1); },
        [&] { return pxe_goLiveSeq(user.state, 1, 1, 1, 1, 0, 1); },
        [&] { return pxe_readuchar(user.state, 1, 1, 0, 0, 1, 1, bytes.data(), 4, "Grey"); },
        [&] { return pxe_setCameraLinkCCOut(user.state, 1, 0); },
        [&] { return pxe_setExsyncPrincMode(user.state, 1, 0, 0); },
    };
    for (const auto& call : calls) EXPECT_EQ(call(), PXERFORMAT) << &call - calls;
    ASSERT_EQ(user.load(Variant::Standard), 0);
    for (const auto& call : calls) EXPECT_GE(call(), 0) << &call - calls;
    for (const int taps : {0, 3, 16, -1})
        EXPECT_EQ(pxe_setPixelFormatGrey(user.state, 1, 8, 0, 0, taps, 0, 0), PXERBADPARAM) << taps;
    EXPECT_EQ(pxe_setPixelFormatGrey(user.state, 1, 10, 0, 0, 4, 0, 0), PXERBADPARAM);
}

TEST_F(XclibFormat, ABentTreeIsRefusedAndTheFormerFormatStays) {
    using Bend = std::function<void(FormatTree&)>;
    const auto word = [](std::uint32_t type, std::size_t place) {
        return [=](FormatTree& tree) { tree.word(type, place) ^= 1U; };
    };
    std::vector<Bend> bends{
        [](FormatTree& tree) { tree.root[0] = 23U << 16U | 140U; },
        [](FormatTree& tree) { ++tree.root[0]; },
        [](FormatTree& tree) { tree.point(0, tree.records[1].data()); },
    };
    for (std::size_t index = 0; index < 11; ++index) {
        bends.emplace_back([index](FormatTree& tree) { tree.point(index, nullptr); });
        bends.emplace_back([index](FormatTree& tree) { ++tree.records[index][0]; });
    }
    for (const std::size_t place : {24U, 164U, 180U, 496U}) bends.emplace_back(word(561, place));
    for (const std::size_t place : {28U, 136U, 392U, 428U, 448U}) bends.emplace_back(word(125, place));
    for (const std::size_t place : {20U, 124U, 144U, 160U, 168U}) bends.emplace_back(word(264, place));
    for (const std::size_t place : {20U, 48U, 108U}) bends.emplace_back(word(45, place));
    for (const std::uint32_t empty : {19U, 32U, 21U}) bends.emplace_back(word(empty, 36));
    bends.emplace_back(word(251, 768));
    ASSERT_EQ(user.load(Variant::Standard), 0);
    ASSERT_EQ(resolution(), 0);
    bends.emplace_back([](FormatTree& tree) {  // the table of one variant in the other
        const bool empty = tree.word(118, 16) == 0;
        for (std::size_t place = 16; place < 656; place += 4) tree.word(118, place) = empty && place == 652 ? 1 : 0;
    });
    for (const Variant variant : {Variant::Standard, Variant::Pulse})
        for (const Bend& bend : bends) {
            FormatTree tree(variant);
            bend(tree);
            EXPECT_EQ(user.load(tree.root.data()), PXERFORMAT) << &bend - bends.data();
        }
    EXPECT_EQ(user.load(nullptr), PXERFORMAT);
    EXPECT_EQ(pxe_imageXdims(user.state, 1), XclibUser::width);
}

TEST_F(XclibFormat, LoadsInsideAnEscapeOnly) {
    const FormatTree tree(Variant::Standard);
    EXPECT_EQ(pxe_xclibEscaped(user.state, 0, 0, 0), PXERBADPARAM);
    auto* const service = static_cast<unsigned char*>(pxe_xclibEscape(user.state, 0, 0, 0));
    ASSERT_NE(service, nullptr);
    pxe_FormatLoad load = nullptr;
    std::memcpy(&load, service + pxe_formatLoadOffset, sizeof(load));
    unsigned char* const argument = service + pxe_formatLoadAddend;
    EXPECT_EQ(load(argument, 0, pxe_formatLoadKind + 1, tree.root.data()), PXERBADPARAM);
    EXPECT_EQ(load(argument, 1, pxe_formatLoadKind, tree.root.data()), PXERBADPARAM);
    EXPECT_EQ(load(service, 0, pxe_formatLoadKind, tree.root.data()), PXERNOTOPEN);
    EXPECT_EQ(pxe_xclibEscaped(user.state, 0, 0, 0), PXERBADPARAM) << "the result of the last load";
    EXPECT_EQ(load(argument, 0, pxe_formatLoadKind, tree.root.data()), PXERBADPARAM);
    ASSERT_EQ(user.load(tree.root.data()), 0);
    ASSERT_EQ(pxe_goLiveSeq(user.state, 1, 1, 2, 1, 0, 1), 0);
    EXPECT_EQ(user.load(tree.root.data()), PXERBUSY);
}

TEST_F(XclibFormat, BringsItsOwnResolutionAndTheMemorySaysHowManyFramesFit) {
    for (const Variant variant : {Variant::Pulse, Variant::Standard}) {
        ASSERT_EQ(user.load(variant), 0);
        EXPECT_EQ(pxe_imageXdims(user.state, 1), 3072);
        EXPECT_EQ(pxe_imageYdims(user.state, 1), 1944);
        EXPECT_EQ(pxe_imageZdims(user.state, 1), (512 << 20) / (3072 * 1944));
    }
    board->setMemory(XclibUser::frameBytes * 3 + 5);
    ASSERT_EQ(user.load(Variant::Standard), 0);
    EXPECT_EQ(pxe_imageZdims(user.state, 1), PXERMEMORY) << "not one of the format's own size fits";
    ASSERT_EQ(resolution(), 0);
    EXPECT_EQ(pxe_imageZdims(user.state, 1), 3);
    EXPECT_EQ(pxe_imageZdim(user.state), 3);
    EXPECT_EQ(pxe_setVideoResolution(user.state, 1, 1024, 1024, 0, 0), PXERMEMORY);
    for (const std::pair<int, int>& size : {std::pair{0, 16}, {-2, 16}, {127, 16}, {65536, 1}, {128, 0}, {128, 65536}})
        EXPECT_EQ(pxe_setVideoResolution(user.state, 1, size.first, size.second, 0, 0), PXERBADPARAM) << size.first;
    EXPECT_EQ(pxe_imageXdims(user.state, 1), XclibUser::width) << "what fails changes nothing";
    EXPECT_EQ(pxe_setVideoResolution(user.state, 1, XclibUser::width / 2, XclibUser::height, 0, 0), 0);
    EXPECT_EQ(pxe_imageZdims(user.state, 1), 6);
}

TEST_F(XclibFormat, PartsOfABufferAreReadAndWrittenWithinBounds) {
    ASSERT_EQ(user.load(Variant::Standard), 0);
    board->setMemory(XclibUser::frameBytes * 2);
    ASSERT_EQ(resolution(), 0);
    EXPECT_EQ(user.pixels(2), std::vector<std::uint16_t>(XclibUser::frameBytes / 2)) << "zero at first";
    std::vector<unsigned char> part{1, 2, 3, 4, 5, 6};
    ASSERT_EQ(pxe_writeuchar(user.state, 1, 2, 126, 13, -1, -1, part.data(), part.size(), "Grey"), 6);
    std::vector<unsigned char> read(10, 99);
    ASSERT_EQ(pxe_readuchar(user.state, 1, 2, 125, 14, 128, 16, read.data(), read.size(), "Grey"), 6);
    EXPECT_EQ(read, (std::vector<unsigned char>{0, 3, 4, 0, 5, 6, 99, 99, 99, 99}));
    const struct {
        long buffer;
        int x0, y0, x1, y1;
        std::size_t count;
        const char* colour;
    } wrong[] = {
        {0, 0, 0, 1, 1, 10, "Grey"},     {3, 0, 0, 1, 1, 10, "Grey"},   {-1, 0, 0, 1, 1, 10, "Grey"},
        {1, -1, 0, 1, 1, 10, "Grey"},    {1, 0, -1, 1, 1, 10, "Grey"},  {1, 128, 0, -1, 1, 10, "Grey"},
        {1, 0, 0, 129, 1, 999, "Grey"},  {1, 0, 0, 1, 17, 999, "Grey"}, {1, 2, 0, 2, 1, 10, "Grey"},
        {1, 3, 0, 2, 1, 10, "Grey"},     {1, 0, 0, -2, 1, 999, "Grey"}, {1, 0, 0, 11, 1, 10, "Grey"},
        {1, 0, 0, -1, -1, 2047, "Grey"}, {1, 0, 0, 1, 1, 10, "RGB"},    {1, 0, 0, 1, 1, 10, nullptr},
    };
    const std::vector<unsigned char> before = read;
    for (const auto& test : wrong) {
        EXPECT_EQ(pxe_readuchar(user.state, 1, test.buffer, test.x0, test.y0, test.x1, test.y1, read.data(), test.count,
                                test.colour),
                  PXERBADPARAM)
            << &test - wrong;
        EXPECT_EQ(pxe_writeuchar(user.state, 1, test.buffer, test.x0, test.y0, test.x1, test.y1, read.data(),
                                 test.count, test.colour),
                  PXERBADPARAM)
            << &test - wrong;
    }
    EXPECT_EQ(read, before);
    EXPECT_EQ(pxe_readuchar(user.state, 1, 1, 0, 0, 1, 1, nullptr, 10, "Grey"), PXERBADPARAM);
    EXPECT_EQ(pxe_writeuchar(user.state, 1, 1, 0, 0, 1, 1, nullptr, 10, "Grey"), PXERBADPARAM);
    EXPECT_EQ(user.pixels(1), std::vector<std::uint16_t>(XclibUser::frameBytes / 2));
}

}  // namespace
