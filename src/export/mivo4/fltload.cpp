// The entry-point table handed to the host, and the module's identity.
#include <mivo4/bitmap.h>
#include <mivo4/filter.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>

#include <array>

uint32_t hDLLModule = 0;
char export_szDLLName[260] = "";

namespace {
char gFilterName[] = "mivo4";
}
char *szFilter = gFilterName;

namespace {

void *fn(auto *function) { return reinterpret_cast<void *>(function); }

// Nine entries in this order; identifier 1007 is deliberately absent.
const std::array<FLTENTRY, FLT_ENTRY_COUNT> kEntries{{
    {"CreateSetup", FLT_ID_CREATESETUP, fn(&CreateSetup)},
    {"DestroySetup", FLT_ID_DESTROYSETUP, fn(&DestroySetup)},
    {"EditSetup", FLT_ID_EDITSETUP, fn(&EditSetup)},
    {"EscapeSetup", FLT_ID_ESCAPESETUP, fn(&xEscapeSetup)},
    {"ZEPGetFilterVersion", FLT_ID_GETFILTERVERSION, fn(&ZEPGetFilterVersion)},
    {"dd_entry", FLT_ID_DD_ENTRY, fn(&dd_entry)},
    {"RASTER_dd_entry", FLT_ID_RASTER_DD_ENTRY, fn(&RASTER_dd_entry)},
    {"ExportCellData", FLT_ID_EXPORTCELLDATA, fn(&ExportCellData)},
    {"szDLLName", FLT_ID_DLLNAME, export_szDLLName},
}};

}  // namespace

void fltLoadPointers(FLTPOINTERS *p) {
    if (p == nullptr) return;
    p->wCount = FLT_ENTRY_COUNT;
    p->lpEntries = kEntries.data();
}

uint32_t ZEPGetFilterVersion(void) { return MIVO4_FILTER_VERSION; }
