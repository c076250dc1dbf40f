// Close device (function code 2): back to the initialised state.
#include <mivo4/raster.h>

#include "export/raster/element.h"

void *d_cldv(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    s->dvrstate = DVR_INITIALISED;
    // TODO: close hFile; after a stop reported by RASTER_escape() close it and
    // delete the file, else push 303 when the close fails.
    return data;
}
