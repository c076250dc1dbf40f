// Driver initialisation: the state record, the setup, the host's progress
// display, the element buffer and the support table handed to the host.
#include <mivo4/export.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>
#include <mivo4/util.h>

#include "export/raster/element.h"
#include "export/raster/global.h"

#include <cstring>

Rast_SetupData *lpSetup = nullptr;

// Support flags per index of VInitDriver.InqSupData. Indices not listed are
// left as the host set them; index 47 is overwritten with the colour mode.
const VINQ_FUNCTION_LIST InqFunctionList[DVR_INQ_FUNCTION_COUNT] = {
    {0, 100},
    {1, 0xFFFFFFFFu},  {2, 0xFFFFFFFFu},  {3, 0xFFFFFFFFu},  {4, 0xFFFFFFFFu},
    {5, 0},
    {9, 0xFFFFFFFFu},  {10, 0xFFFFFFFFu}, {11, 0xFFFFFFFFu}, {12, 0xFFFFFFFFu},
    {13, 0xFFFFFFFFu}, {14, 0xFFFFFFFFu}, {15, 0xFFFFFFFFu}, {16, 0xFFFFFFFFu},
    {17, 0xFFFFFFFFu}, {18, 0xFFFFFFFFu},
    {19, 0},           {20, 0},           {21, 0},           {22, 0},
    {23, 0xFFFFFFFFu}, {24, 0xFFFFFFFFu}, {25, 0xFFFFFFFFu}, {26, 0xFFFFFFFFu},
    {27, 0xFFFFFFFFu}, {28, 0xFFFFFFFFu}, {29, 0xFFFFFFFFu},
    {31, 0},
    {32, 0xFFFFFFFFu}, {33, 0xFFFFFFFFu},
    {34, 0},           {35, 0},
    {36, 0xFFFFFFFFu}, {37, 0xFFFFFFFFu},
    {38, 1},           {39, 1},
    {40, 0},
    {41, 0xFFFFFFFFu},
    {44, 0},
    {45, 0xFFFFFFFFu},
    {55, 0},           {56, 0},
    {57, 0xFFFFFFFFu},
    {58, 0},
    {59, 0xFFFFFFFFu},
    {47, 0},
};

namespace {

static_assert(sizeof(MoRastData) <= mivo4::kEMDataSize, "the state record block holds the record");

// Colour modes 103..107 of the setup become 0..4; anything else leaves the
// driver's mode as it is.
void takeColorMode(MoRastData &s, const Rast_SetupData &setup) {
    if (setup.nColorMode >= COLOR_MODE_FIRST && setup.nColorMode <= COLOR_MODE_LAST)
        s.ColorMode = setup.nColorMode - COLOR_MODE_FIRST;
}

// Undoes a failed initialisation: no state record and no setup stay behind.
int32_t fail() {
    FreeGlobal(0);
    lpSetup = nullptr;
    return RASTER_ERR_MEMORY;
}

}  // namespace

int32_t RASTER_initdvr(VInitDriver *InitDvr) {
    // Without the record there is nothing to start from: refused like a lack
    // of memory, before anything is made.
    if (InitDvr == nullptr) return RASTER_ERR_MEMORY;

    AllocGlobal(0);
    MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return fail();

    // The setup must lock: a handle that does not is memory that cannot be
    // locked, and nothing later could read the user's choices.
    lpSetup = static_cast<Rast_SetupData *>(GlobalLock(InitDvr->setup));
    if (lpSetup == nullptr) return fail();
    s->hSetup = InitDvr->setup;
    takeColorMode(*s, *lpSetup);
    // The setup of the driver is the one the sink and the coder read: it
    // becomes the module's current setup, with the host's export options of
    // this session (an earlier export's options may no longer exist).
    hRaster = InitDvr->setup;
    lpRaster = lpSetup;
    lpSetup->lpExport = InitDvr->export_;

    // Start the host's progress display (0 to 100).
    s->lpExport = InitDvr->export_;
    if (s->lpExport != nullptr && s->lpExport->GetSet_Status != nullptr && s->lpExport->hDialog != 0)
        CallGetSet_Status(s->lpExport->GetSet_Status, s->lpExport->hDialog, 0, -2, 100, 0, 0, 0);

    s->DvrBufSz = InitDvr->elbufsz;
    s->hDvrBuf = GlobalAlloc(GHND, s->DvrBufSz);
    s->lpDvrBuf = static_cast<uint8_t *>(GlobalLock(s->hDvrBuf));
    if (s->lpDvrBuf == nullptr) {
        GlobalFree(s->hDvrBuf);
        InitDvr->elbuf = nullptr;
        return fail();
    }
    InitDvr->elbuf = s->lpDvrBuf;

    // The connection name is cut to the record's 144 bytes, terminator included.
    if (InitDvr->connect != nullptr) {
        std::strncpy(s->szFileName, InitDvr->connect, sizeof s->szFileName - 1);
        s->szFileName[sizeof s->szFileName - 1] = '\0';
    }
    s->dvrstate = DVR_INITIALISED;

    if (InitDvr->InqSupData != nullptr) {
        for (const VINQ_FUNCTION_LIST &row : InqFunctionList)
            InitDvr->InqSupData[row.function] = row.supFlags;
        InitDvr->InqSupData[DVR_INQ_COLORMODE] = static_cast<uint32_t>(s->ColorMode);
    }
    return 0;
}
