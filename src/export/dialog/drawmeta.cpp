// Recorded pictures on this platform: the drawing procedure can measure one
// but render nothing, and the platform's metafile filter records nothing.
#include <mivo4/output.h>

#include "export/dialog/platform.h"

namespace {

// The drawing procedure's own steps.
uint32_t DrawInit() { return 0; }  // no band can be rendered here
void *DrawTerm(void *offscreen) { return offscreen; }
uint32_t DrawRender() { return 0; }

uint32_t QueryPicture(const PICTINFO *picture, QUERYINFO *q) {
    if (picture == nullptr || q == nullptr) return 0;
    q->w = static_cast<double>(static_cast<int64_t>(picture->bBox.right) - picture->bBox.left);
    q->h = static_cast<double>(static_cast<int64_t>(picture->bBox.top) - picture->bBox.bottom);
    q->dpi = static_cast<uint32_t>(picture->Inch);
    if (q->dpi != 0) {
        q->w /= q->dpi;
        q->h /= q->dpi;
    }
    q->colorformat = 4;
    return 0;
}

}  // namespace

uint32_t DrawPlatformMetafile(int32_t message, intptr_t p1, intptr_t p2, intptr_t) {
    switch (message) {
    case DRAW_QUERY:
        return QueryPicture(reinterpret_cast<const PICTINFO *>(p1), reinterpret_cast<QUERYINFO *>(p2));
    case DRAW_INIT:
        return DrawInit();
    case DRAW_TERM:
        // The term step answers the offscreen; the message answers 1 only when
        // that is none.
        return DrawTerm(reinterpret_cast<void *>(p1)) == nullptr ? 1 : 0;
    case DRAW_RENDER:
        return DrawRender();
    default:
        return 0;
    }
}

// The platform filter of this platform only answers.
namespace mivo4::platform {

uint32_t NoInit(uint32_t h, const char *, EXPORT_OPTIONS *, uint32_t *h2, ZHANDLE *c,
                LPDDENTRY32 *dd32, LPPLATFORMESCAPE *e) {
    if (h2 != nullptr) *h2 = 0;
    if (c != nullptr) *c = 0;
    if (dd32 != nullptr) *dd32 = nullptr;
    if (e != nullptr) *e = nullptr;
    return h;
}
int32_t NoTerm(uint32_t) { return 0; }
uint32_t NoMetaFile(uint32_t, LPPLATFORMESCAPE) { return 0; }
int32_t NoDelete(uint32_t) { return 0; }

MetafileFilter &Filter() {
    static MetafileFilter filter{NoInit, NoTerm, NoMetaFile, NoDelete};
    return filter;
}

}  // namespace mivo4::platform

uint32_t InitPlatformMetafileFilter(uint32_t h, const char *path, EXPORT_OPTIONS *lpExport,
                                    uint32_t *h2, ZHANDLE *c, LPDDENTRY32 *dd32, LPPLATFORMESCAPE *e) {
    return mivo4::platform::Filter().init(h, path, lpExport, h2, c, dd32, e);
}
int32_t TermPlatformMetafileFilter(uint32_t h) { return mivo4::platform::Filter().term(h); }
uint32_t GetMetaFileHandle(uint32_t hDC, LPPLATFORMESCAPE e) {
    return mivo4::platform::Filter().metafile(hDC, e);
}
int32_t DeleteMetaFileHandle(uint32_t hMF) { return mivo4::platform::Filter().remove(hMF); }
