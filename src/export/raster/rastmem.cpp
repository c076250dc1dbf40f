// Memory helpers of the colour library: blocks by handle, zero-filled.
#include <mivo4/memory.h>
#include <mivo4/raster.h>

#include <cstdint>

// A negative count or size, or a product beyond 32 bits, cannot be a block:
// it gets handle 0 like any allocation that fails.
ZHANDLE rlGetMemory(int16_t count, int32_t size) {
    int64_t bytes = static_cast<int64_t>(count) * size;
    if (count < 0 || size < 0 || bytes > static_cast<int64_t>(UINT32_MAX)) return 0;
    return GlobalAlloc(GHND, static_cast<uint32_t>(bytes));
}

void *rlLockMemory(ZHANDLE handle) { return GlobalLock(handle); }

int32_t rlUnlockMemory(ZHANDLE handle) { return GlobalUnlock(handle); }

ZHANDLE rlPointertoHandle(const void *pointer) { return GlobalHandle(pointer); }

int32_t rlFreeNewData(ZHANDLE handle) {
    if (handle == 0) return 0;
    GlobalFree(handle);
    return 1;
}
