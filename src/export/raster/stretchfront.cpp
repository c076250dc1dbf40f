// A stretch by one row without a copy: when the vertical replication repeats
// only the first row, the stretched bitmap is the source's rows as they lie
// with that row once more in front of them.
#include <mivo4/color.h>
#include <mivo4/memory.h>

#include <algorithm>
#include <cstring>

#include "export/raster/scale.h"
#include "zep_xxxx/meminternal.h"

namespace mivo4::color {

namespace {

// True when no row of the bitmap has a set bit past its pixels: a stretched
// copy is made pixel by pixel into zeros, so its rows never do.
bool paddingClear(const uint8_t *rows, uint64_t bpl, uint32_t sw, int16_t depth, uint32_t sh) {
    const uint64_t bits = uint64_t{sw} * static_cast<uint64_t>(depth);
    const uint64_t whole = bits / 8;
    const auto partial = static_cast<uint8_t>(bits % 8 != 0 ? 0xFFu >> (bits % 8) : 0);
    const uint64_t from = whole + (partial != 0 ? 1 : 0);
    for (uint64_t y = 0; y < sh; ++y) {
        const uint8_t *row = rows + y * bpl;
        if (partial != 0 && (row[whole] & partial) != 0) return false;
        for (uint64_t i = from; i < bpl; ++i)
            if (row[i] != 0) return false;
    }
    return true;
}

}  // namespace

ZHANDLE stretchInFront(ZHANDLE hData, int16_t depth, uint32_t sw, uint32_t sh, uint32_t dw, uint32_t dh,
                       bool *copyInstead) {
    *copyInstead = true;
    // A traced stretch goes pixel by pixel, as the debug level asks.
    if (tracesPixels() || !isSupportedDepth(depth) || dw != sw || dh <= sh || sh == 0) return 0;
    const uint64_t bpl = bytesPerLine64(sw, depth);
    const uint64_t size = bitmapSize64(dw, dh, depth);
    if (bpl == 0 || size > UINT32_MAX) return 0;
    // The stretch fills destination rows from the bottom up, source row j
    // taking truncate((sh - j) * ratio) - truncate((sh - j - 1) * ratio) of
    // them: every row but the first must be taken once, so that each lies
    // dh - sh rows further on, where it lies in the source plus the rows in front.
    const double ratio = static_cast<double>(dh) / sh;
    for (uint64_t k = 1; k < sh; ++k)
        if (truncProduct(k, ratio) != static_cast<int64_t>(k)) return 0;
    const uint64_t frontRows = dh - sh;
    {
        Locked in(hData);
        if (!in || in.size() < bpl * sh || !paddingClear(in.data(), bpl, sw, depth, sh)) return 0;
    }
    bool noRoom = true;
    const ZHANDLE view =
        mivo4::mem::ExtendInFront(hData, static_cast<uint32_t>(frontRows * bpl), static_cast<uint32_t>(size), &noRoom);
    if (noRoom) return 0;
    *copyInstead = false;
    Locked out(view);
    if (!out) return 0;
    // The first row fills the rows in front down to where the products run
    // out (truncate(sh * ratio) rows are filled in all); rows above stay 0.
    const int64_t filled = truncProduct(sh, ratio);
    const uint64_t firstCopy = static_cast<uint64_t>(std::max<int64_t>(0, static_cast<int64_t>(dh) - filled));
    const uint8_t *first = out.data() + frontRows * bpl;
    for (uint64_t row = firstCopy; row < frontRows; ++row) std::memcpy(out.data() + row * bpl, first, bpl);
    return view;
}

}  // namespace mivo4::color
