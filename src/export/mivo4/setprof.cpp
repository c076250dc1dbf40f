// Setup records: creation, the current record, defaults and destruction.
#include <mivo4/memory.h>
#include <mivo4/profile.h>
#include <mivo4/setup.h>
#include <mivo4/util.h>

#include <cstring>

#include "export/mivo4/modlock.h"
#include "export/mivo4/setupreg.h"
#include "zep_xxxx/text.h"

ZHANDLE hRaster = 0;
Gp4_SetupData *lpRaster = nullptr;

namespace {

// "NAME.ini" from the module's own file path: its base name cut at the first ".".
void profileNameFromModule(char *out, size_t size) {
    char base[sizeof export_szDLLName + 4];
    s_getname(base, export_szDLLName);
    if (char *dot = std::strchr(base, '.')) *dot = '\0';
    std::strcat(base, ".ini");
    mivo4::copyText(out, size, base);
}

}  // namespace

ZHANDLE CreateSetup(uint32_t, const char *lpszProfile, const char *lpszDriver, const char *) {
    mivo4::ModuleLock lock;
    ZHANDLE handle = GlobalAlloc(GHND, sizeof(Gp4_SetupData));
    if (handle == 0) return 0;
    // A setup that could not be recorded could never be used: as if the
    // record itself could not be had.
    if (!mivo4::setup::Register(handle)) {
        GlobalFree(handle);
        return 0;
    }
    hRaster = handle;
    lpRaster = static_cast<Gp4_SetupData *>(GlobalLock(handle));
    strupr(szFilter);
    Gp4_SetupData *s = lpRaster;

    if (lpszProfile != nullptr && lpszProfile[0] != '\0') {
        mivo4::copyText(s->szProfile, sizeof s->szProfile, lpszProfile);
    } else {
        profileNameFromModule(s->szProfile, sizeof s->szProfile);
    }

    if (GetProfileDirectory(s->szProfile, export_szDLLName) != 0) {
        // No profile anywhere: the defaults, and the record stays locked as the
        // current one.
        s->szProfile[0] = '\0';
        UseDefaultSettings(s);
        return handle;
    }
    if (lpszDriver != nullptr && lpszDriver[0] != '\0') {
        mivo4::copyText(s->szDriver, sizeof s->szDriver, lpszDriver);
    } else {
        char modeKey[16];
        LoadString(hDLLModule, 1, modeKey, sizeof modeKey);  // "~Mode"
        GetPrivateProfileString(szFilter, modeKey, "", s->szDriver, sizeof s->szDriver - 1,
                                s->szProfile);
    }
    // A mode that does not exist loads nothing: the record keeps its zero fill.
    LoadProfile(1);
    GlobalUnlock(handle);
    return handle;
}

int32_t EditSetup(ZHANDLE hSetup, ZEPFARPROC pfnHelp, uint32_t) {
    mivo4::ModuleLock lock;
    Gp4_SetupData *setup = mivo4::setup::Lock(hSetup);
    if (setup == nullptr) return -1;
    hRaster = hSetup;
    lpRaster = setup;  // stays locked: it is the current record now
    setup->lpfnHelpHook = pfnHelp;
    return 0;
}

int32_t DestroySetup(ZHANDLE hSetup) {
    mivo4::ModuleLock lock;
    Gp4_SetupData *setup = mivo4::setup::Lock(hSetup);
    if (setup == nullptr) return 1;
    mivo4::setup::Forget(hSetup);
    // The record owns the coder's reference row; it goes with the record.
    GlobalFree(setup->gp4_refLine);
    GlobalUnlock(hSetup);
    GlobalFree(hSetup);
    if (hRaster == hSetup) hRaster = 0;
    lpRaster = nullptr;
    return 0;
}

// The defaults pair resolution mode 779 with 96 dots per inch until a profile
// is loaded; szHeader is left as it is.
int32_t UseDefaultSettings(Gp4_SetupData *p) {
    if (p == nullptr) return 0;
    p->szDriver[0] = '\0';
    p->szProfile[0] = '\0';
    p->szBackup[0] = '\0';
    char tag[sizeof p->out_type + 2];
    mivo4::copyText(tag, sizeof p->out_type - 2, szFilter);
    std::strcat(tag, ".1");
    mivo4::copyText(p->out_type, sizeof p->out_type, tag);
    strupr(p->out_type);
    p->EndDialog = 0;
    p->lpfnHelpHook = nullptr;
    p->lpfnGetSetStatus = nullptr;
    p->nColorMode = 103;
    p->SizeMode = SIZE_USER;
    p->ResMode = RES_300;
    p->XResolution = 96;
    p->YResolution = 96;
    p->PrintWidth = 6.67;
    p->PrintHeight = 5.0;
    p->DevFontAttrMax = 0;
    return 0;
}
