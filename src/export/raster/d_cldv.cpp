// Close device (function code 2): back to the initialised state. A device
// closed after the user stopped loses its output; otherwise a close that
// fails is reported.
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/stream.h>

#include "export/raster/device.h"
#include "export/raster/element.h"

void *d_cldv(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    s->dvrstate = DVR_INITIALISED;
    const HZEPIO h = s->hFile;
    s->hFile = 0;
    if (lpSetup != nullptr && lpSetup->FileHandle == h) lpSetup->FileHandle = 0;
    if (RASTER_escape() != 0) {
        zepCloseandDelete(h, s->szFileName);
        mivo4::driver::ReleaseMemoryOutput(false);
        return data;
    }
    if (zepClose(h) != 0) push_er(RASTER_ERR_OUTPUT);
    mivo4::driver::ReleaseMemoryOutput(true);
    return data;
}
