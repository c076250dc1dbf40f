// Close device (function code 2): back to the initialised state. A device
// closed after the user stopped loses its output; otherwise a close that
// fails is reported.
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/stream.h>

#include "export/mivo4/expstat.h"
#include "export/raster/device.h"
#include "export/raster/element.h"

void *d_cldv(void *data) {
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    s->dvrstate = DVR_INITIALISED;
    const HZEPIO h = s->hFile;
    s->hFile = 0;
    if (lpSetup != nullptr && lpSetup->FileHandle == h) lpSetup->FileHandle = 0;
    namespace status = mivo4::exportstatus;
    if (RASTER_escape() != 0) {
        zepCloseandDelete(h, s->szFileName);
        mivo4::driver::ReleaseMemoryOutput(false);
        status::EndedEarly(MIVO4_EXPORT_STOPPED);
        return data;
    }
    if (h != 0 && status::StreamInError(h)) status::StreamFailed(h);
    const bool closed = zepClose(h) == 0;
    if (!closed) push_er(RASTER_ERR_OUTPUT);
    mivo4::driver::ReleaseMemoryOutput(true);
    // How the session ended, for the host's status inquiry: no output, no
    // picture, or as the last picture went.
    const mivo4::driver::DeviceOutput &d = mivo4::driver::Device();
    if (h == 0) status::EndedEarly(MIVO4_EXPORT_WRITE_FAILED);
    else if (!d.pictured) status::EndedEarly(MIVO4_EXPORT_NOTHING);
    else status::Finish(d.rendered, closed);
    return data;
}
