// Bitmap export end to end: a ZEPRaster in, a GP4 file out (a named file, a
// memory block or the host's stream), decoded back with libtiff.
#include <gtest/gtest.h>
#include <mivo4/bitmap.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "export/mivo4/exportfixture.h"
#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using oracle::Bilevel;

// A host-side bitmap: rows padded to 4 bytes, bottom row first.
struct HostBitmap {
    ZEPRaster r{};
    ~HostBitmap() {
        GlobalFree(r.hBuffer);
        GlobalFree(r.hColorTable);
    }
};

uint32_t padded(uint32_t width, uint32_t depth) { return ((width * depth + 7) / 8 + 3) & ~3u; }

// A one-bit bitmap of p with the table (white, black): bit 1 is black.
void oneBit(HostBitmap &b, const Bilevel &p) {
    b.r.depth = 1;
    b.r.cx = static_cast<uint16_t>(p.width);
    b.r.cy = static_cast<uint16_t>(p.height);
    uint32_t stride = padded(p.width, 1);
    b.r.hBuffer = GlobalAlloc(GHND, stride * p.height);
    auto *bits = static_cast<uint8_t *>(GlobalLock(b.r.hBuffer));
    for (uint32_t y = 0; y < p.height; ++y)
        std::memcpy(bits + (p.height - 1 - y) * stride, &p.bits[y * p.stride()], p.stride());
    b.r.hColorTable = GlobalAlloc(GHND, 2 * 3);
    auto *table = static_cast<VCD *>(GlobalLock(b.r.hColorTable));
    table[0] = VCD{255, 255, 255};
    table[1] = VCD{0, 0, 0};
}

// A 24-bit bitmap of one colour.
void flat24(HostBitmap &b, uint32_t width, uint32_t height, uint8_t grey) {
    b.r.depth = 24;
    b.r.cx = static_cast<uint16_t>(width);
    b.r.cy = static_cast<uint16_t>(height);
    uint32_t stride = padded(width, 24);
    b.r.hBuffer = GlobalAlloc(GHND, stride * height);
    auto *bits = static_cast<uint8_t *>(GlobalLock(b.r.hBuffer));
    for (uint32_t y = 0; y < height; ++y) std::memset(bits + y * stride, grey, width * 3);
}


class BitmapExport : public ::testing::Test {
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
    Gp4_SetupData &setup() { return *static_cast<Gp4_SetupData *>(GlobalLock(setup_)); }

    // Output at the picture's own size: user size, the picture's resolution.
    void ownSize(int32_t dpi) {
        int32_t mode[2] = {783, dpi};
        ASSERT_EQ(xEscapeSetup(setup_, ESC_RES_MODE, 8, mode, nullptr, 0), 1);
    }
    zepRasterInfoInput info(const ZEPRaster &r, int32_t dpi) {
        return zepRasterInfoInput{96, 300, dpi, r.cx, r.cy, 1280, 1078};
    }
    std::vector<uint8_t> exportToFile(ZEPRaster &r, int32_t dpi) {
        zepRasterInfoInput ri = info(r, dpi);
        EXPECT_EQ(ExportCellData(path_.c_str(), &r, &ri, &import_), 0);
        return oracle::readFile(path_);
    }
    std::vector<uint8_t> exportToMemory(ZEPRaster &r, int32_t dpi) {
        zepRasterInfoInput ri = info(r, dpi);
        EXPECT_EQ(ExportCellData("", &r, &ri, &import_), 0);
        std::vector<uint8_t> bytes;
        if (auto *block = static_cast<const uint8_t *>(GlobalLock(options_.hMF))) {
            bytes.assign(block, block + GlobalSize(options_.hMF));
            // The data, one 0xFF end marker, then zero fill.
            while (!bytes.empty() && bytes.back() == 0) bytes.pop_back();
            EXPECT_FALSE(bytes.empty());
            EXPECT_EQ(bytes.back(), 0xFF);
            if (!bytes.empty()) bytes.pop_back();
        }
        GlobalFree(options_.hMF);
        options_.hMF = 0;
        return bytes;
    }
    std::vector<uint8_t> exportToCallback(ZEPRaster &r, int32_t dpi, mivo4::test::HostStream &log) {
        mivo4::test::gHostStream = &log;
        EXPECT_EQ(xEscapeSetup(setup_, ESC_OUTPUT_CALLBACK, 4, reinterpret_cast<void *>(&mivo4::test::hostStreamProc), nullptr, 0), 1);
        options_.FileHandle = 0xCAFE;
        zepRasterInfoInput ri = info(r, dpi);
        EXPECT_EQ(ExportCellData("host-name", &r, &ri, &import_), 0);
        setup().pIOCBProc = nullptr;
        return log.data;
    }

    ZHANDLE setup_ = 0;
    IMPORT_OPTIONS import_{};
    EXPORT_OPTIONS options_{};
    uint32_t before_ = 0;
    std::string path_;
};

TEST_F(BitmapExport, OneBitPictureAtItsOwnSizeDecodesPixelForPixel) {
    ownSize(200);
    Bilevel p = oracle::randomBilevel(123, 58, 1);
    HostBitmap b;
    oneBit(b, p);
    std::vector<uint8_t> file = exportToFile(b.r, 200);
    oracle::Gp4File f = oracle::splitGp4(file);
    EXPECT_EQ(oracle::headerRecord(f.header, 8), "rpelcnt: 000123,000058");
    EXPECT_EQ(oracle::headerRecord(f.header, 9), "rdensty: 0200");
    auto decoded = oracle::decodeG4(f.data, 123, 58);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->bits, p.bits);
}

TEST_F(BitmapExport, ThreeOutputWaysGiveTheSameBytes) {
    ownSize(300);
    Bilevel p = oracle::randomBilevel(70, 41, 2);
    HostBitmap b;
    oneBit(b, p);
    std::vector<uint8_t> file = exportToFile(b.r, 300);
    std::vector<uint8_t> memory = exportToMemory(b.r, 300);
    mivo4::test::HostStream log;
    std::vector<uint8_t> callback = exportToCallback(b.r, 300, log);
    ASSERT_GT(file.size(), 2048u);
    EXPECT_EQ(memory, file);
    EXPECT_EQ(callback, file);
    EXPECT_EQ(log.openHandle, 0xCAFE) << "the host's own stream is handed to its callback";
    EXPECT_EQ(log.ops.front(), ZEP_CB_OPEN);
    EXPECT_EQ(log.ops.back(), ZEP_CB_CLOSE);
}

TEST_F(BitmapExport, EmptyNameWithoutCallbackHandsAMemoryBlockBackInHmf) {
    ownSize(300);
    Bilevel p = oracle::randomBilevel(16, 8, 3);
    HostBitmap b;
    oneBit(b, p);
    std::vector<uint8_t> bytes = exportToMemory(b.r, 300);
    ASSERT_GE(bytes.size(), 2048u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 14), "srcdocid: NONE");
}

TEST_F(BitmapExport, ManyExportsThroughOneSetupGiveThatManyCompleteFiles) {
    ownSize(300);
    Bilevel p = oracle::randomBilevel(37, 21, 4);  // odd: the coder ends mid-byte
    HostBitmap b;
    oneBit(b, p);
    std::vector<uint8_t> first = exportToFile(b.r, 300);
    for (int i = 0; i < 5; ++i) {
        std::vector<uint8_t> again = exportToFile(b.r, 300);
        EXPECT_EQ(again, first) << "export " << i + 2;
        std::vector<uint8_t> inMemory = exportToMemory(b.r, 300);
        EXPECT_EQ(inMemory, first);
    }
    auto decoded = oracle::decodeG4(oracle::splitGp4(first).data, 37, 22);
    ASSERT_TRUE(decoded.has_value());
}

TEST_F(BitmapExport, ColourPicturesAreDitheredToOneBit) {
    ownSize(100);
    for (uint8_t grey : {255, 0}) {
        HostBitmap b;
        flat24(b, 40, 30, grey);
        std::vector<uint8_t> file = exportToFile(b.r, 100);
        auto decoded = oracle::decodeG4(oracle::splitGp4(file).data, 40, 30);
        ASSERT_TRUE(decoded.has_value()) << int(grey);
        for (uint32_t y = 0; y < 30; ++y)
            for (uint32_t x = 0; x < 40; ++x) ASSERT_EQ(decoded->black(x, y), grey == 0) << x << "," << y;
    }
}

TEST_F(BitmapExport, UnopenableOutputGives303) {
    Bilevel p = oracle::randomBilevel(8, 8, 5);
    HostBitmap b;
    oneBit(b, p);
    zepRasterInfoInput ri = info(b.r, 300);
    EXPECT_EQ(ExportCellData("/nonexistent-dir/x.cal", &b.r, &ri, &import_), 303);
    EXPORT_OPTIONS *saved = import_.lpExport;
    import_.lpExport = nullptr;
    EXPECT_EQ(ExportCellData("", &b.r, &ri, &import_), 303) << "no export options to hand a block to";
    import_.lpExport = saved;
    testing::internal::CaptureStderr();
    mivo4::mem::FailNth(1);
    EXPECT_EQ(ExportCellData("", &b.r, &ri, &import_), 303);
    EXPECT_EQ(options_.hMF, 0u);
    mivo4::mem::FailNth(2);
    EXPECT_EQ(ExportCellData("", &b.r, &ri, &import_), 303) << "the stream record";
    EXPECT_EQ(options_.hMF, 0u);
    testing::internal::GetCapturedStderr();
}

TEST_F(BitmapExport, ExportStoresThePicturesSizeAndResolutionInTheBitmap) {
    ownSize(300);
    Bilevel p = oracle::randomBilevel(8, 8, 5);
    HostBitmap b;
    oneBit(b, p);
    zepRasterInfoInput ri{96, 300, 150, 8, 8, 1280, 1078};
    ASSERT_EQ(ExportCellData(path_.c_str(), &b.r, &ri, &import_), 0);
    EXPECT_EQ(b.r.srcwidth, 8.0);
    EXPECT_EQ(b.r.srcheight, 8.0);
    EXPECT_EQ(b.r.srcdpi, 150);
    EXPECT_EQ(lpRaster, &setup()) << "the setup stays the current one";
}

TEST_F(BitmapExport, BadCallsGiveCodesNotCrashes) {
    Bilevel p = oracle::randomBilevel(8, 8, 5);
    HostBitmap b;
    oneBit(b, p);
    zepRasterInfoInput ri = info(b.r, 300);
    EXPECT_EQ(ExportCellData(path_.c_str(), &b.r, &ri, nullptr), 22);
    EXPECT_EQ(ExportCellData(path_.c_str(), nullptr, &ri, &import_), 300);
    EXPECT_EQ(ExportCellData(path_.c_str(), &b.r, nullptr, &import_), 300);
    IMPORT_OPTIONS stale = import_;
    stale.hOutputData = 0;
    EXPECT_EQ(ExportCellData(path_.c_str(), &b.r, &ri, &stale), 22);
}

}  // namespace
