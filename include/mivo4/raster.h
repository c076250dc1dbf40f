/* mivo4: the raster device driver: its state record, entries and error stack. */
#ifndef MIVO4_RASTER_H
#define MIVO4_RASTER_H

#include "export.h"
#include "types.h"

/* Error codes the driver reports. */
#define RASTER_ERR_MEMORY 300
#define RASTER_ERR_OUTPUT 303
#define RASTER_ERR_STOPPED 901

/* Driver states (dvrstate). */
#define DVR_INITIALISED 1
#define DVR_DEVICE_OPEN 2
#define DVR_PICTURE_BEGUN 4
#define DVR_BODY_BEGUN 8
#define DVR_PICTURE_ENDED 16

/* Size of an element's header; parameters follow it. */
#define DVR_ELEMENT_HEADER 16

/* One error report: the function code of the element in hand and the code. */
typedef struct VErrorReport {
    int32_t item;
    int16_t code;
} VErrorReport;

/* The error stack. */
typedef struct ErrorState {
    int32_t maxdepth;   /* never set: the depth limit is 0 */
    int32_t curdepth;
    int32_t numlost;
    VErrorReport oldest;
    VErrorReport stack[10];
} ErrorState;

/* Device transformation: window, viewport, scales, rotation. */
typedef struct Dtrans {
    VVRect wn;
    VVRect vp;
    double rsx;
    double rsy;
    int32_t rotate;
} Dtrans;

/* The driver's single state record. */
typedef struct MoRastData {
    uint32_t hFile;          /* output stream */
    uint32_t hBuffer;        /* bitmap being built */
    int32_t bInCellArray;
    int32_t CurrentScanLine;
    VCD ColorTable[256];
    VCD Bgc;
    VErrorReport errep;      /* last report; errep.code is every dispatch's result */
    ErrorState esl;
    Dtrans dtr;
    int32_t dvrstate;
    int32_t element;         /* function code of the element in hand */
    int32_t readct;          /* write position in the element buffer */
    uint32_t DvrBufSz;
    uint32_t hDvrBuf;
    uint8_t *lpDvrBuf;
    char szFileName[144];
    uint32_t Width;
    uint32_t Height;
    uint32_t BitsPerPixel;
    uint32_t hData;
    EXPORT_OPTIONS *lpExport;
    int32_t ColorMode;
    uint32_t hSetup;
    int32_t inch;
    int16_t ColorSpecMode;
} MoRastData;

/* Error stack. */
MIVO4_API void push_er(int16_t code);
MIVO4_API void *dq_es(void *data);
MIVO4_API void *d_popes(void *data);
MIVO4_API void *d_empes(void *data);
MIVO4_API void mov2buf(const void *data, int32_t len);

#endif /* MIVO4_RASTER_H */
