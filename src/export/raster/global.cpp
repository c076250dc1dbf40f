// The raster driver's global data block: one state record per process, held
// in hEMData / lpEMData, or supplied by the host through hCommon.
#include <mivo4/memory.h>

#include "export/raster/global.h"

ZHANDLE hEMData = 0;
void *lpEMData = nullptr;
ZHANDLE hCommon = 0;

int32_t AllocGlobal(uint32_t) {
    if (hCommon != 0) return 0;
    hEMData = GlobalAlloc(GHND, mivo4::kEMDataSize);
    lpEMData = GlobalLock(hEMData);
    return 0;
}

int32_t FreeGlobal(uint32_t) {
    if (lpEMData == nullptr) return 0;
    GlobalUnlock(hEMData);
    GlobalFree(hEMData);
    hEMData = 0;
    lpEMData = nullptr;
    return 0;
}

// The block stays locked for its whole life: nothing to do.
int32_t LockGlobal(uint32_t) { return 0; }
int32_t UnlockGlobal(uint32_t) { return 0; }
