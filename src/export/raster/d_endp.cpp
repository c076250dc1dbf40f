// End picture (function code 5).
#include <mivo4/raster.h>

#include "export/raster/element.h"

void *d_endp(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s != nullptr) s->dvrstate = DVR_PICTURE_ENDED;
    return data;
}
