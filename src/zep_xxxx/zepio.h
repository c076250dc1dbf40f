// Stream records and the helpers that every stream routine shares.
//
// A stream handle (HZEPIO) is the memory handle of one zero-filled ZEPIODATA
// record. Each routine locks the handle on entry; a handle that is 0, stale,
// or names a block that is not a stream record locks to null and gets the
// routine's result for "no stream".
//
// One record stands for one of three kinds of stream:
// - a callback stream: ZepIOInfo.pIOProc is set, every operation goes to the
//   host's function;
// - a memory stream: lFileOffset is -1, the buffer is the caller's own block,
//   which grows as it is written;
// - a file stream: hFileHandle is the FILE, read and written through a
//   12288-byte buffer of our own.
#pragma once

#include <mivo4/docfile.h>
#include <mivo4/memory.h>
#include <mivo4/stream.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

// Leading fields of a compound document's file header, carried by streams
// that lie inside such a document.
struct DOCHEADER {
    uint8_t Signature[8];
    uint8_t Reserved[16];
    uint16_t MinorVers;
    uint16_t MajorVers;
    uint16_t ByteOrder;
    uint16_t SectShift;
    uint16_t MiniSectShift;
    uint8_t Reserved0[2];
    uint8_t Reserved1[4];
    uint8_t Reserved2[4];
    uint32_t FatLength;
    uint32_t DirStart;
    uint32_t DfSig;
    uint32_t MiniFatCutoff;
    uint32_t MiniFatStart;
    uint32_t MiniFatLen;
    uint32_t DifStart;
    uint32_t DifLength;
};
static_assert(sizeof(DOCHEADER) == 76, "the document header is read as 76 packed bytes");

// Buffer state of a stream. Positions are byte indexes into the buffer;
// -1 means none.
struct ZEPIOBUFFDATA {
    ZHANDLE hFileBuffer;        // handle of the buffer block
    uint8_t **lplpFileBuffer;   // memory stream: the caller's pointer variable, rewritten when the block moves
    int32_t lNextBufChar;       // index of the next byte to read or write
    int32_t lEndBufRead;        // index of the last valid byte; -1 when empty
    int32_t lEndBufWrite;       // index of the last byte writable before a flush or growth
    int32_t lBufOffset;         // stream position of index 0 (always 0 for memory)
    int32_t lFileOffset;        // stream position just past what was read in; -1 marks memory
    int32_t iBufWritten;        // 1 while the buffer holds bytes not yet written out
    uint32_t dwExpSize;         // growth step of a memory stream
    int32_t lEndOfFilePos;      // file length, or for memory the lEndBufRead at open
};

// One open stream.
struct ZEPIODATA {
    FILE *hFileHandle;          // file streams only
    ZEPIOBUFFDATA ZepIOBuff;
    IOINFO ZepIOInfo;           // pIOProc and hCBOpen of a callback stream; the rest stays zero
    uint32_t dwOpenFlags;
    int32_t iFileReOpen;        // 1: attached to the caller's FILE, which zepClose leaves open
    int32_t iErrorFlag;         // 0, or -1 after a failed fill, flush, seek or write (sticky)
    int16_t tEndian;            // 1 = big-endian stream values, anything else little-endian
    int16_t tRealFormat;        // 1 = 16.16 fixed-point 4-byte reals, anything else IEEE
    int16_t tWriteLineFormat;   // 0 = CR LF, 1 = CR, 2 = LF
    int32_t lDiskOffset;
    DOCHEADER DocHdr;
    int32_t isDiskFile;         // 1 for a named file (standard input and output included)
    int32_t docOffset;
    int32_t isRoot;
    int32_t isDocFile;          // non-zero: reads and seeks go to the document stream code
    int32_t isStream;
    ZHANDLE hFAT;
    ZHANDLE hMiniFAT;
    uint32_t MiniStart;
    uint32_t MiniLength;
    uint32_t Start;
    uint32_t Length;
    uint32_t DirIndex;
    ZHANDLE hIOStruct;
};

static_assert(std::is_standard_layout_v<ZEPIODATA>);
static_assert(sizeof(ZEPIODATA::hFileHandle) == sizeof(void *), "a FILE address keeps its full width");
static_assert(sizeof(ZEPIOBUFFDATA::lplpFileBuffer) == sizeof(void *));
static_assert(offsetof(ZEPIODATA, hFileHandle) < offsetof(ZEPIODATA, ZepIOBuff));
static_assert(offsetof(ZEPIODATA, ZepIOBuff) < offsetof(ZEPIODATA, ZepIOInfo));
static_assert(offsetof(ZEPIODATA, ZepIOInfo) < offsetof(ZEPIODATA, dwOpenFlags));
static_assert(offsetof(ZEPIODATA, tWriteLineFormat) < offsetof(ZEPIODATA, lDiskOffset));
static_assert(offsetof(ZEPIODATA, DocHdr) < offsetof(ZEPIODATA, isDiskFile));
static_assert(offsetof(ZEPIODATA, isStream) < offsetof(ZEPIODATA, hFAT));
static_assert(offsetof(ZEPIODATA, DirIndex) < offsetof(ZEPIODATA, hIOStruct));

namespace mivo4::zep {

inline constexpr int32_t kFileBufferSize = 12288;  // a file is read and written in blocks of this size
inline constexpr int32_t kCopyChunk = 4096;        // zepCopy moves this much per read
inline constexpr uint8_t kEndMarker = 0xFF;        // appended to a written memory stream by zepClose
inline constexpr uint32_t kOpenWriteBits = ZEP_OPEN_WRITE | ZEP_OPEN_UPDATE;

// The record of a live stream handle, or null for 0, a stale handle, or a
// handle whose block is too small to be a stream record.
inline ZEPIODATA *LockStream(HZEPIO h) {
    if (h == 0 || GlobalSize(h) < sizeof(ZEPIODATA)) return nullptr;
    return static_cast<ZEPIODATA *>(GlobalLock(h));
}

inline bool IsCallback(const ZEPIODATA &s) { return s.ZepIOInfo.pIOProc != nullptr; }
inline bool IsMemory(const ZEPIODATA &s) {
    return s.hFileHandle == nullptr && s.ZepIOBuff.lFileOffset == -1;
}

// Passes one operation to the host. The handle goes back as the same 32-bit
// value the host's open returned (or gave us for an attached stream).
inline int32_t CallHost(const ZEPIODATA &s, int32_t op, intptr_t arg1, intptr_t arg2) {
    intptr_t handle = static_cast<int32_t>(s.ZepIOInfo.hCBOpen);
    return s.ZepIOInfo.pIOProc(handle, op, arg1, arg2);
}

// A growth step of 0 would never make room, so it counts as 1.
inline int64_t GrowthStep(const ZEPIODATA &s) {
    return std::max<int64_t>(s.ZepIOBuff.dwExpSize, 1);
}

// The stream's buffer, or null when it is gone or smaller than the record's
// positions say (the caller freed or replaced a memory block under us).
uint8_t *LockBuffer(const ZEPIODATA &s);

// Resizes a memory stream's block so that lastWritable is its last index.
// The block always moves; the caller's pointer variable follows it. On
// failure the old block is gone too: the stream forgets it and the caller's
// pointer is set to null, so that nothing points at freed memory.
bool GrowMemory(ZEPIODATA &s, int64_t lastWritable);

// File length by seeking to the end and back; false when the FILE cannot be
// positioned (a pipe or a terminal).
bool FileLength(FILE *file, int32_t &length);

// Positions the FILE for the buffer's sequential reads and writes. A FILE that
// cannot be positioned at all is used sequentially: that is the only way a
// pipe can be read or written, and the buffer never asks such a FILE for
// anything but the next bytes in order.
bool SeekForBuffer(FILE *file, int32_t position);

// Buffer work on a locked record; FillZepIOBuf and FlushZepIO wrap these.
int32_t FillBuffer(ZEPIODATA &s);
int32_t FlushBuffer(ZEPIODATA &s);

// Releases what a file stream holds: its buffer, and its FILE unless the
// caller owns that. Used by close, and by callback streams whose open fell
// through to a file or memory stream. Returns fclose's result, or 0.
int32_t ReleaseFileSide(ZEPIODATA &s);

}  // namespace mivo4::zep
