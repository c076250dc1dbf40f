/* mivo4: platform utilities: strings, rounding, paths, temporary names, the
 * host's status callback and small driver-interface services. */
#ifndef MIVO4_UTIL_H
#define MIVO4_UTIL_H

#include "types.h"

/* Strings, converted in place byte by byte. */
MIVO4_API char *strupr(char *text);
MIVO4_API char *strlower(char *text);
MIVO4_API char *strlwr(char *text);
/* Case-blind comparison. The result is upper(b) - upper(a) at the first
 * difference: the sign is the reverse of strcmp's; only 0 is meaningful. */
MIVO4_API int32_t stricmp(const char *a, const char *b);
MIVO4_API int32_t strnicmp(const char *a, const char *b, uint32_t n);

/* Numbers. */
MIVO4_API double dabs(double x);
MIVO4_API int32_t feqi(int32_t a, int32_t b, uint32_t tolerance);
MIVO4_API int32_t roundd(double x);
MIVO4_API int32_t lroundd(double x);

/* Paths and temporary names. */
MIVO4_API char *s_getname(char *nameOut, const char *path);
MIVO4_API char *s_getpath(char *pathOut, const char *path);
MIVO4_API int32_t ZEPGetTempFileName(uint8_t drive, const char *prefix, uint32_t unique,
                                     char *nameOut);

/* Host status. */
MIVO4_API int32_t CallGetSet_Status(LPGETSETSTATUS callback, intptr_t hostData, int32_t op,
                                    int32_t item, intptr_t a4, intptr_t a5, intptr_t a6,
                                    intptr_t a7);
MIVO4_API void esc_mode(int32_t value);
MIVO4_API int32_t AltFontsAvailable(void);

#endif /* MIVO4_UTIL_H */
