/* A host exports a bitmap through mivo42.flt. usage: readme_example MODULE OUTPUT.cal */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <mivo4/bitmap.h>
#include <mivo4/filter.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

typedef ZHANDLE (*CreateSetupFn)(uint32_t, const char *, const char *, const char *);
typedef int32_t (*EscapeSetupFn)(ZHANDLE, int32_t, int32_t, void *, void *, int32_t);
typedef int32_t (*DestroySetupFn)(ZHANDLE);
typedef int32_t (*ExportCellDataFn)(const char *, ZEPRaster *, const zepRasterInfoInput *,
                                    IMPORT_OPTIONS *);

static void *entry(const FLTPOINTERS *t, const char *name) {
    for (uint16_t i = 0; i < t->wCount; ++i)
        if (strcmp(t->lpEntries[i].lpszName, name) == 0) return t->lpEntries[i].lpTarget;
    return NULL;
}

int main(int argc, char **argv) {
    if (argc != 3) return 2;
    void *module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (module == NULL) return fprintf(stderr, "%s\n", dlerror()), 1;
    FLTPOINTERS table = {0};
    ((void (*)(FLTPOINTERS *))dlsym(module, "fltLoadPointers"))(&table);
    strncpy((char *)entry(&table, "szDLLName"), argv[1], 259); /* where the module lives */
    CreateSetupFn createSetup = (CreateSetupFn)entry(&table, "CreateSetup");
    EscapeSetupFn escapeSetup = (EscapeSetupFn)entry(&table, "EscapeSetup");
    DestroySetupFn destroySetup = (DestroySetupFn)entry(&table, "DestroySetup");
    ExportCellDataFn exportCellData = (ExportCellDataFn)entry(&table, "ExportCellData");
    /* Pixels and colour tables live in the module's own memory. */
    ZHANDLE (*globalAlloc)(uint32_t, uint32_t) = (ZHANDLE (*)(uint32_t, uint32_t))dlsym(module, "GlobalAlloc");
    void *(*globalLock)(ZHANDLE) = (void *(*)(ZHANDLE))dlsym(module, "GlobalLock");
    int32_t (*globalFree)(ZHANDLE) = (int32_t (*)(ZHANDLE))dlsym(module, "GlobalFree");

    /* A setup with the defaults, then the options: picture size, 300 dpi. */
    ZHANDLE setup = createSetup(0, NULL, NULL, NULL);
    int32_t sizeMode = 2;             /* 0 screen, 1 printer, 2 user, 3 picture */
    int32_t resolution[2] = {RES_300, 0};
    if (escapeSetup(setup, ESC_SIZE_MODE, 4, &sizeMode, NULL, 0) != 1 ||
        escapeSetup(setup, ESC_RES_MODE, 4, resolution, NULL, 0) != 1)
        return fprintf(stderr, "option refused\n"), 1;

    /* A 64 x 48 one-bit picture at 100 dpi: rows padded to 4 bytes, bottom
     * row first, most significant bit leftmost; the table says 0 is white. */
    enum { W = 64, H = 48, STRIDE = 8 };
    ZHANDLE hTable = globalAlloc(GHND, 2 * 3);
    ZHANDLE hBits = globalAlloc(GHND, STRIDE * H);
    memcpy(globalLock(hTable), "\xFF\xFF\xFF\x00\x00\x00", 6); /* white, black */
    uint8_t *bits = globalLock(hBits);
    for (int y = 0; y < H; ++y)       /* y counts from the top */
        for (int x = 0; x < W; ++x)
            if (x == 0 || y == 0 || x == W - 1 || y == H - 1 || x == y)
                bits[(H - 1 - y) * STRIDE + x / 8] |= (uint8_t)(0x80 >> (x % 8));
    ZEPRaster picture = {1, W, H, 100, 0.0, 0.0, hTable, hBits};
    zepRasterInfoInput info = {96, 0, 100, W, H, 1280, 1078}; /* screen dpi, printer dpi, picture dpi, sizes */

    /* Export to a named file; an empty name would hand the data back in x.hMF. */
    EXPORT_OPTIONS x = {0};
    IMPORT_OPTIONS call = {0};
    call.hOutputData = setup;
    call.lpExport = &x;
    int32_t rc = exportCellData(argv[2], &picture, &info, &call);

    destroySetup(setup);
    globalFree(hBits);
    globalFree(hTable);
    printf("ExportCellData answered %d; %s holds a 192 x 144 GP4 picture\n", rc, argv[2]);
    return rc == 0 ? 0 : 1;
}
