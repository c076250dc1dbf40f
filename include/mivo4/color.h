/* mivo4: the raster colour library: in-memory bitmaps, pixel access, depth
 * conversion, median-cut colour reduction, dithering, scaling and flipping,
 * and the colour-table adjustment used for monochrome output. */
#ifndef MIVO4_COLOR_H
#define MIVO4_COLOR_H

#include "types.h"

/*
 * One bitmap. Rows follow one another from row 0 at the start of the buffer,
 * each padded to a multiple of 4 bytes (rlBytesPerLine). Pixels per depth:
 *   1  bit 7 - (x mod 8) of byte x / 8 (most significant bit leftmost)
 *   4  high nibble for even x, low nibble for odd x
 *   8  one byte
 *   24 red, green, blue bytes
 *   32 red, green, blue, fourth byte
 */
typedef struct ZEPRaster {
    uint16_t depth;       /* bits per pixel: 1, 4, 8, 24 or 32 */
    uint16_t cx;          /* width in pixels */
    uint16_t cy;          /* height in pixels */
    int16_t srcdpi;       /* resolution of the source, dots per inch */
    double srcwidth;      /* width of the picture in inches */
    double srcheight;     /* height of the picture in inches */
    ZHANDLE hColorTable;  /* VCD entries for indexed depths, else 0 */
    ZHANDLE hBuffer;      /* pixel data */
} ZEPRaster;

/* One entry of the condensed colour list of a median cut. */
typedef struct RGBC {
    uint16_t Bit15RGB;    /* (red >> 3) << 10 | (green >> 3) << 5 | (blue >> 3) */
    uint16_t count;       /* the histogram counter of that colour */
} RGBC;

/* One box of a median cut: a range of the condensed list and its extents.
 * Channel values are 5-bit. */
typedef struct clrRect {
    int16_t first;        /* first list position, inclusive */
    int16_t last;         /* last list position, inclusive */
    uint32_t histSum;     /* pixels in the box */
    uint8_t redMin, redMax;
    uint8_t greenMin, greenMax;
    uint8_t blueMin, blueMax;
    uint8_t widestColor;  /* 0 red, 1 green, 2 blue */
    uint8_t red, green, blue; /* the box colour: the pixel-weighted mean */
} clrRect;

/* The work record of a median cut, from InitColorLib to TermColorLib. */
typedef struct ColorLibStruct {
    ZHANDLE hClrList;     /* histogram: 32768 16-bit counters */
    ZHANDLE hCRect;       /* box array, one clrRect a slot */
    ZHANDLE hsList;       /* slot states: -1 free, -2 single colour, else the slot number */
    uint16_t tclrs;       /* distinct histogram colours */
    uint16_t nCRect;      /* live boxes */
    int16_t firstCRect;   /* the box being split */
    int16_t start;        /* its first list position */
    int16_t stop;         /* its last list position */
    int16_t median;       /* its split position */
} ColorLibStruct;

/* Colour-library progress messages are printed when this is above 0. The
 * module itself never changes it from 0. */
MIVO4_API int16_t _debug_color_res;

/* Row layout. Both answer 0xFFFFFFFF when the true size does not fit in 32
 * bits; the library's own routines refuse such bitmaps. */
MIVO4_API uint32_t rlBytesPerLine(uint32_t w, int16_t dst_depth);
MIVO4_API uint32_t rlCalcNewSize(uint32_t w, uint32_t h, int16_t dst_depth);

/* Single pixels. Values are indices for indexed depths and packed colours
 * (red << 24 | green << 16 | blue << 8 | fourth byte) for 24 and 32 bits.
 * Other depths read 0 and write nothing. rlSetPixel writes clrmap[index]
 * when a map is given, else the nearest entry of rgb (numcolors entries) to
 * the packed colour index when rgb is given and depth is below 24, else index;
 * for 24 and 32 bits with rgb given, the colour is rgb[value], or the value
 * itself taken as a packed colour when it is not an entry of rgb. */
MIVO4_API uint32_t rlGetPixel(const void *d, uint32_t bytesperline, uint32_t x, uint32_t y,
                              int16_t depth);
MIVO4_API int32_t rlSetPixel(void *d, uint32_t bytesperline, uint32_t x, uint32_t y,
                             int16_t depth, uint32_t index, const uint32_t *clrmap,
                             const VCD *rgb, uint16_t numcolors);

/* Index of the entry of rgb nearest to (r, g, b). Greys (channels within 4
 * of each other) only match grey entries (three equal bytes), colours only
 * coloured entries; ties keep the lower index; 0 when nothing qualifies. */
MIVO4_API int32_t rlNearestRGBIndex(int16_t r, int16_t g, int16_t b, const VCD *rgb,
                                    int32_t cbrgb);

/* Colour maps: one 32-bit entry per source index (a packed colour for a
 * 24-bit destination, else the nearest destination index). */
MIVO4_API ZHANDLE rlBuildColormap(const VCD *rgb, int16_t rgb_depth, const VCD *dstrgb,
                                  int16_t dstrgb_depth, uint16_t num_dstrgb);
MIVO4_API int32_t rlFreeColormap(ZHANDLE Hclrmap);

/* Depth conversion; the source is untouched and the new bitmap is the
 * caller's. rlChangeColorResolution also chooses the colour table and
 * replaces *Hrgb with it (0 after an increase of depth). */
MIVO4_API ZHANDLE rlConvertBitmapDepth(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth,
                                       int16_t dst_depth, ZHANDLE Hrgb, ZHANDLE Hpnew_rgb,
                                       uint16_t num_pnew_rgb);
MIVO4_API ZHANDLE rlChangeColorResolution(ZHANDLE Hdata, uint32_t w, uint32_t h,
                                          int16_t src_depth, int16_t dst_depth, ZHANDLE *Hrgb);

/* In-place conversions of a 32-bit bitmap of w x h pixels. */
MIVO4_API void rlRGB4toCMYK(ZHANDLE hDatabits, uint32_t w, uint32_t h);
MIVO4_API void rlCMYKtoRGB(ZHANDLE hDatabits, uint32_t w, uint32_t h);
MIVO4_API void rlALPHAtoRGB(ZHANDLE hDatabits, uint32_t w, uint32_t h);

/* The median-cut work record. TermColorLib answers -1 when the record
 * cannot be locked. */
MIVO4_API ZHANDLE InitColorLib(void);
MIVO4_API int32_t TermColorLib(ZHANDLE hColorLib);

/* Median cut. rlReduceColorTable reduces a 24-bit bitmap to at most
 * *numcolors entries and stores the number obtained there. direct_indexed's
 * flag: 1 builds the table now, 2 keeps the histogram for a further call. */
MIVO4_API ZHANDLE rlReduceColorTable(ZHANDLE Hrgb, int16_t w, int16_t h, uint16_t *numcolors);
MIVO4_API int32_t direct_indexed(const uint8_t *RGBData, int16_t SizeX, int16_t SizeY,
                                 uint16_t *ncols, int32_t flag, VCD *cTable, ZHANDLE hColorLib);
/* Helpers on the condensed list. HeapSort's build phase takes part the
 * entry just after the n sorted ones: the list must hold n + 1 entries. */
MIVO4_API void getCRectData(clrRect *CRect, const RGBC *ClrList, int16_t first, int16_t last);
MIVO4_API void clrswap(RGBC *ClrList1, RGBC *ClrList2);
MIVO4_API void HeapSort(RGBC *ClrList, int32_t color, int32_t n);
MIVO4_API void AdjustHeap(RGBC *ClrList, int32_t color, int32_t m, int32_t n);
MIVO4_API int16_t find_median(const RGBC *ClrList, const clrRect *CRect);
MIVO4_API void split(clrRect *CRect, int16_t offset, int16_t median, uint16_t *nCRect,
                     int16_t *available, const RGBC *ClrList, int16_t SplitNum);
MIVO4_API int16_t GetMaxHistSum(const clrRect *CRect, const int16_t *available, int32_t ncols);

/* Dithering tables. Range_Chk points 128 entries into BOUNDARY_CHK, so that
 * Range_Chk[v] is v clamped to 0..255 for v from -128 to 383. */
MIVO4_API const VCD MonoTable[8];
MIVO4_API const VCD must_have_colors[8];
MIVO4_API const uint8_t BOUNDARY_CHK[512];
MIVO4_API const uint8_t *const Range_Chk;

/* Dithering to 1..8 bits by error diffusion. Each returns 0, having freed
 * whatever it allocated, when a working copy or table cannot be had. */
MIVO4_API ZHANDLE rlDitherBitmap(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth,
                                 int16_t dst_depth, ZHANDLE Hsrcrgb, ZHANDLE *Hpnew_rgb);
MIVO4_API void rlDitherGetCT(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth,
                             int16_t dst_depth, ZHANDLE Hsrcrgb, ZHANDLE *Hpnew_rgb,
                             uint16_t *ctSize);
MIVO4_API ZHANDLE rlDitherGivenCT(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth,
                                  int16_t dst_depth, ZHANDLE Hsrcrgb, ZHANDLE Hpnew_rgb,
                                  uint16_t numcolors);
/* Diffuses one 24-bit row onto the table; pLine2 is the next row, or null. */
MIVO4_API void _rlDitherOneLine(uint8_t *pLine1, uint8_t *pLine2, const VCD *rgbTable,
                                uint32_t width, int32_t rgbTableSize);

/* Scaling by replication and decimation; the source is untouched. Pixels of
 * a source described larger than its block read as 0. The pointer routines
 * answer 0, or -1 when a 16-bit intermediate count would overflow. */
MIVO4_API ZHANDLE rlShrinkBitmap(ZHANDLE Hdata, int16_t depth, uint32_t src_w, uint32_t src_h,
                                 uint32_t dst_w, uint32_t dst_h);
MIVO4_API ZHANDLE rlStretchBitmap(ZHANDLE hData, int16_t depth, uint32_t src_w, uint32_t src_h,
                                  uint32_t dst_w, uint32_t dst_h);
MIVO4_API int32_t Shrink(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx,
                         uint32_t sy, uint32_t dx, uint32_t dy);
MIVO4_API int32_t Stretch(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx,
                          uint32_t sy, uint32_t dx, uint32_t dy);
MIVO4_API int32_t ShrinkX(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx,
                          uint32_t sy, uint32_t dx);
MIVO4_API int32_t StretchX(const uint8_t *psrc, uint8_t *pdst, int16_t depth, uint32_t sx,
                           uint32_t sy, uint32_t dx);

/* Mirrors a bitmap in place; pixel x of a row is exchanged with pixel w - x. */
MIVO4_API ZHANDLE rlFlipBitmap(ZHANDLE Hdata, int16_t depth, uint32_t w, uint32_t h, int16_t hort,
                               int16_t vert);

/* Adjusts count red, green, blue triples in place: 1 inverts, 2 inverts
 * greys only, 3 greys towards black by the current setup's GreyThreshold,
 * 4 greys and inverts; other values change nothing. */
MIVO4_API void rev_rgb(uint32_t count, uint8_t *rgb, int32_t reverse);

#endif /* MIVO4_COLOR_H */
