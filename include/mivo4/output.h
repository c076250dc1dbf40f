/* mivo4: picture output in bands. A drawing procedure renders a picture into
 * an offscreen, band by band, and each band goes to the cell bitmap sink. */
#ifndef MIVO4_OUTPUT_H
#define MIVO4_OUTPUT_H

#include "export.h"
#include "types.h"

/* Messages of a drawing procedure. */
#define DRAW_QUERY 0  /* p1: the picture, p2: QUERYINFO to fill; answer 0 */
#define DRAW_INIT 1   /* p1: OFFSCREEN, p2: DRAWINIT; answer the band height (0: none) */
#define DRAW_TERM 2   /* p1: OFFSCREEN; answer ignored */
#define DRAW_RENDER 3 /* p1: OFFSCREEN, p2: first row, p3: row after the last; answer the band's handle */

/* Results of OutputPicture besides the sink's and the status callback's. */
#define OUTPUT_NOTHING_RENDERED 27

/* A drawing procedure. Arguments that carry addresses are pointer-sized. */
typedef uint32_t (*LPDRAWCALLBACK)(int32_t message, intptr_t p1, intptr_t p2, intptr_t p3);
typedef LPDRAWCALLBACK DRAWCALLBACK;

/* What the drawing procedure reports of its picture. */
typedef struct QUERYINFO {
    double w;            /* width, in inches */
    double h;            /* height, in inches */
    uint32_t dpi;        /* source dots per inch */
    int16_t colorformat; /* 1 a bitmap, 4 a metafile */
} QUERYINFO;

/* The live offscreen handed to every drawing-procedure call after the query. */
typedef struct OFFSCREEN {
    void *drawdata;          /* the picture */
    LPDRAWCALLBACK drawproc;
    int16_t numcolors;       /* entries of roColorTable */
    VCD *roColorTable;       /* output colour table; the procedure may grow it */
    uint32_t dest_cx;        /* output width in pixels */
    uint32_t dest_cy;        /* output height in pixels (the whole picture) */
    int16_t precision;       /* output bits per pixel */
    ZHANDLE h;               /* the procedure's own state */
    void *p;                 /* free for the procedure */
    uint8_t bandingSupported;
} OFFSCREEN;

/* Passed with the init message. */
typedef struct DRAWINIT {
    uint32_t TotalWidth;
    uint32_t TotalHeight;
    int32_t Precision;
    int16_t NumColors;
    VCD *ColorTable;
} DRAWINIT;

/* Renders the picture pData through DrawProc into the stream: 0 on success,
 * 27 when nothing could be rendered, else the sink's or the status answer. */
MIVO4_API int32_t OutputPicture(HZEPIO FileHandle, void *pData, LPDRAWCALLBACK DrawProc);

MIVO4_API uint32_t QueryPlatformOffscreen(QUERYINFO *qinfo, void *drawdata, LPDRAWCALLBACK drawproc);
MIVO4_API OFFSCREEN *InitPlatformOffscreen(uint32_t TotalWidth, uint32_t *TotalHeight,
                                           int16_t Precision, int16_t NumColors, VCD *ColorTable,
                                           void *drawdata, LPDRAWCALLBACK drawproc,
                                           uint8_t *bandingSupported);
MIVO4_API ZHANDLE DrawPlatformOffscreen(OFFSCREEN *p, uint32_t startline, uint32_t endline);
MIVO4_API void TermPlatformOffscreen(OFFSCREEN *p);
/* Bytes in one row of nx pixels at prec bits, rows of 2 bits or more padded to 4 bytes. */
MIVO4_API int32_t get_rowsize(int16_t nx, int16_t prec);

/* A recorded picture of the metafile path. */
typedef struct RECT {
    int32_t left, top, right, bottom;
} RECT;
typedef struct PICTINFO {
    uint32_t hMF;   /* metafile handle */
    RECT bBox;
    int32_t Inch;   /* units per inch of bBox */
} PICTINFO;
typedef struct DDCRECT {
    double left, top, right, bottom;
} DDCRECT;
typedef struct DPICTINFO {
    uint32_t hMF;
    DDCRECT bBox;
    double Inch;
} DPICTINFO;
typedef struct _metafile {
    PICTINFO pinfo;
    DPICTINFO srcinfo;
    uint32_t hPlatDefined;
} _metafile;

/* The drawing procedure of recorded pictures (p1 a PICTINFO for the query). */
MIVO4_API uint32_t DrawPlatformMetafile(int32_t message, intptr_t p1, intptr_t p2, intptr_t p3);

/* The host platform's metafile filter, through which the GP4 driver records
 * a picture; on this platform it records nothing. The escape entry has the
 * shape of the option escapes: (setup, code, size, in, out, retain). */
typedef int32_t (*LPPLATFORMESCAPE)(ZHANDLE hSetup, int32_t code, int32_t count, void *in,
                                    void *out, int32_t retain);
MIVO4_API uint32_t InitPlatformMetafileFilter(uint32_t h, const char *path, EXPORT_OPTIONS *lpExport,
                                              uint32_t *h2, ZHANDLE *c, LPDDENTRY32 *dd32,
                                              LPPLATFORMESCAPE *e);
MIVO4_API int32_t TermPlatformMetafileFilter(uint32_t h);
MIVO4_API uint32_t GetMetaFileHandle(uint32_t hDC, LPPLATFORMESCAPE e);
MIVO4_API int32_t DeleteMetaFileHandle(uint32_t hMF);

#endif /* MIVO4_OUTPUT_H */
