/* mivo4: profile (INI) files: sections of name=value lines. */
#ifndef MIVO4_PROFILE_H
#define MIVO4_PROFILE_H

#include "types.h"

/* The default profile of the GetProfile... and WriteProfileString calls. */
#define ZEP_DEFAULT_PROFILE "ZEP.INI"

/* Cleaning masks of stripChars: which characters survive. */
#define STRIP_KEEP_BRACKETS 1
#define STRIP_KEEP_QUOTES 4

MIVO4_API uint32_t GetPrivateProfileString(const char *section, const char *key,
                                           const char *defaultValue, char *buffer, uint32_t size,
                                           const char *file);
MIVO4_API int32_t GetPrivateProfileInt(const char *section, const char *key, int32_t defaultValue,
                                       const char *file);
MIVO4_API int32_t WritePrivateProfileString(const char *section, const char *key,
                                            const char *value, const char *file);
MIVO4_API uint32_t GetProfileString(const char *section, const char *key,
                                    const char *defaultValue, char *buffer, uint32_t size);
MIVO4_API int32_t GetProfileInt(const char *section, const char *key, int32_t defaultValue);
MIVO4_API int32_t WriteProfileString(const char *section, const char *key, const char *value);

/* Opens name, or failing that INIDIR/name; with resolvedSize non-zero the path
 * that opened is copied back into name (at most resolvedSize characters). */
MIVO4_API HZEPIO INIopen(char *name, uint32_t resolvedSize, uint32_t flags);
MIVO4_API int32_t INIclose(HZEPIO h);
/* 0 when the profile was found (name then holds the path that opened), else 1.
 * name must hold 144 characters. */
MIVO4_API int32_t GetProfileDirectory(char *name, const char *modulePath);

MIVO4_API int32_t StrIsAnInteger(const char *text, int32_t *valueOut);
MIVO4_API int32_t StrIsHexDigit(const char *text, int32_t *valueOut);

/* Line cleaning, in place. */
MIVO4_API char *stripChars(char *text, int32_t keep);
MIVO4_API char *stripComments(char *text);
MIVO4_API char *stripLdgTrlg(char *text, char c);

#endif /* MIVO4_PROFILE_H */
