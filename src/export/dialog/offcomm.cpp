// The four offscreen functions: they carry each message to the drawing
// procedure and keep the offscreen record between them.
#include <mivo4/memory.h>
#include <mivo4/output.h>

uint32_t QueryPlatformOffscreen(QUERYINFO *qinfo, void *drawdata, LPDRAWCALLBACK drawproc) {
    if (drawproc == nullptr) return 0;
    return drawproc(DRAW_QUERY, reinterpret_cast<intptr_t>(drawdata), reinterpret_cast<intptr_t>(qinfo), 0);
}

OFFSCREEN *InitPlatformOffscreen(uint32_t TotalWidth, uint32_t *TotalHeight, int16_t Precision,
                                 int16_t NumColors, VCD *ColorTable, void *drawdata,
                                 LPDRAWCALLBACK drawproc, uint8_t *bandingSupported) {
    auto *o = static_cast<OFFSCREEN *>(zepPtrGlobalAlloc(sizeof(OFFSCREEN)));
    if (o == nullptr || drawproc == nullptr || TotalHeight == nullptr) {
        // Without an offscreen no band can be rendered.
        zepPtrGlobalFree(o);
        if (TotalHeight != nullptr) *TotalHeight = 0;
        return nullptr;
    }
    o->drawdata = drawdata;
    o->drawproc = drawproc;
    o->numcolors = NumColors;
    o->roColorTable = ColorTable;
    o->dest_cx = TotalWidth;
    o->dest_cy = *TotalHeight;
    o->precision = Precision;
    o->bandingSupported = bandingSupported != nullptr ? *bandingSupported : 0;
    DRAWINIT init{TotalWidth, *TotalHeight, Precision, NumColors, ColorTable};
    // From here on the caller's height variable holds the band height.
    *TotalHeight = drawproc(DRAW_INIT, reinterpret_cast<intptr_t>(o), reinterpret_cast<intptr_t>(&init), 0);
    return o;
}

ZHANDLE DrawPlatformOffscreen(OFFSCREEN *p, uint32_t startline, uint32_t endline) {
    if (p == nullptr || p->drawproc == nullptr) return 0;
    return p->drawproc(DRAW_RENDER, reinterpret_cast<intptr_t>(p), startline, endline);
}

void TermPlatformOffscreen(OFFSCREEN *p) {
    if (p == nullptr) return;
    if (p->drawproc != nullptr) p->drawproc(DRAW_TERM, reinterpret_cast<intptr_t>(p), 0, 0);
    zepPtrGlobalFree(p);
}
