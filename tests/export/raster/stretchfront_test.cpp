// A stretch by one row made as a view (the source's rows with the new row put
// in front of them) against the stretched copy, on random pictures.
#include <gtest/gtest.h>
#include <mivo4/color.h>

#include <cstring>
#include <random>

#include "color_model.h"
#include "export/rowpadding.h"
#include "export/raster/scale.h"
#include "zep_xxxx/memdebug.h"

namespace {

using namespace colortest;
using mivo4::color::stretchInFront;

const int kDepths[] = {1, 4, 8, 24, 32};
constexpr uint32_t kLarge = 1u << 21;  // a new block this large has room in front

// Rows with every bit past their pixels clear, as a stretched copy has them.
Bytes clearPadding(Bytes b, uint32_t w, uint32_t h, int depth) {
    mivo4::test::clearRowPadding(b.data(), w, h, static_cast<uint32_t>(depth));
    return b;
}

// The picture in a large new block (which has room in front of it).
ZHANDLE largeBlockWith(const Bytes &bytes) {
    ZHANDLE h = GlobalAlloc(GHND, std::max<uint32_t>(kLarge, static_cast<uint32_t>(bytes.size())));
    std::memcpy(GlobalLock(h), bytes.data(), bytes.size());
    return h;
}

struct Outcome {
    bool copyInstead;
    Bytes view;      // the view's bytes (empty when none was made)
    Bytes stretched; // rlStretchBitmap's bytes
};

Outcome both(const Bytes &src, int depth, uint32_t w, uint32_t sh, uint32_t dw, uint32_t dh) {
    Handles h;
    ZHANDLE block = h.add(largeBlockWith(src));
    Outcome o{};
    ZHANDLE view = h.add(stretchInFront(block, static_cast<int16_t>(depth), w, sh, dw, dh, &o.copyInstead));
    o.view = fromHandle(view);
    o.stretched = fromHandle(h.add(rlStretchBitmap(block, static_cast<int16_t>(depth), w, sh, dw, dh)));
    return o;
}

// Widths around multiples of 8, 32 and 64, and a few others.
uint32_t someWidth(std::mt19937 &rng) {
    const uint32_t bases[] = {8, 32, 64, 96, 128, 320};
    if (rng() % 4 == 0) return 1 + rng() % 700;
    return bases[rng() % 6] + (rng() % 3) - 1;
}

TEST(StretchInFront, OneRowMoreIsTheStretchedCopyByteForByteAtEveryDepth) {
    std::mt19937 rng(1601);
    int views = 0, shortfalls = 0;
    for (int i = 0; i < 400; ++i) {
        const int depth = kDepths[i % 5];
        const uint32_t w = someWidth(rng), sh = 1 + rng() % 300;
        const Bytes src = clearPadding(randomBitmap(rng, w, sh, depth), w, sh, depth);
        const Outcome o = both(src, depth, w, sh, w, sh + 1);
        ASSERT_FALSE(o.copyInstead) << "depth " << depth << " " << w << " x " << sh;
        ++views;
        ASSERT_EQ(o.view, o.stretched) << "depth " << depth << " " << w << " x " << sh;
        // Heights whose last product falls short leave the new row zero.
        if (static_cast<uint32_t>(sh * (static_cast<double>(sh + 1) / sh)) == sh) ++shortfalls;
    }
    EXPECT_EQ(views, 400);
    EXPECT_GT(shortfalls, 10) << "the corpus holds heights whose stretch falls short";
}

TEST(StretchInFront, ASingleRowRepeatedSeveralTimesIsTheStretchedCopy) {
    std::mt19937 rng(7);
    for (int depth : kDepths)
        for (uint32_t dh = 2; dh <= 6; ++dh) {
            const uint32_t w = someWidth(rng);
            const Bytes src = clearPadding(randomBitmap(rng, w, 1, depth), w, 1, depth);
            const Outcome o = both(src, depth, w, 1, w, dh);
            ASSERT_FALSE(o.copyInstead) << depth << " " << dh;
            EXPECT_EQ(o.view, o.stretched) << depth << " " << dh;
        }
}

TEST(StretchInFront, OtherStretchesAreLeftToTheCopy) {
    std::mt19937 rng(11);
    const uint32_t w = 77, sh = 40;
    const Bytes src = clearPadding(randomBitmap(rng, w, sh, 8), w, sh, 8);
    EXPECT_TRUE(both(src, 8, w, sh, w, sh + 2).copyInstead) << "rows repeated all over";
    EXPECT_TRUE(both(src, 8, w, sh, w, sh * 2).copyInstead) << "doubled";
    EXPECT_TRUE(both(src, 8, w, sh, w + 1, sh + 1).copyInstead) << "wider";
    EXPECT_TRUE(both(src, 8, w, sh, w - 1, sh + 1).copyInstead) << "narrower";
    EXPECT_TRUE(both(src, 8, w, sh, w, sh).copyInstead) << "same height";
    EXPECT_TRUE(both(src, 8, w, sh, w, sh - 1).copyInstead) << "shrink";
    EXPECT_TRUE(both(src, 2, w, sh, w, sh + 1).copyInstead) << "a depth the scaler does not draw";
}

TEST(StretchInFront, RowsWithBitsPastTheirPixelsAreLeftToTheCopy) {
    std::mt19937 rng(12);
    for (int depth : {1, 4, 8}) {
        const uint32_t w = 61, sh = 9;  // rows with padding at every depth
        Bytes src = clearPadding(randomBitmap(rng, w, sh, depth), w, sh, depth);
        src[size_t{bpl(w, depth)} * 5 - 1] = 1;  // the last byte of the fifth row
        const Outcome o = both(src, depth, w, sh, w, sh + 1);
        EXPECT_TRUE(o.copyInstead) << depth;
        EXPECT_TRUE(o.view.empty());
    }
}

TEST(StretchInFront, ASmallBlockOnTheHeapIsLeftToTheCopy) {
    std::mt19937 rng(13);
    const Bytes src = clearPadding(randomBitmap(rng, 40, 11, 1), 40, 11, 1);
    Handles h;
    ZHANDLE block = h.add(toHandle(src));
    bool copy = false;
    EXPECT_EQ(stretchInFront(block, 1, 40, 11, 40, 12, &copy), 0u);
    EXPECT_TRUE(copy);
}

TEST(StretchInFront, ASourceBlockShorterThanItsRowsIsLeftToTheCopy) {
    Handles h;
    ZHANDLE block = h.add(GlobalAlloc(GHND, kLarge));
    bool copy = false;
    // 4096 rows of 1024 bytes do not fit 2 MiB.
    EXPECT_EQ(stretchInFront(block, 8, 1024, 4096, 1024, 4097, &copy), 0u);
    EXPECT_TRUE(copy);
}

TEST(StretchInFront, AFailedViewIsAFailedStretchAtTheSameAllocation) {
    std::mt19937 rng(14);
    const Bytes src = clearPadding(randomBitmap(rng, 100, 31, 1), 100, 31, 1);
    Handles h;
    ZHANDLE block = h.add(largeBlockWith(src));
    const uint32_t live = mivo4::mem::LiveHandles();
    bool copy = true;
    mivo4::mem::FailNth(1);
    EXPECT_EQ(stretchInFront(block, 1, 100, 31, 100, 32, &copy), 0u);
    EXPECT_FALSE(copy) << "not to be retried as a copy";
    mivo4::mem::FailNth(1);
    EXPECT_EQ(rlStretchBitmap(block, 1, 100, 31, 100, 32), 0u) << "the copy fails at its first allocation too";
    EXPECT_EQ(mivo4::mem::LiveHandles(), live);
}

}  // namespace
