// The module's boundary under a careless or hostile host: handles that are
// not setups, escape counts too small for their values, the size query's
// setup, and pictures the CALS header cannot describe.
#include <gtest/gtest.h>
#include <mivo4/bitmap.h>
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "export/mivo4/exportfixture.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using mivo4::test::HostPicture;

class Boundary : public ::testing::Test {
protected:
    void SetUp() override {
        before_ = mivo4::mem::LiveHandles();
        setup_ = CreateSetup(0, "absent.ini", nullptr, nullptr);
        ASSERT_NE(setup_, 0u);
        path_ = oracle::scratchPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
        import_.hOutputData = setup_;
        import_.lpExport = &options_;
    }
    void TearDown() override {
        DestroySetup(setup_);
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked";
        std::remove(path_.c_str());
    }

    ZHANDLE setup_ = 0;
    IMPORT_OPTIONS import_{};
    EXPORT_OPTIONS options_{};
    uint32_t before_ = 0;
    std::string path_;
};

// A block of exactly n bytes on the heap, so that the sanitizer sees any
// read past the count the host declared.
std::unique_ptr<uint8_t[]> exactly(size_t n, uint8_t fill = 0) {
    auto p = std::make_unique<uint8_t[]>(n == 0 ? 1 : n);
    std::fill(p.get(), p.get() + (n == 0 ? 1 : n), fill);
    return p;
}

TEST_F(Boundary, ForeignFourByteBlockIsAnInvalidSetupForEveryEntry) {
    ZHANDLE foreign = GlobalAlloc(GHND, 4);
    ASSERT_NE(foreign, 0u);
    int32_t v = 103;
    EXPECT_EQ(xEscapeSetup(foreign, ESC_COLOR_MODE, 4, &v, nullptr, 0), -1);
    EXPECT_EQ(EditSetup(foreign, nullptr, 0), -1);
    EXPECT_EQ(DestroySetup(foreign), 1);
    HostPicture p(1, 8, 8, 1);
    zepRasterInfoInput ri{96, 300, 300, 8, 8, 1280, 1078};
    IMPORT_OPTIONS bad = import_;
    bad.hOutputData = foreign;
    EXPECT_EQ(ExportCellData(path_.c_str(), &p.r, &ri, &bad), 22);
    EXPECT_EQ(GlobalSize(foreign), 4u) << "the host's block is still its own";
    EXPECT_EQ(GlobalFree(foreign), 0);
}

TEST_F(Boundary, BlockOfASetupsSizeNotMadeByCreateSetupIsRefused) {
    ZHANDLE lookalike = GlobalAlloc(GHND, sizeof(Gp4_SetupData));
    int32_t v = 103;
    EXPECT_EQ(xEscapeSetup(lookalike, ESC_COLOR_MODE, 4, &v, nullptr, 0), -1);
    EXPECT_EQ(EditSetup(lookalike, nullptr, 0), -1);
    EXPECT_EQ(DestroySetup(lookalike), 1);
    GlobalFree(lookalike);
}

TEST_F(Boundary, DestroyedSetupIsAnInvalidHandle) {
    ZHANDLE other = CreateSetup(0, "absent.ini", nullptr, nullptr);
    ASSERT_EQ(DestroySetup(other), 0);
    int32_t v = 103;
    EXPECT_EQ(xEscapeSetup(other, ESC_COLOR_MODE, 4, &v, nullptr, 0), -1);
    EXPECT_EQ(DestroySetup(other), 1);
    EXPECT_EQ(EditSetup(other, nullptr, 0), -1);
}

TEST_F(Boundary, ResolutionModeWithFiveToSevenBytesIsRefusedUnread) {
    for (int32_t count = 5; count <= 7; ++count) {
        auto in = exactly(static_cast<size_t>(count));
        int32_t mode = 783;
        std::memcpy(in.get(), &mode, 4);
        EXPECT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, count, in.get(), nullptr, 0), -1) << count;
    }
    auto four = exactly(4);
    int32_t mode = 781;
    std::memcpy(four.get(), &mode, 4);
    EXPECT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 4, four.get(), nullptr, 0), 1);
}

TEST_F(Boundary, SizeQueryReadsNoMoreThanTheCountAndRefusesAShortOne) {
    for (int32_t count = 0; count < static_cast<int32_t>(sizeof(zepRasterInfoInput)); ++count) {
        auto in = exactly(static_cast<size_t>(count));
        _outdata out{-5, -5, -5};
        EXPECT_EQ(xEscapeSetup(setup_, ESC_RASTER_INFO, count, in.get(), &out, 0), -1) << count;
        EXPECT_EQ(out.width, -5) << "nothing answered";
    }
    zepRasterInfoInput rin{96, 300, 100, 600, 300, 1280, 1078};
    auto in = exactly(sizeof rin);
    std::memcpy(in.get(), &rin, sizeof rin);
    _outdata out{};
    EXPECT_EQ(xEscapeSetup(setup_, ESC_RASTER_INFO, sizeof rin, in.get(), &out, 0), 1);
    EXPECT_EQ(out.width, 1800);
}

TEST_F(Boundary, EveryEscapeRefusesACountTooSmallForItsValue) {
    struct Need {
        int32_t escape;
        int32_t bytes;
    };
    const Need needs[] = {{ESC_COLOR_MODE, 4}, {ESC_X_RESOLUTION, 4}, {ESC_Y_RESOLUTION, 4},
                          {ESC_WIDTH, 8},      {ESC_HEIGHT, 8},       {ESC_RES_SPECIAL, 4},
                          {ESC_SIZE_MODE, 4},  {ESC_RASTER_INFO, 28}, {ESC_COLOR_QUERY, 4},
                          {ESC_RES_MODE, 4},   {ESC_OUTPUT_CALLBACK, 4}};
    for (const Need &n : needs) {
        for (int32_t count = 0; count < n.bytes; ++count) {
            auto in = exactly(static_cast<size_t>(count), 0x41);
            uint8_t out[64] = {};
            EXPECT_EQ(xEscapeSetup(setup_, n.escape, count, in.get(), out, 1), -1)
                << "escape " << n.escape << " count " << count;
        }
    }
}

TEST_F(Boundary, EveryEscapeCodeWithEveryShortCountStaysInsideTheHostsBlock) {
    // Whatever the code: the answer is one of -1, 0, 1 and nothing past
    // the declared count is read.
    for (int32_t escape = -2; escape <= 90; ++escape) {
        if (escape == ESC_OUTPUT_CALLBACK) continue;  // would keep a pointer to our data as a callback
        for (int32_t count = 0; count <= 32; ++count) {
            auto in = exactly(static_cast<size_t>(count), 0x07);
            uint8_t out[64] = {};
            int32_t r = xEscapeSetup(setup_, escape, count, in.get(), out, 0);
            EXPECT_TRUE(r == -1 || r == 0 || r == 1) << escape << " " << count;
        }
    }
}

TEST_F(Boundary, SizeQueryAnswersForTheCurrentSetupNotTheOneItIsSentTo) {
    ZHANDLE current = CreateSetup(0, "absent.ini", nullptr, nullptr);
    ASSERT_NE(current, 0u);
    int32_t at200 = 777, at1200 = 782;
    ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 4, &at200, nullptr, 0), 1);
    ASSERT_EQ(xEscapeSetup(current, ESC_RES_MODE, 4, &at1200, nullptr, 0), 1);
    ASSERT_EQ(EditSetup(current, nullptr, 0), 0);
    zepRasterInfoInput rin{96, 300, 100, 600, 300, 1280, 1078};
    _outdata out{};
    ASSERT_EQ(xEscapeSetup(setup_, ESC_RASTER_INFO, sizeof rin, &rin, &out, 0), 1);
    EXPECT_EQ(out.width, 7200) << "6 inches at the current setup's 1200 dpi";
    EXPECT_EQ(out.height, 3600);
    _outdata direct{};
    GetRasterInfo(setup_, &rin, &direct);
    EXPECT_EQ(direct.width, out.width) << "the same answer as GetRasterInfo";
    DestroySetup(current);
    EXPECT_EQ(xEscapeSetup(setup_, ESC_RASTER_INFO, sizeof rin, &rin, &out, 0), -1)
        << "no current setup to answer from";
}

TEST_F(Boundary, OutputWiderThanTheHeaderCanStateIsNotWritten) {
    // 5600 x 2 pixels at 100 dpi, written at 1200 dpi: 67200 pixels wide.
    int32_t mode[2] = {782, 0};
    ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 4, mode, nullptr, 0), 1);
    HostPicture p(8, 5600, 2, 3);
    zepRasterInfoInput ri{96, 300, 100, 5600, 2, 1280, 1078};
    _outdata size{};
    ASSERT_EQ(xEscapeSetup(setup_, ESC_RASTER_INFO, sizeof ri, &ri, &size, 0), 1);
    ASSERT_GT(size.width, 65535);
    EXPECT_EQ(ExportCellData(path_.c_str(), &p.r, &ri, &import_), 0) << "the documented answer";
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_NOTHING);
    EXPECT_TRUE(oracle::readFile(path_).empty()) << "no header of a wrong size";
}

TEST_F(Boundary, HeightMadeEvenPastTheHeadersLimitIsNotWritten) {
    // 65535 rows at its own size: the band loop makes the height even, 65536.
    int32_t mode[2] = {783, 300};
    ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 8, mode, nullptr, 0), 1);
    HostPicture p(1, 8, 65535, 4);
    zepRasterInfoInput ri{96, 300, 300, 8, 65535, 1280, 1078};
    EXPECT_EQ(ExportCellData(path_.c_str(), &p.r, &ri, &import_), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_NOTHING);
    EXPECT_TRUE(oracle::readFile(path_).empty());
}

TEST_F(Boundary, TallestEvenHeightTheHeaderCanStateIsWritten) {
    int32_t mode[2] = {783, 300};
    ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 8, mode, nullptr, 0), 1);
    HostPicture p(1, 8, 65534, 5);
    zepRasterInfoInput ri{96, 300, 300, 8, 65534, 1280, 1078};
    EXPECT_EQ(ExportCellData(path_.c_str(), &p.r, &ri, &import_), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
    std::vector<uint8_t> file = oracle::readFile(path_);
    ASSERT_GT(file.size(), 2048u);
    oracle::Gp4File f = oracle::splitGp4(file);
    EXPECT_EQ(oracle::headerRecord(f.header, 8), "rpelcnt: 000008,065534");
}

}  // namespace
