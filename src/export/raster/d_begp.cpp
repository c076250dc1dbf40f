// Begin picture (function code 3): every picture starts from the attributes
// of a freshly initialised driver.
#include <mivo4/raster.h>

#include "export/raster/element.h"

void *d_begp(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    s->dvrstate = DVR_PICTURE_BEGUN;
    d_reset(0, 4);
    return data;
}
