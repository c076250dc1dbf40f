// The built-in test chart and the reading of memory-way blocks.
#include <cstring>

#include "demo.h"
#include "exporter.h"
#include "toolfixture.h"

using namespace mivo4::host;

namespace {

Rgb at(const Image &im, uint32_t x, uint32_t y) {
    const uint8_t *p = im.row(y) + 3 * x;
    return Rgb{p[0], p[1], p[2]};
}

}  // namespace

TEST(DemoChart, IsAnEightBySixInchColourPictureAt200Dpi) {
    toolstest::HostMemory mem;
    Image im = makeDemoChart(mem.allocator());
    EXPECT_EQ(im.depth, 24);
    EXPECT_EQ(im.width, 1600u);
    EXPECT_EQ(im.height, 1200u);
    EXPECT_EQ(im.dpi, 200);
    EXPECT_TRUE(im.palette.empty());
}

TEST(DemoChart, IsTheSameEveryTime) {
    toolstest::HostMemory mem;
    Image a = makeDemoChart(mem.allocator()), b = makeDemoChart(mem.allocator());
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.pixels, b.pixels, a.size()), 0);
}

TEST(DemoChart, HasAFrameGreyStepsFromWhiteToBlackAndColourPatches) {
    toolstest::HostMemory mem;
    Image im = makeDemoChart(mem.allocator());
    const Rgb black{0, 0, 0}, white{255, 255, 255};
    EXPECT_EQ(at(im, 0, 0), black);
    EXPECT_EQ(at(im, 1599, 1199), black);
    EXPECT_EQ(at(im, 800, 2), black);
    EXPECT_EQ(at(im, 10, 10), white);
    // Eleven steps across 60..1540, 80 rows tall from row 205.
    const uint32_t stepW = 1480 / 11;
    for (uint32_t i = 0; i < 11; ++i) {
        uint8_t v = static_cast<uint8_t>(255 - i * 255 / 10);
        EXPECT_EQ(at(im, 60 + i * stepW + stepW / 2, 240), (Rgb{v, v, v})) << "step " << i;
    }
    // The ramp darkens from left to right.
    for (uint32_t x = 60; x + 100 < 1540; x += 100) EXPECT_GT(at(im, x, 150).red, at(im, x + 100, 150).red);
    // The first colour patches: red, green, blue.
    const uint32_t patchW = 1480 / 10;
    EXPECT_EQ(at(im, 60 + patchW / 2, 390), (Rgb{255, 0, 0}));
    EXPECT_EQ(at(im, 60 + patchW + patchW / 2, 390), (Rgb{0, 160, 0}));
    EXPECT_EQ(at(im, 60 + 2 * patchW + patchW / 2, 390), (Rgb{0, 0, 255}));
    // One-pixel lines one pixel apart: ink, gap, ink.
    EXPECT_EQ(at(im, 60, 560), black);
    EXPECT_EQ(at(im, 61, 560), white);
    EXPECT_EQ(at(im, 62, 560), black);
}

TEST(MemoryOutput, ZerosAfterTheEndByteAreFillAndZerosBeforeItAreData) {
    const uint8_t block[] = {'d', 'a', 't', 0, 0, 0xFF, 0, 0, 0};
    EXPECT_EQ(memoryOutputLength(block, sizeof block), 5u);
    const uint8_t onlyMarker[] = {0xFF, 0, 0};
    EXPECT_EQ(memoryOutputLength(onlyMarker, sizeof onlyMarker), 0u);
    const uint8_t endsInFF[] = {0xFF, 0xFF};
    EXPECT_EQ(memoryOutputLength(endsInFF, sizeof endsInFF), 1u);
    const uint8_t noMarker[] = {1, 2, 0};
    EXPECT_EQ(memoryOutputLength(noMarker, sizeof noMarker), SIZE_MAX);
    EXPECT_EQ(memoryOutputLength(noMarker, 0), SIZE_MAX);
}
