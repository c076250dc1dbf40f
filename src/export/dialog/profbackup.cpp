// The profile backup step of the setup code, and the profile list of the
// setup dialog.
#include <mivo4/display.h>
#include <mivo4/util.h>

#include "zep_xxxx/text.h"

// The profile name moves to szBackup and a fresh temporary name takes its
// place. (The directory part written into szProfile first is overwritten at
// once by the temporary name.)
int32_t BackupProfile(Gp4_SetupData *lpSetup) {
    if (lpSetup == nullptr) return 1;
    mivo4::copyText(lpSetup->szBackup, sizeof lpSetup->szBackup, lpSetup->szProfile);
    char path[sizeof lpSetup->szProfile];
    s_getpath(path, lpSetup->szProfile);
    mivo4::copyText(lpSetup->szProfile, sizeof lpSetup->szProfile, path);
    char temp[260];
    if (ZEPGetTempFileName(0, nullptr, 0, temp) == 1)
        mivo4::copyText(lpSetup->szProfile, sizeof lpSetup->szProfile, temp);
    return 1;
}

// There is no dialog on this platform, so there is no list to fill: the call
// lists nothing and answers 0 entries.
int32_t LoadProfileList(Gp4_SetupData *, uint32_t, uint16_t) { return 0; }
