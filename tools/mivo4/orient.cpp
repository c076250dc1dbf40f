#include "orient.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "membudget.h"

namespace mivo4::host {

namespace {

// One pixel of a row at one of the module's depths, as a number; the depth
// is fixed at compile time so that the per-pixel loops carry no switch.
template <int Depth>
struct Pixels {
    static uint32_t get(const uint8_t *row, uint32_t x) {
        if constexpr (Depth == 1) return (row[x >> 3] >> (7 - (x & 7))) & 1u;
        else if constexpr (Depth == 4) return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 15u;
        else if constexpr (Depth == 8) return row[x];
        else {
            const uint8_t *p = row + 3 * size_t{x};
            return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16;
        }
    }
    static void set(uint8_t *row, uint32_t x, uint32_t v) {
        if constexpr (Depth == 1) {
            const uint8_t bit = static_cast<uint8_t>(0x80u >> (x & 7));
            row[x >> 3] = static_cast<uint8_t>(v ? row[x >> 3] | bit : row[x >> 3] & ~bit);
        } else if constexpr (Depth == 4) {
            const int shift = (x & 1) ? 0 : 4;
            row[x >> 1] = static_cast<uint8_t>((row[x >> 1] & ~(15 << shift)) | (v & 15) << shift);
        } else if constexpr (Depth == 8) {
            row[x] = static_cast<uint8_t>(v);
        } else {
            uint8_t *p = row + 3 * size_t{x};
            p[0] = static_cast<uint8_t>(v), p[1] = static_cast<uint8_t>(v >> 8), p[2] = static_cast<uint8_t>(v >> 16);
        }
    }
};

// Calls f with the Pixels type of depth (1, 4, 8, else 24).
template <class F>
void withDepth(int depth, F f) {
    switch (depth) {
    case 1: f(Pixels<1>{}); break;
    case 4: f(Pixels<4>{}); break;
    case 8: f(Pixels<8>{}); break;
    default: f(Pixels<24>{}); break;
    }
}

// A bilevel row mirrored a byte at a time: bytes reversed, the bits of each
// reversed by a table, then the whole row moved left by the bits of padding
// that came to its front. Bits past the last pixel are cleared first, so that
// they cannot move into the picture, and are clear after.
// Each byte with its bits in the other order.
const std::array<uint8_t, 256> &reversedBits() {
    static const auto table = [] {
        std::array<uint8_t, 256> t{};
        for (int v = 0; v < 256; ++v)
            for (int b = 0; b < 8; ++b)
                if (v & (1 << b)) t[v] |= static_cast<uint8_t>(0x80 >> b);
        return t;
    }();
    return table;
}

void mirrorBilevelRow(uint8_t *row, uint32_t width) {
    const auto &reversed = reversedBits();
    const size_t n = (size_t{width} + 7) / 8;
    const unsigned pad = (8 - width % 8) % 8;
    row[n - 1] &= static_cast<uint8_t>(0xFF << pad);
    std::reverse(row, row + n);
    for (size_t i = 0; i < n; ++i) row[i] = reversed[row[i]];
    if (pad == 0) return;
    for (size_t i = 0; i + 1 < n; ++i) row[i] = static_cast<uint8_t>(row[i] << pad | row[i + 1] >> (8 - pad));
    row[n - 1] = static_cast<uint8_t>(row[n - 1] << pad);
}

void mirrorRows(Image &image) {
    const uint32_t w = image.width;
    if (image.depth == 1) {
        for (uint32_t y = 0; y < image.height; ++y) mirrorBilevelRow(image.row(y), w);
        return;
    }
    withDepth(image.depth, [&](auto px) {
        for (uint32_t y = 0; y < image.height; ++y) {
            uint8_t *row = image.row(y);
            if (image.depth == 8) {
                std::reverse(row, row + w);
                continue;
            }
            for (uint32_t a = 0, b = w - 1; a < b; ++a, --b) {
                const uint32_t va = px.get(row, a), vb = px.get(row, b);
                px.set(row, a, vb);
                px.set(row, b, va);
            }
        }
    });
}

// An 8 x 8 block of bits, row i in byte i (its first pixel the top bit),
// turned about its diagonal: bit j of row i becomes bit i of row j.
void transpose8(uint8_t block[8]) {
    uint64_t x = 0;
    for (int i = 0; i < 8; ++i) x |= uint64_t{block[i]} << (8 * (7 - i));
    uint64_t t = (x ^ (x >> 7)) & 0x00AA00AA00AA00AAull;
    x ^= t ^ (t << 7);
    t = (x ^ (x >> 14)) & 0x0000CCCC0000CCCCull;
    x ^= t ^ (t << 14);
    t = (x ^ (x >> 28)) & 0x00000000F0F0F0F0ull;
    x ^= t ^ (t << 28);
    for (int i = 0; i < 8; ++i) block[i] = static_cast<uint8_t>(x >> (8 * (7 - i)));
}

// A bilevel picture stored as orientation o (5 to 8) into upright, eight
// rows by eight columns at a time. Bits past the last pixel stay clear.
void turnBilevel(const Image &image, Image &upright, int o) {
    const uint32_t w = image.width, h = image.height;  // as stored; upright is h x w
    const auto &reversed = reversedBits();
    const Pixels<1> px;
    for (uint32_t Y0 = 0; Y0 < w; Y0 += 8) {
        for (uint32_t X0 = 0; X0 < h; X0 += 8) {
            // Byte i: upright pixels (X0 + i, Y0 .. Y0 + 7), from stored row sy,
            // stored columns Y0 .. Y0 + 7 (5, 6) or w - 1 - Y0 down to w - 8 - Y0 (7, 8).
            uint8_t block[8] = {};
            for (uint32_t i = 0; i < 8 && X0 + i < h; ++i) {
                const uint32_t X = X0 + i;
                const uint8_t *r = image.row((o == 5 || o == 8) ? X : h - 1 - X);
                if (o == 5 || o == 6) {
                    block[i] = r[Y0 / 8];  // past column w: stored padding, for rows not written
                } else if (Y0 + 8 <= w) {
                    const uint32_t start = w - 8 - Y0, at = start / 8, shift = start % 8;
                    const uint8_t bits = shift == 0 ? r[at] : static_cast<uint8_t>((r[at] << shift) | (r[at + 1] >> (8 - shift)));
                    block[i] = reversed[bits];
                } else {
                    for (uint32_t j = 0; Y0 + j < w; ++j)
                        block[i] |= static_cast<uint8_t>(px.get(r, w - 1 - Y0 - j) << (7 - j));
                }
            }
            transpose8(block);
            for (uint32_t j = 0; j < 8 && Y0 + j < w; ++j) upright.row(Y0 + j)[X0 / 8] = block[j];
        }
    }
}

void reverseRows(Image &image) {
    const size_t stride = image.stride();
    std::vector<uint8_t> spare(stride);
    for (uint32_t a = 0, b = image.height - 1; a < b; ++a, --b) {
        std::memcpy(spare.data(), image.row(a), stride);
        std::memcpy(image.row(a), image.row(b), stride);
        std::memcpy(image.row(b), spare.data(), stride);
    }
}

}  // namespace

void orientUpright(Image &image, const std::string &name, const PixelAllocator &alloc, const PixelRelease &release) {
    const int o = image.orientation;
    if (!knownOrientation(o) || o == 1 || image.width == 0 || image.height == 0) {
        image.orientation = 1;
        return;
    }
    if (o <= 4) {
        if (o == 2 || o == 3) mirrorRows(image);
        if (o == 3 || o == 4) reverseRows(image);
        image.orientation = 1;
        return;
    }
    // Rows become columns: a second block, the only copy a turn takes.
    const uint32_t w = image.width, h = image.height;  // as stored
    const uint64_t turned = uint64_t{Image::rowBytes(h, image.depth)} * w;
    checkMemoryBudget(name, w, h, uint64_t{image.size()} + turned);
    Image upright = image;
    upright.width = h;
    upright.height = w;
    upright.pixels = turned <= SIZE_MAX ? alloc(static_cast<size_t>(turned)) : nullptr;
    if (upright.pixels == nullptr) throw ReadError(name + ": not enough memory to turn the picture upright");
    if (image.depth == 1) {
        turnBilevel(image, upright, o);
        if (release) release(image.pixels);
        upright.orientation = 1;
        image = upright;
        return;
    }
    // In tiles, so that both pictures are walked through the cache a block at a time.
    withDepth(image.depth, [&](auto px) {
        constexpr uint32_t kTile = 64;
        for (uint32_t ty = 0; ty < w; ty += kTile) {
            for (uint32_t tx = 0; tx < h; tx += kTile) {
                for (uint32_t Y = ty; Y < std::min(w, ty + kTile); ++Y) {
                    uint8_t *dst = upright.row(Y);
                    // Where upright row Y lies in the stored picture: a stored column.
                    const uint32_t sx = (o == 5 || o == 6) ? Y : w - 1 - Y;
                    for (uint32_t X = tx; X < std::min(h, tx + kTile); ++X) {
                        const uint32_t sy = (o == 5 || o == 8) ? X : h - 1 - X;
                        px.set(dst, X, px.get(image.row(sy), sx));
                    }
                }
            }
        }
    });
    if (release) release(image.pixels);
    upright.orientation = 1;
    image = upright;
}

}  // namespace mivo4::host
