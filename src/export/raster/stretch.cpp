// Stretching: replication of rows (bottom up, whole scaled rows copied) and
// of pixels within a row (right to left).
#include <mivo4/color.h>

#include "export/raster/scale.h"

using namespace mivo4::color;

ZHANDLE rlStretchBitmap(ZHANDLE hData, int16_t depth, uint32_t src_w, uint32_t src_h, uint32_t dst_w,
                        uint32_t dst_h) {
    return scaleBitmap(hData, depth, src_w, src_h, dst_w, dst_h);
}

int32_t Stretch(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx,
                uint32_t dy) {
    return scalePointers(psrc, pdst, depth, sx, sy, dx, dy, PointerOp::Stretch);
}

int32_t StretchX(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx, uint32_t sy, uint32_t dx) {
    return scalePointers(psrc, pdst, depth, sx, sy, dx, sy, PointerOp::StretchX);
}
