// Progress reports to the host and the user's wish to stop, through the
// status function in the host's export options.
#include <mivo4/export.h>
#include <mivo4/raster.h>
#include <mivo4/util.h>

#include "export/raster/element.h"

namespace {

// Asks the host once; a non-zero answer means the user stopped the output.
int32_t ask(const MoRastData &s, int32_t progress) {
    const EXPORT_OPTIONS *x = s.lpExport;
    int32_t answer = CallGetSet_Status(x->GetSet_Status, x->hDialog, 0, 0, 0, progress, 0, 0);
    if (answer == 0) return 0;
    push_er(RASTER_ERR_STOPPED);
    return RASTER_ERR_STOPPED;
}

// The share of the picture's rows received so far, in percent (the host's
// progress display runs from 0 to 100). Rows may arrive from either end of
// the picture, so the value is kept inside the range.
int32_t progress(const MoRastData &s) {
    if (s.Height == 0) return 0;
    int64_t rows = s.CurrentScanLine < 0 ? 0 : s.CurrentScanLine;
    if (rows > static_cast<int64_t>(s.Height)) rows = s.Height;
    return static_cast<int32_t>(rows * 100 / s.Height);
}

}  // namespace

int32_t escape(void) {
    const MoRastData *s = mivo4::driver::State();
    if (s == nullptr || s->lpExport == nullptr) return 0;
    return ask(*s, progress(*s));
}

int32_t RASTER_escape(void) {
    const MoRastData *s = mivo4::driver::State();
    if (s == nullptr || s->lpExport == nullptr) return 0;
    return ask(*s, 0);
}
