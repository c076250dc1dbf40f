// Cell arrays as the driver places them: how many cells a row takes from the
// device window, which source bytes each row starts at, the row direction,
// and what a single cell array outside an image writes. Pictures are decoded
// by libtiff; expected pixels follow from the placement rules by hand.
#include "export/raster/driver_session.h"

#include <cmath>
#include <limits>

namespace {

using mivo4::test::BeginImageElement;
using mivo4::test::CellArrayElement;
using mivo4::test::ColorTableElement;
using mivo4::test::DecodedGp4;
using mivo4::test::DecodeGp4File;
using mivo4::test::DriverSession;
using mivo4::test::Element;
using mivo4::test::EndImageElement;
using mivo4::test::PointerCellArrayElement;
using mivo4::test::RectElement;
using mivo4::test::statusLog;
using mivo4::test::VpsmElement;

constexpr VCD kBlack{0, 0, 0};
constexpr VCD kWhite{255, 255, 255};

class CellArray : public DriverSession {
protected:
    // A picture whose rows the single cell arrays can fill: outside an image
    // only a height left by an earlier image lets rows in.
    void pictureOfHeight(uint32_t height, double windowRight, double windowTop = 1) {
        startPicture(1u << 16, {RectElement(518, 0, 0, windowRight, windowTop)});
        ASSERT_EQ(send(ColorTableElement(0, {kBlack, kWhite})), 0);
        state()->Height = height;
    }
    DecodedGp4 written() { return DecodeGp4File(outputFile()); }
};

// Pixel of a decoded picture as the palette index it shows: 1 white, 0 black.
int shown(const DecodedGp4 &d, uint32_t x, uint32_t y) { return d.picture->black(x, y) ? 0 : 1; }

TEST_F(CellArray, WindowWiderThanTheCellsIsCutToSizeXCellsPerRow) {
    pictureOfHeight(2, 99);  // a window 100 wide
    // 8 cells a row, two rows: row 0 alternating, row 1 all white.
    std::vector<uint8_t> cells = {0xAA, 0, 0, 0, 0xFF, 0, 0, 0};
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 8u);
    ASSERT_EQ(d.height, 2u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t x = 0; x < 8; ++x) {
        EXPECT_EQ(shown(d, x, 0), 1) << "top row is the last row received";
        EXPECT_EQ(shown(d, x, 1), x % 2 == 0 ? 1 : 0) << "bottom row is the first";
    }
}

TEST_F(CellArray, WindowNarrowerThanTheCellsTakesTheWindowsWidth) {
    pictureOfHeight(1, 2);  // 3 pixels
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 1, 1, {0xA0, 0, 0, 0})), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 3u);
    ASSERT_TRUE(d.picture.has_value());
    EXPECT_EQ(shown(d, 0, 0), 1);
    EXPECT_EQ(shown(d, 1, 0), 0);
    EXPECT_EQ(shown(d, 2, 0), 1);
}

// The dithering to one bit gives the last pixel of each row the choice made
// for the pixel before it; the expectations below follow that.
TEST_F(CellArray, TwentyFourBitCellsNarrowedByTheWindowSkipPaddingAndExcessOfEachRow) {
    pictureOfHeight(2, 2);  // 3 pixels of 5 cells
    // Source rows of 5 cells are 16 bytes apart (15 bytes padded). The window's
    // three pixels take 9 bytes, padded to 12, and the rest (4) is skipped.
    std::vector<uint8_t> cells(32, 0x77);
    auto px = [&](int row, int x, uint8_t v) {
        for (int c = 0; c < 3; ++c) cells[static_cast<size_t>(row * 16 + x * 3 + c)] = v;
    };
    px(0, 0, 255);
    px(0, 1, 0);
    px(0, 2, 255);
    px(1, 0, 0);
    px(1, 1, 255);
    px(1, 2, 0);
    EXPECT_EQ(send(CellArrayElement(0, 1, 5, 2, 24, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 3u);
    ASSERT_EQ(d.height, 2u);
    ASSERT_TRUE(d.picture.has_value());
    const int bottom[3] = {1, 0, 0}, top[3] = {0, 1, 1};  // first row white, black; second from byte 16
    for (uint32_t x = 0; x < 3; ++x) {
        EXPECT_EQ(shown(d, x, 1), bottom[x]) << x;
        EXPECT_EQ(shown(d, x, 0), top[x]) << x;
    }
}

TEST_F(CellArray, EightBitCellsNarrowedByTheWindowDoNotSkipTheRestOfEachRow) {
    pictureOfHeight(2, 2);  // 3 pixels of 8 cells
    // Source rows are really 8 bytes apart, but at 8 bits the driver takes
    // rows of the window's 4 bytes one after another: the second row is read
    // from bytes 4 to 6 of the first.
    std::vector<uint8_t> cells = {0, 1, 0, 0, 1, 0, 1, 0,  // row 0
                                  1, 1, 1, 1, 1, 1, 1, 1}; // row 1, never read
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 8, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 3u);
    ASSERT_EQ(d.height, 2u);
    ASSERT_TRUE(d.picture.has_value());
    const int bottom[3] = {0, 1, 1}, top[3] = {1, 0, 0};
    for (uint32_t x = 0; x < 3; ++x) {
        EXPECT_EQ(shown(d, x, 1), bottom[x]) << x;
        EXPECT_EQ(shown(d, x, 0), top[x]) << x;
    }
}

TEST_F(CellArray, InvertedRowsArePlacedFromHeightMinusTwoDownwardsOnThePicturesFirstElement) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 3)});  // window y runs up
    ASSERT_EQ(send(ColorTableElement(0, {kBlack, kWhite})), 0);
    ASSERT_EQ(send(BeginImageElement(8, 4, 1)), 0);
    // Q below P: the rows run against the window. Rows 0, 1, 2 of the element
    // go to bitmap rows 2, 1, 0; bitmap row 3 (the picture's top) stays zero.
    std::vector<uint8_t> cells = {0xFF, 0, 0, 0, 0x0F, 0, 0, 0, 0xF0, 0, 0, 0, 0x3C, 0, 0, 0};
    EXPECT_EQ(send(CellArrayElement(3, 0, 8, 4, 1, cells)), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0) << "started at 3, three rows placed";
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 8u);
    ASSERT_EQ(d.height, 4u);
    ASSERT_TRUE(d.picture.has_value());
    const uint8_t expectedTopDown[4] = {0x00, 0xFF, 0x0F, 0xF0};  // bitmap rows 3, 2, 1, 0
    for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 8; ++x)
            ASSERT_EQ(shown(d, x, y), (expectedTopDown[y] >> (7 - x)) & 1) << x << "," << y;
}

TEST_F(CellArray, WindowRunningDownWithQAboveTheElementIsAlsoInverted) {
    startPicture(1u << 16, {RectElement(518, 0, 3, 7, 0)});  // window y runs down
    ASSERT_EQ(send(BeginImageElement(8, 4, 1)), 0);
    EXPECT_EQ(send(CellArrayElement(0, 3, 8, 1, 1, {0xFF, 0, 0, 0})), 0);
    EXPECT_EQ(state()->CurrentScanLine, 2) << "placed at row 2, one row above the start of 3";
    auto *bitmap = static_cast<uint8_t *>(GlobalLock(state()->hBuffer));
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(bitmap[2 * 4], 0xFF);
    EXPECT_EQ(bitmap[3 * 4], 0x00);
    GlobalUnlock(state()->hBuffer);
    finish();
}

TEST_F(CellArray, InvertedCellArrayWithHeightZeroCopiesNothing) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 3)});
    EXPECT_EQ(send(CellArrayElement(3, 0, 8, 2, 1, {0xFF, 0, 0, 0, 0xFF, 0, 0, 0})), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0) << "no start below row 0";
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 8u);
    ASSERT_EQ(d.height, 2u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint8_t b : d.picture->bits) EXPECT_EQ(b, 0xFF) << "all zero cells, entry 0 black";
}

TEST_F(CellArray, OutsideAnImageWithHeightZeroThePictureWrittenIsAllZero) {
    for (VCD first : {kBlack, kWhite}) {
        startPicture(1u << 16, {RectElement(518, 0, 0, 15, 2)});
        ASSERT_EQ(send(ColorTableElement(0, {first, first.red == 0 ? kWhite : kBlack})), 0);
        ASSERT_EQ(state()->Height, 0u);
        std::vector<uint8_t> ones(3 * 4, 0xFF);
        EXPECT_EQ(send(CellArrayElement(0, 1, 16, 3, 1, ones)), 0);
        EXPECT_EQ(state()->CurrentScanLine, 0);
        finish();
        DecodedGp4 d = written();
        ASSERT_EQ(d.width, 16u);
        ASSERT_EQ(d.height, 3u);
        ASSERT_TRUE(d.picture.has_value());
        // Every cell is entry 0: black when entry 0 is black, white when white.
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t x = 0; x < 16; ++x) ASSERT_EQ(d.picture->black(x, y), first.red == 0) << x << "," << y;
    }
}

TEST_F(CellArray, DpiZeroPassesTheSourceSizeInPixelsAsThePicturesSize) {
    // The sink takes the size in points: 144 x 72 pixels passed as points are
    // 2 x 1 inches, at 100 dots per inch 200 x 100 pixels.
    setup->XResolution = 100;
    setup->YResolution = 100;
    pictureOfHeight(72, 143, 71);
    std::vector<uint8_t> cells(static_cast<size_t>(20) * 72, 0xFF);  // 144 bits padded to 20 bytes
    EXPECT_EQ(send(CellArrayElement(0, 1, 144, 72, 1, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 200u);
    ASSERT_EQ(d.height, 100u);
    EXPECT_EQ(oracle::headerRecord(d.header, 9), "rdensty: 0100");
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < 100; ++y)
        for (uint32_t x = 0; x < 200; ++x) ASSERT_FALSE(d.picture->black(x, y)) << "all white, stretched";
}

TEST_F(CellArray, ShrunkWhenTheOutputIsShorterThanTheCells) {
    setup->XResolution = 36;
    setup->YResolution = 36;
    pictureOfHeight(72, 143, 71);
    std::vector<uint8_t> cells(static_cast<size_t>(20) * 72, 0x00);  // all entry 0
    EXPECT_EQ(send(CellArrayElement(0, 1, 144, 72, 1, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 72u);
    ASSERT_EQ(d.height, 36u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < 36; ++y)
        for (uint32_t x = 0; x < 72; ++x) ASSERT_TRUE(d.picture->black(x, y));
}

TEST_F(CellArray, MetricScaleAsksForTheWindowsSizeInInches) {
    // 0.254 mm a unit is 100 units an inch: a window 200 x 100 units is 2 x 1
    // inches; the sink takes that as points (2/72 x 1/72 inch) at 3600 dpi:
    // 100 x 50 pixels.
    setup->XResolution = 3600;
    setup->YResolution = 3600;
    init.elbufsz = 1u << 16;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    ASSERT_EQ(send(mivo4::test::VpsmElement(1, 0.254)), 0);
    ASSERT_EQ(state()->inch, 100);
    ASSERT_EQ(send(RectElement(518, 0, 0, 199, 99)), 0);
    send(4);
    ASSERT_EQ(send(ColorTableElement(0, {kWhite, kBlack})), 0);
    state()->Height = 4;
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 4, 1, std::vector<uint8_t>(16, 0))), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 100u);
    ASSERT_EQ(d.height, 50u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < 50; ++y)
        for (uint32_t x = 0; x < 100; ++x) ASSERT_FALSE(d.picture->black(x, y)) << "entry 0 is white";
}

TEST_F(CellArray, OutputOfNoPixelsWritesAnEmptyPictureWithoutFault) {
    // At one dot per inch 8 x 2 pixels taken as points are less than a dot.
    setup->XResolution = 1;
    setup->YResolution = 1;
    pictureOfHeight(2, 7);
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
    finish();
    const std::vector<uint8_t> file = outputFile();
    ASSERT_EQ(file.size(), 2048u) << "a header and no coded rows";
    EXPECT_EQ(oracle::headerRecord(oracle::splitGp4(file).header, 8), "rpelcnt: 000000,000000");
}

TEST_F(CellArray, PrecisionMinus32768TakesOneBitCellsFromTheHostsAddress) {
    pictureOfHeight(2, 7);
    const uint8_t cells[8] = {0xF0, 0, 0, 0, 0x0F, 0, 0, 0};
    EXPECT_EQ(send(PointerCellArrayElement(0, 1, 8, 2, DVR_PRECISION_ONE_BIT, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 8u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t x = 0; x < 8; ++x) {
        EXPECT_EQ(shown(d, x, 1), x < 4 ? 1 : 0);
        EXPECT_EQ(shown(d, x, 0), x < 4 ? 0 : 1);
    }
}

TEST_F(CellArray, NegativePrecisionTakesItsMagnitudeWithCellsElsewhere) {
    pictureOfHeight(1, 3);
    const uint8_t cells[4] = {1, 0, 1, 1};
    EXPECT_EQ(send(PointerCellArrayElement(0, 1, 4, 1, -8, cells)), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 4u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t x = 0; x < 4; ++x) EXPECT_EQ(shown(d, x, 0), cells[x]) << x;
}

TEST_F(CellArray, TwentyFourBitCellsAreAdjustedByTheColourModeAsTheyArePlaced) {
    setup->nColorMode = 104;  // every component inverted
    startPicture(1u << 16, {RectElement(518, 0, 0, 1, 0)});
    ASSERT_EQ(send(BeginImageElement(2, 2, 24)), 0);
    std::vector<uint8_t> row = {10, 20, 30, 255, 0, 128, 0, 0};
    EXPECT_EQ(send(CellArrayElement(0, 1, 2, 1, 24, row)), 0);
    const auto *bitmap = static_cast<const uint8_t *>(GlobalLock(state()->hBuffer));
    ASSERT_NE(bitmap, nullptr);
    const uint8_t expected[8] = {245, 235, 225, 0, 255, 127, 0, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(bitmap[i], expected[i]) << i;
    EXPECT_EQ(row[0], 10) << "the element itself is not touched";
    GlobalUnlock(state()->hBuffer);
    finish();
}

// ---------------------------------------------------------------- hostile cell arrays

TEST_F(CellArray, SizesOfZeroOrBelowPlaceNothingAndAreIgnored) {
    pictureOfHeight(4, 7);
    const uint32_t live = mivo4::mem::LiveHandles();
    for (auto [x, y] : {std::pair{0, 4}, std::pair{8, 0}, std::pair{-8, 4}, std::pair{8, -4},
                        std::pair{INT32_MIN, INT32_MIN}}) {
        EXPECT_EQ(send(CellArrayElement(0, 1, x, y, 1, std::vector<uint8_t>(16, 0xFF))), 0) << x << "," << y;
        EXPECT_EQ(state()->CurrentScanLine, 0);
        EXPECT_EQ(mivo4::mem::LiveHandles(), live);
    }
    finish();
    EXPECT_TRUE(outputFile().empty()) << "no picture was written";
}

TEST_F(CellArray, PrecisionsTheColourLibraryCannotTakeAreIgnored) {
    pictureOfHeight(4, 7);
    for (int32_t precision : {0, 2, 3, 5, 16, 64, -3, -64, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(send(CellArrayElement(0, 1, 8, 1, precision, std::vector<uint8_t>(64, 0xFF))), 0) << precision;
        EXPECT_EQ(state()->CurrentScanLine, 0) << precision;
    }
    finish();
    EXPECT_TRUE(outputFile().empty());
}

TEST_F(CellArray, BufferSizeBeyond32BitsIsNoMemory300) {
    pictureOfHeight(4, 1e300);
    // 1e300 truncates to the largest int: the window is as wide as the cells.
    EXPECT_EQ(send(CellArrayElement(0, 1, INT32_MAX, INT32_MAX, 24, std::vector<uint8_t>(16, 0))), 300);
    EXPECT_EQ(send(CellArrayElement(0, 1, 65536, 65536, 8, std::vector<uint8_t>(16, 0))), 300);
    EXPECT_EQ(send(CellArrayElement(0, 1, 1 << 20, 1 << 13, 32, std::vector<uint8_t>(16, 0))), 300);
    finish();
}

TEST_F(CellArray, WindowCornersThatAreNotFiniteGiveAWholeNumberOfPixels) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (auto [x1, x2, expected] : {std::tuple{nan, nan, 1u}, std::tuple{0.0, inf, 8u}, std::tuple{-inf, 0.0, 8u},
                                    std::tuple{-inf, inf, 8u}, std::tuple{-1e300, 1e300, 8u}, std::tuple{0.0, nan, 1u}}) {
        startPicture(1u << 16, {RectElement(518, x1, nan, x2, inf)});
        state()->Height = 2;
        EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
        finish();
        DecodedGp4 d = written();
        EXPECT_EQ(d.width, expected) << x1 << " " << x2;
        EXPECT_EQ(d.height, 2u);
    }
}

TEST_F(CellArray, MoreRowsThanThePictureHoldsStopAtItsLastRow) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 3)});
    ASSERT_EQ(send(BeginImageElement(8, 4, 1)), 0);
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 3, 1, std::vector<uint8_t>(12, 0xFF))), 0);
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 3, 1, std::vector<uint8_t>(12, 0xFF))), 0);
    EXPECT_EQ(state()->CurrentScanLine, 4) << "one row of the second element fitted";
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 100, 1, std::vector<uint8_t>(400, 0xFF))), 0);
    EXPECT_EQ(state()->CurrentScanLine, 4);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
}

TEST_F(CellArray, InvertedRowsStopAtTheBottomRow) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 3)});
    ASSERT_EQ(send(BeginImageElement(8, 4, 1)), 0);
    EXPECT_EQ(send(CellArrayElement(3, 0, 8, 100, 1, std::vector<uint8_t>(400, 0xFF))), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
}

TEST_F(CellArray, CellsWiderThanTheImageAreCutToItsRows) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 63, 1)});  // 64 wide window
    ASSERT_EQ(send(ColorTableElement(0, {kBlack, kWhite})), 0);
    ASSERT_EQ(send(BeginImageElement(8, 2, 1)), 0);     // image capped at 8
    ASSERT_EQ(state()->Width, 8u);
    // 64 cells a row: 8 bytes a row; the image row holds 4.
    std::vector<uint8_t> cells(16, 0);
    cells[0] = 0xF0;
    cells[4] = 0xAA;  // beyond the image's row: must not reach the next row
    cells[8] = 0x0F;
    EXPECT_EQ(send(CellArrayElement(0, 1, 64, 2, 1, cells)), 0);
    const auto *bitmap = static_cast<const uint8_t *>(GlobalLock(state()->hBuffer));
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(GlobalSize(state()->hBuffer), 8u);
    EXPECT_EQ(bitmap[0], 0xF0);
    EXPECT_EQ(bitmap[4], 0x0F) << "the second row starts at the image's second row";
    GlobalUnlock(state()->hBuffer);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    DecodedGp4 d = written();
    ASSERT_EQ(d.width, 8u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t x = 0; x < 8; ++x) {
        EXPECT_EQ(shown(d, x, 0), x < 4 ? 0 : 1);
        EXPECT_EQ(shown(d, x, 1), x < 4 ? 1 : 0);
    }
}

TEST_F(CellArray, CellsDeeperThanTheImageAreCutToItsRows) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 1)});
    ASSERT_EQ(send(BeginImageElement(8, 2, 1)), 0);  // 4 bytes a row
    std::vector<uint8_t> cells(16, 0x5A);             // 8 cells of 8 bits: 8 bytes a row
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 8, cells)), 0);
    EXPECT_EQ(state()->CurrentScanLine, 2);
    EXPECT_EQ(GlobalSize(state()->hBuffer), 8u);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
}

TEST_F(CellArray, CellArrayCutOffByTheEndOfTheElementBufferReadsOnlyTheRowsInIt) {
    startPicture(256, {RectElement(518, 0, 0, 31, 9)});
    ASSERT_EQ(send(BeginImageElement(32, 10, 8)), 0);
    // 32 bytes a row; the element's cells start 102 bytes in and the buffer
    // ends 256 - 102 = 154 bytes later: four whole rows.
    Element e = CellArrayElement(0, 1, 32, 10, 8, std::vector<uint8_t>(154, 7));
    ASSERT_EQ(e.size(), 256u);
    EXPECT_EQ(send(e), 0);
    EXPECT_EQ(state()->CurrentScanLine, 4);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
}

TEST_F(CellArray, CellArrayCutOffBeforeItsSizesIsIgnored) {
    startPicture(256);
    state()->Height = 4;
    Element e = CellArrayElement(0, 1, 8, 4, 1, std::vector<uint8_t>(16, 0xFF));
    uint8_t *at = elbuf() + 256 - 90;  // the element ends before its sizes
    std::memcpy(at, e.bytes().data(), 90);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, at), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0);
    finish();
}

TEST_F(CellArray, PointerCellsWithANullAddressCopyNothing) {
    pictureOfHeight(2, 7);
    EXPECT_EQ(send(PointerCellArrayElement(0, 1, 8, 2, -1, nullptr)), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0);
    finish();
}

TEST_F(CellArray, PointerCellsCutOffBeforeTheirAddressCopyNothing) {
    startPicture(256);
    state()->Height = 2;
    const uint8_t cells[8] = {0xFF, 0, 0, 0, 0xFF, 0, 0, 0};
    Element e = PointerCellArrayElement(0, 1, 8, 2, -1, cells);
    uint8_t *at = elbuf() + 256 - 106;  // half of the address is in the buffer
    std::memcpy(at, e.bytes().data(), 106);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, at), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0);
    finish();
}

TEST_F(CellArray, CellArrayAfterAnImageContinuesFromWhereTheImageLeftTheRows) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 3)});
    ASSERT_EQ(send(BeginImageElement(8, 4, 1)), 0);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(send(CellArrayElement(0, 1, 8, 1, 1, {0xFF, 0, 0, 0})), 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    EXPECT_EQ(state()->hBuffer, 0u);
    // The image's height stays, and its rows are all used: this one places
    // nothing and writes its picture of zero cells.
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
    EXPECT_EQ(state()->CurrentScanLine, 4);
    finish();
}


TEST_F(DriverSession, InvertedSingleCellArrayBelowATallerPictureWritesOnlyInsideItsBlock) {
    // Height 10 from an earlier image: the inverted rows go to rows 8 and 7,
    // which a block of the element's 2 rows does not have.
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 9)});
    state()->Height = 10;
    EXPECT_EQ(send(CellArrayElement(9, 0, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
    EXPECT_EQ(state()->CurrentScanLine, 7);
    finish();
    auto d = DecodeGp4File(outputFile());
    ASSERT_EQ(d.width, 8u);
    ASSERT_EQ(d.height, 2u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint8_t b : d.picture->bits) EXPECT_EQ(b, 0xFF) << "nothing placed: all entry 0, black";
}

TEST_F(DriverSession, CellArrayAfterTheEndOfThePictureIsIgnored) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 1)});
    state()->Height = 2;
    ASSERT_EQ(send(5), 0);
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0);
    send(2);
    terminate();
    EXPECT_TRUE(outputFile().empty());
}

TEST_F(DriverSession, OutputLargerThanTheHeaderCanDescribeIsNotWritten) {
    // 216 pixels taken as points are 3 inches: 98301 dots at 32767 dpi, more
    // than the header's 16-bit sizes hold.
    setup->XResolution = 32767;
    setup->YResolution = 32767;
    startPicture(1u << 16, {RectElement(518, 0, 0, 215, 0)});
    state()->Height = 1;
    EXPECT_EQ(send(CellArrayElement(0, 1, 216, 1, 8, std::vector<uint8_t>(216, 1))), 0);
    finish();
    EXPECT_TRUE(outputFile().empty());
}

TEST_F(DriverSession, MetricScalesProposedAsTheUsersResolutionDoNotFault) {
    // With the user's resolution mode the scale is proposed to the sink, which
    // takes its low 16 bits as the resolution: 0, negative or huge ones too.
    for (double factor : {-1e-300, 1e-300, 25.4 / 100000, 25.4 / 65536, -25.4, 25.4 / 300}) {
        setup->ResMode = RES_USER;
        setup->XResolution = 200;
        setup->YResolution = 200;
        init.elbufsz = 1u << 16;
        ASSERT_EQ(initialise(), 0);
        send(1);
        send(3);
        ASSERT_EQ(send(VpsmElement(1, factor)), 0);
        ASSERT_EQ(send(RectElement(518, 0, 0, 15, 3)), 0);
        send(4);
        ASSERT_EQ(send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}})), 0);
        state()->Height = 4;
        EXPECT_EQ(send(CellArrayElement(0, 1, 16, 4, 1, std::vector<uint8_t>(16, 0x5A))), 0) << factor;
        ASSERT_EQ(send(mivo4::test::BeginImageElement(16, 4, 1)), 0);
        EXPECT_EQ(send(mivo4::test::EndImageElement()), 0) << factor;
        finish();
    }
}

TEST_F(DriverSession, ViewportModeCutOffBeforeItsFactorReadsFactorZero) {
    init.elbufsz = 24;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    state()->inch = 99;
    auto e = VpsmElement(1, 0.1);
    std::memcpy(elbuf(), e.bytes().data(), 24);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, elbuf()), 0);
    EXPECT_EQ(state()->inch, 0) << "mode 1 with a factor read as 0";
    finish();
}

TEST_F(DriverSession, TheSinkReadsTheSetupHandedToInitialisation) {
    Gp4_SetupData other{};
    other.XResolution = 300;
    other.YResolution = 300;
    hRaster = 0;
    lpRaster = &other;
    setup->XResolution = 72;
    setup->YResolution = 72;
    startPicture(1u << 16, {RectElement(518, 0, 0, 71, 1)});
    EXPECT_EQ(lpRaster, setup);
    EXPECT_EQ(hRaster, hSetup);
    state()->Height = 2;
    EXPECT_EQ(send(CellArrayElement(0, 1, 72, 2, 1, std::vector<uint8_t>(24, 0))), 0);
    finish();
    auto d = DecodeGp4File(outputFile());
    EXPECT_EQ(oracle::headerRecord(d.header, 9), "rdensty: 0072");
    EXPECT_EQ(d.width, 72u);
    EXPECT_EQ(other.gp4_refLine, 0u);
    hRaster = 0;
    lpRaster = nullptr;
}


// Shrink or stretch is chosen by the heights alone, so a shrink may widen and
// a stretch narrow. One unit a point (25.4 mm a unit is one an inch, which the
// sink takes as points): the window's size is the size asked for.
struct ScaleCase {
    int16_t dpi;
    double windowRight, windowTop;
    int32_t cellsX, cellsY;
    uint32_t outW, outH;
};

TEST_F(DriverSession, ShrinkThatWidensAndStretchThatNarrowsStayInsideTheirBitmaps) {
    // 4 x 40 cells asked at 100 x 10 points at 72 dpi: shrunk to 100 x 10.
    // 40 x 4 cells asked at 40 x 100 points at 36 dpi: stretched to 20 x 50.
    for (ScaleCase c : {ScaleCase{72, 99, 9, 4, 40, 100, 10}, ScaleCase{36, 39, 99, 40, 4, 20, 50}}) {
        for (int32_t precision : {1, 4, 8, 24}) {
            setup->XResolution = c.dpi;
            setup->YResolution = c.dpi;
            init.elbufsz = 1u << 16;
            ASSERT_EQ(initialise(), 0);
            send(1);
            send(3);
            ASSERT_EQ(send(VpsmElement(1, 25.4)), 0);
            ASSERT_EQ(send(RectElement(518, 0, 0, c.windowRight, c.windowTop)), 0);
            send(4);
            // Every cell white: entry 1 of a black and white table, or white itself.
            std::vector<VCD> table(16, VCD{255, 255, 255});
            table[0] = VCD{0, 0, 0};
            ASSERT_EQ(send(ColorTableElement(0, table)), 0);
            const uint32_t stride = ((static_cast<uint32_t>(c.cellsX * precision) + 7) / 8 + 3) & ~3u;
            std::vector<uint8_t> cells(static_cast<size_t>(stride) * static_cast<size_t>(c.cellsY), 0);
            for (int32_t r = 0; r < c.cellsY; ++r)
                for (int32_t x = 0; x < c.cellsX; ++x) {
                    uint8_t *row = cells.data() + static_cast<size_t>(r) * stride;
                    if (precision == 1) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
                    if (precision == 4) row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? 0x10 : 0x01);
                    if (precision == 8) row[x] = 1;
                    if (precision == 24) std::memset(row + 3 * x, 255, 3);
                }
            state()->Height = static_cast<uint32_t>(c.cellsY);
            EXPECT_EQ(send(CellArrayElement(0, 1, c.cellsX, c.cellsY, precision, cells)), 0);
            finish();
            auto d = DecodeGp4File(outputFile());
            ASSERT_EQ(d.width, c.outW) << precision;
            ASSERT_EQ(d.height, c.outH) << precision;
            ASSERT_TRUE(d.picture.has_value());
            for (uint32_t y = 0; y < c.outH; ++y)
                for (uint32_t x = 0; x < c.outW; ++x)
                    ASSERT_FALSE(d.picture->black(x, y)) << "depth " << precision << " at " << x << "," << y;
        }
    }
}


TEST_F(DriverSession, WindowWiderThanTheCellsWithEqualHeightsReadsZeroOutsideTheBitmap) {
    // One unit a point at 72 dpi: the window asks for 100 x 10 pixels, the
    // cells are 8 x 10. Equal heights: neither shrunk nor stretched, so the
    // sink takes rows of 100 pixels (13 bytes, 16 apart) from the 40-byte
    // bitmap of 4-byte rows; what lies past its end reads as zero.
    setup->XResolution = 72;
    setup->YResolution = 72;
    init.elbufsz = 1u << 16;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    ASSERT_EQ(send(VpsmElement(1, 25.4)), 0);
    ASSERT_EQ(send(RectElement(518, 0, 0, 99, 9)), 0);
    send(4);
    ASSERT_EQ(send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}})), 0);
    std::vector<uint8_t> cells(40, 0);
    for (size_t r = 0; r < 10; ++r) cells[4 * r] = static_cast<uint8_t>(r * 29 + 7);
    state()->Height = 10;
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 10, 1, cells)), 0);
    finish();
    auto d = DecodeGp4File(outputFile());
    ASSERT_EQ(d.width, 100u);
    ASSERT_EQ(d.height, 10u);
    ASSERT_TRUE(d.picture.has_value());
    for (uint32_t y = 0; y < 10; ++y) {
        const size_t from = static_cast<size_t>(9 - y) * 16;  // the padded row the sink takes
        for (uint32_t x = 0; x < 100; ++x) {
            const size_t byte = from + x / 8;
            const uint8_t v = byte < cells.size() ? cells[byte] : 0;
            const bool set = (v >> (7 - x % 8)) & 1;
            ASSERT_EQ(d.picture->black(x, y), !set) << x << "," << y;
        }
    }
}


class SingleCellArrayProgress : public DriverSession {
protected:
    // A 16 x 8 cell array at `precision` written at `dpi`: 36 halves it
    // (shrink), 144 doubles it (stretch), 72 keeps it.
    int32_t sendOne(int16_t dpi, int32_t precision) {
        setup->XResolution = dpi;
        setup->YResolution = dpi;
        startPicture(1u << 16, {RectElement(518, 0, 0, 15, 7)});
        send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}}));
        state()->Height = 8;
        const size_t stride = ((16u * static_cast<uint32_t>(precision) + 7) / 8 + 3) & ~3u;
        statusLog().calls.clear();
        return send(CellArrayElement(0, 1, 16, 8, precision, std::vector<uint8_t>(stride * 8, 1)));
    }
    // The progress reports (the status function's other requests left
    // out), cut to the first n: the coder goes on reporting its rows after.
    std::vector<intptr_t> reported(size_t n = SIZE_MAX) const {
        std::vector<intptr_t> v;
        for (const auto &c : statusLog().calls) {
            EXPECT_EQ(c.hostData, 0x5151);
            if (c.op == 0 && c.item == 0 && v.size() < n) v.push_back(c.a5);
        }
        return v;
    }
};

TEST_F(SingleCellArrayProgress, EachStageAddsTwentyAndTheCodingStartsAtFifty) {
    EXPECT_EQ(sendOne(72, 1), 0);
    EXPECT_EQ(reported(1), (std::vector<intptr_t>{50})) << "no stage ran";
    finish();
    EXPECT_EQ(sendOne(36, 1), 0);
    EXPECT_EQ(reported(2), (std::vector<intptr_t>{20, 50})) << "shrunk";
    finish();
    EXPECT_EQ(sendOne(144, 8), 0);
    EXPECT_EQ(reported(3), (std::vector<intptr_t>{20, 40, 50})) << "converted, then stretched";
    finish();
    EXPECT_EQ(sendOne(36, 24), 0);
    EXPECT_EQ(reported(3), (std::vector<intptr_t>{20, 40, 50})) << "shrunk, then converted";
    finish();
}

TEST_F(SingleCellArrayProgress, StopAnsweredDuringTheWorkAbandonsItWithoutAnError) {
    ASSERT_EQ(sendOne(144, 8), 0);
    finish();
    const size_t whole = outputFile().size();
    ASSERT_GT(whole, 2048u);
    std::filesystem::remove(connectName);
    statusLog().answer = 1;
    EXPECT_EQ(sendOne(144, 8), 0) << "a stop in the work pushes nothing";
    EXPECT_EQ(reported(), (std::vector<intptr_t>{20})) << "abandoned at the first report";
    EXPECT_EQ(state()->esl.numlost, 0);
    EXPECT_TRUE(outputFile().empty()) << "not even a header";
    statusLog().answer = 0;
    finish();
}


TEST_F(DriverSession, InvertedRowsContinueDownwardsAcrossElements) {
    // Height 6: the first element starts at 5 and places rows 4 and 3, the
    // second 2 and 1, the third only row 0 (one row is left above 0). Row 5
    // stays zero.
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 5)});
    ASSERT_EQ(send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}})), 0);
    ASSERT_EQ(send(BeginImageElement(8, 6, 1)), 0);
    const uint8_t rows[6] = {0x81, 0x42, 0x24, 0x18, 0xF0, 0x0F};
    ASSERT_EQ(send(CellArrayElement(1, 0, 8, 2, 1, {rows[0], 0, 0, 0, rows[1], 0, 0, 0})), 0);
    EXPECT_EQ(state()->CurrentScanLine, 3);
    ASSERT_EQ(send(CellArrayElement(1, 0, 8, 2, 1, {rows[2], 0, 0, 0, rows[3], 0, 0, 0})), 0);
    EXPECT_EQ(state()->CurrentScanLine, 1);
    ASSERT_EQ(send(CellArrayElement(1, 0, 8, 2, 1, {rows[4], 0, 0, 0, rows[5], 0, 0, 0})), 0);
    EXPECT_EQ(state()->CurrentScanLine, 0);
    ASSERT_EQ(send(EndImageElement()), 0);
    finish();
    auto d = DecodeGp4File(outputFile());
    ASSERT_EQ(d.width, 8u);
    ASSERT_EQ(d.height, 6u);
    ASSERT_TRUE(d.picture.has_value());
    // Top to bottom: bitmap rows 5, 4, 3, 2, 1, 0.
    const uint8_t expected[6] = {0x00, rows[0], rows[1], rows[2], rows[3], rows[4]};
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 8; ++x)
            ASSERT_EQ(d.picture->black(x, y), ((expected[y] >> (7 - x)) & 1) == 0) << x << "," << y;
}


TEST_F(DriverSession, ThirtyTwoBitCellsAreWrittenAtTheirSizeOutsideAndInsideAnImage) {
    startPicture(1u << 16, {RectElement(518, 0, 0, 5, 3)});
    state()->Height = 4;
    EXPECT_EQ(send(CellArrayElement(0, 1, 6, 4, 32, std::vector<uint8_t>(96, 0x80))), 0);
    finish();
    auto single = DecodeGp4File(outputFile());
    EXPECT_EQ(single.width, 6u);
    EXPECT_EQ(single.height, 4u);
    EXPECT_TRUE(single.picture.has_value());

    startPicture(1u << 16, {RectElement(518, 0, 0, 5, 3)});
    ASSERT_EQ(send(BeginImageElement(6, 4, 32)), 0);
    EXPECT_EQ(GlobalSize(state()->hBuffer), 96u);
    EXPECT_EQ(send(CellArrayElement(0, 1, 6, 4, 32, std::vector<uint8_t>(96, 0x80))), 0);
    EXPECT_EQ(send(EndImageElement()), 0);
    finish();
    auto image = DecodeGp4File(outputFile());
    EXPECT_EQ(image.width, 6u);
    EXPECT_EQ(image.height, 4u);
    EXPECT_TRUE(image.picture.has_value());
}

TEST_F(DriverSession, StopAnsweredAtTheReportBeforeCodingWritesNothingAndLeavesNothing) {
    // One bit at its own size: no stage runs, the only report before the
    // coding is the one that brings the progress to 50, with the colour
    // table locked.
    startPicture(1u << 16, {RectElement(518, 0, 0, 7, 1)});
    ASSERT_EQ(send(ColorTableElement(0, {VCD{0, 0, 0}, VCD{255, 255, 255}})), 0);
    state()->Height = 2;
    statusLog().calls.clear();
    statusLog().answer = 1;
    EXPECT_EQ(send(CellArrayElement(0, 1, 8, 2, 1, std::vector<uint8_t>(8, 0xFF))), 0);
    ASSERT_FALSE(statusLog().calls.empty());
    EXPECT_EQ(statusLog().calls[0].a5, 50);
    EXPECT_TRUE(outputFile().empty());
    EXPECT_EQ(setup->gp4_refLine, 0u);
    statusLog().answer = 0;
    finish();  // the fixture counts the blocks left
}

TEST_F(DriverSession, BackgroundColourCutOffByTheBufferEndReadsAsZero) {
    init.elbufsz = 18;
    ASSERT_EQ(initialise(), 0);
    send(1);
    send(3);
    state()->Bgc = VCD{9, 9, 9};
    mivo4::test::Element e(519, 20);
    e.put<uint8_t>(16, 10).put<uint8_t>(17, 20).put<uint8_t>(18, 30);
    std::memcpy(elbuf(), e.bytes().data(), 18);
    EXPECT_EQ(RASTER_dd_entry32(0, DVR_FN_ELEMENT, elbuf()), 0);
    EXPECT_EQ(state()->Bgc.red, 0);
    EXPECT_EQ(state()->Bgc.green, 0);
    EXPECT_EQ(state()->Bgc.blue, 0);
    finish();
}

}  // namespace
