// The bitmap drawing procedure: measuring, preparing the output table and
// rendering the whole picture at the output size and depth.
#include <gtest/gtest.h>
#include <mivo4/bitmap.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include <cstring>
#include <vector>

#include "zep_xxxx/memdebug.h"

namespace {

uint32_t rowBytes(uint32_t width, uint32_t depth) { return ((width * depth + 7) / 8 + 3) & ~3u; }

class DrawBitmap : public ::testing::Test {
protected:
    void SetUp() override { before_ = mivo4::mem::LiveHandles(); }
    void TearDown() override {
        GlobalFree(r_.hBuffer);
        GlobalFree(r_.hColorTable);
        zepPtrGlobalFree(o_.roColorTable);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked";
    }
    void raster(uint16_t depth, uint16_t cx, uint16_t cy, uint32_t tableEntries) {
        r_.depth = depth;
        r_.cx = cx;
        r_.cy = cy;
        r_.hBuffer = GlobalAlloc(GHND, rowBytes(cx, depth) * cy);
        auto *bits = static_cast<uint8_t *>(GlobalLock(r_.hBuffer));
        for (uint32_t i = 0; i < GlobalSize(r_.hBuffer); ++i) bits[i] = static_cast<uint8_t>(i * 37);
        if (tableEntries > 0) {
            r_.hColorTable = GlobalAlloc(GHND, tableEntries * 3);
            auto *t = static_cast<uint8_t *>(GlobalLock(r_.hColorTable));
            for (uint32_t i = 0; i < tableEntries * 3; ++i) t[i] = static_cast<uint8_t>(255 - i);
        }
    }
    void offscreen(int16_t precision, uint32_t w, uint32_t h) {
        o_.drawdata = &r_;
        o_.drawproc = DrawExportCellData;
        o_.precision = precision;
        o_.dest_cx = w;
        o_.dest_cy = h;
        o_.numcolors = static_cast<int16_t>(1 << precision);
        o_.roColorTable = static_cast<VCD *>(zepPtrGlobalAlloc(o_.numcolors * 3));
        std::memset(o_.roColorTable, 0x5A, o_.numcolors * 3);
        init_ = DRAWINIT{w, h, precision, o_.numcolors, o_.roColorTable};
    }
    uint32_t send(int32_t message, intptr_t a = 0, intptr_t b = 0) {
        return DrawExportCellData(message, reinterpret_cast<intptr_t>(&o_), a, b);
    }

    ZEPRaster r_{};
    OFFSCREEN o_{};
    DRAWINIT init_{};
    uint32_t before_ = 0;
};

TEST_F(DrawBitmap, QueryReportsInchesOrWithoutResolutionTheSourceUnits) {
    ZEPRaster r{};
    r.srcwidth = 600;
    r.srcheight = 300;
    r.srcdpi = 200;
    QUERYINFO q{};
    EXPECT_EQ(DrawExportCellData(DRAW_QUERY, reinterpret_cast<intptr_t>(&r), reinterpret_cast<intptr_t>(&q), 0), 0u);
    EXPECT_DOUBLE_EQ(q.w, 3.0);
    EXPECT_DOUBLE_EQ(q.h, 1.5);
    EXPECT_EQ(q.dpi, 200u);
    EXPECT_EQ(q.colorformat, 1);
    r.srcdpi = 0;
    DrawExportCellData(DRAW_QUERY, reinterpret_cast<intptr_t>(&r), reinterpret_cast<intptr_t>(&q), 0);
    EXPECT_DOUBLE_EQ(q.w, 600.0);
    EXPECT_DOUBLE_EQ(q.h, 300.0);
    EXPECT_EQ(q.dpi, 0u);
}

TEST_F(DrawBitmap, SameSizeAndDepthRenderReturnsTheRastersOwnBufferAndFreesNothing) {
    raster(1, 40, 10, 2);
    offscreen(1, 40, 10);
    EXPECT_EQ(send(DRAW_INIT, reinterpret_cast<intptr_t>(&init_)), 10u) << "the whole picture is one band";
    uint32_t live = mivo4::mem::LiveHandles();
    EXPECT_EQ(send(DRAW_RENDER, 0, 10), r_.hBuffer);
    EXPECT_EQ(mivo4::mem::LiveHandles(), live);
    EXPECT_NE(GlobalLock(r_.hBuffer), nullptr);
    EXPECT_EQ(send(DRAW_TERM), 1u);
    EXPECT_NE(GlobalLock(r_.hBuffer), nullptr) << "the source belongs to the caller";
}

TEST_F(DrawBitmap, IndexedSourceKeepsItsOwnTableGrownToItsSize) {
    raster(8, 10, 4, 256);
    offscreen(8, 10, 4);
    o_.numcolors = 2;  // a smaller table than the source's: it grows
    send(DRAW_INIT, reinterpret_cast<intptr_t>(&init_));
    EXPECT_EQ(o_.numcolors, 256);
    auto *src = static_cast<const uint8_t *>(GlobalLock(r_.hColorTable));
    EXPECT_EQ(std::memcmp(o_.roColorTable, src, 256 * 3), 0);
    send(DRAW_TERM);
}

TEST_F(DrawBitmap, BitmapWithoutTableAtAnOutputNotBelowItsDepthLeavesTheTable) {
    raster(1, 16, 4, 0);
    offscreen(1, 16, 4);
    send(DRAW_INIT, reinterpret_cast<intptr_t>(&init_));
    EXPECT_EQ(o_.numcolors, 2);
    const std::vector<uint8_t> made(6, 0x5A);
    EXPECT_EQ(std::memcmp(o_.roColorTable, made.data(), 6), 0);
    send(DRAW_TERM);
}

TEST_F(DrawBitmap, WiderButShorterSourceIsShrunkThenStretched) {
    raster(8, 32, 8, 256);
    offscreen(8, 16, 16);
    send(DRAW_INIT, reinterpret_cast<intptr_t>(&init_));
    uint32_t live = mivo4::mem::LiveHandles();
    ZHANDLE out = send(DRAW_RENDER, 0, 16);
    ASSERT_NE(out, 0u);
    EXPECT_NE(out, r_.hBuffer);
    EXPECT_EQ(GlobalSize(out), rowBytes(16, 8) * 16u) << "the output size";
    EXPECT_EQ(mivo4::mem::LiveHandles(), live + 1) << "only the rendered bitmap stays; the shrunk one is freed";
    ZHANDLE again = send(DRAW_RENDER, 0, 16);
    EXPECT_EQ(GlobalLock(out), nullptr) << "a new render frees the previous one";
    EXPECT_EQ(mivo4::mem::LiveHandles(), live + 1);
    EXPECT_NE(again, 0u);
    send(DRAW_TERM);
}

TEST_F(DrawBitmap, ColourSourceIsDitheredToTheOutputDepth) {
    raster(24, 20, 6, 0);
    offscreen(1, 20, 6);
    send(DRAW_INIT, reinterpret_cast<intptr_t>(&init_));
    // One-bit output dithers onto the eight greys of the mono table, whose
    // index parity makes the bit; the offscreen's table grows to hold them.
    ASSERT_EQ(o_.numcolors, 8);
    EXPECT_EQ(std::memcmp(o_.roColorTable, MonoTable, sizeof MonoTable), 0);
    ZHANDLE out = send(DRAW_RENDER, 0, 6);
    ASSERT_NE(out, 0u);
    EXPECT_NE(out, r_.hBuffer);
    EXPECT_EQ(GlobalSize(out), rowBytes(20, 1) * 6u);
    send(DRAW_TERM);
}

TEST_F(DrawBitmap, StateThatCannotBeAllocatedPushes303AndAnswersNoRows) {
    ASSERT_EQ(AllocGlobal(0), 0);
    raster(1, 8, 8, 2);
    offscreen(1, 8, 8);
    mivo4::mem::FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(send(DRAW_INIT, reinterpret_cast<intptr_t>(&init_)), 0u);
    testing::internal::GetCapturedStderr();
    auto *drv = static_cast<MoRastData *>(lpEMData);
    EXPECT_EQ(drv->errep.code, 303);
    EXPECT_EQ(send(DRAW_TERM), 1u);
    FreeGlobal(0);
}

TEST_F(DrawBitmap, UnknownMessagesAnswerZero) {
    EXPECT_EQ(DrawExportCellData(9, 0, 0, 0), 0u);
    EXPECT_EQ(DrawExportCellData(DRAW_QUERY, 0, 0, 0), 0u);
}

}  // namespace
