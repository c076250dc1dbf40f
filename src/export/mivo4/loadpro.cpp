// Filling the current setup from its profile.
#include <mivo4/display.h>
#include <mivo4/profile.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>

#include <cstdlib>
#include <cstring>

#include "export/mivo4/modlock.h"

namespace {

// The key of a string-table identifier.
struct Key {
    explicit Key(uint32_t id) { LoadString(hDLLModule, id, text, sizeof text); }
    char text[64];
};

constexpr uint32_t kDriverKey = 4, kColorModeKey = 11, kResolutionModeKey = 17, kWidthKey = 20,
                   kHeightKey = 21, kSizeModeKey = 23, kLineModeKey = 24;
// Identifier 25 has no entry: the user's resolution lives under the fallback
// text "Not Defined", which is therefore the key's real name.
constexpr uint32_t kUserResolutionKey = 25;

}  // namespace

int32_t LoadProfile(int32_t) {
    mivo4::ModuleLock lock;
    Gp4_SetupData *s = lpRaster;
    if (s == nullptr) return 0;
    const char *section = s->szDriver;
    const char *file = s->szProfile;

    // A mode without a "Driver" key does not exist: nothing is loaded.
    char driver[sizeof s->out_type + 1] = "";
    if (GetPrivateProfileString(section, Key(kDriverKey).text, "", driver, sizeof s->out_type - 1,
                                file) == 0)
        return 0;
    std::memcpy(s->out_type, driver, sizeof s->out_type);

    s->nColorMode = GetPrivateProfileInt(section, Key(kColorModeKey).text, 103, file);
    s->SizeMode = GetPrivateProfileInt(section, Key(kSizeModeKey).text, SIZE_USER, file);
    s->ResMode = GetPrivateProfileInt(section, Key(kResolutionModeKey).text, RES_300, file);
    s->nLineMode = GetPrivateProfileInt(section, Key(kLineModeKey).text, 119, file);
    s->GreyThreshold = static_cast<uint32_t>(GetPrivateProfileInt(section, "Grey Threshold", 0, file));
    int32_t userdpi = GetPrivateProfileInt(section, Key(kUserResolutionKey).text, 400, file);

    SetResByResMode(&s->XResolution, &s->YResolution, s->ResMode, userdpi);
    if (s->SizeMode == SIZE_PRINTER && s->IHaveAPrinter == 0) s->SizeMode = SIZE_SCREEN;

    if (s->SizeMode == SIZE_SCREEN) {
        GetDisplayInfo(&s->PrintWidth, &s->PrintHeight, nullptr, nullptr);
    } else if (s->SizeMode == SIZE_PRINTER) {
        GetPrinterInfo(&s->PrintWidth, &s->PrintHeight, nullptr, nullptr);
    } else {
        char text[31] = "";
        GetPrivateProfileString(section, Key(kWidthKey).text, "6.67", text, 30, file);
        s->PrintWidth = std::atof(text);
        std::memset(text, 0, sizeof text);
        GetPrivateProfileString(section, Key(kHeightKey).text, "5.0", text, 30, file);
        s->PrintHeight = std::atof(text);
    }
    return 1;
}
