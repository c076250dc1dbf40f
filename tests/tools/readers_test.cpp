// The host's picture readers: every format and variant comes back with the
// pixels, depth, colour table, row padding and bottom-up row order that the
// module's bitmap record expects.
#include <cstdio>
// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>

#include <cstring>

#include "image.h"
#include "inputpictures.h"
#include "toolfixture.h"

using namespace mivo4::host;
using toolstest::HostMemory;
using toolstest::ScratchDir;

namespace {

const Rgb kBlack{0, 0, 0}, kWhite{255, 255, 255};

Image read(const std::string &path, HostMemory &mem) { return readImage(path, mem.allocator()); }

// Row y from the top lives at buffer row height - 1 - y; rows are padded to 4.
void expectLayout(const Image &im, int depth, uint32_t w, uint32_t h) {
    EXPECT_EQ(im.depth, depth);
    EXPECT_EQ(im.width, w);
    EXPECT_EQ(im.height, h);
    size_t bytes = (static_cast<size_t>(w) * depth + 7) / 8;
    EXPECT_EQ(im.stride(), (bytes + 3) / 4 * 4);
    EXPECT_EQ(im.stride() % 4, 0u);
    EXPECT_EQ(im.row(0), im.pixels + im.stride() * (h - 1)) << "the top row is the last in the buffer";
}

std::vector<Rgb> greyRamp() {
    std::vector<Rgb> p(256);
    for (int i = 0; i < 256; ++i) p[i] = Rgb{uint8_t(i), uint8_t(i), uint8_t(i)};
    return p;
}

bool bitOn(uint32_t x, uint32_t y) { return ((x * 3 + y * 5) % 7) < 3 || x == y; }

}  // namespace

// ------------------------------------------------------------------ PNM

TEST(PnmReader, P4KeepsItsBitsWithAWhiteThenBlackTableBottomRowFirst) {
    ScratchDir dir;
    const uint32_t w = 37, h = 5;
    auto bits = toolstest::packedBits(w, h, bitOn);
    toolstest::writeBytes(dir / "a.pbm", "P4\n# a comment\n37 5\n", bits);
    HostMemory mem;
    Image im = read(dir / "a.pbm", mem);
    expectLayout(im, 1, w, h);
    EXPECT_EQ(im.stride(), 8u);
    ASSERT_EQ(im.palette.size(), 2u);
    EXPECT_EQ(im.palette[0], kWhite);
    EXPECT_EQ(im.palette[1], kBlack);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) EXPECT_EQ(toolstest::bitAt(im.row(y), x), bitOn(x, y)) << x << "," << y;
    // Bits past the last pixel and the padding bytes are clear.
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = w; x < 64; ++x) EXPECT_FALSE(toolstest::bitAt(im.row(y), x));
    }
}

TEST(PnmReader, P1ReadsLikeTheSamePictureAsP4) {
    ScratchDir dir;
    const uint32_t w = 19, h = 4;
    std::string text = "P1\n19 4\n";
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x) text += bitOn(x, y) ? (x % 2 ? "1" : "1 ") : (x % 2 ? "0" : "0 ");
        text += "\n";
    }
    toolstest::writeBytes(dir / "a.pbm", text, {});
    toolstest::writeBytes(dir / "b.pbm", "P4 19 4\n", toolstest::packedBits(w, h, bitOn));
    HostMemory mem;
    Image a = read(dir / "a.pbm", mem), b = read(dir / "b.pbm", mem);
    expectLayout(a, 1, w, h);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.pixels, b.pixels, a.size()), 0);
}

TEST(PnmReader, P5IsEightBitWithAGreyTable) {
    ScratchDir dir;
    const uint32_t w = 6, h = 3;
    std::vector<uint8_t> px;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) px.push_back(toolstest::pattern(x, y));
    toolstest::writeBytes(dir / "a.pgm", "P5\n6 3\n255\n", px);
    HostMemory mem;
    Image im = read(dir / "a.pgm", mem);
    expectLayout(im, 8, w, h);
    EXPECT_EQ(im.stride(), 8u);
    EXPECT_EQ(im.palette, greyRamp());
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) EXPECT_EQ(im.row(y)[x], toolstest::pattern(x, y));
}

TEST(PnmReader, PlainAndSixteenBitSamplesAreScaledToEightBits) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.pgm", "P2\n3 1\n15\n0 15 7\n", {});
    toolstest::writeBytes(dir / "b.ppm", "P3 1 1 1000 1000 0 500\n", {});
    std::vector<uint8_t> wide = {0xFF, 0xFF, 0x00, 0x00, 0x80, 0x00};
    toolstest::writeBytes(dir / "c.ppm", "P6\n1 1\n65535\n", wide);
    HostMemory mem;
    Image a = read(dir / "a.pgm", mem);
    expectLayout(a, 8, 3, 1);
    EXPECT_EQ(a.row(0)[0], 0);
    EXPECT_EQ(a.row(0)[1], 255);
    EXPECT_EQ(a.row(0)[2], 119);  // 7 * 255 / 15
    Image b = read(dir / "b.ppm", mem);
    expectLayout(b, 24, 1, 1);
    EXPECT_EQ(b.row(0)[0], 255);
    EXPECT_EQ(b.row(0)[1], 0);
    EXPECT_EQ(b.row(0)[2], 128);  // 500 * 255 / 1000, rounded
    Image c = read(dir / "c.ppm", mem);
    EXPECT_EQ(c.row(0)[0], 255);
    EXPECT_EQ(c.row(0)[1], 0);
    EXPECT_EQ(c.row(0)[2], 128);  // 0x8000 * 255 / 65535, rounded
}

TEST(PnmReader, P6IsTwentyFourBitRedGreenBlueBottomRowFirst) {
    ScratchDir dir;
    const uint32_t w = 5, h = 4;
    std::vector<uint8_t> px;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            for (uint32_t c = 0; c < 3; ++c) px.push_back(toolstest::pattern(x, y, c));
    toolstest::writeBytes(dir / "a.ppm", "P6 5 4 255\n", px);
    HostMemory mem;
    Image im = read(dir / "a.ppm", mem);
    expectLayout(im, 24, w, h);
    EXPECT_EQ(im.stride(), 16u);
    EXPECT_TRUE(im.palette.empty());
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            for (uint32_t c = 0; c < 3; ++c) EXPECT_EQ(im.row(y)[3 * x + c], toolstest::pattern(x, y, c));
    EXPECT_EQ(im.pixels[0], toolstest::pattern(0, h - 1, 0)) << "buffer row 0 is the bottom row";
}

// A file's raster is read in pieces of a quarter megabyte that end inside
// rows; the same bytes read from memory go through the stream alone.
TEST(PnmReader, RastersOfManyReadsComeBackAsTheSameBytesFromAFileAsFromMemory) {
    ScratchDir dir;
    // Rows of 1127, 1001, 3003 and 6006 bytes: no piece ends on a row.
    struct Kind {
        const char *name, *header;
        uint32_t w, h, bytesPerPixel;  // 0: one bit
    };
    const Kind kinds[] = {{"a.pbm", "P4\n9011 250\n", 9011, 250, 0},
                          {"b.pgm", "P5\n1001 311\n255\n", 1001, 311, 1},
                          {"c.ppm", "P6\n1001 211\n255\n", 1001, 211, 3},
                          {"d.ppm", "P6\n1001 211\n65535\n", 1001, 211, 6}};
    for (const Kind &k : kinds) {
        SCOPED_TRACE(k.name);
        std::vector<uint8_t> raster = k.bytesPerPixel == 0
                                          ? toolstest::packedBits(k.w, k.h, bitOn)
                                          : std::vector<uint8_t>(size_t{k.w} * k.h * k.bytesPerPixel);
        for (size_t i = 0; k.bytesPerPixel != 0 && i < raster.size(); ++i)
            raster[i] = toolstest::pattern(static_cast<uint32_t>(i % 7919), static_cast<uint32_t>(i / 7919));
        ASSERT_GT(raster.size(), size_t{256} << 10);
        toolstest::writeBytes(dir / k.name, k.header, raster);
        std::vector<uint8_t> whole(k.header, k.header + std::strlen(k.header));
        whole.insert(whole.end(), raster.begin(), raster.end());
        PictureSource fromMemory(k.name);
        fromMemory.inMemory = true;
        fromMemory.bytes = whole;
        HostMemory mem;
        Image file = read(dir / k.name, mem);
        Image memory = readImage(fromMemory, mem.allocator());
        ASSERT_EQ(file.size(), memory.size());
        EXPECT_EQ(std::memcmp(file.pixels, memory.pixels, file.size()), 0);
        // And both are the file's rows: the last row of the raster is the
        // picture's bottom row, first in the buffer. (Sixteen-bit samples
        // are scaled; a one-bit row's last byte is masked.)
        if (k.bytesPerPixel <= 3) {
            const size_t rowBytes = k.bytesPerPixel == 0 ? (k.w + 7) / 8 : size_t{k.w} * k.bytesPerPixel;
            EXPECT_EQ(std::memcmp(file.pixels, raster.data() + rowBytes * (k.h - 1), rowBytes - 1), 0);
            EXPECT_EQ(std::memcmp(file.row(0), raster.data(), rowBytes - 1), 0);
        }
    }
}

TEST(PnmReader, ACutShortFileIsRefused) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.ppm", "P6\n10 10\n255\n", std::vector<uint8_t>(100, 1));
    HostMemory mem;
    try {
        read(dir / "a.ppm", mem);
        FAIL() << "a cut-short file was read";
    } catch (const ReadError &e) {
        EXPECT_NE(std::string(e.what()).find("cut short"), std::string::npos) << e.what();
    }
}

TEST(Readers, PicturesWiderThanTheBitmapRecordHoldsAreRefusedWithTheLimit) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.pbm", "P4\n65536 1\n", std::vector<uint8_t>(8192, 0));
    toolstest::writeBytes(dir / "b.pgm", "P5\n1 70000\n255\n", std::vector<uint8_t>(70000, 0));
    HostMemory mem;
    for (const char *name : {"a.pbm", "b.pgm"}) {
        try {
            read(dir / name, mem);
            FAIL() << name << " was read";
        } catch (const ReadError &e) {
            EXPECT_NE(std::string(e.what()).find("65535"), std::string::npos) << e.what();
        }
    }
}

TEST(Readers, UnknownFormatsAreRefusedByContentNotByName) {
    ScratchDir dir;
    toolstest::writeBytes(dir / "a.png", "this is text, not a picture\n", {});
    HostMemory mem;
    try {
        read(dir / "a.png", mem);
        FAIL() << "text was read as a picture";
    } catch (const ReadError &e) {
        EXPECT_NE(std::string(e.what()).find("not a picture"), std::string::npos) << e.what();
    }
    // A PNM named .png is still read.
    toolstest::writeBytes(dir / "b.png", "P5 1 1 255\n", {7});
    EXPECT_EQ(read(dir / "b.png", mem).row(0)[0], 7);
}

// ------------------------------------------------------------------ PNG

namespace {

toolstest::PngSpec rgbPng(uint32_t w, uint32_t h, bool alpha) {
    toolstest::PngSpec s;
    s.width = w;
    s.height = h;
    s.colourType = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    for (uint32_t y = 0; y < h; ++y) {
        std::vector<uint8_t> r;
        for (uint32_t x = 0; x < w; ++x) {
            for (uint32_t c = 0; c < 3; ++c) r.push_back(toolstest::pattern(x, y, c));
            if (alpha) r.push_back(static_cast<uint8_t>((x * 60) & 0xFF));
        }
        s.rows.push_back(r);
    }
    return s;
}

}  // namespace

TEST(PngReader, RgbIsTwentyFourBitAndTheResolutionComesFromPhys) {
    ScratchDir dir;
    auto s = rgbPng(7, 5, false);
    s.pixelsPerMetre = 11811;  // 300 dots per inch
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    HostMemory mem;
    Image im = read(dir / "a.png", mem);
    expectLayout(im, 24, 7, 5);
    EXPECT_EQ(im.dpi, 300);
    for (uint32_t y = 0; y < 5; ++y)
        for (uint32_t x = 0; x < 7; ++x)
            for (uint32_t c = 0; c < 3; ++c) EXPECT_EQ(im.row(y)[3 * x + c], toolstest::pattern(x, y, c));
}

TEST(PngReader, AlphaIsLaidOverWhite) {
    ScratchDir dir;
    auto s = rgbPng(5, 2, true);
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    HostMemory mem;
    Image im = read(dir / "a.png", mem);
    expectLayout(im, 24, 5, 2);
    EXPECT_EQ(im.dpi, 0) << "no pHYs, no resolution";
    for (uint32_t y = 0; y < 2; ++y)
        for (uint32_t x = 0; x < 5; ++x) {
            uint32_t a = (x * 60) & 0xFF;
            for (uint32_t c = 0; c < 3; ++c) {
                uint32_t v = toolstest::pattern(x, y, c);
                uint32_t expected = (v * a + 255 * (255 - a) + 127) / 255;
                EXPECT_EQ(im.row(y)[3 * x + c], expected) << x << "," << y << "," << c;
            }
        }
    EXPECT_EQ(im.row(0)[0], 255) << "a fully transparent pixel is white";
}

TEST(PngReader, InterlacedPicturesReadLikeProgressiveOnes) {
    ScratchDir dir;
    auto s = rgbPng(13, 11, false);
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    s.interlaced = true;
    ASSERT_TRUE(toolstest::writePngFile(dir / "b.png", s));
    auto t = rgbPng(13, 11, true);
    ASSERT_TRUE(toolstest::writePngFile(dir / "c.png", t));
    t.interlaced = true;
    ASSERT_TRUE(toolstest::writePngFile(dir / "d.png", t));
    HostMemory mem;
    Image a = read(dir / "a.png", mem), b = read(dir / "b.png", mem);
    Image c = read(dir / "c.png", mem), d = read(dir / "d.png", mem);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.pixels, b.pixels, a.size()), 0);
    ASSERT_EQ(c.size(), d.size());
    EXPECT_EQ(std::memcmp(c.pixels, d.pixels, c.size()), 0);
}

TEST(PngReader, GreyIsEightBitWithAGreyTableAndSixteenBitIsScaled) {
    ScratchDir dir;
    toolstest::PngSpec s;
    s.width = 4;
    s.height = 2;
    s.colourType = PNG_COLOR_TYPE_GRAY;
    s.rows = {{0, 50, 200, 255}, {1, 2, 3, 4}};
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    s.bitDepth = 16;
    s.rows = {{0, 0, 0x32, 0x00, 0xC8, 0xFF, 0xFF, 0xFF}, {0, 0, 0, 0, 0, 0, 0x80, 0x80}};
    ASSERT_TRUE(toolstest::writePngFile(dir / "b.png", s));
    s.bitDepth = 4;
    s.rows = {{0x0F, 0x5A}, {0x00, 0x00}};
    ASSERT_TRUE(toolstest::writePngFile(dir / "c.png", s));
    HostMemory mem;
    Image a = read(dir / "a.png", mem);
    expectLayout(a, 8, 4, 2);
    EXPECT_EQ(a.palette, greyRamp());
    EXPECT_EQ(std::vector<uint8_t>(a.row(0), a.row(0) + 4), (std::vector<uint8_t>{0, 50, 200, 255}));
    EXPECT_EQ(std::vector<uint8_t>(a.row(1), a.row(1) + 4), (std::vector<uint8_t>{1, 2, 3, 4}));
    Image b = read(dir / "b.png", mem);
    expectLayout(b, 8, 4, 2);
    EXPECT_EQ(std::vector<uint8_t>(b.row(0), b.row(0) + 4), (std::vector<uint8_t>{0, 50, 200, 255}));  // 0xC8FF * 255 / 65535 = 200.2
    EXPECT_EQ(b.row(1)[3], 128);
    Image c = read(dir / "c.png", mem);
    expectLayout(c, 8, 4, 2);
    EXPECT_EQ(std::vector<uint8_t>(c.row(0), c.row(0) + 4), (std::vector<uint8_t>{0, 255, 85, 170}));
}

TEST(PngReader, OneBitGreyStaysOneBitWithBlackFirstInItsTable) {
    ScratchDir dir;
    toolstest::PngSpec s;
    s.width = 21;
    s.height = 3;
    s.colourType = PNG_COLOR_TYPE_GRAY;
    s.bitDepth = 1;
    auto bits = toolstest::packedBits(21, 3, bitOn);
    for (uint32_t y = 0; y < 3; ++y) s.rows.emplace_back(bits.begin() + y * 3, bits.begin() + y * 3 + 3);
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    HostMemory mem;
    Image im = read(dir / "a.png", mem);
    expectLayout(im, 1, 21, 3);
    ASSERT_EQ(im.palette.size(), 2u);
    EXPECT_EQ(im.palette[0], kBlack) << "grey 0 is black";
    EXPECT_EQ(im.palette[1], kWhite);
    for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 21; ++x) EXPECT_EQ(toolstest::bitAt(im.row(y), x), bitOn(x, y));
}

TEST(PngReader, PalettesKeepTheirIndicesAndTableAtFourOrEightBits) {
    ScratchDir dir;
    std::vector<png_color> pal;
    for (int i = 0; i < 16; ++i) pal.push_back(png_color{uint8_t(i * 16), uint8_t(255 - i), uint8_t(i * 3)});
    struct Case {
        int bitDepth, depth;
    } cases[] = {{8, 8}, {4, 4}, {2, 4}};
    for (const Case &k : cases) {
        toolstest::PngSpec s;
        s.width = 9;
        s.height = 3;
        s.colourType = PNG_COLOR_TYPE_PALETTE;
        s.bitDepth = k.bitDepth;
        const uint32_t entries = 1u << k.bitDepth;
        s.palette.assign(pal.begin(), pal.begin() + std::min<uint32_t>(entries, 16));
        auto index = [&](uint32_t x, uint32_t y) { return (x + 2 * y) % std::min<uint32_t>(entries, 16); };
        for (uint32_t y = 0; y < 3; ++y) {
            std::vector<uint8_t> r((9 * k.bitDepth + 7) / 8, 0);
            for (uint32_t x = 0; x < 9; ++x) {
                uint32_t bit = x * k.bitDepth;
                r[bit / 8] |= static_cast<uint8_t>(index(x, y) << (8 - k.bitDepth - bit % 8));
            }
            s.rows.push_back(r);
        }
        std::string path = dir / (std::to_string(k.bitDepth) + "p.png");
        ASSERT_TRUE(toolstest::writePngFile(path, s));
        HostMemory mem;
        Image im = read(path, mem);
        SCOPED_TRACE(k.bitDepth);
        expectLayout(im, k.depth, 9, 3);
        ASSERT_EQ(im.palette.size(), size_t{1} << k.depth);
        for (size_t i = 0; i < s.palette.size(); ++i)
            EXPECT_EQ(im.palette[i], (Rgb{s.palette[i].red, s.palette[i].green, s.palette[i].blue}));
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t x = 0; x < 9; ++x) {
                uint32_t v = k.depth == 8 ? im.row(y)[x] : (im.row(y)[x / 2] >> (x % 2 ? 0 : 4)) & 15;
                EXPECT_EQ(v, index(x, y)) << x << "," << y;
            }
    }
}

TEST(PngReader, TransparentPaletteEntriesAreLaidOverWhiteInTheTable) {
    ScratchDir dir;
    toolstest::PngSpec s;
    s.width = 2;
    s.height = 1;
    s.colourType = PNG_COLOR_TYPE_PALETTE;
    s.palette = {{0, 0, 0}, {200, 0, 100}, {10, 20, 30}};
    s.paletteAlpha = {0, 128};  // the third entry is opaque
    s.rows = {{1, 2}};
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    HostMemory mem;
    Image im = read(dir / "a.png", mem);
    expectLayout(im, 8, 2, 1);
    EXPECT_EQ(im.palette[0], kWhite);
    EXPECT_EQ(im.palette[1], (Rgb{overWhite(200, 128), overWhite(0, 128), overWhite(100, 128)}));
    EXPECT_EQ(im.palette[2], (Rgb{10, 20, 30}));
    EXPECT_EQ(im.row(0)[0], 1);
    EXPECT_EQ(im.row(0)[1], 2);
}

TEST(PngReader, TwoColourPalettesOtherThanBlackAndWhiteAreWidenedToFourBits) {
    ScratchDir dir;
    toolstest::PngSpec s;
    s.width = 10;
    s.height = 2;
    s.colourType = PNG_COLOR_TYPE_PALETTE;
    s.bitDepth = 1;
    s.palette = {{255, 0, 0}, {0, 0, 255}};
    s.rows = {{0xA5, 0x40}, {0x0F, 0xC0}};
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    s.palette = {{255, 255, 255}, {0, 0, 0}};
    ASSERT_TRUE(toolstest::writePngFile(dir / "b.png", s));
    HostMemory mem;
    Image a = read(dir / "a.png", mem);
    expectLayout(a, 4, 10, 2);
    EXPECT_EQ(a.palette[0], (Rgb{255, 0, 0}));
    EXPECT_EQ(a.palette[1], (Rgb{0, 0, 255}));
    const uint8_t *r0 = a.row(0);
    // 0xA5 = 1010 0101, then 01
    const int expected[10] = {1, 0, 1, 0, 0, 1, 0, 1, 0, 1};
    for (int x = 0; x < 10; ++x) EXPECT_EQ((r0[x / 2] >> (x % 2 ? 0 : 4)) & 15, expected[x]) << x;
    Image b = read(dir / "b.png", mem);
    expectLayout(b, 1, 10, 2);
    EXPECT_EQ(b.row(0)[0], 0xA5);
}

TEST(PngReader, DamagedFilesAreRefusedWithLibpngsReason) {
    ScratchDir dir;
    auto s = rgbPng(40, 40, false);
    ASSERT_TRUE(toolstest::writePngFile(dir / "a.png", s));
    auto bytes = toolstest::readBytes(dir / "a.png");
    bytes.resize(bytes.size() / 2);
    toolstest::writeBytes(dir / "b.png", "", bytes);
    HostMemory mem;
    try {
        read(dir / "b.png", mem);
        FAIL() << "a damaged PNG was read";
    } catch (const ReadError &e) {
        EXPECT_NE(std::string(e.what()).find("bad PNG"), std::string::npos) << e.what();
    }
}

// ------------------------------------------------------------------ JPEG

TEST(JpegReader, GreyIsEightBitWithAGreyTableAndTheJfifDensityIsTheResolution) {
    ScratchDir dir;
    const uint32_t w = 32, h = 16;
    std::vector<uint8_t> px(w * h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) px[y * w + x] = x < 16 ? 40 : 220;
    ASSERT_TRUE(toolstest::writeJpegFile(dir / "a.jpg", w, h, 1, px, {}, 1, 200));
    ASSERT_TRUE(toolstest::writeJpegFile(dir / "b.jpg", w, h, 1, px, {}, 2, 118));  // dots per centimetre
    HostMemory mem;
    Image a = read(dir / "a.jpg", mem);
    expectLayout(a, 8, w, h);
    EXPECT_EQ(a.palette, greyRamp());
    EXPECT_EQ(a.dpi, 200);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) EXPECT_NEAR(a.row(y)[x], px[y * w + x], 3) << x << "," << y;
    EXPECT_EQ(read(dir / "b.jpg", mem).dpi, 300);  // 118 * 2.54 = 299.7
}

TEST(JpegReader, ColourIsTwentyFourBitRedGreenBlue) {
    ScratchDir dir;
    const uint32_t w = 32, h = 24;
    std::vector<uint8_t> px(w * h * 3);
    const uint8_t colours[4][3] = {{230, 30, 30}, {30, 200, 40}, {20, 40, 220}, {250, 250, 250}};
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) px[(y * w + x) * 3 + c] = colours[(x / 16) + 2 * (y / 12 % 2)][c];
    ASSERT_TRUE(toolstest::writeJpegFile(dir / "a.jpg", w, h, 3, px));
    HostMemory mem;
    Image im = read(dir / "a.jpg", mem);
    expectLayout(im, 24, w, h);
    EXPECT_EQ(im.dpi, 0) << "an aspect ratio only is no resolution";
    // Away from block edges a quality-100 JPEG of flat areas is within a few levels.
    for (uint32_t y : {3u, 8u, 15u, 20u})
        for (uint32_t x : {4u, 10u, 20u, 28u})
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(im.row(y)[3 * x + c], px[(y * w + x) * 3 + c], 6) << x << "," << y;
}

// ------------------------------------------------------------------ TIFF

namespace {

toolstest::TiffSpec bilevelTiff(uint32_t w, uint32_t h, uint16_t photometric, uint16_t compression) {
    toolstest::TiffSpec s;
    s.width = w;
    s.height = h;
    s.bps = 1;
    s.photometric = photometric;
    s.compression = compression;
    auto bits = toolstest::packedBits(w, h, bitOn);
    const size_t stride = (w + 7) / 8;
    for (uint32_t y = 0; y < h; ++y) s.rows.emplace_back(bits.begin() + y * stride, bits.begin() + (y + 1) * stride);
    return s;
}

}  // namespace

TEST(TiffReader, BilevelKeepsItsBitsAndTheTableFollowsThePhotometric) {
    ScratchDir dir;
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "w.tif", bilevelTiff(45, 7, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4)));
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "b.tif", bilevelTiff(45, 7, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE)));
    HostMemory mem;
    Image w = read(dir / "w.tif", mem), b = read(dir / "b.tif", mem);
    expectLayout(w, 1, 45, 7);
    expectLayout(b, 1, 45, 7);
    EXPECT_EQ(w.palette, (std::vector<Rgb>{kWhite, kBlack}));
    EXPECT_EQ(b.palette, (std::vector<Rgb>{kBlack, kWhite}));
    for (uint32_t y = 0; y < 7; ++y)
        for (uint32_t x = 0; x < 45; ++x) {
            EXPECT_EQ(toolstest::bitAt(w.row(y), x), bitOn(x, y));
            EXPECT_EQ(toolstest::bitAt(b.row(y), x), bitOn(x, y));
        }
}

TEST(TiffReader, PalettesAreFourOrEightBitWithTheirColourMap) {
    ScratchDir dir;
    for (uint16_t bps : {2, 4, 8}) {
        toolstest::TiffSpec s;
        s.width = 11;
        s.height = 3;
        s.bps = bps;
        s.photometric = PHOTOMETRIC_PALETTE;
        const uint32_t n = 1u << bps;
        for (uint32_t i = 0; i < n; ++i) {
            s.red.push_back(static_cast<uint16_t>(i * 257 * 255 / (n - 1)));
            s.green.push_back(static_cast<uint16_t>(65535 - i * 100));
            s.blue.push_back(static_cast<uint16_t>((i % 3) * 0x4000));
        }
        auto index = [&](uint32_t x, uint32_t y) { return (x * 5 + y) % n; };
        for (uint32_t y = 0; y < 3; ++y) {
            std::vector<uint8_t> r((11 * bps + 7) / 8, 0);
            for (uint32_t x = 0; x < 11; ++x) {
                uint32_t bit = x * bps;
                r[bit / 8] |= static_cast<uint8_t>(index(x, y) << (8 - bps - bit % 8));
            }
            s.rows.push_back(r);
        }
        std::string path = dir / (std::to_string(bps) + "p.tif");
        ASSERT_TRUE(toolstest::writeTiffFile(path, s));
        HostMemory mem;
        Image im = read(path, mem);
        SCOPED_TRACE(bps);
        const int depth = bps == 8 ? 8 : 4;
        expectLayout(im, depth, 11, 3);
        ASSERT_EQ(im.palette.size(), size_t{1} << depth);
        for (uint32_t i = 0; i < n; ++i)
            EXPECT_EQ(im.palette[i], (Rgb{uint8_t((s.red[i] + 128) / 257), uint8_t((s.green[i] + 128) / 257),
                                          uint8_t((s.blue[i] + 128) / 257)}));
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t x = 0; x < 11; ++x) {
                uint32_t v = depth == 8 ? im.row(y)[x] : (im.row(y)[x / 2] >> (x % 2 ? 0 : 4)) & 15;
                EXPECT_EQ(v, index(x, y));
            }
    }
}

TEST(TiffReader, GreyAtEightAndSixteenBitsAndWhiteIsZeroByItsTable) {
    ScratchDir dir;
    toolstest::TiffSpec s;
    s.width = 3;
    s.height = 2;
    s.rows = {{0, 100, 255}, {7, 8, 9}};
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "b.tif", s));
    s.photometric = PHOTOMETRIC_MINISWHITE;
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "w.tif", s));
    toolstest::TiffSpec t = s;
    t.photometric = PHOTOMETRIC_MINISBLACK;
    t.bps = 16;
    auto put16 = [](std::vector<uint8_t> &r, uint16_t v) {
        uint8_t b[2];
        std::memcpy(b, &v, 2);  // libtiff writes host order and records it
        r.push_back(b[0]);
        r.push_back(b[1]);
    };
    t.rows.assign(2, {});
    for (uint16_t v : {uint16_t(0), uint16_t(0x6464), uint16_t(0xFFFF)}) put16(t.rows[0], v);
    for (uint16_t v : {uint16_t(0x0700), uint16_t(0x0800), uint16_t(0x0900)}) put16(t.rows[1], v);
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "s.tif", t));
    HostMemory mem;
    Image b = read(dir / "b.tif", mem);
    expectLayout(b, 8, 3, 2);
    EXPECT_EQ(b.palette, greyRamp());
    EXPECT_EQ(std::vector<uint8_t>(b.row(0), b.row(0) + 3), (std::vector<uint8_t>{0, 100, 255}));
    Image w = read(dir / "w.tif", mem);
    expectLayout(w, 8, 3, 2);
    EXPECT_EQ(std::vector<uint8_t>(w.row(0), w.row(0) + 3), (std::vector<uint8_t>{0, 100, 255}));
    EXPECT_EQ(w.palette[0], kWhite) << "0 is white in this photometric";
    EXPECT_EQ(w.palette[255], kBlack);
    Image g = read(dir / "s.tif", mem);
    expectLayout(g, 8, 3, 2);
    EXPECT_EQ(std::vector<uint8_t>(g.row(0), g.row(0) + 3), (std::vector<uint8_t>{0, 100, 255}));
    EXPECT_EQ(std::vector<uint8_t>(g.row(1), g.row(1) + 3), (std::vector<uint8_t>{7, 8, 9}));
}

TEST(TiffReader, RgbWithAlphaAndResolutionInCentimetres) {
    ScratchDir dir;
    toolstest::TiffSpec s;
    s.width = 4;
    s.height = 2;
    s.spp = 4;
    s.photometric = PHOTOMETRIC_RGB;
    s.extraSample = EXTRASAMPLE_UNASSALPHA;
    s.resolution = 78.74f;  // per centimetre: 200 per inch
    s.unit = RESUNIT_CENTIMETER;
    for (uint32_t y = 0; y < 2; ++y) {
        std::vector<uint8_t> r;
        for (uint32_t x = 0; x < 4; ++x) {
            for (uint32_t c = 0; c < 3; ++c) r.push_back(toolstest::pattern(x, y, c));
            r.push_back(static_cast<uint8_t>(x * 85));
        }
        s.rows.push_back(r);
    }
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "a.tif", s));
    HostMemory mem;
    Image im = read(dir / "a.tif", mem);
    expectLayout(im, 24, 4, 2);
    EXPECT_EQ(im.dpi, 200);
    for (uint32_t y = 0; y < 2; ++y)
        for (uint32_t x = 0; x < 4; ++x)
            for (uint32_t c = 0; c < 3; ++c)
                EXPECT_EQ(im.row(y)[3 * x + c], overWhite(toolstest::pattern(x, y, c), x * 85)) << x << "," << y;
}

TEST(TiffReader, TiledPicturesReadLikeStrippedOnes) {
    ScratchDir dir;
    toolstest::TiffSpec s;
    s.width = 37;
    s.height = 21;
    s.spp = 3;
    s.photometric = PHOTOMETRIC_RGB;
    s.resolution = 300;
    for (uint32_t y = 0; y < s.height; ++y) {
        std::vector<uint8_t> r;
        for (uint32_t x = 0; x < s.width; ++x)
            for (uint32_t c = 0; c < 3; ++c) r.push_back(toolstest::pattern(x, y, c));
        s.rows.push_back(r);
    }
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "a.tif", s));
    s.tiled = true;
    ASSERT_TRUE(toolstest::writeTiffFile(dir / "b.tif", s));
    HostMemory mem;
    Image a = read(dir / "a.tif", mem), b = read(dir / "b.tif", mem);
    expectLayout(a, 24, 37, 21);
    expectLayout(b, 24, 37, 21);
    EXPECT_EQ(a.dpi, 300);
    EXPECT_EQ(b.dpi, 300);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.pixels, b.pixels, a.size()), 0);
    EXPECT_EQ(a.row(20)[3 * 36 + 2], toolstest::pattern(36, 20, 2));
}
