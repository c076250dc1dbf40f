// Scaling by replication and decimation, and mirroring.
#include <gtest/gtest.h>
#include <mivo4/color.h>

#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

const int kDepths[] = {1, 4, 8, 24, 32};

Bytes scaled(const Bytes &src, int depth, uint32_t sx, uint32_t sy, uint32_t dx, uint32_t dy, bool viaStretch = false) {
    ZHANDLE hs = toHandle(src);
    ZHANDLE out = viaStretch ? rlStretchBitmap(hs, static_cast<int16_t>(depth), sx, sy, dx, dy)
                             : rlShrinkBitmap(hs, static_cast<int16_t>(depth), sx, sy, dx, dy);
    Bytes b = fromHandle(out);
    GlobalFree(out);
    GlobalFree(hs);
    return b;
}

TEST(Scaling, ShrinkingARowOfTenToThreeTakesPixelsZeroThreeAndNine) {
    Bytes src = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 0, 0};
    EXPECT_EQ(scaled(src, 8, 10, 1, 3, 1), (Bytes{10, 13, 19, 0}));
}

TEST(Scaling, StretchingARowOfTwoToFiveFillsFromTheRight) {
    Bytes src = {7, 9, 0, 0};
    EXPECT_EQ(scaled(src, 8, 2, 1, 5, 1), (Bytes{7, 7, 7, 9, 9, 0, 0, 0}));
}

TEST(Scaling, StretchingThreeRowsToSevenRepeatsTheLastTwiceAndTheFirstThreeTimes) {
    Bytes src = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0};
    Bytes expected;
    for (uint8_t v : {1, 1, 1, 2, 2, 3, 3}) expected.insert(expected.end(), {v, 0, 0, 0});
    EXPECT_EQ(scaled(src, 8, 1, 3, 1, 7), expected);
}

TEST(Scaling, EqualSizesCopyPixelForPixelButNotThePadding) {
    std::mt19937 rng(4);
    for (int depth : kDepths) {
        const uint32_t w = 7, h = 3;
        Bytes src = randomBitmap(rng, w, h, depth);
        Bytes out = scaled(src, depth, w, h, w, h);
        EXPECT_EQ(pixels(out, w, h, depth), pixels(src, w, h, depth)) << depth;
        EXPECT_EQ(out, plainScale(src, depth, w, h, w, h)) << depth;
    }
}

TEST(Scaling, AReplicationThatFallsShortLeavesTheFirstColumnAndTopRowZero) {
    // 15 / 11 * 11 comes out just under 15 in doubles, so the last product is 14.
    ASSERT_LT(static_cast<int>(11 * (15.0 / 11)), 15);
    Bytes row(12, 0);
    for (uint8_t i = 0; i < 11; ++i) row[i] = static_cast<uint8_t>(i + 1);
    Bytes wide = scaled(row, 8, 11, 1, 15, 1);
    EXPECT_EQ(wide, (Bytes{0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 0}));

    Bytes column;
    for (uint8_t i = 0; i < 11; ++i) column.insert(column.end(), {static_cast<uint8_t>(i + 1), 0, 0, 0});
    Bytes tall = scaled(column, 8, 1, 11, 1, 15);
    Bytes expected;
    for (uint8_t v : {0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11}) expected.insert(expected.end(), {v, 0, 0, 0});
    EXPECT_EQ(tall, expected);
}

TEST(Scaling, ShrinkAndStretchAreTheSameOperation) {
    std::mt19937 rng(8);
    Bytes src = randomBitmap(rng, 9, 5, 24);
    EXPECT_EQ(scaled(src, 24, 9, 5, 13, 3), scaled(src, 24, 9, 5, 13, 3, true));
    EXPECT_EQ(scaled(src, 24, 9, 5, 4, 11), scaled(src, 24, 9, 5, 4, 11, true));
}

TEST(Scaling, EveryDepthMatchesThePlainModelOnRandomSizes) {
    std::mt19937 rng(12);
    for (int depth : kDepths)
        for (int round = 0; round < 60; ++round) {
            const uint32_t sx = 1 + rng() % 40, sy = 1 + rng() % 12;
            const uint32_t dx = 1 + rng() % 50, dy = 1 + rng() % 20;
            Bytes src = randomBitmap(rng, sx, sy, depth);
            ASSERT_EQ(scaled(src, depth, sx, sy, dx, dy), plainScale(src, depth, sx, sy, dx, dy))
                << depth << ": " << sx << "x" << sy << " -> " << dx << "x" << dy;
        }
}

// Widths around multiples of 8, 32 and 64 pixels, where whole and partial
// bytes and words meet.
std::vector<uint32_t> edgeWidths() {
    std::vector<uint32_t> w = {1, 2, 3, 5, 7};
    for (uint32_t m : {8u, 16u, 32u, 64u, 128u, 192u})
        for (uint32_t d : {m - 1, m, m + 1}) w.push_back(d);
    return w;
}

TEST(Scaling, AHeightChangeAtTheSameWidthMatchesThePlainModel) {
    // The horizontal map is the identity: rows are copied whole, not pixel by
    // pixel. Odd heights stretched by one row (as the export makes heights
    // even), even ones, and shrinks, at every depth.
    std::mt19937 rng(21);
    for (int depth : kDepths)
        for (uint32_t w : edgeWidths())
            for (int round = 0; round < 4; ++round) {
                const uint32_t sy = 1 + rng() % 9;
                const uint32_t dy = round == 0 ? sy + 1 : round == 1 ? sy : 1 + rng() % 17;
                Bytes src = randomBitmap(rng, w, sy, depth);
                ASSERT_EQ(scaled(src, depth, w, sy, w, dy), plainScale(src, depth, w, sy, w, dy))
                    << depth << ": " << w << "x" << sy << " -> " << w << "x" << dy;
            }
}

TEST(Scaling, ARowCopiedAtItsOwnWidthLeavesThePaddingBitsOfItsLastByte) {
    // Into a destination full of ones: only the row's own pixels change.
    std::mt19937 rng(22);
    for (int depth : kDepths)
        for (uint32_t w : edgeWidths())
            for (bool stretch : {false, true}) {
                Bytes src = randomBitmap(rng, w, 3, depth);
                Bytes out(size_t{bpl(w, depth)} * 3, 0xFF), expected = out;
                if (stretch)
                    EXPECT_EQ(StretchX(src.data(), out.data(), static_cast<int16_t>(depth), w, 3, w), 0);
                else
                    EXPECT_EQ(ShrinkX(src.data(), out.data(), static_cast<int16_t>(depth), w, 3, w), 0);
                for (uint32_t y = 0; y < 3; ++y)
                    plainRow(src.data() + size_t{y} * bpl(w, depth), expected.data() + size_t{y} * bpl(w, depth),
                             depth, w, w);
                ASSERT_EQ(out, expected) << depth << ": width " << w << (stretch ? " stretch" : " shrink");
            }
}

TEST(Scaling, OneAndFourBitRowsLeaveNeighbouringPixelsInAByteAlone) {
    Bytes zeros(4, 0);
    uint8_t dst1[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(ShrinkX(zeros.data(), dst1, 1, 5, 1, 3), 0);
    EXPECT_EQ(dst1[0], 0x1F) << "three pixels cleared, five kept";
    uint8_t dst1b[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(StretchX(zeros.data(), dst1b, 1, 2, 1, 3), 0);
    EXPECT_EQ(dst1b[0], 0x1F);
    uint8_t dst4[4] = {0xAB, 0xCD, 0, 0};
    Bytes ones = {0x11, 0x11, 0, 0};
    EXPECT_EQ(ShrinkX(ones.data(), dst4, 4, 3, 1, 1), 0);
    EXPECT_EQ(dst4[0], 0x1B);
    EXPECT_EQ(dst4[1], 0xCD);
    uint8_t dst4b[4] = {0xAB, 0xCD, 0, 0};
    EXPECT_EQ(StretchX(ones.data(), dst4b, 4, 1, 1, 3), 0);
    EXPECT_EQ(dst4b[0], 0x11);
    EXPECT_EQ(dst4b[1], 0x1D);
}

TEST(Scaling, PointerRoutinesMatchTheModelOnPlainMemory) {
    std::mt19937 rng(14);
    for (int depth : kDepths)
        for (int round = 0; round < 10; ++round) {
            const uint32_t sx = 1 + rng() % 20, sy = 1 + rng() % 8, dx = 1 + rng() % 25, dy = 1 + rng() % 12;
            Bytes src = randomBitmap(rng, sx, sy, depth);
            Bytes out(size_t{bpl(dx, depth)} * dy, 0);
            if (dy > sy)
                EXPECT_EQ(Stretch(src.data(), out.data(), static_cast<int16_t>(depth), sx, sy, dx, dy), 0);
            else
                EXPECT_EQ(Shrink(src.data(), out.data(), static_cast<int16_t>(depth), sx, sy, dx, dy), 0);
            EXPECT_EQ(out, plainScale(src, depth, sx, sy, dx, dy));
            // Row by row, sy rows at once.
            Bytes rows(size_t{bpl(dx, depth)} * sy, 0), expected(rows.size(), 0);
            if (dx > sx)
                EXPECT_EQ(StretchX(src.data(), rows.data(), static_cast<int16_t>(depth), sx, sy, dx), 0);
            else
                EXPECT_EQ(ShrinkX(src.data(), rows.data(), static_cast<int16_t>(depth), sx, sy, dx), 0);
            for (uint32_t y = 0; y < sy; ++y)
                plainRow(src.data() + size_t{y} * bpl(sx, depth), expected.data() + size_t{y} * bpl(dx, depth), depth, sx, dx);
            EXPECT_EQ(rows, expected);
        }
}

TEST(Scaling, ASourceDescribedLargerThanItsBlockReadsZeroBeyondIt) {
    // One row in the block, four described: a shrunk picture stretched back
    // while naming the original size.
    std::mt19937 rng(15);
    for (int depth : kDepths) {
        Bytes oneRow = randomBitmap(rng, 6, 1, depth);
        Bytes described = oneRow;
        described.resize(size_t{bpl(6, depth)} * 4, 0);
        EXPECT_EQ(scaled(oneRow, depth, 6, 4, 9, 8), plainScale(described, depth, 6, 4, 9, 8)) << depth;
        EXPECT_EQ(scaled(oneRow, depth, 6, 4, 5, 3), plainScale(described, depth, 6, 4, 5, 3)) << depth;
        Bytes half(oneRow.begin(), oneRow.begin() + static_cast<long>(oneRow.size() / 2));
        Bytes halfDescribed = half;
        halfDescribed.resize(described.size(), 0);
        EXPECT_EQ(scaled(half, depth, 6, 4, 11, 5), plainScale(halfDescribed, depth, 6, 4, 11, 5)) << depth;
    }
    EXPECT_EQ(scaled(Bytes{}, 8, 6, 4, 3, 2), Bytes(8, 0));
}

TEST(Scaling, PointerRoutinesStopAtTheBlocksTheyAreGiven) {
    ZHANDLE hs = GlobalAlloc(GHND, 4);  // one row of four 8-bit pixels
    auto *s = static_cast<uint8_t *>(GlobalLock(hs));
    s[0] = 1, s[1] = 2, s[2] = 3, s[3] = 4;
    ZHANDLE hd = GlobalAlloc(GHND, 8);  // room for two of the four rows asked for
    auto *d = static_cast<uint8_t *>(GlobalLock(hd));
    EXPECT_EQ(Stretch(s, d, 8, 4, 2, 4, 4), 0);
    // Rows 3 and 2 would come from the missing source row 1; only rows 1
    // and 0, from source row 0, fit the destination block.
    EXPECT_EQ(fromHandle(hd), (Bytes{1, 2, 3, 4, 1, 2, 3, 4}));
    EXPECT_EQ(Shrink(s, d, 8, 4, 3, 4, 2), 0);
    EXPECT_EQ(fromHandle(hd), (Bytes{1, 2, 3, 4, 0, 0, 0, 0}));
    GlobalFree(hs);
    GlobalFree(hd);
}

TEST(Scaling, CountsBeyondSixteenBitsAreRefused) {
    Bytes src(16, 1);
    ZHANDLE hs = toHandle(src);
    uint32_t before = mivo4::mem::LiveHandles();
    EXPECT_EQ(rlShrinkBitmap(hs, 8, 4, 40000, 4, 20000), 0u) << "decimated rows count to 40000";
    EXPECT_EQ(rlStretchBitmap(hs, 8, 1, 1, 40000, 1), 0u) << "replicated pixels count to 40000";
    EXPECT_EQ(rlStretchBitmap(hs, 8, 1, 1, 1, 40000) != 0, true) << "vertical replication has no 16-bit count";
    EXPECT_EQ(mivo4::mem::LiveHandles(), before + 1);
    uint8_t row[8] = {};
    EXPECT_EQ(StretchX(src.data(), row, 1, 1, 1, 40000), -1);
    EXPECT_EQ(Shrink(src.data(), row, 8, 1, 40000, 1, 1), -1);
    EXPECT_EQ(rlShrinkBitmap(hs, 32, 0xFFFFFFFFu, 1, 2, 1), 0u) << "a source row no block can hold";
    ZHANDLE ok = rlShrinkBitmap(hs, 8, 4, 32767, 4, 2);
    EXPECT_NE(ok, 0u) << "32767 still fits";
    GlobalFree(ok);
    GlobalFree(hs);
}

TEST(Scaling, TheTracingLevelGivesTheSameBitmap) {
    GlobalsGuard keep;
    std::mt19937 rng(16);
    Bytes src = randomBitmap(rng, 5, 3, 4);
    Bytes fast = scaled(src, 4, 5, 3, 8, 2);
    _debug_color_res = 4;
    testing::internal::CaptureStderr();
    Bytes traced = scaled(src, 4, 5, 3, 8, 2);
    std::string trace = testing::internal::GetCapturedStderr();
    EXPECT_EQ(traced, fast);
    EXPECT_EQ(trace.rfind("(7,0): (6,0): ", 0), 0u) << trace;
}

Bytes flipped(const Bytes &src, int depth, uint32_t w, uint32_t h, bool hort, bool vert) {
    ZHANDLE hs = toHandle(src);
    EXPECT_EQ(rlFlipBitmap(hs, static_cast<int16_t>(depth), w, h, hort, vert), hs);
    Bytes b = fromHandle(hs);
    GlobalFree(hs);
    return b;
}

TEST(Flip, PixelXTradesWithPixelWMinusXInThePadding) {
    Bytes rows = {1, 2, 3, 9, 4, 5, 6, 8};
    EXPECT_EQ(flipped(rows, 8, 3, 2, true, false), (Bytes{9, 2, 3, 1, 8, 5, 6, 4}));
}

TEST(Flip, WithoutPaddingThePartnerIsTheNextRowsFirstPixel) {
    // Row 0's pixel 0 trades with byte 4 (row 1's pixel 0), which row 1's own
    // exchange then overwrites; row 1's partner lies past the block: it reads
    // as 0 and is not written.
    Bytes rows = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(flipped(rows, 8, 4, 2, true, false), (Bytes{5, 4, 3, 2, 0, 8, 7, 6}));
}

TEST(Flip, TheLastRowsPartnerPastTheBlockReadsZero) {
    EXPECT_EQ(flipped(Bytes{1, 2, 3, 4}, 8, 4, 1, true, false), (Bytes{0, 4, 3, 2}));
}

TEST(Flip, VerticalExchangesWholeRowsAndKeepsTheMiddleRow) {
    Bytes rows = {1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3};
    EXPECT_EQ(flipped(rows, 8, 3, 3, false, true), (Bytes{3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1}));
}

TEST(Flip, EveryDepthMatchesThePlainModel) {
    std::mt19937 rng(19);
    for (int depth : kDepths)
        for (int round = 0; round < 40; ++round) {
            const uint32_t w = 1 + rng() % 19, h = 1 + rng() % 6;
            const bool hort = rng() % 2, vert = rng() % 2;
            Bytes src = randomBitmap(rng, w, h, depth);
            ASSERT_EQ(flipped(src, depth, w, h, hort, vert), plainFlip(src, depth, w, h, hort, vert))
                << depth << " " << w << "x" << h << " " << hort << vert;
        }
}

TEST(Flip, ABitmapDescribedLargerThanItsBlockIsFlippedWithinIt) {
    Bytes rows = {1, 2, 3, 4};
    EXPECT_EQ(flipped(rows, 8, 4, 3, false, true), (Bytes{0, 0, 0, 0})) << "the last row described is missing";
}

}  // namespace
