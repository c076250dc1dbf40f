// The host's one-bit conversions: a grey ramp comes out monotonic (darker
// greys never get fewer black pixels), the ends are plain, the threshold is
// where it is said to be.
#include "toolfixture.h"
#include "tones.h"

using namespace mivo4::host;

namespace {

// An 8-bit grey picture whose column x has grey x * 256 / width, `h` rows.
Image greyRamp(toolstest::HostMemory &memory, uint32_t w, uint32_t h) {
    Image image;
    allocatePixels(image, "ramp", w, h, 8, memory.allocator());
    image.palette = greyPalette();
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) image.row(y)[x] = static_cast<uint8_t>(x * 256 / w);
    return image;
}

bool black(const Image &one, uint32_t x, uint32_t y) { return (one.row(y)[x >> 3] >> (7 - (x & 7))) & 1; }

// Black pixels in each band of `band` columns.
std::vector<int> blackPerBand(const Image &one, uint32_t band) {
    std::vector<int> counts(one.width / band, 0);
    for (uint32_t y = 0; y < one.height; ++y)
        for (uint32_t x = 0; x < counts.size() * band; ++x) counts[x / band] += black(one, x, y);
    return counts;
}

}  // namespace

TEST(HostTones, AGreyRampComesOutMonotonicInEveryWay) {
    toolstest::HostMemory memory;
    const Image ramp = greyRamp(memory, 512, 128);
    for (Tones t : {Tones::Floyd, Tones::Threshold, Tones::Ordered}) {
        const Image one = toOneBit(ramp, t, 50, memory.allocator());
        ASSERT_EQ(one.depth, 1);
        ASSERT_EQ(one.palette.size(), 2u);
        EXPECT_EQ(one.palette[1], (Rgb{0, 0, 0})) << "a set bit is black";
        const auto counts = blackPerBand(one, 32);  // 16 bands of 16 greys each
        for (size_t i = 1; i < counts.size(); ++i)
            EXPECT_LE(counts[i], counts[i - 1]) << "tones " << static_cast<int>(t) << ", band " << i;
        EXPECT_GE(counts.front(), 0.9 * 32 * 128) << "the darkest band (greys 0-15) is nearly black";
        EXPECT_LE(counts.back(), 0.1 * 32 * 128) << "the lightest band (greys 240-255) is nearly white";
    }
}

TEST(HostTones, ErrorDiffusionKeepsTheAverageGrey) {
    toolstest::HostMemory memory;
    const Image ramp = greyRamp(memory, 256, 256);
    const Image one = toOneBit(ramp, Tones::Floyd, 50, memory.allocator());
    // A band of 32 columns of greys g..g+31 is about (1 - mean / 255) black.
    const auto counts = blackPerBand(one, 32);
    for (size_t i = 0; i < counts.size(); ++i) {
        const double mean = i * 32 + 15.5;
        const double expected = (1.0 - mean / 255.0) * 32 * 256;
        EXPECT_NEAR(counts[i], expected, 0.03 * 32 * 256) << "band " << i;
    }
}

TEST(HostTones, ThresholdCutsAtTheGivenShareOfWhite) {
    toolstest::HostMemory memory;
    const Image ramp = greyRamp(memory, 256, 4);
    for (int percent : {0, 25, 50, 100}) {
        const Image one = toOneBit(ramp, Tones::Threshold, percent, memory.allocator());
        const int level = (percent * 256 + 50) / 100;
        for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(black(one, x, 2), static_cast<int>(x) < level) << percent << "% at " << x;
    }
}

TEST(HostTones, OrderedDitherGivesEachGreyItsShareOfTheMatrix) {
    toolstest::HostMemory memory;
    Image flat;
    allocatePixels(flat, "flat", 8, 8, 24, memory.allocator());
    for (int grey : {0, 1, 2, 3, 64, 128, 200, 253, 254, 255}) {
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t i = 0; i < 24; ++i) flat.row(y)[i] = static_cast<uint8_t>(grey);
        const Image one = toOneBit(flat, Tones::Ordered, 50, memory.allocator());
        int count = 0;
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t x = 0; x < 8; ++x) count += black(one, x, y);
        // Entry k is black when grey < 4k + 2: the entries k > (grey - 2) / 4.
        int expected = 0;
        for (int k = 0; k < 64; ++k) expected += grey < 4 * k + 2;
        EXPECT_EQ(count, expected) << "grey " << grey;
    }
}
