// Dithering: the tables, one row of error diffusion, and whole pictures
// against the plain model.
#include <gtest/gtest.h>
#include <mivo4/color.h>
#include <mivo4/setup.h>

#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

class Dither : public ::testing::Test {
protected:
    void SetUp() override {
        lpRaster = nullptr;
        _debug_color_res = 0;
    }
    void useThreshold(uint32_t t) {
        setup = Gp4_SetupData{};
        setup.GreyThreshold = t;
        lpRaster = &setup;
    }
    GlobalsGuard keep;
    Gp4_SetupData setup{};
};

Bytes uniform24(uint32_t w, uint32_t h, VCD c) {
    Bytes b(size_t{bpl(w, 24)} * h, 0);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            uint8_t *p = b.data() + size_t{y} * bpl(w, 24) + 3 * x;
            p[0] = c.red;
            p[1] = c.green;
            p[2] = c.blue;
        }
    return b;
}

TEST(DitherTables, MonoTableIsEightGreysInItsOrder) {
    const std::vector<VCD> expected = {{0, 0, 0},       {255, 255, 255}, {64, 64, 64},    {128, 128, 128},
                                       {160, 160, 160}, {192, 192, 192}, {208, 208, 208}, {224, 224, 224}};
    EXPECT_EQ(std::vector<VCD>(MonoTable, MonoTable + 8), expected);
}

TEST(DitherTables, TheFixedColoursAreWhiteYellowMagentaCyanRedGreenBlueBlack) {
    const std::vector<VCD> expected = {{255, 255, 255}, {255, 255, 0}, {255, 0, 255}, {0, 255, 255},
                                       {255, 0, 0},     {0, 255, 0},   {0, 0, 255},   {0, 0, 0}};
    EXPECT_EQ(std::vector<VCD>(must_have_colors, must_have_colors + 8), expected);
}

TEST(DitherTables, TheClampTableClampsMinus128To383) {
    for (int k = 0; k < 512; ++k) {
        int expected = k < 128 ? 0 : k <= 383 ? k - 128 : 255;
        ASSERT_EQ(BOUNDARY_CHK[k], expected) << k;
    }
    EXPECT_EQ(Range_Chk, BOUNDARY_CHK + 128);
    EXPECT_EQ(Range_Chk[-128], 0);
    EXPECT_EQ(Range_Chk[-1], 0);
    EXPECT_EQ(Range_Chk[0], 0);
    EXPECT_EQ(Range_Chk[200], 200);
    EXPECT_EQ(Range_Chk[255], 255);
    EXPECT_EQ(Range_Chk[383], 255);
}

const VCD kBlackWhite[2] = {{0, 0, 0}, {255, 255, 255}};

TEST(DitherOneLine, ErrorsGoSevenFiveThreeAndOneSixteenthsTruncatedTowardZero) {
    // Row 155, 100, 0 over a row of 100s, onto black and white.
    // 155 -> white, e = -100: q8 = -12, q7 = -43 (not -13, -44).
    //   right 100 - 43 = 57; below 100 - 31 = 69; below-right 100 - 7 = 93.
    // 57 -> black, e = 57: q8 = 7, q7 = 24.
    //   right 0 + 24; below 93 + 17 = 110; below-left 69 + 10 = 79; below-right 100 + 3 = 103.
    // The last pixel repeats its neighbour's choice: black.
    uint8_t l1[9] = {155, 155, 155, 100, 100, 100, 0, 0, 0};
    uint8_t l2[9] = {100, 100, 100, 100, 100, 100, 100, 100, 100};
    _rlDitherOneLine(l1, l2, kBlackWhite, 3, 2);
    EXPECT_EQ(Bytes(l1, l1 + 9), (Bytes{255, 255, 255, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Bytes(l2, l2 + 9), (Bytes{79, 79, 79, 110, 110, 110, 103, 103, 103}));
}

TEST(DitherOneLine, TheBottomRowPassesNoErrorDownward) {
    uint8_t l1[9] = {155, 155, 155, 100, 100, 100, 0, 0, 0};
    _rlDitherOneLine(l1, nullptr, kBlackWhite, 3, 2);
    EXPECT_EQ(Bytes(l1, l1 + 9), (Bytes{255, 255, 255, 0, 0, 0, 0, 0, 0}));
}

TEST(DitherOneLine, TheLeftEdgePassesNothingBelowLeft) {
    // 100 -> black, e = 100: q8 = 12, q7 = 43. Below 50 + 31, below-right 50 + 7.
    // 143 -> white, e = -112: q8 = -14, q7 = -49. Below 57 - 35, below-left
    // 81 - 21, below-right 50 - 7.
    uint8_t l1[9] = {100, 100, 100, 100, 100, 100, 100, 100, 100};
    uint8_t l2[9] = {50, 50, 50, 50, 50, 50, 50, 50, 50};
    _rlDitherOneLine(l1, l2, kBlackWhite, 3, 2);
    EXPECT_EQ(Bytes(l1, l1 + 9), (Bytes{0, 0, 0, 255, 255, 255, 255, 255, 255}));
    EXPECT_EQ(Bytes(l2, l2 + 9), (Bytes{60, 60, 60, 22, 22, 22, 43, 43, 43}));
}

TEST(DitherOneLine, ARowOfTwoMatchesOnlyItsFirstPixel) {
    const VCD greys[3] = {{0, 0, 0}, {128, 128, 128}, {255, 255, 255}};
    uint8_t l1[6] = {100, 100, 100, 250, 250, 250};
    uint8_t l2[6] = {0, 0, 0, 0, 0, 0};
    _rlDitherOneLine(l1, l2, greys, 2, 3);
    EXPECT_EQ(Bytes(l1, l1 + 6), (Bytes{128, 128, 128, 128, 128, 128}));
    // e = -28: q8 = -3, q7 = -12; the second pixel's own error goes nowhere.
    EXPECT_EQ(Bytes(l2, l2 + 6), (Bytes{0, 0, 0, 0, 0, 0}));
}

TEST(DitherOneLine, ARowOfOneTakesItsNearestColourAndPassesNoError) {
    uint8_t l1[3] = {200, 200, 200};
    uint8_t l2[3] = {9, 9, 9};
    _rlDitherOneLine(l1, l2, kBlackWhite, 1, 2);
    EXPECT_EQ(Bytes(l1, l1 + 3), (Bytes{255, 255, 255}));
    EXPECT_EQ(Bytes(l2, l2 + 3), (Bytes{9, 9, 9}));
}

TEST(DitherOneLine, SumsAreClamped) {
    // 250 -> white (e = -5: q8 = 0, q7 = -2); 253 -> white (e = -2: q7 = 0)
    // 10 below: 10 - 2 = 8 ... and a black pixel pushed below 0 stays 0.
    uint8_t l1[9] = {30, 30, 30, 250, 250, 250, 0, 0, 0};
    uint8_t l2[9] = {0, 0, 0, 255, 255, 255, 0, 0, 0};
    _rlDitherOneLine(l1, l2, kBlackWhite, 3, 2);
    // 30 -> black, e = 30: q8 = 3, q7 = 13: right 263 -> 255, below 0 + 10,
    // below-right 255 + 4 -> 255. 255 -> white, e = 0.
    EXPECT_EQ(Bytes(l2, l2 + 9), (Bytes{10, 10, 10, 255, 255, 255, 0, 0, 0}));
    EXPECT_EQ(Bytes(l1, l1 + 9), (Bytes{0, 0, 0, 255, 255, 255, 255, 255, 255}));
}

TEST(DitherOneLine, AgreesWithThePlainRowOnRandomRows) {
    std::mt19937 rng(17);
    for (int round = 0; round < 300; ++round) {
        const uint32_t w = rng() % 20;
        std::vector<VCD> table = randomTable(rng, 1 + rng() % 16);
        Bytes a(3 * w + 3), b(3 * w + 3);
        for (auto &v : a) v = static_cast<uint8_t>(rng());
        for (auto &v : b) v = static_cast<uint8_t>(rng());
        Bytes pa = a, pb = b;
        const bool last = rng() % 4 == 0;
        _rlDitherOneLine(a.data(), last ? nullptr : b.data(), table.data(), w, static_cast<int32_t>(table.size()));
        plainDitherLine(pa.data(), last ? nullptr : pb.data(), table, table.size(), w);
        ASSERT_EQ(a, pa) << round;
        ASSERT_EQ(b, pb) << round;
    }
}

TEST_F(Dither, UniformWhiteGivesAllOneBits) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(10, 3, VCD{255, 255, 255})));
    ZHANDLE table = 0;
    ZHANDLE out = keep.add(rlDitherBitmap(hs, 10, 3, 24, 1, 0, &table));
    keep.add(table);
    EXPECT_EQ(fromHandle(out), (Bytes{0xFF, 0xC0, 0, 0, 0xFF, 0xC0, 0, 0, 0xFF, 0xC0, 0, 0}));
    EXPECT_EQ(tableFromHandle(table), std::vector<VCD>(MonoTable, MonoTable + 8));
}

TEST_F(Dither, UniformBlackGivesAllZeroBits) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(10, 3, VCD{0, 0, 0})));
    ZHANDLE table = 0;
    ZHANDLE out = keep.add(rlDitherBitmap(hs, 10, 3, 24, 1, 0, &table));
    keep.add(table);
    EXPECT_EQ(fromHandle(out), Bytes(12, 0));
}

TEST_F(Dither, TheParityOfTheMonochromeIndexSetsTheBit) {
    const struct {
        uint8_t grey;
        uint8_t byte;
    } cases[] = {{0, 0x00}, {255, 0xE0}, {64, 0x00}, {128, 0xE0}, {160, 0x00}, {192, 0xE0}, {208, 0x00}, {224, 0xE0}};
    for (const auto &c : cases) {
        Handles keep;
        ZHANDLE hs = keep.add(toHandle(uniform24(3, 2, VCD{c.grey, c.grey, c.grey})));
        ZHANDLE table = 0;
        ZHANDLE out = keep.add(rlDitherBitmap(hs, 3, 2, 24, 1, 0, &table));
        keep.add(table);
        EXPECT_EQ(fromHandle(out), (Bytes{c.byte, 0, 0, 0, c.byte, 0, 0, 0})) << int{c.grey};
    }
}

TEST_F(Dither, RowsAreGreyedExactlyOnceWithTheSetupsThreshold) {
    // 100 greys to 80 with threshold 20, once; twice would give 64.
    useThreshold(20);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(9, 4, VCD{100, 100, 100})));
    ZHANDLE eightyOr64 = keep.add(toHandle(std::vector<VCD>{{80, 80, 80}, {64, 64, 64}}));
    ZHANDLE out = keep.add(rlDitherGivenCT(hs, 9, 4, 24, 1, 0, eightyOr64, 2));
    EXPECT_EQ(fromHandle(out), Bytes(16, 0)) << "every pixel is exactly 80: index 0";
    // Never greyed, 100 would match the second entry exactly.
    ZHANDLE eightyOr100 = keep.add(toHandle(std::vector<VCD>{{80, 80, 80}, {100, 100, 100}}));
    out = keep.add(rlDitherGivenCT(hs, 9, 4, 24, 1, 0, eightyOr100, 2));
    EXPECT_EQ(fromHandle(out), Bytes(16, 0));
}

TEST_F(Dither, WithoutACurrentSetupGreysAreKeptAsTheyAre) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(9, 2, VCD{100, 100, 100})));
    ZHANDLE eightyOr100 = keep.add(toHandle(std::vector<VCD>{{80, 80, 80}, {100, 100, 100}}));
    ZHANDLE out = keep.add(rlDitherGivenCT(hs, 9, 2, 24, 1, 0, eightyOr100, 2));
    EXPECT_EQ(fromHandle(out), (Bytes{0xFF, 0x80, 0, 0, 0xFF, 0x80, 0, 0}));
}

TEST_F(Dither, OnlyOneBitOutputIsGreyed) {
    useThreshold(50);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(2, 1, VCD{100, 100, 100})));
    ZHANDLE table = keep.add(toHandle(std::vector<VCD>{{50, 50, 50}, {100, 100, 100}}));
    ZHANDLE out = keep.add(rlDitherGivenCT(hs, 2, 1, 24, 8, 0, table, 2));
    EXPECT_EQ(fromHandle(out), (Bytes{1, 1, 0, 0}));
}

TEST_F(Dither, AFourBitTableIsEightPictureColoursThenTheFixedEight) {
    std::mt19937 rng(2);
    const uint32_t w = 21, h = 9;
    Bytes src = randomBitmap(rng, w, h, 24);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE table = 0;
    uint16_t n = 0;
    rlDitherGetCT(hs, w, h, 24, 4, 0, &table, &n);
    keep.add(table);
    EXPECT_EQ(n, 16);
    std::vector<VCD> t = tableFromHandle(table);
    ASSERT_EQ(t.size(), 16u);
    uint16_t eight = 8;
    ZHANDLE reduced = keep.add(rlReduceColorTable(hs, static_cast<int16_t>(w), static_cast<int16_t>(h), &eight));
    EXPECT_EQ(std::vector<VCD>(t.begin(), t.begin() + 8), tableFromHandle(reduced));
    EXPECT_EQ(std::vector<VCD>(t.begin() + 8, t.end()), std::vector<VCD>(must_have_colors, must_have_colors + 8));
}

TEST_F(Dither, AFourBitTableOfAFewColouredPictureKeepsTheFixedColoursRightAfterThem) {
    Bytes src = uniform24(4, 1, VCD{200, 10, 10});
    src[3] = 10;  // a second colour: (10, 10, 10)
    src[4] = 10;
    src[5] = 10;
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE table = 0;
    uint16_t n = 0;
    rlDitherGetCT(hs, 4, 1, 24, 4, 0, &table, &n);
    keep.add(table);
    EXPECT_EQ(n, 16);
    std::vector<VCD> t = tableFromHandle(table);
    std::vector<VCD> expected = {{15, 15, 15}, {207, 15, 15}};
    expected.insert(expected.end(), must_have_colors, must_have_colors + 8);
    expected.resize(16, VCD{0, 0, 0});
    EXPECT_EQ(t, expected);
}

TEST_F(Dither, AThreeBitTableIsTheFixedColoursOnly) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(4, 2, VCD{200, 10, 10})));
    ZHANDLE table = 0;
    ZHANDLE out = keep.add(rlDitherBitmap(hs, 4, 2, 24, 3, 0, &table));
    keep.add(table);
    EXPECT_EQ(tableFromHandle(table), std::vector<VCD>(must_have_colors, must_have_colors + 8));
    ASSERT_NE(out, 0u);
}

TEST_F(Dither, ATwoBitTargetWithoutATableIsRefused) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(4, 2, VCD{200, 10, 10})));
    uint32_t before = mivo4::mem::LiveHandles();
    ZHANDLE table = 0;
    EXPECT_EQ(rlDitherBitmap(hs, 4, 2, 24, 2, 0, &table), 0u);
    EXPECT_EQ(table, 0u);
    uint16_t n = 77;
    rlDitherGetCT(hs, 4, 2, 24, 2, 0, &table, &n);
    EXPECT_EQ(table, 0u);
    EXPECT_EQ(n, 77);
    EXPECT_EQ(mivo4::mem::LiveHandles(), before);
    // With a table of four entries a two-bit dither runs; two-bit pixels are
    // not a depth the pixel writer stores, so the bitmap stays zero.
    ZHANDLE four = keep.add(toHandle(std::vector<VCD>{{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {255, 255, 255}}));
    table = four;
    ZHANDLE out = keep.add(rlDitherBitmap(hs, 4, 2, 24, 2, 0, &table));
    EXPECT_EQ(table, four);
    EXPECT_EQ(fromHandle(out), Bytes(8, 0));
}

TEST_F(Dither, GetCTHeedsAGivenTableOnlyForOneBitOutput) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(4, 2, VCD{200, 10, 10})));
    ZHANDLE given = keep.add(toHandle(std::vector<VCD>(16, VCD{1, 2, 3})));
    ZHANDLE table = given;
    uint16_t n = 0;
    rlDitherGetCT(hs, 4, 2, 24, 4, 0, &table, &n);
    EXPECT_NE(table, given);
    keep.add(table);
    EXPECT_EQ(n, 16);
    table = given;
    rlDitherGetCT(hs, 4, 2, 24, 1, 0, &table, &n);
    EXPECT_EQ(table, given);
    EXPECT_EQ(n, 2);
    table = 0;
    rlDitherGetCT(hs, 4, 2, 24, 1, 0, &table, &n);
    keep.add(table);
    EXPECT_EQ(n, 8);
    EXPECT_EQ(tableFromHandle(table), std::vector<VCD>(MonoTable, MonoTable + 8));
}

TEST_F(Dither, WholePicturesMatchThePlainModelForEveryDepth) {
    std::mt19937 rng(31);
    const int sources[] = {1, 4, 8, 24, 32};
    const int targets[] = {1, 3, 4, 5, 8};
    for (int sd : sources)
        for (int dd : targets)
            for (int round = 0; round < 4; ++round) {
                if (round == 3) useThreshold(static_cast<uint32_t>(rng() % 60));
                const uint32_t w = 1 + rng() % 23, h = 1 + rng() % 7;
                Bytes src = round % 2 ? randomBitmap(rng, w, h, sd) : palettedBitmap(rng, w, h, sd, 12);
                std::vector<VCD> st = randomTable(rng, sd <= 8 ? (1u << sd) : 2);
                Handles keep;
                ZHANDLE hs = keep.add(toHandle(src));
                ZHANDLE ht = sd <= 8 ? keep.add(toHandle(st)) : 0;
                ZHANDLE table = 0;
                ZHANDLE out = keep.add(rlDitherBitmap(hs, w, h, static_cast<int16_t>(sd), static_cast<int16_t>(dd), ht, &table));
                keep.add(table);
                ASSERT_NE(out, 0u);
                std::vector<VCD> t = tableFromHandle(table);
                const uint32_t threshold = lpRaster != nullptr ? lpRaster->GreyThreshold : 0;
                EXPECT_EQ(fromHandle(out), plainDither(src, w, h, sd, dd, sd <= 8 ? &st : nullptr, t, t.size(), threshold))
                    << sd << " -> " << dd << " " << w << "x" << h;
                // The same table by the two-step route gives the same bitmap.
                ZHANDLE t2 = 0;
                uint16_t n2 = 0;
                rlDitherGetCT(hs, w, h, static_cast<int16_t>(sd), static_cast<int16_t>(dd), ht, &t2, &n2);
                keep.add(t2);
                EXPECT_EQ(tableFromHandle(t2), t);
                ZHANDLE out2 = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), static_cast<int16_t>(dd), ht, t2, n2));
                EXPECT_EQ(fromHandle(out2), fromHandle(out));
                lpRaster = nullptr;
            }
}

TEST_F(Dither, OneBitDitherOfGreyedRowsMatchesThePlainModelOnManyPictures) {
    // One-bit output onto tables of greys is diffused in one channel; it must
    // give the bytes of the plain three-channel diffusion. Tables: the mono
    // greys, given greys (duplicates among them), and a coloured table, which
    // keeps all three channels.
    std::mt19937 rng(77);
    for (int round = 0; round < 300; ++round) {
        useThreshold(round % 3 == 0 ? static_cast<uint32_t>(rng() % 101) : 0);
        const uint32_t w = 1 + rng() % 97, h = 1 + rng() % 31;
        const int sd = round % 5 == 0 ? 8 : 24;
        Bytes src = randomBitmap(rng, w, h, sd);
        std::vector<VCD> st = randomTable(rng, 256);
        std::vector<VCD> table;
        switch (round % 4) {
        case 0:
            table.assign(MonoTable, MonoTable + 8);
            break;
        case 1: {
            auto a = static_cast<uint8_t>(rng()), b = static_cast<uint8_t>(rng());
            table = {{a, a, a}, {b, b, b}};
            break;
        }
        case 2: {
            auto a = static_cast<uint8_t>(rng());
            table = {{a, a, a}, {a, a, a}};
            break;
        }
        default:
            table = randomTable(rng, 2);
            break;
        }
        Handles keep;
        ZHANDLE hs = keep.add(toHandle(src));
        ZHANDLE ht = sd == 8 ? keep.add(toHandle(st)) : 0;
        ZHANDLE tt = keep.add(toHandle(table));
        ZHANDLE out = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), 1, ht, tt,
                                               static_cast<uint16_t>(table.size())));
        ASSERT_NE(out, 0u);
        const uint32_t threshold = lpRaster != nullptr ? lpRaster->GreyThreshold : 0;
        ASSERT_EQ(fromHandle(out), plainDither(src, w, h, sd, 1, sd == 8 ? &st : nullptr, table, table.size(), threshold))
            << "round " << round << ": " << w << "x" << h;
        lpRaster = nullptr;
    }
}

TEST_F(Dither, TheTableAndProgressArePrintedWhenDebugging) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(2, 2, VCD{255, 255, 255})));
    ZHANDLE table = keep.add(toHandle(std::vector<VCD>{{0, 0, 0}, {255, 255, 255}}));
    _debug_color_res = 1;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    keep.add(rlDitherGivenCT(hs, 2, 2, 24, 1, 0, table, 2));
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Dithering to the following colortable:\ncolor 0: [0, 0, 0]\ncolor 1: [255, 255, 255]\n"
              "Dithering...each(.) represents one scan line\n..\n");
}

TEST_F(Dither, AGivenTableThatCannotBeLockedStops) {
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(uniform24(2, 2, VCD{255, 255, 255})));
    uint32_t before = mivo4::mem::LiveHandles();
    EXPECT_EQ(rlDitherGivenCT(hs, 2, 2, 24, 1, 0, 0, 2), 0u);
    EXPECT_EQ(mivo4::mem::LiveHandles(), before);
}

}  // namespace
