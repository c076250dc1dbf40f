/* mivo4: buffered streams over named files, growing memory blocks and host
 * callbacks, with typed reads and writes in a chosen byte order. */
#ifndef MIVO4_STREAM_H
#define MIVO4_STREAM_H

#include "types.h"

/* Open flags. */
#define ZEP_OPEN_READ 0x0000u      /* "r" */
#define ZEP_OPEN_WRITE 0x0001u     /* "w+" */
#define ZEP_OPEN_UPDATE 0x0002u    /* "r+" */
#define ZEP_OPEN_DELETE 0x0200u    /* alone: delete the named file */
#define ZEP_OPEN_CREATE 0x1000u    /* "w+"; a memory block is taken as empty */
#define ZEP_OPEN_EXISTS 0x4000u    /* alone: does the named file exist? */
#define ZEP_OPEN_ATTACH 0xFFFFFFFFu /* attach to an open FILE or callback stream */

/* Operation codes of the host's stream callback. */
#define ZEP_CB_OPEN 1
#define ZEP_CB_READ 2
#define ZEP_CB_WRITE 3
#define ZEP_CB_SEEK 4
#define ZEP_CB_CLOSE 5
#define ZEP_CB_EXISTS 6
#define ZEP_CB_DELETE 7

/* Line endings written by zepWriteLine. */
#define ZEP_LINE_CRLF 0
#define ZEP_LINE_CR 1
#define ZEP_LINE_LF 2

/* The caller's description of a memory or callback stream. */
typedef struct IOINFO {
    /* Address of the caller's variable holding the locked pointer of a
     * GlobalAlloc block (memory streams). For callback streams the value is
     * handed to the callback's open operation as its handle argument. */
    uint8_t **lplpBuffer;
    int32_t lBuffer;      /* length of the data in the block; zepOpen rewrites it */
    uint32_t dwExpSize;   /* growth step of a memory stream (callers use 4096) */
    void *hFile;          /* an open FILE stream, for ZEP_OPEN_ATTACH */
    LPZEPCALLBACK pIOProc; /* the host's stream callback, or null */
    uint32_t hCBOpen;     /* the callback's handle of an open stream, for ZEP_OPEN_ATTACH */
} IOINFO;
typedef IOINFO ZEPIOINFO;
typedef IOINFO _IOINFO;

/* Streams. */
MIVO4_API HZEPIO zepOpen(const char *name, IOINFO *info, uint32_t flags);
MIVO4_API int32_t zepClose(HZEPIO h);
MIVO4_API int32_t zepCloseandDelete(HZEPIO h, const char *name);
MIVO4_API int32_t zepRead(HZEPIO h, void *buffer, int32_t count);
MIVO4_API int32_t zepWrite(HZEPIO h, const void *buffer, int32_t count);
MIVO4_API int32_t zepSeek(HZEPIO h, int32_t offset, int32_t whence);
MIVO4_API int32_t zepCopy(const char *source, const char *target);
MIVO4_API int32_t unxSeek(void *file, int32_t offset, int32_t whence);
MIVO4_API int32_t FillZepIOBuf(HZEPIO h);
MIVO4_API int32_t FlushZepIO(HZEPIO h);

/* Typed reads and writes; counts are numbers of items. */
MIVO4_API int32_t zepReadChar(HZEPIO h, void *buffer, int32_t count);
MIVO4_API int32_t zepWriteChar(HZEPIO h, const void *buffer, int32_t count);
MIVO4_API int32_t zepReadShort(HZEPIO h, int16_t *buffer, int32_t count);
MIVO4_API int32_t zepReadLong(HZEPIO h, int32_t *buffer, int32_t count);
MIVO4_API int32_t zepReadFloat(HZEPIO h, float *buffer, int32_t count);
MIVO4_API int32_t zepReadDouble(HZEPIO h, double *buffer, int32_t count);
MIVO4_API int32_t zepWriteShort(HZEPIO h, const int16_t *values, int32_t count);
MIVO4_API int32_t zepWriteLong(HZEPIO h, const int32_t *values, int32_t count);
MIVO4_API int32_t zepWriteFloat(HZEPIO h, const float *values, int32_t count);
MIVO4_API int32_t zepWriteDouble(HZEPIO h, const double *values, int32_t count);
MIVO4_API int32_t zepReadLine(HZEPIO h, char *buffer, int32_t max);
MIVO4_API int32_t zepWriteLine(HZEPIO h, const char *text, int32_t length);
MIVO4_API int32_t zepSetDataFormat(HZEPIO h, int16_t endian, int16_t realFormat);
MIVO4_API int32_t zepGetDataFormat(HZEPIO h, int16_t *endianOut, int16_t *realFormatOut);
MIVO4_API int32_t zepSetLineFormat(HZEPIO h, int16_t format);
MIVO4_API int32_t zepGetLineFormat(HZEPIO h);
MIVO4_API void zepNativeToLE(uint8_t *destination, uint32_t value, int32_t n);
MIVO4_API void zepNativeToBE(uint8_t *destination, uint32_t value, int32_t n);

/* Records described by a layout descriptor: read from, or written to, the
 * stream packed, and kept in memory with the host's natural alignment. */
MIVO4_API int32_t zepReadStruct(HZEPIO h, const char *descriptor, void *memory, int32_t count);
MIVO4_API int32_t zepWriteStruct(HZEPIO h, const char *descriptor, const void *memory, int32_t count);
MIVO4_API int32_t GetPadWidth(const char *position);
MIVO4_API const char *GetUnionSize(const char *position, int32_t *sizeOut);

#endif /* MIVO4_STREAM_H */
