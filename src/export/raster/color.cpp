// The colour library's bitmap layout, its work record and the depth-change
// driver that picks a colour table and the way down to the new depth.
#include <mivo4/color.h>

#include "export/raster/colorlib.h"

using namespace mivo4::color;

int16_t _debug_color_res = 0;

uint32_t rlBytesPerLine(uint32_t w, int16_t dst_depth) {
    uint64_t bpl = bytesPerLine64(w, dst_depth);
    return bpl > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bpl);
}

uint32_t rlCalcNewSize(uint32_t w, uint32_t h, int16_t dst_depth) {
    uint64_t size = bitmapSize64(w, h, dst_depth);
    return size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
}

ZHANDLE InitColorLib(void) { return GlobalAlloc(GHND, sizeof(ColorLibStruct)); }

int32_t TermColorLib(ZHANDLE hColorLib) {
    if (hColorLib == 0) return 0;
    auto *lib = static_cast<ColorLibStruct *>(GlobalLock(hColorLib));
    if (lib == nullptr) return -1;
    for (ZHANDLE h : {lib->hClrList, lib->hCRect, lib->hsList}) {
        if (h == 0) continue;
        GlobalUnlock(h);
        GlobalFree(h);
    }
    GlobalUnlock(hColorLib);
    GlobalFree(hColorLib);
    return 0;
}

namespace {

// 2^depth as the 16-bit counts of the colour-table sizes hold it.
uint16_t tableSize16(int32_t depth) {
    return depth >= 0 && depth < 16 ? static_cast<uint16_t>(1u << depth) : 0;
}

}  // namespace

ZHANDLE rlChangeColorResolution(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth,
                                int16_t dst_depth, ZHANDLE *Hrgb) {
    ZHANDLE srcTable = Hrgb != nullptr ? *Hrgb : 0;
    uint16_t ctSize = 0;
    ZHANDLE newTable = 0;
    if (dst_depth < src_depth) {
        ctSize = tableSize16(dst_depth);
        if (src_depth == 24 && dst_depth > 7) {
            // The table comes from the picture itself; the reduction takes
            // its sizes as 16-bit values.
            newTable = rlReduceColorTable(Hdata, static_cast<int16_t>(w), static_cast<int16_t>(h),
                                          &ctSize);
        } else if (dst_depth > 4) {
            // The source table, read as a one-row 24-bit bitmap, is reduced.
            newTable = rlReduceColorTable(srcTable, static_cast<int16_t>(tableSize16(src_depth)), 1,
                                          &ctSize);
        }
    }

    ZHANDLE result;
    if (dst_depth <= 7 && src_depth > dst_depth)
        result = rlDitherBitmap(Hdata, w, h, src_depth, dst_depth, srcTable, &newTable);
    else
        result = rlConvertBitmapDepth(Hdata, w, h, src_depth, dst_depth, srcTable, newTable, ctSize);

    // The old table stays the caller's; the new one (0 after an increase of
    // depth, which needs none) takes its place.
    if (Hrgb != nullptr) *Hrgb = newTable;
    return result;
}
