// Option escapes: the host sets or queries one option of a setup at a time,
// and may ask for the new value to be kept in the setup's profile.
#include <mivo4/memory.h>
#include <mivo4/profile.h>
#include <mivo4/setup.h>
#include <mivo4/sink.h>

#include <cstdio>
#include <cstring>

#include "export/mivo4/modlock.h"
#include "export/mivo4/rasinfo.h"
#include "export/mivo4/setupreg.h"

namespace {

constexpr int32_t kHandled = 1, kNotHandled = 0, kRefused = -1;

// String-table identifiers of the keys the escapes write under. 18 and 19 are
// not in the table, so both resolutions are kept under the fallback key
// "Not Defined", one over the other: that is how these profiles look.
constexpr uint32_t kColorModeKey = 11, kXResolutionKey = 18, kYResolutionKey = 19, kWidthKey = 20,
                   kHeightKey = 21;

void keep(const Gp4_SetupData &s, uint32_t keyId, const char *value) {
    char key[64];
    LoadString(hDLLModule, keyId, key, sizeof key);
    WritePrivateProfileString(s.szDriver, key, value, s.szProfile);
}

template <class T>
bool readIn(const void *in, int32_t nCount, int32_t size, T &value) {
    if (in == nullptr || nCount != size) return false;
    std::memcpy(&value, in, sizeof value);
    return true;
}

int32_t colorMode(Gp4_SetupData &s, const void *in, int32_t nCount, bool retain) {
    int32_t v;
    if (!readIn(in, nCount, 4, v) || v < 101 || v > 105) return kRefused;
    s.nColorMode = v + 2;
    if (retain) {
        char text[16];
        std::snprintf(text, sizeof text, "%d", s.nColorMode);
        keep(s, kColorModeKey, text);
    }
    return kHandled;
}

int32_t resolution(Gp4_SetupData &s, int16_t &field, uint32_t keyId, const void *in,
                   int32_t nCount, bool retain) {
    int32_t v;
    if (!readIn(in, nCount, 4, v) || v < 32 || v > 400) return kRefused;
    field = static_cast<int16_t>(v);
    if (retain) {
        char text[16];
        std::snprintf(text, sizeof text, "%d", v);
        keep(s, keyId, text);
    }
    return kHandled;
}

int32_t inches(Gp4_SetupData &s, double &field, uint32_t keyId, const char *format,
               const void *in, int32_t nCount, bool retain) {
    double v;
    if (!readIn(in, nCount, 8, v) || !(v >= 0.03125 && v <= 22.0)) return kRefused;
    field = v;
    if (retain) {
        char text[64];
        // The width's format puts ".3" in front of the value (6.67 is kept as
        // ".36.67" and read back as 0.36); profiles have always been written so.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::snprintf(text, sizeof text, format, v);
#pragma GCC diagnostic pop
        keep(s, keyId, text);
    }
    return kHandled;
}

int32_t resolutionMode(Gp4_SetupData &s, const void *in, int32_t nCount) {
    // One value (4 bytes) or two (8 bytes or more): a count between the two
    // cannot hold the second value and is not read as if it did.
    if (in == nullptr || nCount < 4 || (nCount > 4 && nCount < 8)) return kRefused;
    int32_t values[2] = {0, 0};
    std::memcpy(&values[0], in, 4);
    bool hasUser = nCount >= 8;
    if (hasUser) std::memcpy(&values[1], static_cast<const uint8_t *>(in) + 4, 4);
    int32_t mode = values[0];
    if (mode < RES_200 || mode > RES_USER2) return kRefused;
    if (mode >= RES_USER) {
        // The user's resolution must be a usable one: it divides sizes later.
        if (hasUser && (values[1] < 1 || values[1] > INT16_MAX)) return kRefused;
        s.ResMode = mode;
        if (hasUser) SetResByResMode(&s.XResolution, &s.YResolution, mode, values[1]);
        return kHandled;
    }
    s.ResMode = mode;
    SetResByResMode(&s.XResolution, &s.YResolution, mode, 0);
    return kHandled;
}

int32_t escape(Gp4_SetupData &s, int32_t nEscape, int32_t nCount, void *in, void *out,
               bool retain) {
    switch (nEscape) {
    case ESC_COLOR_MODE:
        return colorMode(s, in, nCount, retain);
    case ESC_X_RESOLUTION:
        return resolution(s, s.XResolution, kXResolutionKey, in, nCount, retain);
    case ESC_Y_RESOLUTION:
        return resolution(s, s.YResolution, kYResolutionKey, in, nCount, retain);
    case ESC_WIDTH:
        return inches(s, s.PrintWidth, kWidthKey, ".3%g", in, nCount, retain);
    case ESC_HEIGHT:
        return inches(s, s.PrintHeight, kHeightKey, "%.3g", in, nCount, retain);
    case ESC_SIZE_QUERY: {
        if (out == nullptr) return kRefused;
        double size[2] = {0.0, 0.0};
        if (s.SizeMode != SIZE_USER) {
            size[0] = s.PrintWidth;
            size[1] = s.PrintHeight;
        }
        std::memcpy(out, size, sizeof size);
        return kHandled;
    }
    case ESC_RES_SPECIAL: {
        int32_t v;
        if (!readIn(in, nCount, 4, v)) return kRefused;
        if (v == 3) s.ResMode = 310;
        return kHandled;
    }
    case ESC_SIZE_MODE: {
        int32_t v;
        if (!readIn(in, nCount, 4, v)) return kRefused;
        if (v >= 0 && v <= 3) s.SizeMode = SIZE_SCREEN + v;
        return kHandled;
    }
    case ESC_RASTER_INFO: {
        if (in == nullptr || out == nullptr) return kRefused;
        if (nCount < static_cast<int32_t>(sizeof(zepRasterInfoInput))) return kRefused;
        // The query answers for the current setup, as GetRasterInfo does,
        // whatever setup carried the escape; with none there is nothing to
        // answer from.
        if (lpRaster == nullptr) return kRefused;
        zepRasterInfoInput rin;
        std::memcpy(&rin, in, sizeof rin);
        _outdata rout{};
        mivo4::RasterInfo(*lpRaster, rin, rout);
        std::memcpy(out, &rout, sizeof rout);
        return kHandled;
    }
    case ESC_COLOR_QUERY: {
        if (out == nullptr || nCount != 4) return kRefused;
        // The answer is written in every case; outside 103..107 it means nothing.
        int32_t v = s.nColorMode - 2;
        std::memcpy(out, &v, sizeof v);
        return s.nColorMode >= COLOR_MODE_FIRST && s.nColorMode <= COLOR_MODE_LAST ? kHandled
                                                                                    : kRefused;
    }
    case ESC_RES_MODE:
        return resolutionMode(s, in, nCount);
    case ESC_OUTPUT_CALLBACK:
        if (nCount != 4) return kRefused;
        // The data pointer is the callback itself, taken as given.
        s.pIOCBProc = reinterpret_cast<LPZEPCALLBACK>(in);
        return kHandled;
    default:
        return kNotHandled;
    }
}

}  // namespace

int32_t xEscapeSetup(ZHANDLE hSetup, int32_t nEscape, int32_t nCount, void *lpInData,
                     void *lpOutData, int32_t Retain) {
    if (hSetup == 0) return kRefused;
    mivo4::ModuleLock lock;
    Gp4_SetupData *s = mivo4::setup::Lock(hSetup);
    if (s == nullptr) return kRefused;
    int32_t result = escape(*s, nEscape, nCount, lpInData, lpOutData, Retain != 0);
    GlobalUnlock(hSetup);
    return result;
}
