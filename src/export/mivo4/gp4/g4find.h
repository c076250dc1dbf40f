// Word-at-a-time search for changing elements in a row of one-bit pixels
// (most significant bit first, a set bit is white). The coder spends most of
// its time here, so rows are scanned 64 pixels per step: a big-endian 64-bit
// window is loaded at the byte that holds the start pixel, shifted so that the
// start pixel is the top bit, and the first pixel of the other colour is found
// with one count-leading-zeros.
//
// No search reads past the `size` bytes it is given: windows that would reach
// beyond them are assembled byte by byte. Bits past `width` may hold anything;
// every result is clamped to `width`, so they never count.
#pragma once

#include <cstdint>
#include <cstring>

namespace mivo4::g4 {

// Bytes that hold `width` pixels.
constexpr uint32_t RowBytes(uint32_t width) { return (width >> 3) + ((width & 7) != 0 ? 1 : 0); }

// Eight bytes from `index` as a big-endian word; bytes at or past `size` read as 0.
inline uint64_t LoadWindow(const uint8_t *row, uint64_t index, uint32_t size) {
    if (index + 8 <= size) {
        uint64_t v;
        std::memcpy(&v, row + index, 8);
        return __builtin_bswap64(v);
    }
    uint64_t v = 0;
    for (uint64_t i = index; i < index + 8; ++i) v = (v << 8) | (i < size ? row[i] : 0u);
    return v;
}

// The pixel at `pos`: true when white (its bit is set).
inline bool PixelWhite(const uint8_t *row, uint32_t pos) {
    return ((row[pos >> 3] >> (7 - (pos & 7))) & 1u) != 0;
}

// First position at or after `pos` whose pixel is not of the colour `white`,
// or `width` when the rest of the row is all of that colour.
inline uint32_t FindOther(const uint8_t *row, uint32_t size, uint32_t pos, uint32_t width,
                          bool white) {
    // Looking for a clear bit in a white run: flip, so that the target is a set bit.
    const uint64_t flip = white ? ~uint64_t{0} : 0;
    uint64_t p = pos;
    while (p < width) {
        uint32_t shift = static_cast<uint32_t>(p & 7);
        // Flipped before the shift, so the zeros shifted in can never match.
        uint64_t w = (LoadWindow(row, p >> 3, size) ^ flip) << shift;
        if (w != 0) {
            uint64_t found = p + static_cast<uint64_t>(__builtin_clzll(w));
            return found < width ? static_cast<uint32_t>(found) : width;
        }
        p += 64 - shift;
    }
    return width;
}

// The next changing element after `a0` whose left neighbour has the colour
// `white` and which itself has the other colour, or `width`. At a0 = 0 the
// colour before the row is white (the imaginary pixel left of pixel 0), so a
// black pixel 0 is itself a changing element; elsewhere an element exactly at
// a0 is never returned.
inline uint32_t NextChange(const uint8_t *row, uint32_t size, uint32_t a0, bool white,
                           uint32_t width) {
    if (a0 >= width) return width;
    bool here = a0 == 0 ? true : PixelWhite(row, a0);
    uint32_t p = FindOther(row, size, a0, width, here);
    if (p >= width || here == white) return p;
    // The run at a0 was of the other colour: skip the run of `white` that follows.
    return FindOther(row, size, p, width, white);
}

// True when the first `width` pixels of the two rows are the same.
inline bool SameRow(const uint8_t *a, const uint8_t *b, uint32_t width) {
    uint32_t full = width >> 3;
    if (std::memcmp(a, b, full) != 0) return false;
    uint32_t rest = width & 7;
    if (rest == 0) return true;
    uint8_t mask = static_cast<uint8_t>(0xFF00u >> rest);
    return ((a[full] ^ b[full]) & mask) == 0;
}

// Number of changing elements of a row: positions whose pixel differs from its
// left neighbour, the imaginary white pixel left of pixel 0 included.
inline uint32_t CountChanges(const uint8_t *row, uint32_t size, uint32_t width) {
    uint32_t count = 0;
    uint64_t before = 1;  // white
    for (uint64_t p = 0; p < width; p += 64) {
        uint64_t w = LoadWindow(row, p >> 3, size);
        uint64_t changes = w ^ ((w >> 1) | (before << 63));
        uint64_t valid = width - p;
        if (valid < 64) changes &= ~uint64_t{0} << (64 - valid);
        count += static_cast<uint32_t>(__builtin_popcountll(changes));
        before = w & 1;
    }
    return count;
}

}  // namespace mivo4::g4
