/* mivo4: the entry-point table a host asks the module for. */
#ifndef MIVO4_FILTER_H
#define MIVO4_FILTER_H

#include "types.h"

/* Version returned by ZEPGetFilterVersion. */
#define MIVO4_FILTER_VERSION 0x2000005u

/* Entry identifiers (1007 is not used). */
#define FLT_ID_CREATESETUP 1001
#define FLT_ID_DESTROYSETUP 1002
#define FLT_ID_EDITSETUP 1003
#define FLT_ID_ESCAPESETUP 1004
#define FLT_ID_GETFILTERVERSION 1005
#define FLT_ID_DD_ENTRY 1006
#define FLT_ID_RASTER_DD_ENTRY 1008
#define FLT_ID_EXPORTCELLDATA 1009
#define FLT_ID_DLLNAME 1010
#define FLT_ENTRY_COUNT 9

/* One entry: its name, identifier, and the function (or, for "szDLLName",
 * the 260-byte buffer) it stands for. */
typedef struct FLTENTRY {
    const char *lpszName;
    uint16_t wId;
    void *lpTarget;
} FLTENTRY;

/* The host's record filled by fltLoadPointers. The first word is the host's
 * own (for example its record version) and is left untouched. */
typedef struct FLTPOINTERS {
    uint32_t dwHostWord;
    uint16_t wCount;
    const FLTENTRY *lpEntries;
} FLTPOINTERS;

MIVO4_API void fltLoadPointers(FLTPOINTERS *p);
MIVO4_API uint32_t ZEPGetFilterVersion(void);

#endif /* MIVO4_FILTER_H */
