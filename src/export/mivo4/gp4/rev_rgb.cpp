// rev_rgb: the colour adjustment for monochrome output, applied to colour
// tables and to rows of 24-bit pixels alike.
#include <mivo4/color.h>
#include <mivo4/setup.h>
#include <mivo4/util.h>

namespace {

// The weighted grey of one triple: (3 red + 6 green + blue) / 10.
uint32_t greyOf(const uint8_t *p) { return (3u * p[0] + 6u * p[1] + p[2]) / 10u; }

// With no current setup there is no threshold to apply: greys stay as they are.
uint32_t currentGreyThreshold() { return lpRaster != nullptr ? lpRaster->GreyThreshold : 0u; }

}  // namespace

void rev_rgb(uint32_t count, uint8_t *rgb, int32_t reverse) {
    if (rgb == nullptr || reverse < 1 || reverse > 4) return;
    uint8_t *const end = rgb + size_t{count} * 3;
    switch (reverse) {
    case 1:
        for (uint8_t *p = rgb; p != end; ++p) *p = static_cast<uint8_t>(255 - *p);
        break;
    case 2:
        for (uint8_t *p = rgb; p != end; p += 3) {
            if (feqi(p[0], p[1], 10) && feqi(p[1], p[2], 10) && feqi(p[0], p[2], 10)) {
                p[0] = static_cast<uint8_t>(255 - p[0]);
                p[1] = static_cast<uint8_t>(255 - p[1]);
                p[2] = static_cast<uint8_t>(255 - p[2]);
            }
        }
        break;
    case 3: {
        // Near-white stays white; everything else is darkened by the threshold,
        // in the unsigned arithmetic of the setup's field. The threshold is read
        // once (it cannot change during one call) and applied through a table
        // of the 256 possible greys.
        const uint32_t keep = 100u - currentGreyThreshold();
        uint8_t darkened[256];
        for (uint32_t grey = 0; grey < 256; ++grey)
            darkened[grey] = static_cast<uint8_t>(grey > 249 ? grey : grey * keep / 100u);
        for (uint8_t *p = rgb; p != end; p += 3) p[0] = p[1] = p[2] = darkened[greyOf(p)];
        break;
    }
    case 4:
        for (uint8_t *p = rgb; p != end; p += 3) p[0] = p[1] = p[2] = static_cast<uint8_t>(255 - greyOf(p));
        break;
    }
}
