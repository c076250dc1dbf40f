/* mivo4: exporting a bitmap the host already holds. */
#ifndef MIVO4_BITMAP_H
#define MIVO4_BITMAP_H

#include "color.h"
#include "export.h"
#include "output.h"
#include "types.h"

/* Writes the bitmap r as one GP4 file with the setup pImport->hOutputData:
 *  - through the setup's output callback (escape 81) when it has one, the host
 *    stream pImport->lpExport->FileHandle handed to the callback's open;
 *  - else to the file pszFilename when it is not empty;
 *  - else into a memory block whose handle the host finds in
 *    pImport->lpExport->hMF afterwards (the data, then one 0xFF end byte).
 * ri describes the picture and the screen (sizes in pixels, resolutions).
 * Returns 0 once the picture was passed on, 303 when the output cannot be
 * opened. Rows of r are padded to 4 bytes, the bottom row first; 1-bit pixels
 * most significant bit first. */
MIVO4_API int32_t ExportCellData(const char *pszFilename, ZEPRaster *r, const zepRasterInfoInput *ri,
                                 IMPORT_OPTIONS *pImport);

/* The drawing procedure of bitmaps (a ZEPRaster as the picture). */
MIVO4_API uint32_t DrawExportCellData(int32_t opcode, intptr_t p1, intptr_t p2, intptr_t p3);

/* The procedure's own state, held by handle in OFFSCREEN.h. */
typedef struct DRAWRASINFO {
    ZHANDLE hBandBuf;     /* the last rendered bitmap */
    ZHANDLE hColorTable;  /* the colour table to convert to */
} DRAWRASINFO;

MIVO4_API uint32_t DrawInit(OFFSCREEN *o, DRAWINIT *init);
MIVO4_API ZHANDLE DrawRender(OFFSCREEN *o, uint32_t start, uint32_t end);
MIVO4_API int32_t DrawTerm(OFFSCREEN *o);
/* Converts a w x h bitmap from src_depth to dst_depth bits per pixel (dithering
 * below 8 bits); the result may be Hdata itself. */
MIVO4_API ZHANDLE ChangeRes(ZHANDLE Hdata, uint16_t w, uint16_t h, uint16_t src_depth,
                            uint16_t dst_depth, ZHANDLE srcHrgb, ZHANDLE dstHrgb, int16_t numcolors);

#endif /* MIVO4_BITMAP_H */
