/* mivo4: streams stored inside a compound document (the Compound File Binary
 * format: 512-byte sectors chained through a file allocation table, streams
 * under 4096 bytes in 64-byte mini sectors). A stream opened here is an
 * ordinary stream handle: zepRead, zepSeek and zepClose work on it. */
#ifndef MIVO4_DOCFILE_H
#define MIVO4_DOCFILE_H

#include "types.h"

/* Results of docOpenStream and docListEntries. */
#define DOC_OK 0
#define DOC_E_OPEN (-1)      /* the file cannot be opened or positioned */
#define DOC_E_NOTDOC (-2)    /* no compound document header */
#define DOC_E_VERSION (-3)   /* a version this module does not read (4096-byte sectors) */
#define DOC_E_FAT (-4)       /* the allocation table or its index is damaged */
#define DOC_E_DIRECTORY (-5) /* the directory is damaged */
#define DOC_E_CHAIN (-6)     /* the stream's sector chain is damaged or too short */
#define DOC_E_MINI (-7)      /* the mini stream or its table is damaged */
#define DOC_E_NOTFOUND (-8)  /* no entry of that name */
#define DOC_E_NOTSTREAM (-9) /* the name is a storage, not a stream */
#define DOC_E_NOMEM (-10)    /* a table could not be allocated */
#define DOC_E_TOOLARGE (-11) /* the stream is 2 GiB or longer */
#define DOC_E_ARGUMENT (-12) /* a null file name or an empty stream path */

/* Directory entry types, as docListEntries reports them. */
#define DOC_ENTRY_STORAGE 1
#define DOC_ENTRY_STREAM 2

/* Called once per storage and stream, parents before children, siblings in
 * the document's order. path is the entry's path from the root in UTF-8,
 * names joined by "/". A non-zero answer stops the listing. */
typedef int32_t (*DOCLISTPROC)(const char *path, int32_t type, uint32_t size, void *user);

/* Opens the stream at streamPath ("Pictures/Page1": storage names, then the
 * stream's name; names compare as the format compares them, without regard
 * to case) inside the document file. Returns a read-only stream handle, or 0
 * with the reason in *resultOut (when not null). zepClose frees everything. */
MIVO4_API HZEPIO docOpenStream(const char *file, const char *streamPath, int32_t *resultOut);

/* Lists the storages and streams of a document; returns DOC_OK or the reason
 * the document was refused. */
MIVO4_API int32_t docListEntries(const char *file, DOCLISTPROC proc, void *user);

/* The routines zepRead and zepSeek hand a document stream to. */
MIVO4_API int32_t docRead(HZEPIO h, void *buffer, int32_t count);
MIVO4_API int32_t docSeek(HZEPIO h, int32_t offset, int32_t whence);
/* The sector holding byte offset of the chain that begins at start: the table
 * (a memory handle of 32-bit sector numbers) followed offset / sectorSize
 * times. */
MIVO4_API uint32_t GetCurrentSect(uint32_t start, uint32_t offset, uint32_t sectorSize, ZHANDLE table);

#endif /* MIVO4_DOCFILE_H */
