// Mirroring a bitmap in place.
//
// The horizontal partner of pixel x is pixel w - x, not w - 1 - x: pixel 0
// trades places with the position just past the row's last pixel (the row's
// padding, or the first pixel of the next row when the row has none) and the
// last pixel with pixel 1. That is how mirroring has always come out, so it
// stays; only the block's end is a hard limit: a partner past it reads as 0
// and is not written.
#include <mivo4/color.h>

#include <new>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

namespace {

// Pixel access within one block by byte offset of the row, safe for pixels
// that straddle or pass the block's end.
class Pixels {
public:
    Pixels(uint8_t *base, size_t size, int16_t depth) : base_(base), size_(size), depth_(depth) {}

    uint32_t get(uint64_t rowOffset, uint64_t x) const {
        uint8_t bytes[4] = {0, 0, 0, 0};
        const uint64_t at = rowOffset + x * depth_ / 8;
        for (unsigned k = 0; k < width(); ++k)
            if (at + k < size_) bytes[k] = base_[at + k];
        return readPixel(bytes, inByte(x), depth_);
    }

    void set(uint64_t rowOffset, uint64_t x, uint32_t v) const {
        uint8_t bytes[4] = {0, 0, 0, 0};
        const uint64_t at = rowOffset + x * depth_ / 8;
        for (unsigned k = 0; k < width(); ++k)
            if (at + k < size_) bytes[k] = base_[at + k];
        storePixel(bytes, inByte(x), depth_, v);
        for (unsigned k = 0; k < width(); ++k)
            if (at + k < size_) base_[at + k] = bytes[k];
    }

private:
    unsigned width() const { return depth_ == 24 ? 3 : depth_ == 32 ? 4 : 1; }
    // The pixel's position within its first byte, as readPixel counts it.
    size_t inByte(uint64_t x) const { return depth_ == 1 ? x % 8 : depth_ == 4 ? x % 2 : 0; }

    uint8_t *base_;
    size_t size_;
    int32_t depth_;
};

// Exchanges two rows whole through the temporary row; bytes past the
// block's end read as 0 and are not written.
void swapRows(uint8_t *base, size_t size, uint64_t a, uint64_t b, uint64_t bpl, uint8_t *temp) {
    auto load = [&](uint64_t from, uint8_t *to) {
        for (uint64_t k = 0; k < bpl; ++k) to[k] = from + k < size ? base[from + k] : 0;
    };
    auto store = [&](const uint8_t *from, uint64_t to) {
        for (uint64_t k = 0; k < bpl && to + k < size; ++k) base[to + k] = from[k];
    };
    if (a + bpl <= size && b + bpl <= size) {
        std::memcpy(temp, base + a, bpl);
        std::memmove(base + a, base + b, bpl);
        std::memcpy(base + b, temp, bpl);
        return;
    }
    std::vector<uint8_t> other(bpl);
    load(a, temp);
    load(b, other.data());
    store(other.data(), a);
    store(temp, b);
}

}  // namespace

ZHANDLE rlFlipBitmap(ZHANDLE Hdata, int16_t depth, uint32_t w, uint32_t h, int16_t hort, int16_t vert) try {
    const uint64_t bpl = bytesPerLine64(w, depth);
    if (bpl > UINT32_MAX) return 0;
    Locked bitmap(Hdata);
    Owned hTemp(allocBytes(bpl));
    Locked temp(hTemp.get());
    // Without its temporary row nothing is changed.
    if (!temp) return 0;
    if (!bitmap) return Hdata;

    const Pixels px(bitmap.data(), bitmap.size(), isSupportedDepth(depth) ? depth : 0);
    const bool pixelsKnown = isSupportedDepth(depth);
    uint64_t p1 = 0;
    uint64_t p2 = h > 0 ? (uint64_t{h} - 1) * bpl : 0;
    for (uint64_t pair = 0; pair < (uint64_t{h} + 1) / 2; ++pair, p1 += bpl, p2 -= bpl) {
        if (vert) swapRows(bitmap.data(), bitmap.size(), p1, p2, bpl, temp.data());
        if (hort && pixelsKnown) {
            for (uint64_t x = 0; x < w / 2; ++x) {
                const uint64_t partner = uint64_t{w} - x;
                const uint32_t a = px.get(p1, x), b = px.get(p1, partner);
                const uint32_t c = px.get(p2, x), d = px.get(p2, partner);
                px.set(p1, x, b);
                px.set(p1, partner, a);
                px.set(p2, x, d);
                px.set(p2, partner, c);
            }
        }
    }
    return Hdata;
} catch (const std::bad_alloc &) {
    // Working memory of the process ran out: the nearest failure.
    return 0;
}
