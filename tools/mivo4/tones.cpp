#include "tones.h"

#include <array>
#include <cstdlib>
#include <stdexcept>

namespace mivo4::host {

namespace {

uint8_t lumaOf(uint32_t r, uint32_t g, uint32_t b) { return static_cast<uint8_t>((299 * r + 587 * g + 114 * b + 500) / 1000); }

uint32_t pixelIndex(const uint8_t *row, uint32_t x, int depth) {
    switch (depth) {
    case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1;
    case 4: return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 0x0F;
    default: return row[x];
    }
}

// The classic recursive Bayer matrix: every threshold 0..63 once.
constexpr std::array<std::array<uint8_t, 8>, 8> kBayer = {{
    {0, 32, 8, 40, 2, 34, 10, 42},
    {48, 16, 56, 24, 50, 18, 58, 26},
    {12, 44, 4, 36, 14, 46, 6, 38},
    {60, 28, 52, 20, 62, 30, 54, 22},
    {3, 35, 11, 43, 1, 33, 9, 41},
    {51, 19, 59, 27, 49, 17, 57, 25},
    {15, 47, 7, 39, 13, 45, 5, 37},
    {63, 31, 55, 23, 61, 29, 53, 21},
}};

void setBlack(uint8_t *row, uint32_t x) { row[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7)); }

}  // namespace

std::vector<uint8_t> luminance(const Image &image) {
    std::vector<uint8_t> y(static_cast<size_t>(image.width) * image.height);
    for (uint32_t r = 0; r < image.height; ++r) {
        const uint8_t *row = image.row(r);
        uint8_t *out = y.data() + static_cast<size_t>(r) * image.width;
        for (uint32_t x = 0; x < image.width; ++x) {
            if (image.depth == 24) {
                out[x] = lumaOf(row[3 * x], row[3 * x + 1], row[3 * x + 2]);
            } else {
                const uint32_t i = pixelIndex(row, x, image.depth);
                const Rgb c = i < image.palette.size() ? image.palette[i] : Rgb{};
                out[x] = lumaOf(c.red, c.green, c.blue);
            }
        }
    }
    return y;
}

Image toOneBit(const Image &image, Tones tones, int thresholdPercent, const PixelAllocator &alloc) {
    const std::vector<uint8_t> y = luminance(image);
    Image out;
    out.dpi = image.dpi;
    allocatePixels(out, "picture", image.width, image.height, 1, alloc);
    out.palette = {Rgb{255, 255, 255}, Rgb{0, 0, 0}};  // a set bit is black
    const uint32_t w = image.width, h = image.height;
    switch (tones) {
    case Tones::Module:
        throw std::logic_error("the module's tones need no host conversion");
    case Tones::Threshold: {
        // Black below the level: 50 % makes 0..127 black and 128..255 white.
        const int level = (thresholdPercent * 256 + 50) / 100;
        for (uint32_t r = 0; r < h; ++r)
            for (uint32_t x = 0; x < w; ++x)
                if (y[static_cast<size_t>(r) * w + x] < level) setBlack(out.row(r), x);
        break;
    }
    case Tones::Ordered:
        // Threshold (k + 1/2) * 4 for matrix entry k: a grey g is black at
        // the g / 4 entries below it, so darker greys are never lighter.
        for (uint32_t r = 0; r < h; ++r)
            for (uint32_t x = 0; x < w; ++x)
                if (y[static_cast<size_t>(r) * w + x] < 4 * kBayer[r & 7][x & 7] + 2) setBlack(out.row(r), x);
        break;
    case Tones::Floyd: {
        // Errors in sixteenths, two rows kept; rows alternate direction.
        std::vector<int32_t> cur(w + 2, 0), next(w + 2, 0);
        for (uint32_t r = 0; r < h; ++r) {
            const bool leftToRight = (r & 1) == 0;
            for (uint32_t i = 0; i < w; ++i) {
                const uint32_t x = leftToRight ? i : w - 1 - i;
                const int32_t want = y[static_cast<size_t>(r) * w + x] * 16 + cur[x + 1];
                const int32_t got = want < 128 * 16 ? 0 : 255 * 16;
                if (got == 0) setBlack(out.row(r), x);
                const int32_t e = want - got;
                const int d = leftToRight ? 1 : -1;
                // 7/16 ahead, 3/16 behind below, 5/16 below, 1/16 ahead below.
                cur[x + 1 + d] += e * 7 / 16;
                next[x + 1 - d] += e * 3 / 16;
                next[x + 1] += e * 5 / 16;
                next[x + 1 + d] += e / 16;
            }
            std::swap(cur, next);
            std::fill(next.begin(), next.end(), 0);
        }
        break;
    }
    }
    return out;
}

}  // namespace mivo4::host
