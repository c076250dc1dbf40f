// The per-picture attributes back to what a freshly initialised driver has:
// device window and viewport, metric scale, background, colour table, the
// row position and the picture bitmap. A host sets what it needs after
// beginning a picture.
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include "export/raster/element.h"

#include <cstring>

void d_reset(int32_t, int32_t) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return;
    std::memset(&s->dtr, 0, sizeof s->dtr);
    s->inch = 0;
    s->Bgc = VCD{0, 0, 0};
    std::memset(s->ColorTable, 0, sizeof s->ColorTable);
    s->CurrentScanLine = 0;
    // An image left open by an earlier picture owns its bitmap: it goes, so
    // that nothing later reaches a freed block. Outside an image the field only
    // remembers the last single cell array's block, which is already freed.
    if (s->bInCellArray != 0) {
        GlobalUnlock(s->hBuffer);
        GlobalFree(s->hBuffer);
    }
    s->hBuffer = 0;
    s->bInCellArray = 0;
    s->ColorSpecMode = 0;
    s->Width = 0;
    s->Height = 0;
    s->BitsPerPixel = 0;
}
