// Begin picture (function code 3).
#include <mivo4/raster.h>

#include "export/raster/element.h"

void *d_begp(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    s->dvrstate = DVR_PICTURE_BEGUN;
    // TODO: restore the per-picture attributes to their defaults (d_reset).
    return data;
}
