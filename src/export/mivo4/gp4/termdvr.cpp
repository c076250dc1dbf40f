// Closing the GP4 output on the metafile path: the recorded picture is
// rendered through the band pipeline, then the output is closed. Also the
// progress report shared by the writers.
#include <mivo4/gp4drv.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>

#include "export/mivo4/expstat.h"
#include "export/mivo4/gp4/gp4drv_state.h"
#include "export/mivo4/modlock.h"

namespace {
constexpr int32_t kNothingToDraw = 300, kNoOutput = 303, kStopped = 901;
}

int32_t UpdateStatus(int32_t Temp) {
    const Gp4_SetupData *s = lpRaster;
    if (s == nullptr || s->lpExport == nullptr || s->lpExport->GetSet_Status == nullptr) return 0;
    const EXPORT_OPTIONS *x = s->lpExport;
    return CallGetSet_Status(x->GetSet_Status, x->hDialog, 0, 0, 0, Temp, 0, 0) != 0 ? kStopped : 0;
}

int32_t termdvr(void *) {
    namespace status = mivo4::exportstatus;
    mivo4::ModuleLock lock;
    Gp4_SetupData *s = lpRaster;
    if (s == nullptr) {
        status::EndedEarly(MIVO4_EXPORT_NOTHING);
        return kNothingToDraw;
    }
    mivo4::gp4::DriverState &d = mivo4::gp4::Driver();

    _metafile picture{};
    picture.pinfo.hMF = GetMetaFileHandle(s->hDC, d.escapeEntry);
    if (const EXPORT_OPTIONS *x = s->lpExport) {
        picture.pinfo.bBox = RECT{x->Left, x->Top, x->Right, x->Bottom};
        picture.pinfo.Inch = x->Inch;
    }
    picture.srcinfo.bBox = DDCRECT{s->Window.p1.x, s->Window.p2.y, s->Window.p2.x, s->Window.p1.y};
    picture.srcinfo.Inch = roundd(s->Scale);
    picture.hPlatDefined = s->hPlatHandle;

    int32_t result;
    int32_t early = MIVO4_EXPORT_NONE;  // how it ended when no picture was output
    if (picture.pinfo.hMF == 0 || escape() != 0) {
        result = kNothingToDraw;
        early = picture.pinfo.hMF == 0 ? MIVO4_EXPORT_NOTHING : MIVO4_EXPORT_STOPPED;
    } else {
        result = OutputPicture(s->FileHandle, &picture, DrawPlatformMetafile);
        if (escape() != 0) early = MIVO4_EXPORT_STOPPED;
        // Stopped while rendering: the output file is removed (its stream is
        // closed below).
        if (escape() != 0) zepOpen(reinterpret_cast<const char *>(s->FileName), nullptr, ZEP_OPEN_DELETE);
    }
    DeleteMetaFileHandle(picture.pinfo.hMF);
    int32_t platform = TermPlatformMetafileFilter(s->hInst);

    int32_t rendered = result;
    bool closed = true;
    if (s->FileHandle != 0) {
        if (status::StreamInError(s->FileHandle)) status::StreamFailed(s->FileHandle);
        if (zepClose(s->FileHandle) != 0) {
            result = kNoOutput;
            closed = false;
        }
        s->FileHandle = 0;
    }
    if (early != MIVO4_EXPORT_NONE) {
        status::EndedEarly(early);
    } else {
        status::Finish(rendered, closed);
    }
    // A memory-block output went to the host through the export options; the
    // block may have moved while it grew, so the host gets its final handle.
    if (d.memoryOutput != nullptr) {
        if (s->lpExport != nullptr) s->lpExport->hMF = GlobalHandle(d.memoryOutput);
        d.memoryOutput = nullptr;
    }
    if (result == 0) result = platform;
    GlobalFree(s->gp4_refLine);
    s->gp4_refLine = 0;
    d.escapeEntry = nullptr;
    return result;
}
