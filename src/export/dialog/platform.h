// The host platform's metafile filter as the GP4 driver sees it. On this
// platform it has no body; tests put a recording stand-in in its place.
#pragma once

#include <mivo4/output.h>

namespace mivo4::platform {

struct MetafileFilter {
    uint32_t (*init)(uint32_t h, const char *path, EXPORT_OPTIONS *lpExport, uint32_t *h2,
                     ZHANDLE *c, LPDDENTRY32 *dd32, LPPLATFORMESCAPE *e);
    int32_t (*term)(uint32_t h);
    uint32_t (*metafile)(uint32_t hDC, LPPLATFORMESCAPE e);
    int32_t (*remove)(uint32_t hMF);
};

// The filter in use; tests may replace its entries and must put them back.
MetafileFilter &Filter();

uint32_t NoInit(uint32_t h, const char *path, EXPORT_OPTIONS *lpExport, uint32_t *h2, ZHANDLE *c,
                LPDDENTRY32 *dd32, LPPLATFORMESCAPE *e);
int32_t NoTerm(uint32_t h);
uint32_t NoMetaFile(uint32_t hDC, LPPLATFORMESCAPE e);
int32_t NoDelete(uint32_t hMF);

}  // namespace mivo4::platform
