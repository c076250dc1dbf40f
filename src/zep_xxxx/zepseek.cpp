// Positioning a stream.
#include "zep_xxxx/zepio.h"

#include <climits>

using namespace mivo4::zep;

namespace {

int32_t Fail(ZEPIODATA &s) {
    s.iErrorFlag = -1;
    return -1;
}

int32_t SeekMemory(ZEPIODATA &s, int64_t target, int32_t offset, int32_t whence) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    if (whence == 0) {
        if (target > b.lEndBufWrite && !GrowMemory(s, target + GrowthStep(s))) return Fail(s);
        b.lNextBufChar = static_cast<int32_t>(target);
        return b.lNextBufChar;
    }
    if (whence == 2) {
        // Past the end is allowed (a write there grows the block); before the
        // start is not.
        int64_t position = int64_t{offset} + b.lEndBufRead + 1;
        if (position < 0 || position > INT32_MAX) return Fail(s);
        b.lNextBufChar = static_cast<int32_t>(position);
        return b.lNextBufChar;
    }
    return Fail(s);
}

int32_t SeekFile(ZEPIODATA &s, int64_t target, int32_t offset, int32_t whence) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    if (b.iBufWritten != 0 && FlushBuffer(s) < 0) s.iErrorFlag = -1;
    if (whence < 0 || whence > 2) return Fail(s);
    long where = whence == 0 ? static_cast<long>(target) : offset;
    if (std::fseek(s.hFileHandle, where, whence) != 0) return Fail(s);
    long position = std::ftell(s.hFileHandle);
    if (position < 0 || position > INT32_MAX) return Fail(s);
    b.lFileOffset = static_cast<int32_t>(position);
    if (FillBuffer(s) == -1) return Fail(s);
    return static_cast<int32_t>(position);
}

}  // namespace

// Whence 0 from the start, 1 from the current position, 2 from the end.
// Returns the new position, or -1 (and the stream is in error).
int32_t zepSeek(HZEPIO h, int32_t offset, int32_t whence) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    if (IsCallback(*s)) {
        // The host receives the address of the offset and may read it there.
        int32_t where = offset;
        return CallHost(*s, ZEP_CB_SEEK, reinterpret_cast<intptr_t>(&where), whence);
    }
    if (s->isDocFile != 0) return docSeek(h, offset, whence);

    ZEPIOBUFFDATA &b = s->ZepIOBuff;
    int64_t here = int64_t{b.lBufOffset} + b.lNextBufChar;
    int64_t target = offset;
    if (whence == 1) {
        if (offset == 0) return static_cast<int32_t>(here);  // asking where we are changes nothing
        target += here;
        whence = 0;
    }
    if (whence == 0) {
        // A stream opened only for reading may not be positioned past its
        // length. For a memory stream that length is the index of its last
        // byte, so such a stream cannot be positioned just past its data with
        // whence 0; whence 2 can.
        bool mayExtend = (s->dwOpenFlags & kOpenWriteBits) != 0;
        if (target < 0 || target > INT32_MAX || (!mayExtend && target > b.lEndOfFilePos)) return Fail(*s);
        // Inside the buffered range a seek costs nothing.
        if (b.lBufOffset <= target && target <= int64_t{b.lBufOffset} + b.lEndBufRead) {
            b.lNextBufChar = static_cast<int32_t>(target - b.lBufOffset);
            return static_cast<int32_t>(target);
        }
    }
    if (IsMemory(*s)) return SeekMemory(*s, target, offset, whence);
    if (s->hFileHandle == nullptr) return Fail(*s);
    return SeekFile(*s, target, offset, whence);
}

// fseek then ftell: the new position, -1 when the FILE could not be positioned.
int32_t unxSeek(void *file, int32_t offset, int32_t whence) {
    if (file == nullptr) return -1;
    auto *f = static_cast<FILE *>(file);
    if (std::fseek(f, offset, whence) != 0) return -1;
    long position = std::ftell(f);
    if (position < 0 || position > INT32_MAX) return -1;
    return static_cast<int32_t>(position);
}
