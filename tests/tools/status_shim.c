/* A module that is the real one in every way but the answer of
 * GetLastExportStatus, which comes from $SHIM_STATUS: the host's handling of
 * each answer is tested without making the real module fail. The real module
 * is $SHIM_REAL_MODULE. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdlib.h>

#include <mivo4/export.h>
#include <mivo4/filter.h>
#include <mivo4/memory.h>

static void *real(const char *name) {
    static void *module;
    if (module == NULL) module = dlopen(getenv("SHIM_REAL_MODULE"), RTLD_NOW | RTLD_LOCAL);
    return module != NULL ? dlsym(module, name) : NULL;
}

void fltLoadPointers(FLTPOINTERS *table) { ((void (*)(FLTPOINTERS *))real("fltLoadPointers"))(table); }
ZHANDLE GlobalAlloc(uint32_t flags, uint32_t bytes) {
    return ((ZHANDLE (*)(uint32_t, uint32_t))real("GlobalAlloc"))(flags, bytes);
}
void *GlobalLock(ZHANDLE h) { return ((void *(*)(ZHANDLE))real("GlobalLock"))(h); }
int32_t GlobalUnlock(ZHANDLE h) { return ((int32_t (*)(ZHANDLE))real("GlobalUnlock"))(h); }
int32_t GlobalFree(ZHANDLE h) { return ((int32_t (*)(ZHANDLE))real("GlobalFree"))(h); }
uint32_t GlobalSize(ZHANDLE h) { return ((uint32_t (*)(ZHANDLE))real("GlobalSize"))(h); }
int32_t GetLastExportStatus(void) {
    const char *s = getenv("SHIM_STATUS");
    return s != NULL ? atoi(s) : 1;
}
