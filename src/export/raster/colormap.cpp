// Colour maps: the per-index work of a depth conversion done once per source
// table entry instead of once per pixel.
#include <mivo4/color.h>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

ZHANDLE rlBuildColormap(const VCD *rgb, int16_t rgb_depth, const VCD *dstrgb, int16_t dstrgb_depth,
                        uint16_t num_dstrgb) {
    // True colour needs no map. Depths above 16 bits are true colour too: a
    // table of 2^depth entries for them could neither be held nor read.
    if (rgb_depth == 24 || rgb_depth < 0 || rgb_depth > 16) return 0;
    const uint32_t entries = tableEntries(rgb_depth);

    if (rgb_depth <= dstrgb_depth && dstrgb == nullptr) {
        // Nothing to map onto: the source table is its own destination.
        dstrgb = rgb;
        num_dstrgb = static_cast<uint16_t>(entries);
    }

    ZHANDLE hmap = allocBytes(uint64_t{entries} * sizeof(uint32_t));
    Locked map(hmap);
    if (!map || rgb == nullptr || dstrgb == nullptr) return hmap;

    auto *m = map.as<uint32_t>();
    for (uint32_t i = 0; i < entries; ++i) {
        const VCD &c = rgb[i];
        m[i] = dstrgb_depth == 24
                   ? packVCD(c)
                   : static_cast<uint32_t>(rlNearestRGBIndex(c.red, c.green, c.blue, dstrgb, num_dstrgb));
    }
    return hmap;
}

int32_t rlFreeColormap(ZHANDLE Hclrmap) {
    rlFreeNewData(Hclrmap);
    return 0;
}
