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

/* The host's call record of a bitmap export. */
typedef struct IMPORT_OPTIONS {
    uint16_t Version;            /* the host's record version */
    uint32_t hInputData;
    ZHANDLE hOutputData;         /* the setup to export with */
    const char *lpszDriverPath;
    const char *lpszWorkPath;
    const char *lpszFontPath;
    EXPORT_OPTIONS *lpExport;    /* progress callback, the host's stream, hMF answer */
    intptr_t FileHandle;
    int32_t FilePos;
} IMPORT_OPTIONS;

/* The host's description of a picture and its screen, for the output-size query. */
typedef struct zepRasterInfoInput {
    int32_t dpiscreen;
    int32_t dpiprinter;
    int32_t dpipicture;
    int32_t picture_width;   /* pixels */
    int32_t picture_height;
    int32_t screen_width;
    int32_t screen_height;
} zepRasterInfoInput;

/* The answer of the output-size query: pixels and bits per pixel. */
typedef struct _outdata {
    int32_t width;
    int32_t height;
    int32_t depth;
} _outdata;

/* Output size in pixels for a picture, on the current setup (hSetup unused). */
MIVO4_API void GetRasterInfo(uint32_t hSetup, const zepRasterInfoInput *rin, _outdata *rout);
/* Fits a picture of lWidth x lHeight pixels, aspect kept, into the current
 * setup's output box; NewSize receives width and height in inches. */
MIVO4_API void AdjustAspect(double *NewSize, int32_t lWidth, int32_t lHeight);

/* How the last export on this module ended. ExportCellData's own answer does
 * not carry what happened while the picture was rendered and coded, so a host
 * asks here before it keeps an output. Values of GetLastExportStatus: */
/* (An export is an ExportCellData, or a GP4 driver open and close. A thread
 * that has exported gets the status of its own last export; any other thread
 * gets the module's last. Exports serialize on the module's lock; see
 * setup.h. A picture whose output would
 * be wider or taller than 65535 pixels, which the CALS header cannot state,
 * is not written at all and reports MIVO4_EXPORT_NOTHING.) */
#define MIVO4_EXPORT_NONE 0          /* no export has run in this process */
#define MIVO4_EXPORT_COMPLETE 1      /* the whole picture was written and closed */
#define MIVO4_EXPORT_STOPPED 2       /* the host's status callback asked to stop */
#define MIVO4_EXPORT_WRITE_FAILED 3  /* opening, writing or closing the output failed */
#define MIVO4_EXPORT_NO_MEMORY 4     /* memory ran out; the output is incomplete */
#define MIVO4_EXPORT_NOTHING 5       /* nothing to write (no picture, or one the format cannot hold) */
MIVO4_API int32_t GetLastExportStatus(void);

#endif /* MIVO4_EXPORT_H */
