// Shrinking: decimation of rows and of pixels within a row. rlShrinkBitmap
// and rlStretchBitmap are one operation; each picks the vertical direction
// from the heights and either handles both directions in x.
#include <mivo4/color.h>

#include "export/raster/scale.h"

using namespace mivo4::color;

ZHANDLE rlShrinkBitmap(ZHANDLE Hdata, int16_t depth, uint32_t src_w, uint32_t src_h, uint32_t dst_w,
                       uint32_t dst_h) {
    return scaleBitmap(Hdata, depth, src_w, src_h, dst_w, dst_h);
}

int32_t Shrink(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
               uint32_t dy) {
    return scalePointers(psrc, pdst, depth, sx, sy, dx, dy, PointerOp::Shrink);
}

int32_t ShrinkX(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx) {
    return scalePointers(psrc, pdst, depth, sx, sy, dx, sy, PointerOp::ShrinkX);
}
