// Driver termination: the device is closed if still open, then the element
// buffer and the state record go.
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include "export/raster/element.h"

int32_t RASTER_termdvr(void) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return 0;  // never initialised, or already terminated
    if (s->dvrstate != DVR_INITIALISED) d_cldv(nullptr);
    // An image still open owns its bitmap.
    if (s->bInCellArray != 0) GlobalFree(s->hBuffer);
    s->hBuffer = 0;
    s->bInCellArray = 0;
    if (s->hDvrBuf != 0) {
        GlobalUnlock(s->hDvrBuf);
        GlobalFree(s->hDvrBuf);
    }
    s->hDvrBuf = 0;
    s->lpDvrBuf = nullptr;
    s->DvrBufSz = 0;
    FreeGlobal(0);
    // The setup stays the host's; the driver no longer reads it.
    lpSetup = nullptr;
    return 0;
}
