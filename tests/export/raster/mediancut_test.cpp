// Colour reduction by median cut: the helpers on hand-worked lists and the
// whole reduction on small pictures.
#include <gtest/gtest.h>
#include <mivo4/color.h>

#include <algorithm>
#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

RGBC entry(unsigned r, unsigned g, unsigned b, unsigned count) {
    return RGBC{static_cast<uint16_t>(r << 10 | g << 5 | b), static_cast<uint16_t>(count)};
}
unsigned red(const RGBC &e) { return (e.Bit15RGB >> 10) & 31u; }

std::vector<unsigned> reds(const std::vector<RGBC> &list) {
    std::vector<unsigned> v;
    for (const RGBC &e : list) v.push_back(red(e));
    return v;
}
std::vector<unsigned> counts(const std::vector<RGBC> &list) {
    std::vector<unsigned> v;
    for (const RGBC &e : list) v.push_back(e.count);
    return v;
}

clrRect box(int16_t first, int16_t last, uint8_t widest) {
    clrRect r{};
    r.first = first;
    r.last = last;
    r.widestColor = widest;
    return r;
}

// A 24-bit picture of one row from colours.
Bytes row24(const std::vector<VCD> &colours) {
    Bytes b(bpl(static_cast<uint32_t>(colours.size()), 24), 0);
    for (size_t i = 0; i < colours.size(); ++i) {
        b[3 * i] = colours[i].red;
        b[3 * i + 1] = colours[i].green;
        b[3 * i + 2] = colours[i].blue;
    }
    return b;
}

std::vector<VCD> reduce(const Bytes &pixels, int16_t w, int16_t h, uint16_t &size) {
    ZHANDLE hp = toHandle(pixels);
    ZHANDLE t = rlReduceColorTable(hp, w, h, &size);
    std::vector<VCD> table = tableFromHandle(t);
    GlobalFree(t);
    GlobalFree(hp);
    return table;
}

TEST(HeapSort, TheBuildPhaseTakesInTheEntryJustPastTheRange) {
    // Sorting two entries: the third, outside the range, has the largest key
    // and is exchanged into it; the range's smallest entry leaves.
    std::vector<RGBC> list = {entry(1, 0, 0, 10), entry(2, 0, 0, 20), entry(9, 0, 0, 30)};
    HeapSort(list.data(), 0, 2);
    EXPECT_EQ(reds(list), (std::vector<unsigned>{2, 9, 1}));
    EXPECT_EQ(counts(list), (std::vector<unsigned>{20, 30, 10}));
}

TEST(HeapSort, EvenARangeOfOneEntryCanBeReplacedByItsSuccessor) {
    std::vector<RGBC> list = {entry(1, 0, 0, 1), entry(5, 0, 0, 2)};
    HeapSort(list.data(), 0, 1);
    EXPECT_EQ(reds(list), (std::vector<unsigned>{5, 1}));
}

TEST(HeapSort, ASmallerSuccessorStaysOutside) {
    std::vector<RGBC> list = {entry(3, 0, 0, 1), entry(1, 0, 0, 2), entry(0, 0, 0, 3)};
    HeapSort(list.data(), 0, 2);
    EXPECT_EQ(reds(list), (std::vector<unsigned>{1, 3, 0}));
}

TEST(HeapSort, SortsAscendingByTheNamedChannelWhenTheSuccessorIsSmallest) {
    std::mt19937 rng(3);
    for (int round = 0; round < 200; ++round) {
        const int n = 1 + static_cast<int>(rng() % 40);
        const int color = static_cast<int>(rng() % 4);  // 3 sorts by blue too
        std::vector<RGBC> list;
        for (int i = 0; i < n; ++i) list.push_back(entry(rng() % 32, rng() % 32, rng() % 32, rng() % 100));
        list.push_back(RGBC{0, 0});  // the spare zero entry
        std::vector<RGBC> before(list.begin(), list.begin() + n);
        HeapSort(list.data(), color, n);
        auto key = [&](const RGBC &e) {
            return color == 0 ? (e.Bit15RGB >> 10) & 31 : color == 1 ? (e.Bit15RGB >> 5) & 31 : e.Bit15RGB & 31;
        };
        for (int i = 1; i < n; ++i) ASSERT_LE(key(list[i - 1]), key(list[i])) << round;
        EXPECT_EQ(list[static_cast<size_t>(n)].Bit15RGB, 0);
        auto order = [](const RGBC &a, const RGBC &b) {
            return a.Bit15RGB != b.Bit15RGB ? a.Bit15RGB < b.Bit15RGB : a.count < b.count;
        };
        std::vector<RGBC> after(list.begin(), list.begin() + n);
        std::sort(before.begin(), before.end(), order);
        std::sort(after.begin(), after.end(), order);
        for (int i = 0; i < n; ++i) ASSERT_EQ(before[i].Bit15RGB, after[i].Bit15RGB);
    }
}

TEST(AdjustHeap, SiftsTheRootDownThroughTheLargerChild) {
    std::vector<RGBC> list = {entry(1, 0, 0, 0), entry(4, 0, 0, 0), entry(6, 0, 0, 0), entry(5, 0, 0, 0),
                              entry(2, 0, 0, 0)};
    AdjustHeap(list.data(), 0, 0, 4);
    EXPECT_EQ(reds(list), (std::vector<unsigned>{6, 4, 1, 5, 2}));
}

TEST(FindMedian, WalkingBackSubtractsTheCountOfThePositionArrivedAt) {
    // sum 60, half 30: the walk stops at 2 (35). Forward: 3 (40). Back: to 1
    // taking off count 10, to 0 taking off count 10: 15. 30 - 15 > 40 - 30,
    // so the forward position wins.
    std::vector<RGBC> list = {entry(1, 0, 0, 10), entry(2, 1, 0, 10), entry(2, 2, 0, 15), entry(2, 3, 0, 5),
                              entry(3, 0, 0, 20), RGBC{0, 0}};
    clrRect r = box(0, 4, 0);
    EXPECT_EQ(find_median(list.data(), &r), 3);
}

TEST(FindMedian, TiesGoBackward) {
    // sum 70, half 35: the walk stops at 2 (35). Forward: 3 (65). Back: to 1
    // (35 - 5 = 30), to 0 (30 - 20 = 10). 35 - 10 > 65 - 35 is false: back, 0.
    std::vector<RGBC> list = {entry(1, 0, 0, 20), entry(2, 1, 0, 5), entry(2, 2, 0, 10), entry(2, 3, 0, 30),
                              entry(3, 0, 0, 5), RGBC{0, 0}};
    clrRect r = box(0, 4, 0);
    EXPECT_EQ(find_median(list.data(), &r), 0);
}

TEST(FindMedian, UsesTheBoxsWidestChannelAsKey) {
    // Keyed by blue: positions 1 and 2 share blue 4, the walk stops at 1.
    std::vector<RGBC> list = {entry(0, 0, 1, 4), entry(1, 0, 4, 1), entry(2, 0, 4, 1), entry(3, 0, 9, 4),
                              RGBC{0, 0}};
    clrRect r = box(0, 3, 2);
    // sum 10, half 5: stops at 1 (5). Forward to 2 (6). Back: 1 == 2 so to 0
    // (5 - 4 = 1). 5 - 1 > 6 - 5: forward, 2.
    EXPECT_EQ(find_median(list.data(), &r), 2);
    r.widestColor = 0;  // by red nothing is shared: the walk's position
    EXPECT_EQ(find_median(list.data(), &r), 1);
}

TEST(FindMedian, ABoxOfOneOrTwoPositionsSplitsAtItsFirst) {
    std::vector<RGBC> list = {entry(1, 0, 0, 1), entry(2, 0, 0, 100), entry(3, 0, 0, 1), RGBC{0, 0}};
    clrRect r = box(1, 2, 0);
    EXPECT_EQ(find_median(list.data(), &r), 1);
    r = box(2, 2, 0);
    EXPECT_EQ(find_median(list.data(), &r), 2);
}

class Split : public ::testing::Test {
protected:
    void SetUp() override {
        list = {entry(1, 0, 0, 1), entry(2, 0, 0, 1), entry(3, 0, 0, 2), entry(4, 0, 0, 1), entry(5, 0, 0, 3),
                RGBC{0, 0}};
        getCRectData(&boxes[0], list.data(), 0, 4);
    }
    std::vector<RGBC> list;
    clrRect boxes[4] = {};
    int16_t available[4] = {0, -1, -1, -1};
    uint16_t live = 1;
};

TEST_F(Split, AMiddleMedianGivesTwoSplittableBoxesInTheFirstFreeSlots) {
    split(boxes, 0, 2, &live, available, list.data(), 4);
    EXPECT_EQ(live, 2);
    EXPECT_EQ(available[0], -1);
    EXPECT_EQ(available[1], 1);
    EXPECT_EQ(available[2], 2);
    EXPECT_EQ(available[3], -1);
    EXPECT_EQ(boxes[1].first, 0);
    EXPECT_EQ(boxes[1].last, 2);
    EXPECT_EQ(boxes[1].histSum, 4u);
    EXPECT_EQ(boxes[1].red, 2);  // (1 + 2 + 3 * 2) / 4
    EXPECT_EQ(boxes[2].first, 3);
    EXPECT_EQ(boxes[2].last, 4);
    EXPECT_EQ(boxes[2].red, 4);  // (4 + 5 * 3) / 4
    EXPECT_EQ(boxes[0].first, 0) << "the parent's box stays in its freed slot";
    EXPECT_EQ(boxes[0].last, 4);
    EXPECT_EQ(boxes[0].histSum, 8u);
}

TEST_F(Split, AMedianAtTheFirstPositionLeavesASingleColourBelow) {
    split(boxes, 0, 0, &live, available, list.data(), 4);
    EXPECT_EQ(boxes[1].first, 0);
    EXPECT_EQ(boxes[1].last, 0);
    EXPECT_EQ(available[1], -2);
    EXPECT_EQ(boxes[2].first, 1);
    EXPECT_EQ(boxes[2].last, 4);
    EXPECT_EQ(available[2], 2);
}

TEST_F(Split, AMedianAtTheLastPositionLeavesASingleColourAbove) {
    split(boxes, 0, 4, &live, available, list.data(), 4);
    EXPECT_EQ(boxes[1].first, 0);
    EXPECT_EQ(boxes[1].last, 3);
    EXPECT_EQ(available[1], 1);
    EXPECT_EQ(boxes[2].first, 4);
    EXPECT_EQ(boxes[2].last, 4);
    EXPECT_EQ(available[2], -2);
}

TEST_F(Split, AnUpperPartOfOnePositionIsMarkedSingle) {
    split(boxes, 0, 3, &live, available, list.data(), 4);
    EXPECT_EQ(boxes[1].last, 3);
    EXPECT_EQ(boxes[2].first, 4);
    EXPECT_EQ(boxes[2].last, 4);
    EXPECT_EQ(available[2], -2);
}

TEST_F(Split, AFreedSlotIsReusedFirst) {
    getCRectData(&boxes[1], list.data(), 0, 2);
    getCRectData(&boxes[2], list.data(), 3, 4);
    available[0] = -1;
    available[1] = 1;
    available[2] = 2;
    live = 2;
    split(boxes, 1, 1, &live, available, list.data(), 4);
    EXPECT_EQ(live, 3);
    EXPECT_EQ(boxes[0].first, 0);
    EXPECT_EQ(boxes[0].last, 1);
    EXPECT_EQ(available[0], 0);
    EXPECT_EQ(boxes[3].first, 2);
    EXPECT_EQ(boxes[3].last, 2);
    EXPECT_EQ(available[3], -2);
    EXPECT_EQ(available[1], -1);
}

TEST(GetMaxHistSum, TheFirstSplittableBoxWithTheMostPixelsWins) {
    clrRect boxes[4] = {};
    boxes[0].histSum = 5;
    boxes[1].histSum = 9;
    boxes[2].histSum = 9;
    boxes[3].histSum = 9;
    int16_t available[4] = {0, -2, 2, 3};
    EXPECT_EQ(GetMaxHistSum(boxes, available, 4), 2);
    int16_t none[4] = {-1, -2, -1, -2};
    EXPECT_EQ(GetMaxHistSum(boxes, none, 4), 0);
}

TEST(GetCRectData, ExtentsMeanAndWidestChannel) {
    std::vector<RGBC> list = {entry(1, 5, 2, 1), entry(3, 5, 9, 3)};
    clrRect r{};
    getCRectData(&r, list.data(), 0, 1);
    EXPECT_EQ(r.histSum, 4u);
    EXPECT_EQ(r.red, 2);    // 10 / 4
    EXPECT_EQ(r.green, 5);  // 20 / 4
    EXPECT_EQ(r.blue, 7);   // 29 / 4
    EXPECT_EQ(r.redMin, 1);
    EXPECT_EQ(r.redMax, 3);
    EXPECT_EQ(r.blueMin, 2);
    EXPECT_EQ(r.blueMax, 9);
    EXPECT_EQ(r.widestColor, 2);
}

TEST(GetCRectData, WidthTiesPreferRedThenGreen) {
    std::vector<RGBC> list = {entry(1, 0, 1, 1), entry(3, 0, 3, 1)};
    clrRect r{};
    getCRectData(&r, list.data(), 0, 1);
    EXPECT_EQ(r.widestColor, 0);
    list = {entry(0, 1, 1, 1), entry(0, 3, 3, 1)};
    getCRectData(&r, list.data(), 0, 1);
    EXPECT_EQ(r.widestColor, 1);
}

TEST(GetCRectData, ABoxWithoutPixelsIsBlack) {
    std::vector<RGBC> list = {RGBC{0x7FFF, 0}};
    clrRect r{};
    getCRectData(&r, list.data(), 0, 0);
    EXPECT_EQ(r.histSum, 0u);
    EXPECT_EQ(r.red, 0);
    EXPECT_EQ(r.redMax, 31);
}

TEST(ReduceColorTable, FewerColoursThanRequestedAreListedIn15BitOrder) {
    Bytes pixels = row24({{255, 0, 0}, {8, 8, 8}, {0, 255, 0}, {255, 0, 0}, {12, 14, 9}});
    uint16_t size = 256;
    std::vector<VCD> table = reduce(pixels, 5, 1, size);
    EXPECT_EQ(size, 3);
    ASSERT_EQ(table.size(), 256u);
    EXPECT_EQ(table[0], (VCD{0, 255, 0}));
    EXPECT_EQ(table[1], (VCD{15, 15, 15}));
    EXPECT_EQ(table[2], (VCD{255, 0, 0}));
    EXPECT_EQ(table[3], (VCD{0, 0, 0}));
}

TEST(ReduceColorTable, ExactlyAsManyColoursAsRequestedGoThroughTheCut) {
    // Four reds (5-bit 1, 2, 3, 4), one pixel each. The first cut sorts them
    // and splits at 1: slots 1 [1, 2] and 2 [3, 4]. The second cut sorts
    // [1, 2], takes in red 3 from the next box (so the list reads 2, 3, 1, 4)
    // and splits that range into slot 0 (red 2) and slot 3 (red 3); slot 1
    // keeps its parent's mean (1) and slot 2 its own mean (3).
    Bytes pixels = row24({{8, 0, 0}, {16, 0, 0}, {24, 0, 0}, {32, 0, 0}});
    uint16_t size = 4;
    std::vector<VCD> table = reduce(pixels, 4, 1, size);
    EXPECT_EQ(size, 4);
    EXPECT_EQ(table, (std::vector<VCD>{{23, 0, 0}, {15, 0, 0}, {31, 0, 0}, {31, 0, 0}}));
}

TEST(ReduceColorTable, ARequestOfTwoGivesTheMeanAndBlack) {
    Bytes pixels = row24({{255, 0, 0}, {0, 0, 255}, {255, 0, 0}, {0, 0, 255}, {0, 0, 255}, {255, 0, 0}, {0, 255, 0}});
    uint16_t size = 2;
    std::vector<VCD> table = reduce(pixels, 7, 1, size);
    EXPECT_EQ(size, 2);
    // red 31 x3 = 93, green 31 x1 = 31, blue 31 x3 = 93, over 7 pixels: 13, 4, 13
    EXPECT_EQ(table, (std::vector<VCD>{{111, 39, 111}, {0, 0, 0}}));
}

TEST(ReduceColorTable, ARequestOfOneGivesTheMean) {
    Bytes pixels = row24({{255, 0, 0}, {0, 0, 255}});
    uint16_t size = 1;
    EXPECT_EQ(reduce(pixels, 2, 1, size), (std::vector<VCD>{{127, 0, 127}}));
    EXPECT_EQ(size, 1);
}

TEST(ReduceColorTable, ARequestOfNothingGivesAnEmptyTable) {
    Bytes pixels = row24({{255, 0, 0}, {0, 0, 255}});
    uint16_t size = 0;
    EXPECT_TRUE(reduce(pixels, 2, 1, size).empty());
    EXPECT_EQ(size, 0);
}

TEST(ReduceColorTable, AnEmptyPictureGivesNoColours) {
    Bytes pixels(16, 0);
    uint16_t size = 8;
    EXPECT_EQ(reduce(pixels, 0, 4, size), std::vector<VCD>(8, VCD{0, 0, 0}));
    EXPECT_EQ(size, 0);
}

TEST(ReduceColorTable, ColoursDifferingOnlyInTheirLowThreeBitsAreOneEntry) {
    Bytes pixels = row24({{8, 16, 24}, {15, 23, 31}, {9, 17, 30}, {200, 0, 0}});
    uint16_t size = 16;
    std::vector<VCD> table = reduce(pixels, 4, 1, size);
    EXPECT_EQ(size, 2);
    EXPECT_EQ(table[0], (VCD{15, 23, 31}));
    EXPECT_EQ(table[1], (VCD{207, 0, 0}));
}

TEST(ReduceColorTable, PixelsPastTheEndOfTheBlockReadBlack) {
    Bytes pixels = row24({{255, 255, 255}, {255, 255, 255}});
    uint16_t size = 4;
    std::vector<VCD> table = reduce(pixels, 2, 3, size);  // two rows beyond the block
    EXPECT_EQ(size, 2);
    EXPECT_EQ(table[0], (VCD{0, 0, 0}));
    EXPECT_EQ(table[1], (VCD{255, 255, 255}));
}

TEST(ReduceColorTable, ProgressIsPrintedWhenDebugging) {
    GlobalsGuard keep;
    _debug_color_res = 1;
    Bytes pixels = row24({{255, 0, 0}});
    uint16_t size = 2;
    testing::internal::CaptureStderr();
    reduce(pixels, 1, 1, size);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Color Reduction in Process...24bit -> 2 colors\n  -new color table size: 1\n"
              "   color 0: [255, 0, 0]\n");
}

TEST(DirectIndexed, ACounterStopsAt65535) {
    const int16_t w = 280, h = 250;  // 70000 pixels of one colour
    Bytes pixels(size_t{bpl(w, 24)} * h, 0);
    for (int16_t y = 0; y < h; ++y)
        for (int16_t x = 0; x < w; ++x) pixels[size_t(y) * bpl(w, 24) + 3 * size_t(x)] = 0xF8;
    ZHANDLE lib = InitColorLib();
    uint16_t ncols = 5;
    EXPECT_EQ(direct_indexed(pixels.data(), w, h, &ncols, 0, nullptr, lib), 0);
    EXPECT_EQ(ncols, 0) << "without flag 1 no table is built";
    auto *rec = static_cast<ColorLibStruct *>(GlobalLock(lib));
    EXPECT_EQ(rec->tclrs, 1);
    auto *hist = static_cast<uint16_t *>(GlobalLock(rec->hClrList));
    EXPECT_EQ(hist[31 << 10], 65535);
    EXPECT_EQ(TermColorLib(lib), 0);
}

TEST(DirectIndexed, TheHistogramAccumulatesAcrossCallsUntilATableIsBuilt) {
    ZHANDLE lib = InitColorLib();
    Bytes band1 = row24({{255, 0, 0}, {0, 255, 0}});
    Bytes band2 = row24({{0, 0, 255}, {255, 0, 0}});
    std::vector<VCD> table(4, VCD{9, 9, 9});
    uint16_t ncols = 4;
    EXPECT_EQ(direct_indexed(band1.data(), 2, 1, &ncols, 2, table.data(), lib), 0);
    ncols = 4;
    EXPECT_EQ(direct_indexed(band2.data(), 2, 1, &ncols, 3, table.data(), lib), 0);
    EXPECT_EQ(ncols, 3);
    EXPECT_EQ(table[0], (VCD{0, 0, 255}));
    EXPECT_EQ(table[1], (VCD{0, 255, 0}));
    EXPECT_EQ(table[2], (VCD{255, 0, 0}));
    auto *rec = static_cast<ColorLibStruct *>(GlobalLock(lib));
    EXPECT_EQ(rec->tclrs, 3) << "flag 2 keeps the histogram";
    ncols = 4;
    EXPECT_EQ(direct_indexed(band1.data(), 2, 1, &ncols, 1, table.data(), lib), 0);
    EXPECT_EQ(ncols, 3);
    EXPECT_EQ(rec->tclrs, 0) << "without flag 2 the histogram is cleared";
    auto *hist = static_cast<uint16_t *>(GlobalLock(rec->hClrList));
    EXPECT_EQ(hist[31 << 10], 0);
    EXPECT_EQ(TermColorLib(lib), 0);
}

TEST(DirectIndexed, ANullRecordFailsAndLeavesTheCountAlone) {
    uint16_t ncols = 7;
    Bytes pixels = row24({{1, 2, 3}});
    EXPECT_EQ(direct_indexed(pixels.data(), 1, 1, &ncols, 3, nullptr, 0), -1);
    EXPECT_EQ(ncols, 7);
}

}  // namespace
