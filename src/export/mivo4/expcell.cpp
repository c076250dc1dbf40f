// The way in for a picture the host already holds as a bitmap: open the
// output, tell the framework the screen, and render the bitmap through the
// band pipeline into a GP4 file.
#include <mivo4/bitmap.h>
#include <mivo4/display.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>

#include "export/mivo4/expstat.h"
#include "export/mivo4/gp4/gp4out.h"
#include "export/mivo4/modlock.h"
#include "export/mivo4/setupreg.h"

namespace {

constexpr int32_t kNoSetup = 22, kNothingToDraw = 300, kNoOutput = 303;

}  // namespace

int32_t ExportCellData(const char *pszFilename, ZEPRaster *r, const zepRasterInfoInput *ri,
                       IMPORT_OPTIONS *pImport) {
    namespace status = mivo4::exportstatus;
    mivo4::ModuleLock lock;
    status::Start();
    if (pImport == nullptr) {
        status::EndedEarly(MIVO4_EXPORT_NOTHING);
        return kNoSetup;
    }
    if (r == nullptr || ri == nullptr) {
        status::EndedEarly(MIVO4_EXPORT_NOTHING);
        return kNothingToDraw;
    }
    // Only a setup made by CreateSetup is taken as one; anything else is an
    // invalid handle, and the current setup stays as it was.
    Gp4_SetupData *s = mivo4::setup::Lock(pImport->hOutputData);
    if (s == nullptr) {
        status::EndedEarly(MIVO4_EXPORT_NOTHING);
        return kNoSetup;
    }
    hRaster = pImport->hOutputData;
    lpRaster = s;
    EXPORT_OPTIONS *x = pImport->lpExport;
    s->lpExport = x;

    // Each export is a new picture: the coder's band state starts as a fresh
    // setup has it, so that a setup used for many exports gives that many
    // complete files.
    mivo4::gp4::ClearBandState(*s);

    // A memory block is handed to the host in the export options; without them
    // there is nowhere to hand it.
    const bool toMemory = s->pIOCBProc == nullptr && (pszFilename == nullptr || pszFilename[0] == '\0');
    if (toMemory && x == nullptr) {
        status::EndedEarly(MIVO4_EXPORT_WRITE_FAILED);
        return kNoOutput;
    }
    uint8_t *memory = nullptr;  // the stream rewrites it whenever the block grows
    mivo4::gp4::Output opened = mivo4::gp4::OpenOutput(*s, x, pszFilename, &memory);
    if (toMemory) x->hMF = opened.memoryBlock;  // 0 when it could not be had
    if (opened.failure != mivo4::gp4::Output::Failure::None || opened.stream == 0) {
        // A memory output that could not be had is memory running out; any
        // other output that does not open is the output's failure.
        status::EndedEarly(toMemory ? MIVO4_EXPORT_NO_MEMORY : MIVO4_EXPORT_WRITE_FAILED);
        return kNoOutput;
    }
    const HZEPIO out = opened.stream;

    SetDisplayInfo(static_cast<double>(ri->screen_width), static_cast<double>(ri->screen_height),
                   static_cast<int16_t>(ri->dpiscreen), static_cast<int16_t>(ri->dpiscreen));
    r->srcwidth = ri->picture_width;
    r->srcheight = ri->picture_height;
    r->srcdpi = static_cast<int16_t>(ri->dpipicture);

    // The result of the rendering is not passed back; the status keeps it.
    int32_t rendered = OutputPicture(out, r, DrawExportCellData);
    // A memory block that could not grow leaves the stream in error; closing
    // it cannot tell.
    bool inError = status::StreamInError(out);
    if (inError) status::StreamFailed(out);
    bool closed = zepClose(out) == 0;
    if (!closed && opened.memoryBlock != 0) {
        // A memory block that cannot take its end marker could not grow.
        status::NoMemory();
        closed = true;
    }
    status::Finish(rendered, closed);
    // As at the GP4 driver's close, the reference row of the finished picture
    // is released.
    GlobalFree(s->gp4_refLine);
    s->gp4_refLine = 0;
    // The block moves each time it grows: the host gets its final handle.
    if (opened.memoryBlock != 0) x->hMF = GlobalHandle(memory);
    return 0;  // the setup stays the current one, locked
}
