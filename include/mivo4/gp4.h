/* mivo4: the GP4 writer's header records and its Group 4 (T.6) coder. */
#ifndef MIVO4_GP4_H
#define MIVO4_GP4_H

#include "types.h"

/* The CALS header: sixteen records of 128 blank-padded ASCII bytes. The
 * Group 4 data follows it at this offset. */
#define GP4_HEADER_SIZE 2048
#define GP4_RECORD_SIZE 128

/* Colours of a run inside the coder. Input rows carry white as a set bit. */
#define GP4_WHITE 255
#define GP4_BLACK 0

/* Entries of the twoD table, by coding mode. The vertical mode for
 * a1 - b1 = d (-3 <= d <= 3) is GP4_MODE_V0 + d. */
#define GP4_MODE_PASS 0
#define GP4_MODE_HORIZONTAL 1
#define GP4_MODE_VL3 2
#define GP4_MODE_VL2 3
#define GP4_MODE_VL1 4
#define GP4_MODE_V0 5
#define GP4_MODE_VR1 6
#define GP4_MODE_VR2 7
#define GP4_MODE_VR3 8

/* Entries of the white and black run tables: 0..63 terminating codes,
 * 63 + n the make-up code of n * 64 (n = 1..40; 28..40 are the extended
 * codes shared by both colours), then EOL. */
#define GP4_RUN_ENTRIES 105
#define GP4_MAKEUP_2560 103
#define GP4_EOL 104

/* The values a header is made from. */
typedef struct GP4_HEADER {
    uint16_t wRasterType;          /* always 1 */
    uint16_t wImageWidth;          /* pixels per line */
    uint16_t wImageHeight;         /* number of lines */
    uint16_t wOrientPelPath;       /* always 0 */
    uint16_t wOrientLineProgress;  /* always 270 */
    uint16_t wDensity;             /* pixels per inch */
} GP4_HEADER;

/* Code tables. Each entry: { bit length, code bits left-aligned in the low
 * 16 bits (the first bit of the code is bit 15) }. */
MIVO4_API const uint32_t twoD[9][2];
MIVO4_API const uint32_t white[GP4_RUN_ENTRIES][2];
MIVO4_API const uint32_t black[GP4_RUN_ENTRIES][2];

/* Header. */
MIVO4_API int32_t WriteGp4Hdr(HZEPIO hOutput, const GP4_HEADER *lpHeader);
MIVO4_API int32_t IntToStr(int32_t nData, char *szString);

/* Coder. */
MIVO4_API int32_t Encode(HZEPIO hOutFile, const uint8_t *hpInBuf, uint32_t dwSize,
                         uint32_t nWidth, uint32_t nHeight);
MIVO4_API uint32_t Group4(const uint8_t *InBuf, ZHANDLE *hOutBuf, uint32_t Width,
                          uint32_t ScanLines, uint32_t BytesPerRow);
MIVO4_API uint32_t SetRefPositions(const uint8_t *lpRefLine, uint32_t A0, uint8_t Color,
                                   uint32_t Width);
MIVO4_API void AddRun(uint8_t *Buffer, uint8_t Color, uint32_t len, uint32_t *BytePos,
                      uint32_t *BitPos);
MIVO4_API void AddCode(uint8_t *Buffer, uint32_t Mode, uint32_t *BytePos, uint32_t *BitPos);
MIVO4_API void IncreaseOutBuf(ZHANDLE *hOutBuf, uint8_t **lpOutBuf, uint32_t *nOutSize);

#endif /* MIVO4_GP4_H */
