/* mivo4: handle-based memory. Every larger block of the module lives here. */
#ifndef MIVO4_MEMORY_H
#define MIVO4_MEMORY_H

#include "types.h"

/* Allocation flags: moveable (2) with zero-initialise (64). Every block is
 * zero-filled whatever the flags say. */
#define GMEM_MOVEABLE 2u
#define GMEM_ZEROINIT 64u
#define GHND 66u

MIVO4_API ZHANDLE GlobalAlloc(uint32_t flags, uint32_t size);
MIVO4_API void *GlobalLock(ZHANDLE handle);
MIVO4_API int32_t GlobalUnlock(ZHANDLE handle);
MIVO4_API int32_t GlobalFree(ZHANDLE handle);
MIVO4_API ZHANDLE GlobalReAlloc(ZHANDLE handle, uint32_t newSize, uint32_t flags);
MIVO4_API ZHANDLE GlobalHandle(const void *pointer);
MIVO4_API uint32_t GlobalSize(ZHANDLE handle);
MIVO4_API uint32_t GlobalCompact(uint32_t minFree);
MIVO4_API ZHANDLE GlobalPointerToHandle(void *pointer, uint32_t size);

MIVO4_API void *zepPtrGlobalAlloc(uint32_t size);
MIVO4_API uint32_t zepPtrGlobalFree(void *pointer);
MIVO4_API void *zepPtrGlobalReAlloc(void *pointer, uint32_t newSize, uint32_t flags);
MIVO4_API ZHANDLE zepPtrGlobalHandle(const void *pointer);

/* The raster driver's global data block. */
MIVO4_API ZHANDLE hEMData;
MIVO4_API void *lpEMData;
MIVO4_API ZHANDLE hCommon;

MIVO4_API int32_t AllocGlobal(uint32_t hInst);
MIVO4_API int32_t FreeGlobal(uint32_t hInst);
MIVO4_API int32_t LockGlobal(uint32_t value);
MIVO4_API int32_t UnlockGlobal(uint32_t value);

#endif /* MIVO4_MEMORY_H */
