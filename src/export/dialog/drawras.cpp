// The drawing procedure of bitmaps: it measures a ZEPRaster, prepares the
// output colour table (the source's own, a median cut, or a dither table) and
// renders the whole picture at the output size and depth in one piece.
#include <mivo4/bitmap.h>
#include <mivo4/color.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include <algorithm>
#include <cstring>

#include "export/mivo4/expstat.h"
#include "export/raster/scale.h"

namespace {

// Copies count colour entries from the block `from` into dst; entries the
// block does not hold read as black.
void copyEntries(VCD *dst, ZHANDLE from, uint32_t count) {
    const auto *src = static_cast<const uint8_t *>(GlobalLock(from));
    uint32_t bytes = count * 3;
    uint32_t have = src != nullptr ? std::min(bytes, GlobalSize(from)) : 0;
    if (have > 0) std::memcpy(dst, src, have);
    if (bytes > have) std::memset(reinterpret_cast<uint8_t *>(dst) + have, 0, bytes - have);
    GlobalUnlock(from);
}

// Makes the offscreen's table hold count entries from the block `from`, and
// keeps a copy as the table to convert to.
void takeTable(OFFSCREEN *o, DRAWRASINFO *info, ZHANDLE from, uint32_t count) {
    if (count > static_cast<uint32_t>(std::max<int16_t>(o->numcolors, 0))) {
        // Growing moves the table: the offscreen carries the live one on.
        o->roColorTable = static_cast<VCD *>(zepPtrGlobalReAlloc(o->roColorTable, count * 3, GHND));
    }
    o->numcolors = static_cast<int16_t>(count);
    if (o->roColorTable == nullptr) {
        mivo4::exportstatus::NoMemory();
        return;
    }
    copyEntries(o->roColorTable, from, count);
    // A copy that cannot be had is not reported to the band loop: rendering
    // goes on without it, and the export's status tells that it is not whole.
    info->hColorTable = GlobalAlloc(GHND, count * 3);
    if (auto *copy = static_cast<VCD *>(GlobalLock(info->hColorTable))) {
        std::memcpy(copy, o->roColorTable, count * 3);
    } else {
        mivo4::exportstatus::NoMemory();
    }
}

}  // namespace

uint32_t DrawInit(OFFSCREEN *o, DRAWINIT *init) {
    if (o == nullptr || init == nullptr || o->drawdata == nullptr) return 0;
    const auto *r = static_cast<const ZEPRaster *>(o->drawdata);
    const int16_t dst_depth = o->precision;
    const int16_t src_depth = static_cast<int16_t>(r->depth);
    uint16_t ctSize = static_cast<uint16_t>(dst_depth >= 0 && dst_depth < 16 ? 1u << dst_depth : 0);

    o->h = GlobalAlloc(GHND, sizeof(DRAWRASINFO));
    auto *info = static_cast<DRAWRASINFO *>(GlobalLock(o->h));
    if (info == nullptr) {
        push_er(RASTER_ERR_OUTPUT);
        return 0;
    }
    if (dst_depth >= src_depth) {
        // No reduction: an indexed source keeps its own colours.
        if (r->hColorTable != 0 && o->roColorTable != nullptr && o->numcolors >= 1 && src_depth < 16)
            takeTable(o, info, r->hColorTable, 1u << src_depth);
    } else {
        ZHANDLE HreducedCt = 0;
        if (src_depth == 24 && dst_depth > 7) {
            HreducedCt = rlReduceColorTable(r->hBuffer, static_cast<int16_t>(r->cx),
                                            static_cast<int16_t>(r->cy), &ctSize);
        } else {
            // Every other reduction, every one-bit output among them, dithers.
            rlDitherGetCT(r->hBuffer, r->cx, r->cy, src_depth, dst_depth, r->hColorTable,
                          &HreducedCt, &ctSize);
        }
        if (HreducedCt != 0) {
            takeTable(o, info, HreducedCt, ctSize);
            GlobalFree(HreducedCt);
        } else {
            mivo4::exportstatus::NoMemory();  // no table to reduce to
        }
    }
    GlobalUnlock(o->h);
    return init->TotalHeight;  // the whole picture is one band
}

ZHANDLE ChangeRes(ZHANDLE Hdata, uint16_t w, uint16_t h, uint16_t src_depth, uint16_t dst_depth,
                  ZHANDLE srcHrgb, ZHANDLE dstHrgb, int16_t numcolors) {
    if (dst_depth < 8 && dst_depth < src_depth)
        return rlDitherGivenCT(Hdata, w, h, static_cast<int16_t>(src_depth), static_cast<int16_t>(dst_depth),
                               srcHrgb, dstHrgb, static_cast<uint16_t>(numcolors));
    return rlConvertBitmapDepth(Hdata, w, h, static_cast<int16_t>(src_depth), static_cast<int16_t>(dst_depth),
                                srcHrgb, dstHrgb, static_cast<uint16_t>(numcolors));
}

// Every render produces the whole picture at the output size; the band rows
// are not used.
ZHANDLE DrawRender(OFFSCREEN *o, uint32_t, uint32_t) {
    if (o == nullptr || o->drawdata == nullptr) return 0;
    const auto *r = static_cast<const ZEPRaster *>(o->drawdata);
    auto *info = static_cast<DRAWRASINFO *>(GlobalLock(o->h));
    const uint16_t d = static_cast<uint16_t>(o->precision);
    const uint32_t w = o->dest_cx, h = o->dest_cy;
    const ZHANDLE HRGBTable = info != nullptr ? info->hColorTable : 0;
    ZHANDLE Hdatabits = 0;

    // Whatever step the colour library cannot make is left out of the picture
    // (the band loop goes on); the export's status tells it is not whole.
    const bool shrunk = w < r->cx || h < r->cy;
    if (shrunk) {
        Hdatabits = rlShrinkBitmap(r->hBuffer, static_cast<int16_t>(r->depth), r->cx, r->cy, w, h);
        if (Hdatabits == 0) mivo4::exportstatus::NoMemory();
    }
    if (d != r->depth) {
        if (shrunk) {
            ZHANDLE converted = ChangeRes(Hdatabits, static_cast<uint16_t>(w), static_cast<uint16_t>(h),
                                          r->depth, d, r->hColorTable, HRGBTable, o->numcolors);
            if (converted != Hdatabits) {
                rlFreeNewData(Hdatabits);
                Hdatabits = converted;
            }
        } else {
            Hdatabits = ChangeRes(r->hBuffer, r->cx, r->cy, r->depth, d, r->hColorTable, HRGBTable,
                                  o->numcolors);
        }
        if (Hdatabits == 0) mivo4::exportstatus::NoMemory();
    }
    if (w > r->cx || h > r->cy) {
        // The stretch is told the source's own size even after a shrink of the
        // other dimension: it reads the smaller bitmap with the original row
        // length, and what lies past that bitmap reads as 0.
        const ZHANDLE from = Hdatabits != 0 ? Hdatabits : r->hBuffer;
        // The band is only read: a stretch that just repeats the first row
        // (an odd height made even) puts that row in front of the picture's
        // own rows instead of copying the picture.
        bool copy = true;
        ZHANDLE stretched = mivo4::color::stretchInFront(from, static_cast<int16_t>(d), r->cx, r->cy, w, h, &copy);
        if (copy) stretched = rlStretchBitmap(from, static_cast<int16_t>(d), r->cx, r->cy, w, h);
        if (Hdatabits != 0 && stretched != Hdatabits) rlFreeNewData(Hdatabits);
        Hdatabits = stretched;
        if (Hdatabits == 0) mivo4::exportstatus::NoMemory();
    }
    if (info != nullptr) {
        if (info->hBandBuf != 0) rlFreeNewData(info->hBandBuf);
        info->hBandBuf = Hdatabits;
        GlobalUnlock(o->h);
    }
    // Nothing made (or the colour library failed): the source itself.
    return Hdatabits != 0 ? Hdatabits : r->hBuffer;
}

int32_t DrawTerm(OFFSCREEN *o) {
    if (o == nullptr || o->h == 0) return 0;
    if (auto *info = static_cast<DRAWRASINFO *>(GlobalLock(o->h))) {
        if (info->hBandBuf != 0) GlobalFree(info->hBandBuf);
        if (info->hColorTable != 0) GlobalFree(info->hColorTable);
    }
    GlobalFree(o->h);
    o->h = 0;
    return 0;
}

uint32_t DrawExportCellData(int32_t opcode, intptr_t p1, intptr_t p2, intptr_t p3) {
    switch (opcode) {
    case DRAW_QUERY: {
        const auto *r = reinterpret_cast<const ZEPRaster *>(p1);
        auto *q = reinterpret_cast<QUERYINFO *>(p2);
        if (r == nullptr || q == nullptr) return 0;
        q->w = r->srcwidth;
        q->h = r->srcheight;
        q->dpi = static_cast<uint32_t>(static_cast<int32_t>(r->srcdpi));
        // Without a source resolution the size stays in the source's own units.
        if (q->dpi != 0) {
            q->w /= q->dpi;
            q->h /= q->dpi;
        }
        q->colorformat = 1;
        return 0;
    }
    case DRAW_INIT:
        return DrawInit(reinterpret_cast<OFFSCREEN *>(p1), reinterpret_cast<DRAWINIT *>(p2));
    case DRAW_TERM:
        return DrawTerm(reinterpret_cast<OFFSCREEN *>(p1)) == 0 ? 1 : 0;
    case DRAW_RENDER:
        return DrawRender(reinterpret_cast<OFFSCREEN *>(p1), static_cast<uint32_t>(p2),
                          static_cast<uint32_t>(p3));
    default:
        return 0;
    }
}
