// Depth conversion, the depth-change driver and the 32-bit conversions.
#include <gtest/gtest.h>
#include <mivo4/color.h>

#include <cstdlib>
#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

const int kDepths[] = {1, 4, 8, 24, 32};

bool indexed(int depth) { return depth <= 8; }

ZHANDLE convert(const Bytes &src, uint32_t w, uint32_t h, int sd, int dd, const std::vector<VCD> *st,
                const std::vector<VCD> *dt, Handles &keep) {
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE ht = st != nullptr ? keep.add(toHandle(*st)) : 0;
    ZHANDLE hd = dt != nullptr ? keep.add(toHandle(*dt)) : 0;
    return keep.add(rlConvertBitmapDepth(hs, w, h, static_cast<int16_t>(sd), static_cast<int16_t>(dd), ht, hd,
                                         dt != nullptr ? static_cast<uint16_t>(dt->size()) : 0));
}

TEST(DepthConversion, EveryDepthPairMatchesThePlainPixelLoopOnRandomBitmaps) {
    std::mt19937 rng(5);
    for (int sd : kDepths)
        for (int dd : kDepths)
            for (int round = 0; round < 12; ++round) {
                const uint32_t w = 1 + rng() % 37, h = 1 + rng() % 9;
                Bytes src = round % 2 ? randomBitmap(rng, w, h, sd) : palettedBitmap(rng, w, h, sd, 5);
                std::vector<VCD> st = randomTable(rng, indexed(sd) ? (1u << sd) : 4);
                std::vector<VCD> dt = randomTable(rng, 1 + rng() % 20);
                const std::vector<VCD> *srcTable = indexed(sd) ? &st : nullptr;
                const std::vector<VCD> *dstTable = (round % 3 == 0) ? nullptr : &dt;
                Handles keep;
                ZHANDLE out = convert(src, w, h, sd, dd, srcTable, dstTable, keep);
                ASSERT_NE(out, 0u);
                EXPECT_EQ(fromHandle(out), plainConvert(src, w, h, sd, dd, srcTable, dstTable))
                    << sd << " -> " << dd << " " << w << "x" << h << " round " << round;
            }
}

TEST(DepthConversion, TheSourceIsLeftUntouched) {
    std::mt19937 rng(6);
    Bytes src = randomBitmap(rng, 13, 4, 24);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    std::vector<VCD> dt = randomTable(rng, 16);
    ZHANDLE hd = keep.add(toHandle(dt));
    keep.add(rlConvertBitmapDepth(hs, 13, 4, 24, 4, 0, hd, 16));
    EXPECT_EQ(fromHandle(hs), src);
}

TEST(DepthConversion, IndexedToTrueColourExpandsThroughTheSourceTable) {
    const std::vector<VCD> table = {{10, 20, 30}, {40, 50, 60}};
    Bytes src = {0x40, 0, 0, 0};  // 1 bit, 3 pixels: 0, 1, 0
    Handles keep;
    ZHANDLE out = convert(src, 3, 1, 1, 24, &table, nullptr, keep);
    EXPECT_EQ(fromHandle(out), (Bytes{10, 20, 30, 40, 50, 60, 10, 20, 30, 0, 0, 0}));
}

TEST(DepthConversion, IndexedToThirtyTwoBitsWithoutATableWritesTheIndexAsTheFourthByte) {
    // The map holds indices for any destination but 24 bits, and without a
    // destination table the packed value (a small index) is what is stored.
    const std::vector<VCD> table = {{10, 20, 30}, {40, 50, 60}, {10, 20, 30}, {1, 1, 1}};
    Bytes src = {0x01, 0x23, 0, 0};  // 4 bits: 0, 1, 2, 3
    Handles keep;
    ZHANDLE out = convert(src, 4, 1, 4, 32, &table, nullptr, keep);
    EXPECT_EQ(fromHandle(out), (Bytes{0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 3}));
}

TEST(DepthConversion, IndexedToSmallerIndexedMapsEachEntryToItsNearestDestinationEntry) {
    const std::vector<VCD> src = {{0, 0, 0}, {250, 250, 250}, {240, 10, 10}, {10, 10, 240}};
    std::vector<VCD> fullSrc(256, VCD{0, 0, 0});
    std::copy(src.begin(), src.end(), fullSrc.begin());
    const std::vector<VCD> dst = {{0, 0, 255}, {255, 255, 255}, {255, 0, 0}, {0, 0, 0}};
    Bytes pixels = {0, 1, 2, 3, 1, 0, 0, 0};  // 8 bits, 6 pixels used
    Handles keep;
    ZHANDLE out = convert(pixels, 6, 1, 8, 4, &fullSrc, &dst, keep);
    // 0 -> black (3), 1 -> white (1), 2 -> red (2), 3 -> blue (0), 1 -> 1, 0 -> 3
    EXPECT_EQ(fromHandle(out), (Bytes{0x31, 0x20, 0x13, 0}));
}

TEST(DepthConversion, IndexedWithoutDestinationTableMapsOntoItsOwnTable) {
    const std::vector<VCD> table = {{5, 5, 5}, {5, 5, 5}, {7, 0, 0}, {0, 7, 0}};
    std::vector<VCD> full(16, VCD{0, 0, 0});
    std::copy(table.begin(), table.end(), full.begin());
    Bytes pixels = {0x01, 0x23, 0, 0};
    Handles keep;
    ZHANDLE out = convert(pixels, 4, 1, 4, 8, &full, nullptr, keep);
    EXPECT_EQ(fromHandle(out), (Bytes{0, 0, 2, 3})) << "the duplicate entry 1 becomes 0";
}

TEST(DepthConversion, TrueColourToIndexedFindsTheNearestEntryForEveryPixel) {
    const std::vector<VCD> dst = {{0, 0, 0}, {255, 255, 255}, {200, 0, 0}};
    Bytes src = {10, 10, 10, 250, 247, 250, 180, 20, 0, 0, 0, 0};
    Handles keep;
    ZHANDLE out = convert(src, 3, 1, 24, 8, nullptr, &dst, keep);
    EXPECT_EQ(fromHandle(out), (Bytes{0, 1, 2, 0}));
}

TEST(DepthConversion, AValueWrittenToOneBitKeepsTheLowestBitOfItsIndex) {
    const std::vector<VCD> dst = {{0, 0, 0}, {9, 9, 9}, {255, 255, 255}, {99, 99, 99}};
    Bytes src = {250, 250, 250, 100, 100, 100, 0, 0, 0, 10, 10, 10, 0, 0, 0, 0};
    Handles keep;
    ZHANDLE out = convert(src, 4, 1, 24, 1, nullptr, &dst, keep);
    // indices 2, 3, 0, 1 -> bits 0, 1, 0, 1
    EXPECT_EQ(fromHandle(out), (Bytes{0x50, 0, 0, 0}));
}

TEST(DepthConversion, EightToTwentyFourAndBackRestoresIndicesUniqueInTheTable) {
    std::mt19937 rng(9);
    std::vector<VCD> table(256);
    for (size_t i = 0; i < table.size(); ++i) {
        table[i] = VCD{static_cast<uint8_t>(i), static_cast<uint8_t>(255 - i), static_cast<uint8_t>(i * 7)};
        // A near grey that is not an exact grey would come back as the
        // nearest exact grey, not as itself: keep the entries clearly coloured.
        if (std::abs(int{table[i].red} - table[i].green) <= 4) table[i].blue = static_cast<uint8_t>(table[i].red + 100);
    }
    table[17] = table[16];  // a repeated entry: 17 comes back as 16
    table[40] = VCD{40, 40, 40};
    table[41] = VCD{40, 40, 40};
    const uint32_t w = 29, h = 7;
    Bytes src = randomBitmap(rng, w, h, 8);
    Handles keep;
    ZHANDLE ht = keep.add(toHandle(table));
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE wide = keep.add(rlConvertBitmapDepth(hs, w, h, 8, 24, ht, 0, 0));
    ZHANDLE back = keep.add(rlConvertBitmapDepth(wide, w, h, 24, 8, 0, ht, 256));
    std::vector<uint32_t> before = pixels(src, w, h, 8), after = pixels(fromHandle(back), w, h, 8);
    for (size_t i = 0; i < before.size(); ++i) {
        uint32_t expected = before[i] == 17 ? 16 : before[i] == 41 ? 40 : before[i];
        ASSERT_EQ(after[i], expected) << i;
    }
}

TEST(DepthConversion, TablesShorterThanTheirCountReadBlackPastTheBlock) {
    // The destination table's block holds one entry but four are named.
    const std::vector<VCD> one = {{200, 0, 0}};
    const std::vector<VCD> asRead = {{200, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    Bytes src = {10, 10, 10, 190, 5, 5, 0, 0, 0, 0, 0, 0};
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE hd = keep.add(toHandle(one));
    ZHANDLE out = keep.add(rlConvertBitmapDepth(hs, 3, 1, 24, 8, 0, hd, 4));
    EXPECT_EQ(fromHandle(out), plainConvert(src, 3, 1, 24, 8, nullptr, &asRead));
    EXPECT_EQ(fromHandle(out), (Bytes{1, 0, 1, 0}));
}

TEST(DepthConversion, ASourceDescribedLargerThanItsBlockReadsZeroPastTheBlock) {
    Bytes oneRow = {1, 2, 3, 4, 5, 6, 0, 0};  // 2 pixels of 24 bits, one row
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(oneRow));
    ZHANDLE out = keep.add(rlConvertBitmapDepth(hs, 2, 3, 24, 32, 0, 0, 0));
    Bytes expected(24, 0);
    const uint8_t first[8] = {1, 2, 3, 0, 4, 5, 6, 0};
    std::memcpy(expected.data(), first, 8);
    EXPECT_EQ(fromHandle(out), expected);
}

TEST(DepthConversion, NoSourceGivesAZeroFilledBitmap) {
    Handles keep;
    ZHANDLE out = keep.add(rlConvertBitmapDepth(0, 5, 2, 24, 8, 0, 0, 0));
    EXPECT_EQ(fromHandle(out), Bytes(16, 0));
}

TEST(DepthConversion, ProgressMessagesGoToTheErrorStreamWhenDebugging) {
    GlobalsGuard keepGlobals;
    Bytes src(8, 0);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    _debug_color_res = 1;
    testing::internal::CaptureStderr();
    keep.add(rlConvertBitmapDepth(hs, 2, 2, 8, 8, 0, 0, 0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Allocated 8 bytes of new memory for the destination bitmap\n"
              "Converted bits. Each (.) represents one scan line\n"
              "..\nColor resolution conversion complete\n");
    _debug_color_res = 3;
    testing::internal::CaptureStderr();
    keep.add(rlConvertBitmapDepth(hs, 2, 2, 8, 8, 0, 0, 0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Allocated 8 bytes of new memory for the destination bitmap\n"
              "\nColor resolution conversion complete\n");
}

TEST(DepthConversion, TheTracingLevelWritesThePixelsThroughTheSameRule) {
    GlobalsGuard keepGlobals;
    std::mt19937 rng(21);
    Bytes src = randomBitmap(rng, 3, 2, 24);
    std::vector<VCD> dt = randomTable(rng, 6);
    Handles keep;
    ZHANDLE fast = convert(src, 3, 2, 24, 4, nullptr, &dt, keep);
    _debug_color_res = 4;
    testing::internal::CaptureStderr();
    ZHANDLE traced = convert(src, 3, 2, 24, 4, nullptr, &dt, keep);
    std::string trace = testing::internal::GetCapturedStderr();
    EXPECT_EQ(fromHandle(traced), fromHandle(fast));
    EXPECT_NE(trace.find("(0,0): (1,0): (2,0): (0,1): (1,1): (2,1): "), std::string::npos) << trace;
}

TEST(DepthChange, EightToTwentyFourReturnsATrueColourBitmapAndClearsTheTableHandle) {
    const std::vector<VCD> table = [] {
        std::vector<VCD> t(256, VCD{0, 0, 0});
        t[1] = VCD{1, 2, 3};
        t[200] = VCD{200, 100, 50};
        return t;
    }();
    Bytes src = {1, 200, 0, 0};
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE ht = keep.add(toHandle(table));
    ZHANDLE hrgb = ht;
    ZHANDLE out = keep.add(rlChangeColorResolution(hs, 3, 1, 8, 24, &hrgb));
    EXPECT_EQ(hrgb, 0u);
    EXPECT_EQ(fromHandle(out), (Bytes{1, 2, 3, 200, 100, 50, 0, 0, 0, 0, 0, 0}));
    EXPECT_NE(GlobalLock(ht), nullptr) << "the old table is not freed";
}

TEST(DepthChange, TwentyFourToEightReducesThePictureAndMapsItOntoTheReducedTable) {
    // Three distinct colours: the reduced table lists them in 15-bit order.
    Bytes src = {255, 0, 0, 8, 8, 8, 0, 255, 0, 255, 0, 0, 0, 0, 0, 0};
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE hrgb = 0;
    ZHANDLE out = keep.add(rlChangeColorResolution(hs, 4, 1, 24, 8, &hrgb));
    keep.add(hrgb);
    std::vector<VCD> t = tableFromHandle(hrgb);
    ASSERT_EQ(t.size(), 256u);
    EXPECT_EQ(t[0].green, 255);
    EXPECT_EQ(t[1].red, 15);
    EXPECT_EQ(t[2].red, 255);
    // red -> 2, grey -> 1 (15, 15, 15 is the nearest grey), green -> 0, red -> 2
    EXPECT_EQ(fromHandle(out), (Bytes{2, 1, 0, 2}));
}

TEST(DepthChange, TwentyFourToOneDithersOntoTheMonochromeGreys) {
    GlobalsGuard keepGlobals;
    lpRaster = nullptr;
    Bytes src = {255, 255, 255, 0, 0, 0, 255, 255, 255, 0, 0, 0};
    src.resize(24, 0);
    for (int i = 12; i < 24; ++i) src[static_cast<size_t>(i)] = src[static_cast<size_t>(i - 12)];
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE hrgb = 0;
    ZHANDLE out = keep.add(rlChangeColorResolution(hs, 4, 2, 24, 1, &hrgb));
    keep.add(hrgb);
    EXPECT_EQ(tableFromHandle(hrgb), std::vector<VCD>(MonoTable, MonoTable + 8));
    // white, black, white, then the right edge repeats its neighbour: white
    EXPECT_EQ(fromHandle(out), (Bytes{0xB0, 0, 0, 0, 0xB0, 0, 0, 0}));
}

TEST(ThirtyTwoBit, CmykBecomesPackedRgbFromTheFront) {
    Bytes px = {10, 20, 30, 5, 0, 0, 0, 200, 255, 0, 128, 0};
    Handles keep;
    ZHANDLE h = keep.add(toHandle(px));
    rlCMYKtoRGB(h, 3, 1);
    Bytes out = fromHandle(h);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 9), (Bytes{245, 235, 225, 55, 55, 55, 0, 255, 127}));
    EXPECT_EQ(Bytes(out.begin() + 9, out.end()), (Bytes{0, 128, 0})) << "the tail is left as it was";
}

TEST(ThirtyTwoBit, AlphaIsDroppedAndTheColoursPackedFromTheFront) {
    Bytes px = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    Handles keep;
    ZHANDLE h = keep.add(toHandle(px));
    rlALPHAtoRGB(h, 2, 2);
    Bytes out = fromHandle(h);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 12), (Bytes{1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 14, 15}));
}

TEST(ThirtyTwoBit, RgbToCmykConvertsEveryPixelOnce) {
    Bytes px = {0, 10, 255, 77, 100, 100, 100, 1, 255, 255, 255, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    Handles keep;
    ZHANDLE h = keep.add(toHandle(px));
    rlRGB4toCMYK(h, 3, 2);
    EXPECT_EQ(fromHandle(h), (Bytes{255, 245, 0, 0, 155, 155, 155, 0, 0, 0, 0, 0, 254, 253, 252, 0, 250, 249,
                                    248, 0, 246, 245, 244, 0}));
}

TEST(ThirtyTwoBit, ConversionsStopAtTheEndOfTheBlock) {
    Bytes px = {10, 20, 30, 5};
    Handles keep;
    ZHANDLE h = keep.add(toHandle(px));
    rlRGB4toCMYK(h, 100, 100);
    EXPECT_EQ(fromHandle(h), (Bytes{245, 235, 225, 0}));
    rlCMYKtoRGB(0, 3, 3);
    rlALPHAtoRGB(0, 3, 3);
    rlRGB4toCMYK(0, 3, 3);
}

TEST(ColorLibRecord, InitGivesAZeroFilledRecordAndTermFreesItsBlocks) {
    uint32_t before = mivo4::mem::LiveHandles();
    ZHANDLE h = InitColorLib();
    ASSERT_NE(h, 0u);
    EXPECT_EQ(fromHandle(h), Bytes(sizeof(ColorLibStruct), 0));
    auto *lib = static_cast<ColorLibStruct *>(GlobalLock(h));
    lib->hClrList = GlobalAlloc(GHND, 10);
    lib->hsList = GlobalAlloc(GHND, 10);
    EXPECT_EQ(TermColorLib(h), 0);
    EXPECT_EQ(mivo4::mem::LiveHandles(), before);
    EXPECT_EQ(TermColorLib(0), 0);
    EXPECT_EQ(TermColorLib(h), -1) << "a freed record cannot be locked";
}

}  // namespace
