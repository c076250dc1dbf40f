/* mivo4: the cell bitmap sink, through which a rendered picture reaches the
 * GP4 writer, and its resolution and sizing helpers. */
#ifndef MIVO4_SINK_H
#define MIVO4_SINK_H

#include "types.h"

/* Both resolutions from a resolution mode: 777..782 give 200, 240, 300, 400,
 * 600, 1200 dots per inch, 783 and 784 the user's value. Returns 0, or -1 for
 * any other mode (resolutions untouched). */
MIVO4_API int32_t SetResByResMode(int16_t *lpXResolution, int16_t *lpYResolution, int32_t ResMode,
                                  int32_t userdpi);

/* Negotiates the output: on entry *Width and *Height are the picture's size,
 * on return the output size in pixels; *Depth becomes 1; *dpi (may be null)
 * carries a proposed resolution in (0 for none) and the output resolution
 * out; *bandingSupported becomes 1. rgbformat is not touched. */
MIVO4_API void QueryCellFormat(double *Width, double *Height, int16_t *Depth, uint32_t *dpi,
                               int16_t *rgbformat, uint8_t *bandingSupported);
/* Writes the CALS header for a Width x Height picture and notes the first
 * byte of the band colour table (lpCTable may be null). Returns -1: bands
 * are taken bottom row first. lphData is not used. */
MIVO4_API int32_t BeginCellBitmap(HZEPIO hFile, uint32_t Width, uint32_t Height,
                                  int16_t BitsPerPixel, const VCD *lpCTable, uint32_t *lphData);
/* Codes one band: Height rows of Width pixels, rows padded to 4 bytes, the
 * bottom row first. 0 on success, -1 if coding or writing failed, 300 without
 * a band or memory. colorformat and hData are not used. */
MIVO4_API int32_t WriteCellBits(HZEPIO hFile, ZHANDLE hBuffer, uint32_t Width, uint32_t Height,
                                int16_t BitsPerPixel, int16_t colorformat, uint32_t hData);
/* Ends the picture: nothing is written. Returns 0. */
MIVO4_API int32_t EndCellBitmap(HZEPIO hFile, uint32_t hData);

/* Inverts inWidth x inHeight bytes, last byte first, when inFGCIsWhite. */
MIVO4_API void gp4FlipMonochromeBits(uint8_t *inBuffer, uint32_t inWidth, uint32_t inHeight,
                                     int32_t inFGCIsWhite);
/* Cuts a size in inches down to whole output pixels with the picture's aspect. */
MIVO4_API int32_t RasterAdjustAspect(double *NewSize, double dWidth, double dHeight);
/* Keeps the larger side at most 22 inches, the other scaled alike. */
MIVO4_API int32_t ScaleImageSize(double *lpWidth, double *lpHeight);
/* Packs dwLines rows of UnpadLineSize bytes, PadLineSize bytes apart, in
 * reverse row order. */
MIVO4_API int32_t EliminatePad(const uint8_t *lpPadBuf, uint8_t *lpUnpadBuf,
                               uint32_t UnpadLineSize, uint32_t dwLines, uint32_t PadLineSize);

#endif /* MIVO4_SINK_H */
