// Single-pixel read and write for every supported depth, and the
// nearest-colour search that indexed writes go through.
#include <mivo4/color.h>
#include <mivo4/util.h>

#include <cstdio>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

namespace {

// The byte offset of pixel x of row y. The row offset is taken in 64 bits so
// that tall bitmaps never wrap.
size_t pixelRowOffset(uint32_t bytesperline, uint32_t y) { return size_t{y} * bytesperline; }

// The colour that a 24- or 32-bit write takes from a destination table: the
// entry named by the value when there is one, else the value itself read as
// a packed colour (a map built for a true-colour destination holds packed
// colours, not indices, and must never index past the table).
uint32_t tableColour(uint32_t value, const VCD *rgb, uint16_t numcolors) {
    return value < numcolors ? packVCD(rgb[value]) : value;
}

}  // namespace

uint32_t rlGetPixel(const void *d, uint32_t bytesperline, uint32_t x, uint32_t y, int16_t depth) {
    if (d == nullptr || !isSupportedDepth(depth)) return 0;
    const uint8_t *row = static_cast<const uint8_t *>(d) + pixelRowOffset(bytesperline, y);
    return readPixel(row, x, depth);
}

int32_t rlSetPixel(void *d, uint32_t bytesperline, uint32_t x, uint32_t y, int16_t depth,
                   uint32_t index, const uint32_t *clrmap, const VCD *rgb, uint16_t numcolors) {
    if (tracesPixels()) std::fprintf(stderr, "(%d,%d): ", static_cast<int>(x), static_cast<int>(y));

    uint32_t value = index;
    if (clrmap != nullptr) {
        value = clrmap[index];
    } else if (rgb != nullptr && depth < 24) {
        // The search's answer passes through a signed 8-bit value on its way:
        // only the low bits that the indexed depths store survive either way.
        int32_t nearest = rlNearestRGBIndex(static_cast<int16_t>(index >> 24),
                                            static_cast<int16_t>((index >> 16) & 0xFF),
                                            static_cast<int16_t>((index >> 8) & 0xFF), rgb, numcolors);
        value = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(nearest)));
    }
    if (d == nullptr || !isSupportedDepth(depth)) return 0;

    uint8_t *row = static_cast<uint8_t *>(d) + pixelRowOffset(bytesperline, y);
    if ((depth == 24 || depth == 32) && rgb != nullptr) {
        // A table-driven true-colour write: the fourth byte of a 32-bit pixel is 0.
        uint32_t colour = tableColour(value, rgb, numcolors) & 0xFFFFFF00u;
        storePixel(row, x, depth, colour);
    } else {
        storePixel(row, x, depth, value);
    }
    return 0;
}

int32_t rlNearestRGBIndex(int16_t r, int16_t g, int16_t b, const VCD *rgb, int32_t cbrgb) {
    if (rgb == nullptr) return 0;
    const bool greyInput = feqi(r, g, 4) && feqi(g, b, 4) && feqi(r, b, 4);
    uint32_t best = UINT32_MAX;
    int32_t bestIndex = 0;
    for (int32_t j = 0; j < cbrgb; ++j) {
        const VCD &e = rgb[j];
        const bool greyEntry = e.red == e.green && e.green == e.blue;
        // Greys only match greys and colours only colours, so that a grey
        // picture never picks up a tint from a nearer coloured entry.
        if (greyEntry != greyInput) continue;
        int32_t db = b - e.blue, dg = g - e.green, dr = r - e.red;
        uint32_t dist = static_cast<uint32_t>(db * db) + static_cast<uint32_t>(dg * dg) +
                        static_cast<uint32_t>(dr * dr);
        if (dist < best) {
            best = dist;
            bestIndex = j;
            if (dist == 0) break;
        }
    }
    return bestIndex;
}
