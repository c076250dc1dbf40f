/* mivo4: the host's export options, shared by every way a picture is exported. */
#ifndef MIVO4_EXPORT_H
#define MIVO4_EXPORT_H

#include "types.h"

/* The host's export options record. */
typedef struct EXPORT_OPTIONS {
    uint32_t Version;              /* the host's record version */
    LPGETSETSTATUS GetSet_Status;  /* progress and stop requests, or null */
    intptr_t hDialog;              /* host value handed back to GetSet_Status */
    intptr_t FileHandle;           /* the host's own stream, for callback output */
    uint32_t hMF;                  /* on return: memory handle of a memory-block output */
    int32_t Left, Top, Right, Bottom; /* picture bounding box (metafile path) */
    int32_t Inch;                  /* units per inch of the bounding box */
    uint32_t hDC;                  /* host device context */
} EXPORT_OPTIONS;

#endif /* MIVO4_EXPORT_H */
