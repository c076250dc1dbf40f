// In-place conversions of 32-bit bitmaps: CMYK and alpha to packed RGB, and
// RGB to CMYK. Rows of four-byte pixels need no padding, so the pixels are
// simply w x h four-byte groups from the start of the block.
#include <mivo4/color.h>

#include <algorithm>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

namespace {

// The number of whole four-byte pixels of a w x h bitmap that lie inside the
// block: pixels past its end are left alone rather than read or written.
uint64_t pixelsInBlock(const Locked &block, uint32_t w, uint32_t h) {
    return std::min(uint64_t{w} * h, uint64_t{block.size()} / 4);
}

}  // namespace

// Every pixel is converted by the per-pixel rule, row after row.
void rlRGB4toCMYK(ZHANDLE hDatabits, uint32_t w, uint32_t h) {
    Locked bits(hDatabits);
    if (!bits) return;
    uint8_t *p = bits.data();
    for (uint64_t i = 0, n = pixelsInBlock(bits, w, h); i < n; ++i, p += 4) {
        p[0] = static_cast<uint8_t>(255 - p[0]);
        p[1] = static_cast<uint8_t>(255 - p[1]);
        p[2] = static_cast<uint8_t>(255 - p[2]);
        p[3] = 0;
    }
}

// Three bytes of each pixel are written packed from the front of the block;
// the write position never overtakes the read position, so one pass does it.
void rlCMYKtoRGB(ZHANDLE hDatabits, uint32_t w, uint32_t h) {
    Locked bits(hDatabits);
    if (!bits) return;
    uint8_t *in = bits.data();
    uint8_t *out = bits.data();
    for (uint64_t i = 0, n = pixelsInBlock(bits, w, h); i < n; ++i, in += 4, out += 3) {
        uint8_t c = in[0], m = in[1], y = in[2], k = in[3];
        out[0] = static_cast<uint8_t>(255 - std::max(c, k));
        out[1] = static_cast<uint8_t>(255 - std::max(m, k));
        out[2] = static_cast<uint8_t>(255 - std::max(y, k));
    }
}

void rlALPHAtoRGB(ZHANDLE hDatabits, uint32_t w, uint32_t h) {
    Locked bits(hDatabits);
    if (!bits) return;
    uint8_t *in = bits.data();
    uint8_t *out = bits.data();
    for (uint64_t i = 0, n = pixelsInBlock(bits, w, h); i < n; ++i, in += 4, out += 3) {
        uint8_t r = in[0], g = in[1], b = in[2];
        out[0] = r;
        out[1] = g;
        out[2] = b;
    }
}
