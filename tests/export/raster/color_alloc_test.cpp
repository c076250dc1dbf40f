// Every allocation of the colour library failing in turn: the documented
// result comes back and nothing is leaked.
#include <gtest/gtest.h>
#include <mivo4/color.h>

#include <random>

#include "color_model.h"

namespace {

using namespace colortest;

class ColourAllocation : public ::testing::Test {
protected:
    void SetUp() override {
        lpRaster = nullptr;
        std::mt19937 rng(23);
        picture = palettedBitmap(rng, w, h, 24, 40);
        indexedPicture = randomBitmap(rng, w, h, 8);
        table = randomTable(rng, 256);
        hPicture = keep.add(toHandle(picture));
        hIndexed = keep.add(toHandle(indexedPicture));
        hTable = keep.add(toHandle(table));
    }
    GlobalsGuard globals;
    Handles keep;
    const uint32_t w = 17, h = 6;
    Bytes picture, indexedPicture;
    std::vector<VCD> table;
    ZHANDLE hPicture = 0, hIndexed = 0, hTable = 0;
};

TEST_F(ColourAllocation, DepthConversionReturnsZeroOrTheWholeResult) {
    const Bytes expected = plainConvert(indexedPicture, w, h, 8, 24, &table, nullptr);
    forEachAllocationFailure([&] {
        ZHANDLE out = rlConvertBitmapDepth(hIndexed, w, h, 8, 24, hTable, 0, 0);
        if (out != 0) {
            EXPECT_EQ(fromHandle(out), expected);
        }
        GlobalFree(out);
    });
}

TEST_F(ColourAllocation, AFailedReductionShowsAsAZeroFilledTableOfTheRequestedSize) {
    uint16_t goodSize = 12;
    ZHANDLE good = rlReduceColorTable(hPicture, static_cast<int16_t>(w), static_cast<int16_t>(h), &goodSize);
    const std::vector<VCD> expected = tableFromHandle(good);
    GlobalFree(good);
    int zeroFilled = 0;
    forEachAllocationFailure([&] {
        uint16_t size = 12;
        ZHANDLE t = rlReduceColorTable(hPicture, static_cast<int16_t>(w), static_cast<int16_t>(h), &size);
        if (t == 0) {
            EXPECT_EQ(size, 12) << "the size is left alone when the table itself fails";
        } else if (tableFromHandle(t) == expected) {
            EXPECT_EQ(size, goodSize);
        } else {
            EXPECT_EQ(tableFromHandle(t), std::vector<VCD>(12, VCD{0, 0, 0}));
            EXPECT_EQ(size, 12);
            ++zeroFilled;
        }
        GlobalFree(t);
    });
    EXPECT_GE(zeroFilled, 4) << "record, histogram, boxes, slots and list can each fail";
}

TEST_F(ColourAllocation, DirectIndexedFailsWithMinusOneAndKeepsTheCount) {
    forEachAllocationFailure([&] {
        ZHANDLE lib = InitColorLib();
        if (lib == 0) return;
        std::vector<VCD> t(6);
        uint16_t ncols = 6;
        int32_t rc = direct_indexed(picture.data(), static_cast<int16_t>(w), static_cast<int16_t>(h), &ncols, 3,
                                    t.data(), lib);
        if (rc != 0) {
            EXPECT_EQ(rc, -1);
            EXPECT_EQ(ncols, 6);
        }
        EXPECT_EQ(TermColorLib(lib), 0);
    });
}

TEST_F(ColourAllocation, DitheringStopsWithZeroAndLeavesTheTableHandleAlone) {
    ZHANDLE t0 = 0;
    ZHANDLE good = rlDitherBitmap(hPicture, w, h, 24, 4, 0, &t0);
    const Bytes expected = fromHandle(good);
    const std::vector<VCD> expectedTable = tableFromHandle(t0);
    GlobalFree(good);
    GlobalFree(t0);
    for (int16_t depth : {1, 4}) {
        forEachAllocationFailure([&] {
            ZHANDLE t = 0;
            ZHANDLE out = rlDitherBitmap(hPicture, w, h, 24, depth, 0, &t);
            if (out == 0) {
                EXPECT_EQ(t, 0u);
            } else if (depth == 4 && tableFromHandle(t) == expectedTable) {
                EXPECT_EQ(fromHandle(out), expected);
            }
            GlobalFree(out);
            GlobalFree(t);
        });
    }
}

TEST_F(ColourAllocation, TheTwoStepDitherFreesWhatItMade) {
    forEachAllocationFailure([&] {
        ZHANDLE t = 0;
        uint16_t n = 99;
        rlDitherGetCT(hPicture, w, h, 24, 4, 0, &t, &n);
        if (t == 0) {
            EXPECT_EQ(n, 99);
        }
        GlobalFree(t);
    });
    forEachAllocationFailure([&] {
        ZHANDLE out = rlDitherGivenCT(hIndexed, w, h, 8, 1, hTable, hTable, 2);
        GlobalFree(out);
    });
}

TEST_F(ColourAllocation, DepthChangeHandsBackTheTableItMade) {
    for (int16_t depth : {1, 8}) {
        forEachAllocationFailure([&] {
            ZHANDLE t = 0;
            ZHANDLE out = rlChangeColorResolution(hPicture, w, h, 24, depth, &t);
            GlobalFree(out);
            GlobalFree(t);
        });
    }
}

TEST_F(ColourAllocation, ScalingReturnsZeroOrTheWholeResult) {
    const Bytes up = plainScale(picture, 24, w, h, 29, 11), down = plainScale(picture, 24, w, h, 5, 4);
    forEachAllocationFailure([&] {
        ZHANDLE a = rlStretchBitmap(hPicture, 24, w, h, 29, 11);
        ZHANDLE b = rlShrinkBitmap(hPicture, 24, w, h, 5, 4);
        if (a != 0) {
            EXPECT_EQ(fromHandle(a), up);
        }
        if (b != 0) {
            EXPECT_EQ(fromHandle(b), down);
        }
        GlobalFree(a);
        GlobalFree(b);
    });
}

TEST_F(ColourAllocation, FlippingWithoutItsTemporaryRowChangesNothing) {
    const Bytes expected = plainFlip(picture, 24, w, h, true, true);
    forEachAllocationFailure([&] {
        ZHANDLE hb = toHandle(picture);
        if (hb == 0) return;
        ZHANDLE r = rlFlipBitmap(hb, 24, w, h, 1, 1);
        EXPECT_EQ(fromHandle(hb), r == 0 ? picture : expected);
        GlobalFree(hb);
    });
}

TEST_F(ColourAllocation, ColourMapsAndTheWorkRecordAnswerZero) {
    forEachAllocationFailure([&] {
        ZHANDLE m = rlBuildColormap(table.data(), 8, nullptr, 8, 0);
        GlobalFree(m);
        ZHANDLE lib = InitColorLib();
        EXPECT_EQ(TermColorLib(lib), 0);
    });
}

}  // namespace
