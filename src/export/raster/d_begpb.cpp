// Begin picture body (function code 4).
#include <mivo4/raster.h>

#include "export/raster/element.h"

void *d_begpb(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s != nullptr) s->dvrstate = DVR_BODY_BEGUN;
    return data;
}
