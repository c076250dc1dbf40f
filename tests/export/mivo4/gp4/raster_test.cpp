// The cell bitmap sink: output negotiation, the CALS header, and bottom-up
// padded bands turned into one Group 4 picture, checked with libtiff.
#include <gtest/gtest.h>
#include <mivo4/display.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>
#include <mivo4/stream.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "oracle/g4decode.h"
#include "zep_xxxx/memdebug.h"

namespace {

using oracle::Bilevel;


class Sink : public ::testing::Test {
protected:
    void SetUp() override {
        saved_ = lpRaster;
        setup_ = std::make_unique<Gp4_SetupData>();
        UseDefaultSettings(setup_.get());
        setup_->XResolution = setup_->YResolution = 300;
        lpRaster = setup_.get();
        before_ = mivo4::mem::LiveHandles();
        path_ = oracle::scratchPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
        unsetenv("DISPLAYINFO");
        SetDisplayInfo(0, 0, 0, 0);
    }
    void TearDown() override {
        GlobalFree(setup_->gp4_refLine);
        setup_->gp4_refLine = 0;
        lpRaster = saved_;
        EXPECT_EQ(mivo4::mem::LiveHandles(), before_) << "no handle leaked";
        std::remove(path_.c_str());
    }

    // Starts a new picture as a fresh setup record has it.
    void freshBandState() {
        GlobalFree(setup_->gp4_refLine);
        setup_->gp4_refLine = 0;
        setup_->gp4_stateInfoSaved = 0;
        setup_->gp4_BitOffset = 0;
        setup_->gp4_FGC = 0;
    }

    // Rows [first, first + count) of p as the sink takes a band: bottom row
    // first, rows padded to 4 bytes, a set bit meaning the table's second
    // colour (white) when the first colour is black.
    static ZHANDLE band(const Bilevel &p, uint32_t first, uint32_t count, bool firstColourWhite) {
        uint32_t padded = (p.stride() + 3) & ~3u;
        ZHANDLE h = GlobalAlloc(GHND, padded * count);
        auto *b = static_cast<uint8_t *>(GlobalLock(h));
        for (uint32_t i = 0; i < count; ++i) {
            const uint8_t *row = &p.bits[(first + count - 1 - i) * p.stride()];
            for (uint32_t k = 0; k < p.stride(); ++k)
                b[i * padded + k] = firstColourWhite ? row[k] : static_cast<uint8_t>(~row[k]);
            // Padding and the bits past the width hold junk: the sink must ignore them.
            for (uint32_t k = p.stride(); k < padded; ++k) b[i * padded + k] = 0xA5;
        }
        return h;
    }

    // Writes p as one GP4 file through the sink, in bands of the given heights.
    std::vector<uint8_t> writePicture(const Bilevel &p, const std::vector<uint32_t> &heights,
                                      bool firstColourWhite) {
        freshBandState();
        HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
        EXPECT_NE(out, 0u);
        // The coder continues a band's last byte through the setup's output
        // stream, as the GP4 driver's open leaves it.
        setup_->FileHandle = out;
        VCD table[2] = {{0, 0, 0}, {255, 255, 255}};
        if (firstColourWhite) std::swap(table[0], table[1]);
        EXPECT_EQ(BeginCellBitmap(out, p.width, p.height, 1, table, nullptr), -1);
        uint32_t first = 0;
        for (uint32_t h : heights) {
            ZHANDLE b = band(p, first, h, firstColourWhite);
            EXPECT_EQ(WriteCellBits(out, b, p.width, h, 1, 0, 0), 0);
            GlobalFree(b);
            first += h;
        }
        EXPECT_EQ(EndCellBitmap(out, 0), 0);
        EXPECT_EQ(zepClose(out), 0);
        return oracle::readFile(path_);
    }

    void expectDecodesTo(const std::vector<uint8_t> &file, const Bilevel &p) {
        oracle::Gp4File f = oracle::splitGp4(file);
        ASSERT_EQ(f.header.size(), 2048u);
        auto decoded = oracle::decodeG4(f.data, p.width, p.height);
        ASSERT_TRUE(decoded.has_value()) << "libtiff could not decode the picture";
        for (uint32_t y = 0; y < p.height; ++y)
            for (uint32_t x = 0; x < p.width; ++x)
                ASSERT_EQ(decoded->black(x, y), p.black(x, y)) << "pixel " << x << "," << y;
    }

    std::unique_ptr<Gp4_SetupData> setup_;
    Gp4_SetupData *saved_ = nullptr;
    uint32_t before_ = 0;
    std::string path_;
};

TEST_F(Sink, BottomUpPaddedBandsBecomeOneTopDownPicture) {
    for (bool white : {false, true}) {
        Bilevel p = oracle::randomBilevel(37, 23, 7);
        std::vector<uint8_t> file = writePicture(p, {7, 7, 7, 2}, white);
        expectDecodesTo(file, p);
    }
}

TEST_F(Sink, BandsOfAnyHeightsGiveTheBytesOfOneBand) {
    Bilevel p = oracle::randomBilevel(203, 61, 11, 20);
    std::vector<uint8_t> whole = writePicture(p, {61}, false);
    expectDecodesTo(whole, p);
    const std::vector<std::vector<uint32_t>> splits = {
        std::vector<uint32_t>(61, 1), {7, 13, 1, 40}, {60, 1}, {1, 60}, {30, 31}};
    for (const auto &heights : splits) EXPECT_EQ(writePicture(p, heights, false), whole);
}

TEST_F(Sink, OnePixelBandTakesFourBytesInAndOneAfterPacking) {
    // The 4-byte band holds one black pixel (bit 7 clear with a black first colour);
    // its three padding bytes must not reach the coder.
    HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
    VCD table[2] = {{0, 0, 0}, {255, 255, 255}};
    BeginCellBitmap(out, 1, 1, 1, table, nullptr);
    ZHANDLE b = GlobalAlloc(GHND, 4);
    ASSERT_EQ(GlobalSize(b), 4u);
    static_cast<uint8_t *>(GlobalLock(b))[1] = 0xFF;
    EXPECT_EQ(WriteCellBits(out, b, 1, 1, 1, 0, 0), 0);
    GlobalFree(b);
    zepClose(out);
    std::vector<uint8_t> viaSink = oracle::readFile(path_);

    freshBandState();
    out = zepOpen(path_.c_str(), nullptr, 4097);
    BeginCellBitmap(out, 1, 1, 1, table, nullptr);
    const uint8_t packed = 0x00;  // the one row, packed into one byte
    EXPECT_EQ(Encode(out, &packed, 1, 1, 1), 0);
    zepClose(out);
    EXPECT_EQ(viaSink, oracle::readFile(path_));
    Bilevel black{1, 1, {0x80}};
    expectDecodesTo(viaSink, black);
}

TEST_F(Sink, WhiteFirstColourCodesAnAllZeroBandAsWhite) {
    for (uint8_t first : {255, 0}) {
        freshBandState();
        HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
        VCD table[2] = {{first, first, first}, {static_cast<uint8_t>(255 - first), 0, 0}};
        BeginCellBitmap(out, 50, 4, 1, table, nullptr);
        EXPECT_EQ(setup_->gp4_FGC, first);
        ZHANDLE b = GlobalAlloc(GHND, 8 * 4);  // all zero
        EXPECT_EQ(WriteCellBits(out, b, 50, 4, 1, 0, 0), 0);
        GlobalFree(b);
        zepClose(out);
        auto decoded = oracle::decodeG4(oracle::splitGp4(oracle::readFile(path_)).data, 50, 4);
        ASSERT_TRUE(decoded.has_value());
        for (uint32_t y = 0; y < 4; ++y)
            for (uint32_t x = 0; x < 50; ++x)
                ASSERT_EQ(decoded->black(x, y), first == 0) << "first colour " << int(first);
    }
}

TEST_F(Sink, HeaderTellsSizeAndDensityAndBandsAreTakenBottomFirst) {
    setup_->XResolution = 200;
    HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
    EXPECT_EQ(BeginCellBitmap(out, 1728, 2200, 1, nullptr, nullptr), -1);
    EXPECT_EQ(zepSeek(out, 0, 1), 2048);
    zepClose(out);
    std::vector<uint8_t> file = oracle::readFile(path_);
    ASSERT_EQ(file.size(), 2048u);
    std::string header(file.begin(), file.end());
    EXPECT_EQ(oracle::headerRecord(header, 8), "rpelcnt: 001728,002200");
    EXPECT_EQ(oracle::headerRecord(header, 9), "rdensty: 0200");
    EXPECT_EQ(setup_->gp4_FGC, 0) << "no table: the first colour stays as it was";
}

TEST_F(Sink, EndingThePictureAddsNoBytes) {
    Bilevel p = oracle::randomBilevel(16, 3, 5);
    std::vector<uint8_t> file = writePicture(p, {3}, false);
    HZEPIO out = zepOpen(path_.c_str(), nullptr, 2);
    zepSeek(out, 0, 2);
    EXPECT_EQ(EndCellBitmap(out, 0), 0);
    zepClose(out);
    EXPECT_EQ(oracle::readFile(path_), file);
}

TEST_F(Sink, NoBandOrNoMemoryAnswers300AndWritesNothing) {
    HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
    EXPECT_EQ(WriteCellBits(out, 0, 8, 1, 1, 0, 0), 300);
    ZHANDLE b = GlobalAlloc(GHND, 4);
    ZHANDLE stale = GlobalAlloc(GHND, 4);
    GlobalFree(stale);
    EXPECT_EQ(WriteCellBits(out, stale, 8, 1, 1, 0, 0), 300);
    mivo4::mem::FailNth(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(WriteCellBits(out, b, 8, 1, 1, 0, 0), 300);
    testing::internal::GetCapturedStderr();
    GlobalFree(b);
    EXPECT_EQ(zepSeek(out, 0, 1), 0);
    zepClose(out);
    EXPECT_TRUE(oracle::readFile(path_).empty());
}

TEST_F(Sink, BandBlockShorterThanItsRowsReadsAsZero) {
    HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
    VCD table[2] = {{0, 0, 0}, {255, 255, 255}};
    BeginCellBitmap(out, 64, 4, 1, table, nullptr);
    ZHANDLE b = GlobalAlloc(GHND, 16);  // two of the four 8-byte rows
    std::memset(GlobalLock(b), 0xFF, 16);
    EXPECT_EQ(WriteCellBits(out, b, 64, 4, 1, 0, 0), 0);
    GlobalFree(b);
    zepClose(out);
    auto decoded = oracle::decodeG4(oracle::splitGp4(oracle::readFile(path_)).data, 64, 4);
    ASSERT_TRUE(decoded.has_value());
    // Bottom-first: the block holds the bottom two rows (white); the top two read as zero (black).
    EXPECT_TRUE(decoded->black(0, 0));
    EXPECT_TRUE(decoded->black(63, 1));
    EXPECT_FALSE(decoded->black(0, 2));
    EXPECT_FALSE(decoded->black(63, 3));
}

TEST_F(Sink, RowsHandedToTheCoderOneAtATimeGiveTheBytesOfATurnedCopy) {
    // The plain way: the whole band turned top-down into one packed block
    // (zero past a short band block, inverted for a white first colour) and
    // coded at once. Random pictures, widths around multiples of 8, 32 and
    // 64, odd and even heights, whole and short band blocks.
    std::mt19937 rng(1610);
    const std::string plainPath = path_ + ".plain";
    int round = 0;
    for (uint32_t w : {1u, 7u, 8u, 9u, 31u, 32u, 33u, 63u, 64u, 65u, 127u, 200u})
        for (uint32_t h : {1u, 2u, 3u, 8u, 17u}) {
            ++round;
            const bool white = round % 2 == 0;
            Bilevel p = oracle::randomBilevel(w, h, static_cast<uint32_t>(round), static_cast<int>(rng() % 60));
            ZHANDLE b = band(p, 0, h, white);
            const uint32_t padded = (p.stride() + 3) & ~3u;
            uint32_t blockBytes = padded * h;
            if (round % 3 == 0) {
                blockBytes = static_cast<uint32_t>(rng() % (blockBytes + 1));
                b = GlobalReAlloc(b, blockBytes, GHND);
                ASSERT_NE(b, 0u);
            }
            std::vector<uint8_t> block(padded * h, 0);
            std::memcpy(block.data(), GlobalLock(b), blockBytes);
            GlobalUnlock(b);

            VCD table[2] = {{0, 0, 0}, {255, 255, 255}};
            if (white) std::swap(table[0], table[1]);
            freshBandState();
            HZEPIO out = zepOpen(path_.c_str(), nullptr, 4097);
            setup_->FileHandle = out;
            BeginCellBitmap(out, w, h, 1, table, nullptr);
            EXPECT_EQ(WriteCellBits(out, b, w, h, 1, 0, 0), 0);
            zepClose(out);
            GlobalFree(b);

            std::vector<uint8_t> turned(size_t{p.stride()} * h);
            for (uint32_t r = 0; r < h; ++r)
                for (uint32_t k = 0; k < p.stride(); ++k) {
                    const uint8_t v = block[size_t{h - 1 - r} * padded + k];
                    turned[size_t{r} * p.stride() + k] = white ? static_cast<uint8_t>(~v) : v;
                }
            freshBandState();
            HZEPIO plain = zepOpen(plainPath.c_str(), nullptr, 4097);
            setup_->FileHandle = plain;
            BeginCellBitmap(plain, w, h, 1, table, nullptr);
            EXPECT_EQ(Encode(plain, turned.data(), static_cast<uint32_t>(turned.size()), w, h), 0);
            zepClose(plain);
            ASSERT_EQ(oracle::readFile(path_), oracle::readFile(plainPath))
                << w << "x" << h << ", first colour " << (white ? "white" : "black") << ", " << blockBytes
                << " bytes of band";
        }
    std::remove(plainPath.c_str());
}

TEST_F(Sink, QueryWithZeroResolutionLeavesTheSizeButSetsDepthAndBanding) {
    setup_->XResolution = 0;
    setup_->YResolution = 0;
    setup_->SizeMode = 603;
    double w = 144.0, h = 72.0;
    int16_t depth = 8;
    uint32_t dpi = 75;
    uint8_t banding = 0;
    QueryCellFormat(&w, &h, &depth, &dpi, nullptr, &banding);
    EXPECT_EQ(w, 144.0);
    EXPECT_EQ(h, 72.0);
    EXPECT_EQ(dpi, 75u);
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(banding, 1);
}

TEST_F(Sink, QueryWithUserSizeAndAProposalKeepsThePicturesSizeInTheSetup) {
    double w = 4.0, h = 3.0;
    int16_t depth = 0;
    uint32_t dpi = 100;
    uint8_t banding = 0;
    QueryCellFormat(&w, &h, &depth, &dpi, nullptr, &banding);
    EXPECT_DOUBLE_EQ(setup_->PrintWidth, 4.0);
    EXPECT_DOUBLE_EQ(setup_->PrintHeight, 3.0);
    EXPECT_DOUBLE_EQ(w, 1200.0);
    EXPECT_DOUBLE_EQ(h, 900.0);
    EXPECT_EQ(dpi, 300u);
}

TEST_F(Sink, QueryWithUserSizeAndNoProposalFillsTheBox) {
    double w = 500.0, h = 100.0;
    int16_t depth = 0;
    QueryCellFormat(&w, &h, &depth, nullptr, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(w, 6.67 * 300);
    EXPECT_DOUBLE_EQ(h, 5.0 * 300);
    EXPECT_EQ(depth, 1);
}

TEST_F(Sink, QueryWithUserSizeAndAZeroProposalFitsThePicturesOwnSize) {
    // 144 x 72 points = 2 x 1 inches: 600 x 300 pixels at 300 dpi, aspect kept.
    double w = 144.0, h = 72.0;
    uint32_t dpi = 0;
    QueryCellFormat(&w, &h, nullptr, &dpi, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(w, 600.0);
    EXPECT_DOUBLE_EQ(h, 300.0);
    EXPECT_EQ(dpi, 300u);
    EXPECT_DOUBLE_EQ(setup_->PrintWidth, 6.67) << "the box is not changed";
}

TEST_F(Sink, QueryWithScreenSizeTakesTheScreenIntoTheSetup) {
    setup_->SizeMode = SIZE_SCREEN;
    double w = 72.0, h = 72.0;
    uint32_t dpi = 0;
    QueryCellFormat(&w, &h, nullptr, &dpi, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(setup_->PrintWidth, 1280.0 / 96.0);
    EXPECT_DOUBLE_EQ(setup_->PrintHeight, 1078.0 / 96.0);
    EXPECT_DOUBLE_EQ(w, 300.0) << "the picture's own size, one inch";
    EXPECT_DOUBLE_EQ(h, 300.0);
}

TEST_F(Sink, QueryWithUserResolutionModeTakesTheProposal) {
    setup_->ResMode = RES_USER;
    double w = 2.0, h = 1.0;
    uint32_t dpi = 150;
    QueryCellFormat(&w, &h, nullptr, &dpi, nullptr, nullptr);
    EXPECT_EQ(setup_->XResolution, 150);
    EXPECT_EQ(setup_->YResolution, 150);
    EXPECT_DOUBLE_EQ(w, 300.0);
    EXPECT_DOUBLE_EQ(h, 150.0);
    EXPECT_EQ(dpi, 150u);
}

TEST_F(Sink, AspectIsCutToWholePixels) {
    setup_->XResolution = 200;
    setup_->YResolution = 100;
    double size[2];
    EXPECT_EQ(RasterAdjustAspect(size, 1.0, 1.0), 0);  // 200 x 100 pixels for a square
    EXPECT_DOUBLE_EQ(size[0], 0.5);
    EXPECT_DOUBLE_EQ(size[1], 1.0);
    setup_->XResolution = setup_->YResolution = 300;
    RasterAdjustAspect(size, 1.001, 1.0);  // 300 x 300 pixels; the cut rounds to nothing
    EXPECT_DOUBLE_EQ(size[0], 1.0);
    EXPECT_DOUBLE_EQ(size[1], 1.0);
    RasterAdjustAspect(size, 2.0, 1.0);
    EXPECT_DOUBLE_EQ(size[0], 2.0);
    EXPECT_DOUBLE_EQ(size[1], 1.0);
    RasterAdjustAspect(size, 1.0, 0.0);  // no height: nothing to fit, no division by zero
    EXPECT_DOUBLE_EQ(size[0], 1.0);
    EXPECT_DOUBLE_EQ(size[1], 0.0);
}

TEST(SinkHelpers, LargestSideIsKeptAtMost22Inches) {
    double w = 44, h = 11;
    EXPECT_EQ(ScaleImageSize(&w, &h), 0);
    EXPECT_DOUBLE_EQ(w, 22);
    EXPECT_DOUBLE_EQ(h, 5.5);
    w = 11, h = 44;
    ScaleImageSize(&w, &h);
    EXPECT_DOUBLE_EQ(w, 5.5);
    EXPECT_DOUBLE_EQ(h, 22);
    w = 30, h = 30;
    ScaleImageSize(&w, &h);
    EXPECT_DOUBLE_EQ(w, 22);
    EXPECT_DOUBLE_EQ(h, 22);
    w = 10, h = 5;
    ScaleImageSize(&w, &h);
    EXPECT_DOUBLE_EQ(w, 10);
    EXPECT_DOUBLE_EQ(h, 5);
}

TEST(SinkHelpers, PaddingIsDroppedAndRowsReversed) {
    const uint8_t padded[12] = {1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0};
    uint8_t packed[9] = {};
    EXPECT_EQ(EliminatePad(padded, packed, 3, 3, 4), 0);
    const uint8_t expected[9] = {7, 8, 9, 4, 5, 6, 1, 2, 3};
    EXPECT_EQ(std::memcmp(packed, expected, 9), 0);
}

TEST(SinkHelpers, MonochromeBitsAreInvertedOnlyWhenTheFirstColourIsWhite) {
    uint8_t bits[7] = {0x00, 0xFF, 0x0F, 0xA5, 1, 2, 0x77};
    gp4FlipMonochromeBits(bits, 3, 2, 0);
    EXPECT_EQ(bits[0], 0x00);
    gp4FlipMonochromeBits(bits, 3, 2, 1);
    const uint8_t expected[7] = {0xFF, 0x00, 0xF0, 0x5A, 0xFE, 0xFD, 0x77};
    EXPECT_EQ(std::memcmp(bits, expected, 7), 0) << "exactly width x height bytes";
}

}  // namespace
