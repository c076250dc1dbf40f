// Opening the GP4 output for a setup on the metafile path.
#include <mivo4/gp4drv.h>
#include <mivo4/memory.h>
#include <mivo4/output.h>
#include <mivo4/setup.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>

#include "export/mivo4/expstat.h"
#include "export/mivo4/gp4/gp4drv_state.h"
#include "export/mivo4/gp4/gp4out.h"
#include "export/mivo4/modlock.h"
#include "export/mivo4/setupreg.h"
#include "zep_xxxx/text.h"

namespace mivo4::gp4 {
DriverState &Driver() {
    static DriverState state;
    return state;
}
}  // namespace mivo4::gp4

namespace {

constexpr int32_t kNoSetup = 22, kNoMemoryBlock = 21, kNoOutput = 303;

// The colour-mode code the platform filter understands.
int32_t platformColorMode(int32_t nColorMode) {
    switch (nColorMode) {
    case 104: return 102;
    case 105: return 103;
    case 106: return 104;
    case 107: return 105;
    default: return 101;
    }
}

}  // namespace

int32_t initdvr(VInitDriver *InitDvr) {
    mivo4::ModuleLock lock;
    mivo4::exportstatus::Start();
    if (InitDvr == nullptr) return kNoSetup;
    // Only a setup made by CreateSetup is taken as one.
    Gp4_SetupData *s = mivo4::setup::Lock(InitDvr->setup);
    if (s == nullptr) return kNoSetup;
    hRaster = InitDvr->setup;
    lpRaster = s;

    // A new picture: the coder's band state starts afresh, with a 1-byte
    // reference block that the first band replaces.
    mivo4::gp4::ClearBandState(*s);
    s->gp4_refLine = GlobalAlloc(GHND, 1);
    if (s->gp4_refLine == 0) return kNoSetup;

    mivo4::gp4::DriverState &d = mivo4::gp4::Driver();
    s->lpExport = InitDvr->export_;
    ZHANDLE platformSetup = 0;
    d.escapeEntry = nullptr;
    s->hInst = InitPlatformMetafileFilter(InitDvr->handle, InitDvr->drpath, s->lpExport,
                                          &s->hPlatHandle, &platformSetup, &s->dd_entry32_metafile,
                                          &d.escapeEntry);

    mivo4::copyText(reinterpret_cast<char *>(s->FileName), sizeof s->FileName, InitDvr->connect);
    const char *name = reinterpret_cast<const char *>(s->FileName);
    using Failure = mivo4::gp4::Output::Failure;
    mivo4::gp4::Output out = mivo4::gp4::OpenOutput(*s, s->lpExport, name, &d.memoryOutput);
    // A refused callback open is not checked.
    if (out.failure == Failure::NoMemoryBlock) return kNoMemoryBlock;
    if (out.failure == Failure::NotOpened) return kNoOutput;
    s->FileHandle = out.stream;

    if (InitDvr->connect != nullptr) InitDvr->connect[0] = '\0';
    if (s->lpExport != nullptr) s->hDC = s->lpExport->hDC;
    InitDvr->setup = platformSetup;

    // Tell the platform filter the colour mode, fonts and line mode.
    if (d.escapeEntry != nullptr) {
        int32_t colour = platformColorMode(s->nColorMode);
        int32_t fonts = AltFontsAvailable() != 0 ? 111 : 110;
        int32_t six = 130;
        int32_t three = 1;
        d.escapeEntry(platformSetup, 1, 4, &colour, nullptr, 0);
        d.escapeEntry(platformSetup, 2, 4, &fonts, nullptr, 0);
        d.escapeEntry(platformSetup, 6, 4, &six, nullptr, 0);
        d.escapeEntry(platformSetup, 5, 4, &s->nLineMode, nullptr, 0);
        d.escapeEntry(platformSetup, 3, 4, &three, nullptr, 0);
    }
    return 0;
}
