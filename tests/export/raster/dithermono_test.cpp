// One-bit dithering straight from the source rows: the bits must be those of
// the plain route (a 24-bit working copy, greyed, diffused in three channels,
// converted) for every source depth, at widths around multiples of 8, 32 and
// 64, odd and even heights, with and without source tables and thresholds.
#include <gtest/gtest.h>
#include <mivo4/color.h>
#include <mivo4/setup.h>

#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

class DitherToOneBit : public ::testing::Test {
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
    uint32_t threshold() const { return lpRaster != nullptr ? lpRaster->GreyThreshold : 0; }
    GlobalsGuard keep;
    Gp4_SetupData setup{};
};

std::vector<uint32_t> edgeWidths() {
    std::vector<uint32_t> w = {1, 2, 3, 4, 5, 6, 7};
    for (uint32_t m : {8u, 16u, 24u, 32u, 64u, 96u, 128u})
        for (uint32_t d : {m - 1, m, m + 1}) w.push_back(d);
    return w;
}

// Tables of greys as the export meets them: the monochrome greys, two given
// greys, a duplicated grey, and greys in another order.
std::vector<VCD> greyTable(std::mt19937 &rng, int kind) {
    switch (kind % 4) {
    case 0: return {MonoTable, MonoTable + 8};
    case 1: {
        auto a = static_cast<uint8_t>(rng()), b = static_cast<uint8_t>(rng());
        return {{a, a, a}, {b, b, b}};
    }
    case 2: {
        auto a = static_cast<uint8_t>(rng());
        return {{a, a, a}, {a, a, a}};
    }
    default: return {{255, 255, 255}, {0, 0, 0}};
    }
}

// A source picture: random bytes, or few colours (long runs of one grey
// reach the clamps of the diffusion).
Bytes sourcePicture(std::mt19937 &rng, uint32_t w, uint32_t h, int depth, int round) {
    return round % 2 ? randomBitmap(rng, w, h, depth) : palettedBitmap(rng, w, h, depth, 1 + round % 5);
}

const int kSourceDepths[] = {1, 4, 8, 24, 32};

TEST_F(DitherToOneBit, EveryDepthAndEdgeWidthMatchesThePlainRoute) {
    std::mt19937 rng(1601);
    int round = 0;
    for (int sd : kSourceDepths)
        for (uint32_t w : edgeWidths())
            for (uint32_t h : {1u, 2u, 3u, 8u, 11u}) {
                ++round;
                if (round % 3 == 0) useThreshold(static_cast<uint32_t>(rng() % 130));
                Bytes src = sourcePicture(rng, w, h, sd, round);
                std::vector<VCD> st = randomTable(rng, sd <= 8 ? (1u << sd) : 2);
                std::vector<VCD> table = greyTable(rng, round);
                Handles keep;
                ZHANDLE hs = keep.add(toHandle(src));
                ZHANDLE ht = sd <= 8 && round % 5 != 0 ? keep.add(toHandle(st)) : 0;
                ZHANDLE tt = keep.add(toHandle(table));
                ZHANDLE out = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), 1, ht, tt,
                                                       static_cast<uint16_t>(table.size())));
                ASSERT_NE(out, 0u);
                ASSERT_EQ(fromHandle(out), plainDither(src, w, h, sd, 1, ht != 0 ? &st : nullptr, table,
                                                       table.size(), threshold()))
                    << sd << " bits, " << w << "x" << h << ", round " << round;
                lpRaster = nullptr;
            }
}

TEST_F(DitherToOneBit, ManyRandomPicturesMatchThePlainRoute) {
    std::mt19937 rng(1602);
    for (int round = 0; round < 400; ++round) {
        if (round % 4 == 0) useThreshold(static_cast<uint32_t>(rng() % 101));
        const int sd = kSourceDepths[rng() % 5];
        const uint32_t w = 1 + rng() % 200, h = 1 + rng() % 24;
        Bytes src = sourcePicture(rng, w, h, sd, round);
        std::vector<VCD> st = randomTable(rng, sd <= 8 ? (1u << sd) : 2);
        std::vector<VCD> table = greyTable(rng, round);
        Handles keep;
        ZHANDLE hs = keep.add(toHandle(src));
        ZHANDLE ht = sd <= 8 ? keep.add(toHandle(st)) : 0;
        ZHANDLE tt = keep.add(toHandle(table));
        ZHANDLE out = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), 1, ht, tt,
                                               static_cast<uint16_t>(table.size())));
        ASSERT_NE(out, 0u);
        ASSERT_EQ(fromHandle(out), plainDither(src, w, h, sd, 1, sd <= 8 ? &st : nullptr, table, table.size(),
                                               threshold()))
            << "round " << round << ": " << sd << " bits, " << w << "x" << h;
        lpRaster = nullptr;
    }
}

TEST_F(DitherToOneBit, WideRowsDiffusedTwoAtATimeMatchThePlainRoute) {
    // Rows wider than a few blocks of eight: the lower row of a pair runs its
    // blocks behind the upper one's, at every offset to a block's end.
    std::mt19937 rng(1609);
    int round = 0;
    for (uint32_t w : {17u, 23u, 24u, 25u, 31u, 33u, 40u, 41u, 255u, 256u, 257u, 511u, 513u, 1021u, 1024u})
        for (uint32_t h : {2u, 3u, 4u, 5u, 9u}) {
            ++round;
            const int sd = kSourceDepths[static_cast<size_t>(round) % 5];
            if (round % 3 == 0) useThreshold(static_cast<uint32_t>(rng() % 130));
            Bytes src = sourcePicture(rng, w, h, sd, round);
            std::vector<VCD> st = randomTable(rng, sd <= 8 ? (1u << sd) : 2);
            std::vector<VCD> table = greyTable(rng, round);
            Handles keep;
            ZHANDLE hs = keep.add(toHandle(src));
            ZHANDLE ht = sd <= 8 ? keep.add(toHandle(st)) : 0;
            ZHANDLE tt = keep.add(toHandle(table));
            ZHANDLE out = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), 1, ht, tt,
                                                   static_cast<uint16_t>(table.size())));
            ASSERT_NE(out, 0u);
            ASSERT_EQ(fromHandle(out), plainDither(src, w, h, sd, 1, sd <= 8 ? &st : nullptr, table, table.size(),
                                                   threshold()))
                << sd << " bits, " << w << "x" << h << ", round " << round;
            lpRaster = nullptr;
        }
}

TEST_F(DitherToOneBit, ASourceShorterThanDescribedReadsAsZeroPastItsEnd) {
    std::mt19937 rng(1603);
    for (int sd : kSourceDepths)
        for (int round = 0; round < 12; ++round) {
            const uint32_t w = 1 + rng() % 70, h = 2 + rng() % 9;
            Bytes whole = randomBitmap(rng, w, h, sd);
            const size_t keepBytes = rng() % whole.size();
            Bytes shortBlock(whole.begin(), whole.begin() + static_cast<long>(keepBytes));
            Bytes padded = shortBlock;
            padded.resize(whole.size(), 0);
            std::vector<VCD> st = randomTable(rng, sd <= 8 ? (1u << sd) : 2);
            std::vector<VCD> table(MonoTable, MonoTable + 8);
            Handles keep;
            ZHANDLE hs = keep.add(shortBlock.empty() ? GlobalAlloc(GHND, 0) : toHandle(shortBlock));
            ZHANDLE ht = sd <= 8 ? keep.add(toHandle(st)) : 0;
            ZHANDLE tt = keep.add(toHandle(table));
            ZHANDLE out = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), 1, ht, tt, 8));
            ASSERT_NE(out, 0u);
            ASSERT_EQ(fromHandle(out), plainDither(padded, w, h, sd, 1, sd <= 8 ? &st : nullptr, table, 8, 0))
                << sd << " bits, " << w << "x" << h << ", " << keepBytes << " bytes";
        }
}

TEST_F(DitherToOneBit, AShortSourceTableReadsBlackPastItsEnd) {
    std::mt19937 rng(1604);
    for (int sd : {4, 8})
        for (int round = 0; round < 10; ++round) {
            const uint32_t w = 1 + rng() % 50, h = 1 + rng() % 6;
            Bytes src = randomBitmap(rng, w, h, sd);
            std::vector<VCD> st = randomTable(rng, 1 + rng() % ((1u << sd) - 1));
            std::vector<VCD> padded = st;
            padded.resize(1u << sd, VCD{0, 0, 0});
            std::vector<VCD> table(MonoTable, MonoTable + 8);
            Handles keep;
            ZHANDLE hs = keep.add(toHandle(src));
            ZHANDLE ht = keep.add(toHandle(st));
            ZHANDLE tt = keep.add(toHandle(table));
            ZHANDLE out = keep.add(rlDitherGivenCT(hs, w, h, static_cast<int16_t>(sd), 1, ht, tt, 8));
            ASSERT_NE(out, 0u);
            ASSERT_EQ(fromHandle(out), plainDither(src, w, h, sd, 1, &padded, table, 8, 0))
                << sd << " bits, " << st.size() << " entries";
        }
}

TEST_F(DitherToOneBit, TheWholeBitmapRouteWithoutATableUsesTheMonochromeGreys) {
    std::mt19937 rng(1605);
    for (int sd : {4, 8, 24, 32})
        for (uint32_t w : {7u, 8u, 9u, 63u, 64u, 65u}) {
            const uint32_t h = 1 + rng() % 7;
            Bytes src = sourcePicture(rng, w, h, sd, static_cast<int>(w));
            std::vector<VCD> st = randomTable(rng, sd <= 8 ? (1u << sd) : 2);
            Handles keep;
            ZHANDLE hs = keep.add(toHandle(src));
            ZHANDLE ht = sd <= 8 ? keep.add(toHandle(st)) : 0;
            ZHANDLE table = 0;
            ZHANDLE out = keep.add(rlDitherBitmap(hs, w, h, static_cast<int16_t>(sd), 1, ht, &table));
            keep.add(table);
            ASSERT_NE(out, 0u);
            const std::vector<VCD> mono(MonoTable, MonoTable + 8);
            EXPECT_EQ(tableFromHandle(table), mono);
            ASSERT_EQ(fromHandle(out), plainDither(src, w, h, sd, 1, sd <= 8 ? &st : nullptr, mono, 8, 0))
                << sd << " bits, " << w << "x" << h;
        }
}

TEST_F(DitherToOneBit, TheDebugLevelsLongRouteGivesTheSameBits) {
    std::mt19937 rng(1606);
    const uint32_t w = 45, h = 9;
    Bytes src = randomBitmap(rng, w, h, 24);
    std::vector<VCD> table(MonoTable, MonoTable + 8);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE tt = keep.add(toHandle(table));
    Bytes fast = fromHandle(keep.add(rlDitherGivenCT(hs, w, h, 24, 1, 0, tt, 8)));
    _debug_color_res = 1;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Bytes slow = fromHandle(keep.add(rlDitherGivenCT(hs, w, h, 24, 1, 0, tt, 8)));
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(slow, fast);
}

TEST_F(DitherToOneBit, NoWorkingCopyOfThePictureIsMade) {
    // The only block taken is the one-bit result: no 24-bit copy of the page.
    std::mt19937 rng(1608);
    Bytes src = randomBitmap(rng, 64, 16, 24);
    std::vector<VCD> table(MonoTable, MonoTable + 8);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE tt = keep.add(toHandle(table));
    const uint64_t before = mivo4::mem::AllocationCount();
    keep.add(rlDitherGivenCT(hs, 64, 16, 24, 1, 0, tt, 8));
    EXPECT_EQ(mivo4::mem::AllocationCount() - before, 1u);
}

TEST_F(DitherToOneBit, EveryAllocationFailureGivesZeroAndLeaksNothing) {
    std::mt19937 rng(1607);
    Bytes src = randomBitmap(rng, 33, 5, 24);
    std::vector<VCD> table(MonoTable, MonoTable + 8);
    Handles keep;
    ZHANDLE hs = keep.add(toHandle(src));
    ZHANDLE tt = keep.add(toHandle(table));
    const Bytes expected = plainDither(src, 33, 5, 24, 1, nullptr, table, 8, 0);
    testing::internal::CaptureStderr();
    forEachAllocationFailure([&] {
        ZHANDLE out = rlDitherGivenCT(hs, 33, 5, 24, 1, 0, tt, 8);
        if (out != 0) {
            EXPECT_EQ(fromHandle(out), expected);
            GlobalFree(out);
        }
    });
    testing::internal::GetCapturedStderr();
}

}  // namespace
