// The image bracket of generalized drawing primitives: what the begin
// primitive makes, how cell arrays fill it, what the end primitive writes, and
// what hostile primitives get.
#include "export/raster/driver_session.h"

#include <limits>
#include <random>

namespace {

using mivo4::test::BeginImageElement;
using mivo4::test::CellArrayElement;
using mivo4::test::ColorTableElement;
using mivo4::test::DecodedGp4;
using mivo4::test::DecodeGp4File;
using mivo4::test::DriverSession;
using mivo4::test::Element;
using mivo4::test::EndImageElement;
using mivo4::test::RectElement;
using mivo4::test::VpsmElement;

constexpr VCD kBlack{0, 0, 0};
constexpr VCD kWhite{255, 255, 255};

class Image : public DriverSession {
protected:
    void windowed(double right, double top) {
        startPicture(1u << 16, {RectElement(518, 0, 0, right, top)});
        ASSERT_EQ(send(ColorTableElement(0, {kBlack, kWhite})), 0);
    }
    DecodedGp4 written() { return DecodeGp4File(outputFile()); }
};

TEST_F(Image, BeginWithPrecisionMinus32768MakesAOneBitImage) {
    windowed(9, 3);
    EXPECT_EQ(send(BeginImageElement(10, 4, DVR_PRECISION_ONE_BIT, 0, 3)), 0);
    EXPECT_EQ(state()->BitsPerPixel, 1u);
    EXPECT_EQ(state()->Width, 10u);
    EXPECT_EQ(state()->Height, 4u);
    EXPECT_EQ(state()->bInCellArray, 1);
    EXPECT_EQ(state()->ColorSpecMode, 3);
    EXPECT_EQ(GlobalSize(state()->hBuffer), 16u) << "10 one-bit pixels padded to 4 bytes, 4 rows";
    finish();
}

TEST_F(Image, BeginTakesTheMagnitudeOfANegativePrecision) {
    windowed(9, 3);
    EXPECT_EQ(send(BeginImageElement(10, 4, -8)), 0);
    EXPECT_EQ(state()->BitsPerPixel, 8u);
    EXPECT_EQ(GlobalSize(state()->hBuffer), 48u);
    finish();
}

TEST_F(Image, WindowNarrowerThanNxGivesANarrowerImage) {
    windowed(3, 1);
    EXPECT_EQ(send(BeginImageElement(10, 2, 8)), 0);
    EXPECT_EQ(state()->Width, 4u);
    EXPECT_EQ(GlobalSize(state()->hBuffer), 8u);
    EXPECT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    EXPECT_EQ(d.width, 4u);
    EXPECT_EQ(d.height, 2u);
}

TEST_F(Image, WindowWiderThanNxIsCappedAtNx) {
    windowed(99, 1);
    EXPECT_EQ(send(BeginImageElement(10, 2, 8)), 0);
    EXPECT_EQ(state()->Width, 10u);
    EXPECT_EQ(send(EndImageElement()), 0);
    finish();
    EXPECT_EQ(written().width, 10u);
}

TEST_F(Image, WindowRunningLeftMeasuresItsWidthTheSame) {
    windowed(-5.9, 1);  // corners 0 and -5 after truncation: 6 wide
    EXPECT_EQ(send(BeginImageElement(10, 2, 1)), 0);
    EXPECT_EQ(state()->Width, 6u);
    finish();
}

TEST_F(Image, RowsArriveBottomFirstAndDecodeToTheCellsReceived) {
    const uint32_t w = 37, h = 22;
    windowed(w - 1, h - 1);
    ASSERT_EQ(send(BeginImageElement(w, h, 1)), 0);
    std::mt19937 rng(5);
    std::vector<std::vector<uint8_t>> rows;
    for (uint32_t r = 0; r < h; r += 5) {
        const uint32_t n = std::min(5u, h - r);
        std::vector<uint8_t> cells(8 * n);
        for (auto &b : cells) b = static_cast<uint8_t>(rng());
        for (uint32_t i = 0; i < n; ++i) rows.emplace_back(cells.begin() + 8 * i, cells.begin() + 8 * i + 8);
        ASSERT_EQ(send(CellArrayElement(0, 1, w, static_cast<int32_t>(n), 1, cells)), 0);
    }
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, w);
    ASSERT_EQ(d.height, h);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const bool set = (rows[h - 1 - y][x / 8] >> (7 - x % 8)) & 1;
            ASSERT_EQ(d.picture->black(x, y), !set) << x << "," << y;
        }
}

TEST_F(Image, RowsNotReceivedStayZero) {
    windowed(7, 3);
    ASSERT_EQ(send(ColorTableElement(0, {kWhite, kBlack})), 0);
    ASSERT_EQ(send(BeginImageElement(8, 4, 1)), 0);
    ASSERT_EQ(send(CellArrayElement(0, 1, 8, 1, 1, {0xFF, 0, 0, 0})), 0);  // the bottom row, all entry 1
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.height, 4u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 8; ++x)
            ASSERT_EQ(d.picture->black(x, y), y == 3) << "only the row received is entry 1 (black)";
}

TEST_F(Image, TwentyFourBitImageIsOutputWithoutAColourTable) {
    windowed(3, 1);
    ASSERT_EQ(send(BeginImageElement(4, 2, 24)), 0);
    std::vector<uint8_t> cells(24, 0);
    for (int i = 0; i < 6; ++i) cells[static_cast<size_t>(i)] = 255;       // row 0: two white pixels
    for (int i = 18; i < 21; ++i) cells[static_cast<size_t>(i)] = 255;     // row 1: pixel 2 white
    ASSERT_EQ(send(CellArrayElement(0, 1, 4, 2, 24, cells)), 0);
    // The first allocation of the end primitive is no colour table: failing it
    // fails the output's own query record, which is not reported.
    mivo4::mem::FailNth(1);
    EXPECT_EQ(send(EndImageElement()), 0) << "no table to fail to lock";
    EXPECT_FALSE(mivo4::mem::FailurePending());
    finish();
}

TEST_F(Image, TwentyFourBitImageDecodesToItsWhiteAndBlackPixels) {
    windowed(3, 1);
    ASSERT_EQ(send(ColorTableElement(0, {kWhite, kWhite})), 0);  // not consulted at 24 bits
    ASSERT_EQ(send(BeginImageElement(4, 2, 24)), 0);
    std::vector<uint8_t> cells(24, 0);
    for (int i = 0; i < 6; ++i) cells[static_cast<size_t>(i)] = 255;
    for (int i = 18; i < 21; ++i) cells[static_cast<size_t>(i)] = 255;
    ASSERT_EQ(send(CellArrayElement(0, 1, 4, 2, 24, cells)), 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 4u);
    ASSERT_EQ(d.height, 2u);
    ASSERT_TRUE(d.picture.has_value());
    // The last pixel of a row repeats the dithering's choice for the one before.
    const bool blackTop[4] = {true, true, false, false}, blackBottom[4] = {false, false, true, true};
    for (uint32_t x = 0; x < 4; ++x) {
        EXPECT_EQ(d.picture->black(x, 0), blackTop[x]) << x;
        EXPECT_EQ(d.picture->black(x, 1), blackBottom[x]) << x;
    }
}

TEST_F(Image, OneBitImageWithoutMemoryForItsColourTablePushes300AndWritesNothing) {
    windowed(7, 1);
    ASSERT_EQ(send(BeginImageElement(8, 2, 1)), 0);
    mivo4::mem::FailNth(1);
    EXPECT_EQ(send(EndImageElement()), 300);
    EXPECT_EQ(state()->hBuffer, 0u);
    EXPECT_EQ(state()->bInCellArray, 0);
    finish();
    EXPECT_TRUE(outputFile().empty());
}

TEST_F(Image, InchZeroReportsTheSizeInPixelsUndivided) {
    windowed(49, 29);
    ASSERT_EQ(state()->inch, 0);
    ASSERT_EQ(send(BeginImageElement(50, 30, 8)), 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    EXPECT_EQ(d.width, 50u);
    EXPECT_EQ(d.height, 30u);
}

TEST_F(Image, MetricScaleDividesTheSizeByTheUnitsPerInch) {
    // 2 units an inch: the drawing procedure reports 300 x 200 pixels as 150 x
    // 100, which the sink takes as points (150/72 x 100/72 inches); at 144
    // dots per inch that is 300 x 200 pixels. Without the scale the same image
    // is 600 x 400.
    setup->XResolution = 144;
    setup->YResolution = 144;
    for (double factor : {12.7, 0.0}) {
        init.elbufsz = 1u << 16;
        ASSERT_EQ(initialise(), 0);
        send(1);
        send(3);
        ASSERT_EQ(send(VpsmElement(1, factor)), 0);
        ASSERT_EQ(send(RectElement(518, 0, 0, 299, 199)), 0);
        send(4);
        ASSERT_EQ(send(BeginImageElement(300, 200, 1)), 0);
        ASSERT_EQ(send(EndImageElement()), 0);
        finish();
        DecodedGp4 d = written();
        EXPECT_EQ(d.width, factor != 0 ? 300u : 600u);
        EXPECT_EQ(d.height, factor != 0 ? 200u : 400u);
        EXPECT_EQ(oracle::headerRecord(d.header, 9), "rdensty: 0144");
    }
}

TEST_F(Image, EndWithoutBeginWritesNothing) {
    windowed(7, 1);
    EXPECT_EQ(send(EndImageElement()), 0);
    EXPECT_EQ(send(EndImageElement()), 0);
    finish();
    EXPECT_TRUE(outputFile().empty());
}

TEST_F(Image, SecondBeginWithoutEndReleasesTheFirstImage) {
    windowed(7, 1);
    ASSERT_EQ(send(BeginImageElement(8, 2, 8)), 0);
    const ZHANDLE first = state()->hBuffer;
    ASSERT_EQ(send(BeginImageElement(8, 2, 8)), 0);
    EXPECT_EQ(GlobalLock(first), nullptr);
    EXPECT_NE(state()->hBuffer, 0u);
    finish();  // the fixture counts the blocks left
}

TEST_F(Image, OtherPrimitiveIdentifiersAreIgnored) {
    windowed(7, 1);
    for (int32_t id : {0, 1, -1, -4, -7, -8, INT32_MIN, INT32_MAX}) {
        Element e = BeginImageElement(8, 2, 8);
        e.put<int32_t>(DVR_GDP_FUNCTION, id);
        EXPECT_EQ(send(e), 0) << id;
        EXPECT_EQ(state()->bInCellArray, 0) << id;
        EXPECT_EQ(state()->hBuffer, 0u) << id;
    }
    finish();
}

TEST_F(Image, DataRecordAfterThePointsIsRead) {
    windowed(7, 1);
    ASSERT_EQ(send(BeginImageElement(8, 2, 8, 3)), 0);
    EXPECT_EQ(state()->Width, 8u);
    EXPECT_EQ(state()->Height, 2u);
    finish();
}

// ---------------------------------------------------------------- hostile primitives

TEST_F(Image, PointCountsThatPutTheRecordOutsideTheElementAnnounceNothing) {
    windowed(7, 1);
    for (int32_t numPts : {-1, INT32_MIN, 100000, INT32_MAX}) {
        Element e = BeginImageElement(8, 2, 8);
        e.put<int32_t>(DVR_GDP_NUMPTS, numPts);
        EXPECT_EQ(send(e), 0) << numPts;
        EXPECT_EQ(state()->bInCellArray, 0) << numPts;
        EXPECT_EQ(state()->hBuffer, 0u);
    }
    finish();
}

TEST_F(Image, DataLengthIsNotTrusted) {
    windowed(7, 1);
    for (int32_t length : {0, -1, INT32_MAX, 3}) {
        Element e = BeginImageElement(8, 2, 8);
        e.put<int32_t>(DVR_GDP_POINTS, length);
        EXPECT_EQ(send(e), 0) << length;
        EXPECT_EQ(state()->Height, 2u);
        EXPECT_EQ(send(EndImageElement()), 0);
    }
    finish();
}

TEST_F(Image, BeginCutOffBeforeItsRecordEndsAnnouncesNothing) {
    startPicture(256);
    Element e = BeginImageElement(8, 2, 8);
    uint8_t *at = elbuf() + 256 - (e.size() - 1);
    std::memcpy(at, e.bytes().data(), e.size() - 1);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, at), 0);
    EXPECT_EQ(state()->bInCellArray, 0);
    finish();
}

TEST_F(Image, SizesOfZeroBelowOrTooLargeOpenAnImageWithoutRows) {
    windowed(1e300, 1);
    for (auto [nx, ny, precision] :
         {std::tuple{0, 4, 8}, std::tuple{8, 0, 8}, std::tuple{-8, 4, 8}, std::tuple{8, -4, 8},
          std::tuple{INT32_MAX, INT32_MAX, 24}, std::tuple{65536, 65536, 8}, std::tuple{70000, 2, 1},
          std::tuple{8, 70000, 1}, std::tuple{8, 4, 0}, std::tuple{8, 4, 3}, std::tuple{8, 4, 64},
          std::tuple{8, 4, INT32_MIN}}) {
        EXPECT_EQ(send(BeginImageElement(nx, ny, precision)), 0) << nx << " " << ny << " " << precision;
        EXPECT_EQ(state()->bInCellArray, 1);
        EXPECT_EQ(state()->hBuffer, 0u);
        EXPECT_EQ(state()->Height, 0u);
        // Cell arrays into an image that has no bitmap: no memory.
        EXPECT_EQ(send(CellArrayElement(0, 1, 8, 1, 8, std::vector<uint8_t>(8, 1))), 300);
        EXPECT_EQ(send(EndImageElement()), 0);
        EXPECT_EQ(state()->bInCellArray, 0);
    }
    finish();
    EXPECT_TRUE(outputFile().empty());
}

TEST_F(Image, WindowCornersThatAreNotFiniteStillGiveAnImageWithinNx) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (auto [x1, x2, expected] : {std::tuple{nan, nan, 1u}, std::tuple{-inf, inf, 8u}, std::tuple{1e300, -1e300, 8u},
                                    std::tuple{0.0, inf, 8u}}) {
        startPicture(1u << 16, {RectElement(518, x1, nan, x2, -inf)});
        ASSERT_EQ(send(BeginImageElement(8, 2, 8)), 0);
        EXPECT_EQ(state()->Width, expected) << x1 << " " << x2;
        ASSERT_EQ(send(EndImageElement()), 0);
        finish();
    }
}

TEST_F(Image, OutputOfNoPixelsInEitherDimensionWritesNoImageAndDoesNotFault) {
    // At one dot per inch, 8 x 2 pixels taken as points are less than a dot
    // both ways, and 200 x 2 are 2 dots wide but less than one high.
    setup->XResolution = 1;
    setup->YResolution = 1;
    windowed(199, 1);
    for (int32_t nx : {8, 200}) {
        ASSERT_EQ(send(BeginImageElement(nx, 2, 1)), 0);
        EXPECT_EQ(send(EndImageElement()), 0) << nx;
    }
    finish();
    EXPECT_TRUE(outputFile().empty()) << "nothing can be rendered into no rows";
}

TEST_F(Image, MetricScaleSoLargeThatThePictureHasNoPixelsDoesNotFault) {
    init.elbufsz = 1u << 16;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    ASSERT_EQ(send(VpsmElement(1, 1e-3)), 0);  // 25400 units an inch
    ASSERT_EQ(state()->inch, 25400);
    ASSERT_EQ(send(RectElement(518, 0, 0, 7, 1)), 0);
    send(4);
    ASSERT_EQ(send(BeginImageElement(8, 2, 8)), 0);
    EXPECT_EQ(send(EndImageElement()), 0);
    ASSERT_EQ(send(VpsmElement(1, -0.1)), 0);  // not accepted in the body
    finish();
}

TEST_F(Image, NegativeMetricScaleDoesNotFault) {
    init.elbufsz = 1u << 16;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    ASSERT_EQ(send(VpsmElement(1, -0.1)), 0);
    ASSERT_EQ(state()->inch, -253);
    ASSERT_EQ(send(RectElement(518, 0, 0, 7, 1)), 0);
    send(4);
    ASSERT_EQ(send(BeginImageElement(8, 2, 8)), 0);
    EXPECT_EQ(send(EndImageElement()), 0);
    state()->Height = 2;
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 8, std::vector<uint8_t>(16, 1))), 0);
    finish();
}

TEST_F(Image, SeveralPicturesInOneStreamRewriteTheDataFromByte2048) {
    windowed(7, 1);
    ASSERT_EQ(send(BeginImageElement(8, 2, 1)), 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    send(5);
    ASSERT_EQ(send(3), 0);
    ASSERT_EQ(send(RectElement(518, 0, 0, 15, 3)), 0);
    send(4);
    ASSERT_EQ(send(ColorTableElement(0, {kBlack, kWhite})), 0);
    ASSERT_EQ(send(BeginImageElement(16, 4, 1)), 0);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(send(CellArrayElement(0, 1, 16, 1, 1, {0xFF, 0x00, 0, 0})), 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    const std::vector<uint8_t> file = outputFile();
    // The first picture's header stays at the start; the second picture's
    // header went where the first picture's data ended, and its data from
    // byte 2048 on.
    oracle::Gp4File f = oracle::splitGp4(file);
    EXPECT_EQ(oracle::headerRecord(f.header, 8), "rpelcnt: 000008,000002");
    auto second = oracle::decodeG4(f.data, 16, 4);
    ASSERT_TRUE(second.has_value());
    for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 16; ++x) ASSERT_EQ(second->black(x, y), x >= 8) << x << "," << y;
}


TEST_F(DriverSession, ImageOfOddHeightIsOutputOneRowTaller) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 4)});
    ASSERT_EQ(send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}})), 0);
    ASSERT_EQ(send(BeginImageElement(8, 5, 1)), 0);
    ASSERT_EQ(send(CellArrayElement(0, 1, 8, 5, 1, std::vector<uint8_t>(20, 0xFF))), 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    auto d = DecodeGp4File(outputFile());
    ASSERT_EQ(d.width, 8u);
    ASSERT_EQ(d.height, 6u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 8; ++x) ASSERT_FALSE(d.picture->black(x, y)) << "all white, stretched by a row";
}

}  // namespace
