// Open device (function code 1): a fresh error stack and the device-open state.
#include <mivo4/raster.h>

#include "export/raster/element.h"

void *d_opdv(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    d_empes(data);
    s->dvrstate = DVR_DEVICE_OPEN;
    // TODO: open the output stream into hFile: the host's callback stream when
    // the setup has pIOCBProc, else the named file, else a growing memory block.
    return data;
}
