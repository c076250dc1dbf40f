// Pictures turned upright: every orientation at every depth against the
// orientation's own description (where the stored first row and first column
// are seen), flips made in place, turns with one more block and no more,
// and a turn over the memory budget refused.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "clirun.h"
#include "exifbytes.h"
#include "image.h"
#include "inputpictures.h"
#include "membudget.h"
#include "oracles.h"
#include "orient.h"
#include "toolfixture.h"

using namespace mivo4::host;
using toolstest::HostMemory;

namespace {

uint32_t getPixel(const Image &im, uint32_t x, uint32_t y) {
    const uint8_t *r = im.row(y);
    switch (im.depth) {
    case 1: return (r[x / 8] >> (7 - x % 8)) & 1;
    case 4: return x % 2 ? r[x / 2] & 15 : r[x / 2] >> 4;
    case 8: return r[x];
    default: return r[3 * x] | r[3 * x + 1] << 8 | r[3 * x + 2] << 16;
    }
}

void setPixel(Image &im, uint32_t x, uint32_t y, uint32_t v) {
    uint8_t *r = im.row(y);
    switch (im.depth) {
    case 1: if (v) r[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8)); break;
    case 4: r[x / 2] |= static_cast<uint8_t>(x % 2 ? v : v << 4); break;
    case 8: r[x] = static_cast<uint8_t>(v); break;
    default: r[3 * x] = uint8_t(v), r[3 * x + 1] = uint8_t(v >> 8), r[3 * x + 2] = uint8_t(v >> 16);
    }
}

Image blank(int depth, uint32_t w, uint32_t h, const PixelAllocator &alloc) {
    Image im;
    im.depth = depth;
    im.width = w;
    im.height = h;
    im.pixels = alloc(im.size());
    if (depth != 24) im.palette.assign(size_t{1} << depth, Rgb{1, 2, 3});
    return im;
}

// Where the stored first row and first column are seen, for orientations 1 to 8.
enum Side { Top, Bottom, Left, Right };
constexpr Side kRowSide[9] = {Top, Top, Top, Bottom, Bottom, Left, Right, Right, Left};
constexpr Side kColumnSide[9] = {Left, Left, Right, Right, Left, Top, Top, Bottom, Bottom};

// Where stored pixel (x, y) is seen in the upright picture of dw x dh.
void seenAt(int o, uint32_t x, uint32_t y, uint32_t dw, uint32_t dh, uint32_t &X, uint32_t &Y) {
    if (kRowSide[o] == Top || kRowSide[o] == Bottom) {
        Y = kRowSide[o] == Top ? y : dh - 1 - y;
        X = kColumnSide[o] == Left ? x : dw - 1 - x;
    } else {
        X = kRowSide[o] == Left ? y : dw - 1 - y;
        Y = kColumnSide[o] == Top ? x : dh - 1 - x;
    }
}

// The upright picture stored as orientation o says.
Image stored(const Image &upright, int o, const PixelAllocator &alloc) {
    const bool swap = o >= 5;
    Image s = blank(upright.depth, swap ? upright.height : upright.width, swap ? upright.width : upright.height, alloc);
    s.palette = upright.palette;
    s.orientation = o;
    for (uint32_t y = 0; y < s.height; ++y)
        for (uint32_t x = 0; x < s.width; ++x) {
            uint32_t X, Y;
            seenAt(o, x, y, upright.width, upright.height, X, Y);
            setPixel(s, x, y, getPixel(upright, X, Y));
        }
    return s;
}

Image randomPicture(int depth, uint32_t w, uint32_t h, const PixelAllocator &alloc, uint32_t seed) {
    Image im = blank(depth, w, h, alloc);
    std::mt19937 rng(seed);
    const uint32_t mask = depth == 24 ? 0xFFFFFF : (1u << depth) - 1;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) setPixel(im, x, y, rng() & mask);
    return im;
}

void expectSamePicture(const Image &a, const Image &b) {
    ASSERT_EQ(a.depth, b.depth);
    ASSERT_EQ(a.width, b.width);
    ASSERT_EQ(a.height, b.height);
    EXPECT_EQ(a.palette, b.palette);
    // Padding included: bits past the last pixel stay clear.
    EXPECT_EQ(std::memcmp(a.pixels, b.pixels, a.size()), 0);
}

}  // namespace

TEST(OrientUpright, EveryOrientationAtEveryDepthGivesTheUprightPicture) {
    for (int depth : {1, 4, 8, 24}) {
        for (auto [w, h] : {std::pair{13u, 7u}, std::pair{70u, 33u}, std::pair{1u, 9u}, std::pair{130u, 1u}}) {
            HostMemory mem;
            Image upright = randomPicture(depth, w, h, mem.allocator(), depth * 1000 + w);
            for (int o = 1; o <= 8; ++o) {
                SCOPED_TRACE("depth " + std::to_string(depth) + ", " + std::to_string(w) + " x " + std::to_string(h) +
                             ", orientation " + std::to_string(o));
                Image s = stored(upright, o, mem.allocator());
                orientUpright(s, "picture", mem.allocator(), {});
                EXPECT_EQ(s.orientation, 1);
                expectSamePicture(s, upright);
            }
        }
    }
}

TEST(OrientUpright, FlipsAreMadeInPlaceAndTurnsTakeOneBlockAndGiveTheOldBack) {
    HostMemory mem;
    Image upright = randomPicture(24, 40, 25, mem.allocator(), 7);
    int blocks = 0;
    std::vector<uint8_t *> released;
    PixelAllocator counting = [&](size_t n) {
        ++blocks;
        return mem.allocator()(n);
    };
    for (int o = 1; o <= 8; ++o) {
        Image s = stored(upright, o, mem.allocator());
        uint8_t *before = s.pixels;
        blocks = 0;
        released.clear();
        orientUpright(s, "picture", counting, [&](uint8_t *p) { released.push_back(p); });
        if (o <= 4) {
            EXPECT_EQ(blocks, 0) << o;
            EXPECT_EQ(s.pixels, before) << o;
            EXPECT_TRUE(released.empty()) << o;
        } else {
            EXPECT_EQ(blocks, 1) << o;
            EXPECT_EQ(released, std::vector<uint8_t *>{before}) << o;
        }
    }
}

TEST(OrientUpright, BilevelMirroringByBytesMatchesPixelByPixelOnManyRandomWidths) {
    std::mt19937 rng(11);
    for (int round = 0; round < 300; ++round) {
        const uint32_t w = 1 + rng() % 200, h = 1 + rng() % 4;
        HostMemory mem;
        Image im = randomPicture(1, w, h, mem.allocator(), rng());
        // Plain: each pixel from its mirror place, into a picture of clear padding.
        Image plain = blank(1, w, h, mem.allocator());
        plain.palette = im.palette;
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) setPixel(plain, x, y, getPixel(im, w - 1 - x, y));
        // Padding bits that are set must neither come into the picture nor stay.
        for (uint32_t y = 0; y < h; ++y)
            if (w % 8 != 0) im.row(y)[(w - 1) / 8] |= static_cast<uint8_t>(0xFF >> (w % 8));
        im.orientation = 2;
        orientUpright(im, "picture", mem.allocator(), {});
        for (uint32_t y = 0; y < h; ++y) {
            const size_t n = (w + 7) / 8;
            ASSERT_EQ(std::memcmp(im.row(y), plain.row(y), n), 0) << "width " << w << " row " << y;
        }
    }
}

TEST(OrientUpright, BilevelTurnsByBlocksMatchTheDescriptionOnManyRandomSizes) {
    std::mt19937 rng(23);
    for (int round = 0; round < 200; ++round) {
        const uint32_t w = 1 + rng() % 70, h = 1 + rng() % 70;
        HostMemory mem;
        Image upright = randomPicture(1, w, h, mem.allocator(), rng());
        for (int o = 5; o <= 8; ++o) {
            Image s = stored(upright, o, mem.allocator());
            // Set bits past the last stored pixel must not reach the picture.
            if (s.width % 8 != 0)
                for (uint32_t y = 0; y < s.height; ++y) s.row(y)[(s.width - 1) / 8] |= static_cast<uint8_t>(0xFF >> (s.width % 8));
            orientUpright(s, "picture", mem.allocator(), {});
            ASSERT_NO_FATAL_FAILURE(expectSamePicture(s, upright)) << w << " x " << h << ", orientation " << o;
            ASSERT_EQ(std::memcmp(s.pixels, upright.pixels, s.size()), 0) << w << " x " << h << ", orientation " << o;
        }
    }
}

TEST(OrientUpright, UnknownOrientationsAreTakenAsUpright) {
    HostMemory mem;
    Image im = randomPicture(8, 9, 4, mem.allocator(), 3);
    std::vector<uint8_t> copy(im.pixels, im.pixels + im.size());
    for (int o : {0, 9, -1, 255}) {
        im.orientation = o;
        orientUpright(im, "picture", mem.allocator(), {});
        EXPECT_EQ(im.orientation, 1);
        EXPECT_EQ(std::vector<uint8_t>(im.pixels, im.pixels + im.size()), copy);
    }
}

TEST(OrientUpright, ATurnOverTheMemoryBudgetIsRefusedNamingTheLimit) {
    HostMemory mem;
    Image im = randomPicture(8, 1000, 600, mem.allocator(), 5);  // 600,000 bytes
    im.orientation = 6;
    const uint64_t saved = memoryBudget();
    setMemoryBudget(1000000);  // the picture fits, a second copy does not
    try {
        orientUpright(im, "big.tif", mem.allocator(), {});
        ADD_FAILURE() << "a turn over the budget was made";
    } catch (const ReadError &e) {
        EXPECT_NE(std::string(e.what()).find("big.tif: 1000 x 600 pixels need"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("--limit-memory"), std::string::npos) << e.what();
    }
    EXPECT_EQ(im.orientation, 6) << "the picture is left as it was";
    im.orientation = 3;  // a flip needs no second block
    EXPECT_NO_THROW(orientUpright(im, "big.tif", mem.allocator(), {}));
    setMemoryBudget(saved);
}

// ------------------------------------------------------------------ readers

namespace {

using toolstest::ScratchDir;

// The upright picture of the reader tests: no two of its eight turns alike.
uint8_t uprightValue(uint32_t X, uint32_t Y, uint32_t c) {
    return static_cast<uint8_t>((X * 9 + Y * 31 + c * 70 + (X < 5 && Y < 3 ? 100 : 0)) & 0xFF);
}
bool uprightBit(uint32_t X, uint32_t Y) { return (X < 9 && Y < 2) || X == 0 || (X * 7 + Y * 3) % 11 == 0; }

// Calls f(x, y, X, Y) for every stored pixel (x, y) of a picture stored as
// orientation o whose upright size is dw x dh, with where it is seen.
template <class F>
void forEachStored(int o, uint32_t dw, uint32_t dh, F f) {
    const uint32_t sw = o >= 5 ? dh : dw, sh = o >= 5 ? dw : dh;
    for (uint32_t y = 0; y < sh; ++y)
        for (uint32_t x = 0; x < sw; ++x) {
            uint32_t X, Y;
            seenAt(o, x, y, dw, dh, X, Y);
            f(x, y, X, Y);
        }
}

Image readSource(const std::string &path, bool orient, HostMemory &mem) {
    PictureSource s(path);
    s.orient = orient;
    return readImage(s, mem.allocator());
}

constexpr uint32_t kW = 23, kH = 14;  // upright size

}  // namespace

TEST(TiffOrientation, EveryOrientationIsReadUprightAtOneEightAndTwentyFourBitsStrippedOrTiled) {
    ScratchDir dir;
    for (int o = 1; o <= 8; ++o) {
        const uint32_t sw = o >= 5 ? kH : kW, sh = o >= 5 ? kW : kH;
        std::vector<std::vector<uint8_t>> grey(sh, std::vector<uint8_t>(sw)), rgb(sh, std::vector<uint8_t>(sw * 3));
        std::vector<std::vector<bool>> bits(sh, std::vector<bool>(sw));
        forEachStored(o, kW, kH, [&](uint32_t x, uint32_t y, uint32_t X, uint32_t Y) {
            grey[y][x] = uprightValue(X, Y, 0);
            for (uint32_t c = 0; c < 3; ++c) rgb[y][3 * x + c] = uprightValue(X, Y, c);
            bits[y][x] = uprightBit(X, Y);
        });
        const uint16_t tag = static_cast<uint16_t>(o);
        ASSERT_TRUE(toolstest::writeTiffPages(dir / "1.tif", {{toolstest::bilevelSpec(sw, sh, [&](uint32_t x, uint32_t y) { return bits[y][x]; }), tag}}));
        ASSERT_TRUE(toolstest::writeTiffPages(dir / "8.tif", {{toolstest::byteSpec(sw, sh, 1, [&](uint32_t x, uint32_t y, uint32_t) { return grey[y][x]; }), tag}}));
        auto rgbSpec = toolstest::byteSpec(sw, sh, 3, [&](uint32_t x, uint32_t y, uint32_t c) { return rgb[y][3 * x + c]; });
        ASSERT_TRUE(toolstest::writeTiffPages(dir / "24.tif", {{rgbSpec, tag}}));
        rgbSpec.tiled = true;  // libtiff's RGBA reader
        ASSERT_TRUE(toolstest::writeTiffPages(dir / "t24.tif", {{rgbSpec, tag}}));
        SCOPED_TRACE("orientation " + std::to_string(o));
        HostMemory mem;
        Image one = readSource(dir / "1.tif", true, mem);
        ASSERT_EQ(one.depth, 1) << "a bilevel picture stays one bit";
        ASSERT_EQ(one.width, kW);
        ASSERT_EQ(one.height, kH);
        for (uint32_t Y = 0; Y < kH; ++Y)
            for (uint32_t X = 0; X < kW; ++X) ASSERT_EQ(toolstest::bitAt(one.row(Y), X), uprightBit(X, Y)) << X << "," << Y;
        Image eight = readSource(dir / "8.tif", true, mem);
        ASSERT_EQ(eight.depth, 8);
        ASSERT_EQ(eight.width, kW);
        for (uint32_t Y = 0; Y < kH; ++Y)
            for (uint32_t X = 0; X < kW; ++X) ASSERT_EQ(eight.row(Y)[X], uprightValue(X, Y, 0)) << X << "," << Y;
        for (const char *name : {"24.tif", "t24.tif"}) {
            Image im = readSource(dir / name, true, mem);
            ASSERT_EQ(im.depth, 24) << name;
            ASSERT_EQ(im.width, kW) << name;
            for (uint32_t Y = 0; Y < kH; ++Y)
                for (uint32_t X = 0; X < kW; ++X)
                    for (uint32_t c = 0; c < 3; ++c) ASSERT_EQ(im.row(Y)[3 * X + c], uprightValue(X, Y, c)) << name << " " << X << "," << Y;
        }
        // Without turning: the stored rows, and the orientation said.
        for (const char *name : {"8.tif", "t24.tif"}) {
            Image kept = readSource(dir / name, false, mem);
            EXPECT_EQ(kept.orientation, o) << name;
            ASSERT_EQ(kept.width, sw) << name;
            const uint32_t step = kept.depth == 24 ? 3 : 1;
            for (uint32_t y = 0; y < sh; ++y)
                for (uint32_t x = 0; x < sw; ++x) ASSERT_EQ(kept.row(y)[step * x], step == 3 ? rgb[y][3 * x] : grey[y][x]) << name;
        }
    }
}

TEST(JpegOrientation, TheExifOrientationOfBothByteOrdersTurnsTheDecodedPictureUpright) {
    ScratchDir dir;
    for (bool big : {false, true}) {
        for (int o = 1; o <= 8; ++o) {
            const uint32_t sw = o >= 5 ? kH : kW, sh = o >= 5 ? kW : kH;
            std::vector<uint8_t> px(static_cast<size_t>(sw) * sh * 3);
            forEachStored(o, kW, kH, [&](uint32_t x, uint32_t y, uint32_t X, uint32_t Y) {
                for (uint32_t c = 0; c < 3; ++c) px[(y * sw + x) * 3 + c] = uprightValue(X, Y, c);
            });
            const std::string path = dir / "a.jpg";
            ASSERT_TRUE(toolstest::writeJpegFile(path, sw, sh, 3, px, toolstest::exifOrientationSegment(big, o)));
            SCOPED_TRACE("orientation " + std::to_string(o) + (big ? " big-endian" : " little-endian"));
            HostMemory mem;
            Image kept = readSource(path, false, mem), turned = readSource(path, true, mem);
            EXPECT_EQ(kept.orientation, o);
            EXPECT_EQ(turned.orientation, 1);
            ASSERT_EQ(kept.width, sw);
            ASSERT_EQ(turned.width, kW);
            ASSERT_EQ(turned.height, kH);
            // Exactly the decoded pixels, each where the orientation says.
            forEachStored(o, kW, kH, [&](uint32_t x, uint32_t y, uint32_t X, uint32_t Y) {
                for (uint32_t c = 0; c < 3; ++c) ASSERT_EQ(turned.row(Y)[3 * X + c], kept.row(y)[3 * x + c]);
            });
        }
    }
}

TEST(JpegOrientation, NoExifOrADamagedOneLeavesThePictureAsStored) {
    ScratchDir dir;
    std::vector<uint8_t> px(static_cast<size_t>(kW) * kH, 128);
    std::vector<uint8_t> damaged = toolstest::exifOrientationSegment(false, 6);
    damaged.resize(30);  // cut inside the entries
    for (const auto &app1 : {std::vector<uint8_t>{}, damaged, toolstest::exifOrientationSegment(true, 12)}) {
        ASSERT_TRUE(toolstest::writeJpegFile(dir / "a.jpg", kW, kH, 1, px, app1));
        HostMemory mem;
        Image im = readSource(dir / "a.jpg", true, mem);
        EXPECT_EQ(im.orientation, 1);
        EXPECT_EQ(im.width, kW);
        EXPECT_EQ(im.height, kH);
    }
}

// ImageMagick's own automatic orientation of the same files.
TEST(Orientation, MatchesImageMagicksAutoOrientForAJpegAndATiffOfEveryOrientation) {
    const auto magick = toolstest::imageMagick();
    if (!magick) GTEST_SKIP() << "ImageMagick is not installed (scripts/setup.sh installs it)";
    ScratchDir dir;
    for (int o = 1; o <= 8; ++o) {
        const uint32_t sw = o >= 5 ? kH : kW, sh = o >= 5 ? kW : kH;
        std::vector<uint8_t> px(static_cast<size_t>(sw) * sh);
        forEachStored(o, kW, kH, [&](uint32_t x, uint32_t y, uint32_t X, uint32_t Y) { px[y * sw + x] = uprightValue(X, Y, 0); });
        ASSERT_TRUE(toolstest::writeJpegFile(dir / "a.jpg", sw, sh, 1, px, toolstest::exifOrientationSegment(o % 2 == 0, o)));
        ASSERT_TRUE(toolstest::writeTiffPages(dir / "a.tif", {{toolstest::byteSpec(sw, sh, 1, [&](uint32_t x, uint32_t y, uint32_t) { return px[y * sw + x]; }), static_cast<uint16_t>(o)}}));
        for (const char *name : {"a.jpg", "a.tif"}) {
            SCOPED_TRACE(std::string(name) + ", orientation " + std::to_string(o));
            const std::string ref = dir / "ref.pgm";
            ASSERT_EQ(toolstest::runQuiet(*magick + " " + toolstest::shellQuote(dir / name) + " -auto-orient -depth 8 " +
                                          toolstest::shellQuote("pgm:" + ref)), 0);
            HostMemory mem;
            Image ours = readSource(dir / name, true, mem), theirs = readImage(ref, mem.allocator());
            ASSERT_EQ(ours.width, theirs.width);
            ASSERT_EQ(ours.height, theirs.height);
            int worst = 0;
            for (uint32_t Y = 0; Y < ours.height; ++Y)
                for (uint32_t X = 0; X < ours.width; ++X)
                    worst = std::max(worst, std::abs(int(ours.row(Y)[X]) - int(theirs.row(Y)[X])));
            // The same decoder for the JPEG, up to its rounding; the TIFF exactly.
            EXPECT_LE(worst, std::string(name) == "a.jpg" ? 1 : 0);
        }
    }
}

// ------------------------------------------------------------------ command line


TEST(OrientationCli, AnExportedTurnedTiffDecodesToTheUprightPictureAndNoOrientKeepsItAsStored) {
    ScratchDir dir;
    for (int o = 1; o <= 8; ++o) {
        const uint32_t sw = o >= 5 ? kH : kW, sh = o >= 5 ? kW : kH;
        std::vector<std::vector<bool>> bits(sh, std::vector<bool>(sw));
        forEachStored(o, kW, kH, [&](uint32_t x, uint32_t y, uint32_t X, uint32_t Y) { bits[y][x] = uprightBit(X, Y); });
        ASSERT_TRUE(toolstest::writeTiffPages(dir / "a.tif", {{toolstest::bilevelSpec(sw, sh, [&](uint32_t x, uint32_t y) { return bits[y][x]; }), static_cast<uint16_t>(o)}}));
        SCOPED_TRACE("orientation " + std::to_string(o));
        for (bool keep : {false, true}) {
            std::vector<std::string> args{"export", dir / "a.tif", dir / "a.cal"};
            if (keep) args.insert(args.begin() + 1, "--no-orient");
            toolstest::Outcome r = toolstest::runMivo4(args, dir);
            ASSERT_EQ(r.code, 0) << r.err;
            r = toolstest::runMivo4({"decode", dir / "a.cal", dir / "a.pbm"}, dir);
            ASSERT_EQ(r.code, 0) << r.err;
            auto pbm = toolstest::readPbm(dir / "a.pbm");
            ASSERT_TRUE(pbm.has_value());
            const uint32_t w = keep ? sw : kW, h = keep ? sh : kH;
            ASSERT_EQ(pbm->width, w);
            // The module makes heights even (one more row, its own).
            ASSERT_EQ(pbm->height, (h + 1) / 2 * 2);
            for (uint32_t y = 0; y < h; ++y)
                for (uint32_t x = 0; x < w; ++x)
                    ASSERT_EQ(pbm->black(x, y), keep ? bool(bits[y][x]) : uprightBit(x, y)) << x << "," << y;
        }
    }
}

TEST(TiffOrientation, ATurnedTiffClaimingAnOversizePictureIsRefusedForItsSize) {
    ScratchDir dir;
    // Strips of nothing: the size alone must stop it.
    TIFF *t = TIFFOpen((dir / "huge.tif").c_str(), "w");
    ASSERT_NE(t, nullptr);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 70000u);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 70000u);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_RIGHTTOP);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 70000u);
    uint8_t raw[4] = {};
    TIFFWriteRawStrip(t, 0, raw, sizeof raw);
    TIFFClose(t);
    HostMemory mem;
    try {
        readSource(dir / "huge.tif", true, mem);
        ADD_FAILURE() << "read";
    } catch (const ReadError &e) {
        EXPECT_NE(std::string(e.what()).find("the largest picture the module takes is 65535 x 65535"), std::string::npos) << e.what();
    }
}

TEST(OrientationCli, ATurnThatWouldTakeMoreThanTheMemoryLimitIsRefusedBeforeDecoding) {
    ScratchDir dir;
    // 2000 x 1500 grey: 3 MB of pixels, 6 MB while turned.
    auto big = toolstest::byteSpec(2000, 1500, 1, [](uint32_t x, uint32_t y, uint32_t) { return static_cast<uint8_t>(x ^ y); });
    big.compression = COMPRESSION_ADOBE_DEFLATE;
    ASSERT_TRUE(toolstest::writeTiffPages(dir / "big.tif", {{big, 6}}));
    toolstest::Outcome r = toolstest::runMivo4({"export", "--limit-memory", "5M", dir / "big.tif", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(toolstest::lines(r.err), 1) << r.err;
    EXPECT_TRUE(toolstest::contains(r.err, "2000 x 1500 pixels need 5.7 MiB of memory to be turned upright")) << r.err;
    EXPECT_TRUE(toolstest::contains(r.err, "--limit-memory); --no-orient exports them as stored")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "o.cal"));
    r = toolstest::runMivo4({"export", "--limit-memory", "5M", "--no-orient", dir / "big.tif", dir / "o.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    r = toolstest::runMivo4({"export", "--limit-memory", "6M", dir / "big.tif", dir / "p.cal"}, dir);
    EXPECT_EQ(r.code, 0) << r.err;
    // A picture over the limit by itself gets the usual message.
    r = toolstest::runMivo4({"export", "--limit-memory", "2M", dir / "big.tif", dir / "q.cal"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_FALSE(toolstest::contains(r.err, "turned upright")) << r.err;
    EXPECT_TRUE(toolstest::contains(r.err, "--limit-memory")) << r.err;
}

TEST(OrientationCli, AJpegIsExportedAsItsPixelsTurnedByItsExifOrientation) {
    ScratchDir dir;
    const uint32_t sw = 40, sh = 26;
    std::vector<uint8_t> px(static_cast<size_t>(sw) * sh * 3);
    for (uint32_t y = 0; y < sh; ++y)
        for (uint32_t x = 0; x < sw; ++x)
            for (uint32_t c = 0; c < 3; ++c) px[(y * sw + x) * 3 + c] = uprightValue(x, y, c);
    for (int o : {3, 6, 8}) {
        ASSERT_TRUE(toolstest::writeJpegFile(dir / "a.jpg", sw, sh, 3, px, toolstest::exifOrientationSegment(o == 6, o)));
        // The decoded pixels turned by the description, as a PPM: the same picture.
        HostMemory mem;
        Image kept = readSource(dir / "a.jpg", false, mem);
        const uint32_t dw = o >= 5 ? sh : sw, dh = o >= 5 ? sw : sh;
        std::vector<uint8_t> upright(static_cast<size_t>(dw) * dh * 3);
        forEachStored(o, dw, dh, [&](uint32_t x, uint32_t y, uint32_t X, uint32_t Y) {
            for (uint32_t c = 0; c < 3; ++c) upright[(Y * dw + X) * 3 + c] = kept.row(y)[3 * x + c];
        });
        toolstest::writeBytes(dir / "u.ppm", "P6 " + std::to_string(dw) + " " + std::to_string(dh) + " 255\n", upright);
        SCOPED_TRACE("orientation " + std::to_string(o));
        toolstest::Outcome a = toolstest::runMivo4({"export", dir / "a.jpg", dir / "a.cal"}, dir);
        ASSERT_EQ(a.code, 0) << a.err;
        toolstest::Outcome u = toolstest::runMivo4({"export", dir / "u.ppm", dir / "u.cal"}, dir);
        ASSERT_EQ(u.code, 0) << u.err;
        EXPECT_EQ(toolstest::readBytes(dir / "a.cal"), toolstest::readBytes(dir / "u.cal"));
        EXPECT_TRUE(toolstest::contains(a.err, std::to_string(dw) + " x ")) << a.err;
    }
}
