// Row layout, single-pixel access, the nearest-colour search and colour maps.
#include <gtest/gtest.h>
#include <mivo4/color.h>

#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

TEST(RowLayout, RowsArePaddedToFourBytes) {
    EXPECT_EQ(rlBytesPerLine(1, 1), 4u);
    EXPECT_EQ(rlBytesPerLine(33, 1), 8u);
    EXPECT_EQ(rlBytesPerLine(3, 24), 12u);
    EXPECT_EQ(rlBytesPerLine(5, 8), 8u);
    EXPECT_EQ(rlBytesPerLine(0, 24), 0u);
    EXPECT_EQ(rlBytesPerLine(32, 1), 4u);
    EXPECT_EQ(rlBytesPerLine(9, 4), 8u);
    EXPECT_EQ(rlBytesPerLine(3, 32), 12u);
}

TEST(RowLayout, BitmapSizeIsRowSizeTimesHeight) {
    EXPECT_EQ(rlCalcNewSize(3, 5, 24), 60u);
    EXPECT_EQ(rlCalcNewSize(33, 2, 1), 16u);
    EXPECT_EQ(rlCalcNewSize(7, 0, 8), 0u);
}

TEST(RowLayout, SizesBeyondThirtyTwoBitsAnswerTheLargestValue) {
    EXPECT_EQ(rlCalcNewSize(65535, 65535, 32), 0xFFFFFFFFu);
    EXPECT_EQ(rlBytesPerLine(0xFFFFFFFFu, 32), 0xFFFFFFFFu);
}

TEST(PixelAccess, OneBitPixelsAreMostSignificantBitFirst) {
    uint8_t row[8] = {};
    rlSetPixel(row, 4, 0, 0, 1, 1, nullptr, nullptr, 0);
    EXPECT_EQ(row[0], 0x80);
    rlSetPixel(row, 4, 7, 0, 1, 1, nullptr, nullptr, 0);
    EXPECT_EQ(row[0], 0x81);
    rlSetPixel(row, 4, 9, 0, 1, 3, nullptr, nullptr, 0);  // only the lowest bit of the value
    EXPECT_EQ(row[1], 0x40);
    rlSetPixel(row, 4, 0, 1, 1, 1, nullptr, nullptr, 0);  // row 1 starts at byte 4
    EXPECT_EQ(row[4], 0x80);
    rlSetPixel(row, 4, 7, 0, 1, 2, nullptr, nullptr, 0);  // 2 has a clear lowest bit
    EXPECT_EQ(row[0], 0x80);
    EXPECT_EQ(rlGetPixel(row, 4, 0, 0, 1), 1u);
    EXPECT_EQ(rlGetPixel(row, 4, 1, 0, 1), 0u);
    EXPECT_EQ(rlGetPixel(row, 4, 9, 0, 1), 1u);
}

TEST(PixelAccess, FourBitPixelZeroIsTheHighNibbleAndPixelOneTheLowNibbleOfOneByte) {
    uint8_t row[4] = {};
    rlSetPixel(row, 4, 0, 0, 4, 0xA, nullptr, nullptr, 0);
    EXPECT_EQ(row[0], 0xA0);
    rlSetPixel(row, 4, 1, 0, 4, 0x3, nullptr, nullptr, 0);
    EXPECT_EQ(row[0], 0xA3);
    rlSetPixel(row, 4, 0, 0, 4, 0x15, nullptr, nullptr, 0);  // low four bits only
    EXPECT_EQ(row[0], 0x53);
    EXPECT_EQ(row[1], 0);
    EXPECT_EQ(rlGetPixel(row, 4, 0, 0, 4), 0x5u);
    EXPECT_EQ(rlGetPixel(row, 4, 1, 0, 4), 0x3u);
}

TEST(PixelAccess, TrueColourPixelsArePackedRedGreenBlueWithTheFourthByteLow) {
    uint8_t row[8] = {};
    rlSetPixel(row, 8, 1, 0, 24, 0x11223344u, nullptr, nullptr, 0);
    EXPECT_EQ(row[3], 0x11);
    EXPECT_EQ(row[4], 0x22);
    EXPECT_EQ(row[5], 0x33);
    EXPECT_EQ(row[6], 0);
    EXPECT_EQ(rlGetPixel(row, 8, 1, 0, 24), 0x11223300u);

    uint8_t quad[8] = {};
    rlSetPixel(quad, 8, 1, 0, 32, 0x11223344u, nullptr, nullptr, 0);
    EXPECT_EQ(quad[4], 0x11);
    EXPECT_EQ(quad[7], 0x44);
    EXPECT_EQ(rlGetPixel(quad, 8, 1, 0, 32), 0x11223344u);
}

TEST(PixelAccess, EightBitStoresTheLowByte) {
    uint8_t row[4] = {};
    rlSetPixel(row, 4, 2, 0, 8, 0x1FF, nullptr, nullptr, 0);
    EXPECT_EQ(row[2], 0xFF);
    EXPECT_EQ(rlGetPixel(row, 4, 2, 0, 8), 0xFFu);
}

TEST(PixelAccess, UnsupportedDepthsReadZeroAndWriteNothing) {
    uint8_t row[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (int16_t depth : {0, 2, 16, 12, -8}) {
        EXPECT_EQ(rlGetPixel(row, 8, 0, 0, depth), 0u) << depth;
        EXPECT_EQ(rlSetPixel(row, 8, 0, 0, depth, 0xFFFFFFFFu, nullptr, nullptr, 0), 0) << depth;
    }
    const uint8_t same[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(0, std::memcmp(row, same, 8));
}

TEST(PixelAccess, AMapValueIsWrittenInsteadOfTheIndex) {
    const uint32_t map[4] = {7, 6, 5, 4};
    uint8_t row[4] = {};
    rlSetPixel(row, 4, 0, 0, 8, 2, map, nullptr, 0);
    EXPECT_EQ(row[0], 5);
}

TEST(PixelAccess, AnIndexedWriteWithATableStoresTheNearestEntryToThePackedColour) {
    const VCD table[3] = {{0, 0, 0}, {250, 10, 10}, {10, 250, 10}};
    uint8_t row[4] = {};
    rlSetPixel(row, 4, 1, 0, 8, 0x14F00A00u, nullptr, table, 3);  // (20, 240, 10)
    EXPECT_EQ(row[1], 2);
    rlSetPixel(row, 4, 0, 0, 1, 0xF0000000u, nullptr, table, 3);  // (240, 0, 0): index 1, bit 1
    EXPECT_EQ(row[0], 0x80);
}

TEST(PixelAccess, ATrueColourWriteWithATableTakesTheEntryNamedByTheMap) {
    const VCD table[3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    const uint32_t map[2] = {2, 1};
    uint8_t row[8] = {};
    rlSetPixel(row, 8, 0, 0, 24, 0, map, table, 3);
    EXPECT_EQ(row[0], 7);
    EXPECT_EQ(row[1], 8);
    EXPECT_EQ(row[2], 9);
    uint8_t quad[4] = {0, 0, 0, 0x55};
    rlSetPixel(quad, 4, 0, 0, 32, 1, map, table, 3);
    EXPECT_EQ(quad[0], 4);
    EXPECT_EQ(quad[2], 6);
    EXPECT_EQ(quad[3], 0) << "the fourth byte is 0 when a table is given";
}

TEST(PixelAccess, AMapValueThatIsNoEntryOfTheTableIsWrittenAsAPackedColour) {
    const VCD table[2] = {{1, 2, 3}, {4, 5, 6}};
    const uint32_t map[1] = {0x10203000u};
    uint8_t row[4] = {};
    rlSetPixel(row, 4, 0, 0, 24, 0, map, table, 2);
    EXPECT_EQ(row[0], 0x10);
    EXPECT_EQ(row[1], 0x20);
    EXPECT_EQ(row[2], 0x30);
}

TEST(PixelAccess, PixelWritesAreTracedAboveDebugLevelThree) {
    GlobalsGuard keep;
    uint8_t row[24] = {};
    _debug_color_res = 4;
    testing::internal::CaptureStderr();
    rlSetPixel(row, 4, 3, 5, 8, 1, nullptr, nullptr, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "(3,5): ");
    _debug_color_res = 3;
    testing::internal::CaptureStderr();
    rlSetPixel(row, 4, 3, 0, 8, 1, nullptr, nullptr, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(NearestColour, APureGreyNeverMapsToAColouredEntryEvenANearerOne) {
    const VCD table[3] = {{128, 131, 126}, {0, 0, 0}, {255, 255, 255}};
    EXPECT_EQ(rlNearestRGBIndex(128, 130, 126, table, 3), 2) << "white is nearer than black";
    const VCD colours[2] = {{128, 131, 126}, {200, 0, 0}};
    EXPECT_EQ(rlNearestRGBIndex(128, 130, 126, colours, 2), 0) << "nothing qualifies";
    const VCD shifted[2] = {{200, 0, 0}, {128, 131, 126}};
    EXPECT_EQ(rlNearestRGBIndex(128, 130, 126, shifted, 2), 0) << "nothing qualifies: index 0";
}

TEST(NearestColour, AColourNeverMapsToAGreyEntry) {
    const VCD table[3] = {{100, 100, 100}, {0, 0, 255}, {0, 255, 0}};
    EXPECT_EQ(rlNearestRGBIndex(100, 100, 110, table, 3), 1);
}

TEST(NearestColour, GreyMeansChannelsWithinFourOfEachOther) {
    const VCD table[2] = {{50, 50, 50}, {100, 104, 100}};
    EXPECT_EQ(rlNearestRGBIndex(100, 104, 100, table, 2), 0) << "within 4: grey";
    EXPECT_EQ(rlNearestRGBIndex(100, 105, 100, table, 2), 1) << "5 apart: a colour";
}

TEST(NearestColour, TwoEntriesAtEqualDistanceGiveTheLowerIndex) {
    const VCD table[3] = {{0, 0, 0}, {20, 20, 20}, {0, 0, 0}};
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 10, table, 3), 0);
    const VCD colours[3] = {{200, 0, 0}, {10, 0, 20}, {20, 0, 10}};
    EXPECT_EQ(rlNearestRGBIndex(15, 0, 15, colours, 3), 1);
}

TEST(NearestColour, AnExactMatchIsTheFirstEqualEntry) {
    const VCD table[4] = {{9, 9, 9}, {10, 20, 30}, {10, 20, 30}, {10, 20, 30}};
    EXPECT_EQ(rlNearestRGBIndex(10, 20, 30, table, 4), 1);
}

TEST(NearestColour, NoTableOrNoEntriesGiveZero) {
    EXPECT_EQ(rlNearestRGBIndex(1, 2, 3, nullptr, 4), 0);
    const VCD table[1] = {{1, 2, 3}};
    EXPECT_EQ(rlNearestRGBIndex(1, 2, 3, table, 0), 0);
}

TEST(NearestColour, AgreesWithThePlainSearchOnRandomColoursAndTables) {
    std::mt19937 rng(11);
    for (int t = 0; t < 200; ++t) {
        std::vector<VCD> table = randomTable(rng, 1 + rng() % 40);
        for (int k = 0; k < 50; ++k) {
            int r = static_cast<int>(rng() % 256), g = static_cast<int>(rng() % 256), b = static_cast<int>(rng() % 256);
            if (k % 3 == 0) g = std::min(255, r + static_cast<int>(rng() % 5)), b = r;
            ASSERT_EQ(rlNearestRGBIndex(static_cast<int16_t>(r), static_cast<int16_t>(g), static_cast<int16_t>(b),
                                        table.data(), static_cast<int32_t>(table.size())),
                      plainNearest(r, g, b, table, table.size()));
        }
    }
}

TEST(ColourMap, TrueColourNeedsNoMap) {
    const VCD table[2] = {{1, 2, 3}, {4, 5, 6}};
    EXPECT_EQ(rlBuildColormap(table, 24, table, 8, 2), 0u);
}

TEST(ColourMap, WithoutADestinationTableTheSourceTableMapsOntoItself) {
    const VCD table[4] = {{10, 20, 30}, {200, 0, 0}, {10, 20, 30}, {9, 9, 9}};
    uint32_t before = mivo4::mem::LiveHandles();
    ZHANDLE h = rlBuildColormap(table, 2, nullptr, 8, 0);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 16u);
    auto *m = static_cast<uint32_t *>(GlobalLock(h));
    EXPECT_EQ(m[0], 0u);
    EXPECT_EQ(m[1], 1u);
    EXPECT_EQ(m[2], 0u) << "a duplicate maps to the first of its kind";
    EXPECT_EQ(m[3], 3u);
    EXPECT_EQ(rlFreeColormap(h), 0);
    EXPECT_EQ(mivo4::mem::LiveHandles(), before);
}

TEST(ColourMap, ATrueColourDestinationMapsToPackedColours) {
    const VCD table[2] = {{1, 2, 3}, {250, 251, 252}};
    ZHANDLE h = rlBuildColormap(table, 1, nullptr, 24, 0);
    auto *m = static_cast<uint32_t *>(GlobalLock(h));
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m[0], 0x01020300u);
    EXPECT_EQ(m[1], 0xFAFBFC00u);
    rlFreeColormap(h);
}

TEST(ColourMap, EachSourceEntryMapsToItsNearestDestinationEntry) {
    const VCD src[2] = {{250, 250, 250}, {250, 10, 10}};
    const VCD dst[3] = {{0, 0, 0}, {255, 0, 0}, {255, 255, 255}};
    ZHANDLE h = rlBuildColormap(src, 1, dst, 1, 3);
    auto *m = static_cast<uint32_t *>(GlobalLock(h));
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m[0], 2u);
    EXPECT_EQ(m[1], 1u);
    rlFreeColormap(h);
}

TEST(ColourMap, AMissingTableLeavesTheMapZeroFilled) {
    ZHANDLE h = rlBuildColormap(nullptr, 4, nullptr, 8, 0);
    ASSERT_NE(h, 0u);
    Bytes b = fromHandle(h);
    EXPECT_EQ(b, Bytes(64, 0));
    rlFreeColormap(h);
    const VCD src[16] = {};
    h = rlBuildColormap(src, 8 - 4, nullptr, 1, 0);  // deeper source, no destination table
    EXPECT_EQ(fromHandle(h), Bytes(64, 0));
    rlFreeColormap(h);
}

}  // namespace
