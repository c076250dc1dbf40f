// The stream buffer: filling it from a file, writing it out, and growing a
// memory stream's block.
#include "zep_xxxx/zepio.h"

#include <cerrno>
#include <climits>

namespace mivo4::zep {

uint8_t *LockBuffer(const ZEPIODATA &s) {
    const ZEPIOBUFFDATA &b = s.ZepIOBuff;
    auto *data = static_cast<uint8_t *>(GlobalLock(b.hFileBuffer));
    if (data == nullptr) return nullptr;
    int64_t needed = IsMemory(s) ? int64_t{b.lEndBufWrite} + 1 : kFileBufferSize;
    if (int64_t{GlobalSize(b.hFileBuffer)} < needed) return nullptr;
    return data;
}

bool GrowMemory(ZEPIODATA &s, int64_t lastWritable) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    // Positions are 32-bit signed: the block can hold at most INT32_MAX bytes.
    if (lastWritable < 0 || lastWritable >= INT32_MAX) return false;
    ZHANDLE grown = GlobalReAlloc(b.hFileBuffer, static_cast<uint32_t>(lastWritable + 1), 0);
    if (grown == 0) {
        b.hFileBuffer = 0;
        if (b.lplpFileBuffer != nullptr) *b.lplpFileBuffer = nullptr;
        return false;
    }
    b.hFileBuffer = grown;
    if (b.lplpFileBuffer != nullptr) *b.lplpFileBuffer = static_cast<uint8_t *>(GlobalLock(grown));
    b.iBufWritten = 0;
    b.lEndBufWrite = static_cast<int32_t>(lastWritable);
    return true;
}

bool FileLength(FILE *file, int32_t &length) {
    long here = std::ftell(file);
    if (here < 0) return false;
    if (std::fseek(file, 0, SEEK_END) != 0) return false;
    long end = std::ftell(file);
    std::fseek(file, here, SEEK_SET);
    if (end < 0) return false;
    length = end > INT32_MAX ? INT32_MAX : static_cast<int32_t>(end);
    return true;
}

bool SeekForBuffer(FILE *file, int32_t position) {
    errno = 0;
    if (std::fseek(file, position, SEEK_SET) == 0) return true;
    return errno == ESPIPE;
}

namespace {

void RefreshLength(ZEPIODATA &s) {
    int32_t length = 0;
    if (FileLength(s.hFileHandle, length)) s.ZepIOBuff.lEndOfFilePos = length;
}

}  // namespace

int32_t FillBuffer(ZEPIODATA &s) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    if (IsMemory(s) || s.hFileHandle == nullptr) return 0;  // a memory stream has nothing more
    if (b.iBufWritten != 0 && FlushBuffer(s) < 0) s.iErrorFlag = -1;
    uint8_t *data = LockBuffer(s);
    if (data == nullptr || !SeekForBuffer(s.hFileHandle, b.lFileOffset)) {
        s.iErrorFlag = -1;
        return -1;
    }
    std::clearerr(s.hFileHandle);
    size_t got = std::fread(data, 1, kFileBufferSize, s.hFileHandle);
    if (got < static_cast<size_t>(kFileBufferSize) && std::ferror(s.hFileHandle)) {
        s.iErrorFlag = -1;
        return -1;
    }
    auto count = static_cast<int32_t>(got);
    b.lNextBufChar = 0;
    b.lEndBufRead = count - 1;
    b.lEndBufWrite = kFileBufferSize - 1;
    b.lBufOffset = b.lFileOffset;
    b.lFileOffset += count;
    // The buffer now mirrors the file; bytes a failed flush could not write
    // are gone, and must not be written back over what was just read.
    b.iBufWritten = 0;
    return count;
}

int32_t FlushBuffer(ZEPIODATA &s) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    if (IsMemory(s)) {
        // Flushing a memory stream makes room: one growth step more.
        if (GrowMemory(s, int64_t{b.lEndBufWrite} + GrowthStep(s))) return 1;
        s.iErrorFlag = -1;
        return -1;
    }
    if (s.hFileHandle == nullptr || b.iBufWritten == 0) return 0;
    uint8_t *data = LockBuffer(s);
    if (data == nullptr || !SeekForBuffer(s.hFileHandle, b.lBufOffset)) {
        s.iErrorFlag = -1;
        return -1;
    }
    auto want = static_cast<size_t>(std::max(b.lEndBufRead + 1, 0));
    size_t wrote = std::fwrite(data, 1, want, s.hFileHandle);
    // The FILE's own buffer is emptied too, so that a write the system
    // refuses fails this flush rather than vanishing in a later seek.
    bool written = wrote == want && std::fflush(s.hFileHandle) == 0;
    int32_t result;
    if (!written) {
        s.iErrorFlag = -1;
        result = -1;
    } else {
        b.lNextBufChar = 0;
        b.lEndBufRead = -1;
        b.lEndBufWrite = kFileBufferSize - 1;
        b.lBufOffset = b.lFileOffset = b.lBufOffset + static_cast<int32_t>(wrote);
        b.iBufWritten = 0;
        result = static_cast<int32_t>(wrote);
    }
    RefreshLength(s);
    return result;
}

int32_t ReleaseFileSide(ZEPIODATA &s) {
    if (s.hFileHandle == nullptr) return 0;
    int32_t result = 0;
    if (s.iFileReOpen != 0) {
        // The caller's FILE stays open; what we wrote must still reach it.
        if (std::fflush(s.hFileHandle) != 0) result = -1;
    } else if (std::fclose(s.hFileHandle) != 0) {
        result = -1;
    }
    s.hFileHandle = nullptr;
    GlobalFree(s.ZepIOBuff.hFileBuffer);
    s.ZepIOBuff.hFileBuffer = 0;
    return result;
}

}  // namespace mivo4::zep

using namespace mivo4::zep;

// Called when reading has used up the buffer: loads the next block of the file.
// Returns the count read, 0 at the end, -1 on failure. A memory stream, a
// callback stream and no stream at all have nothing to load.
int32_t FillZepIOBuf(HZEPIO h) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr || IsCallback(*s)) return 0;
    return FillBuffer(*s);
}

// Writes pending bytes of a file stream out (returns the count), or grows a
// memory stream by one step (returns 1); -1 on failure, 0 when nothing was due.
int32_t FlushZepIO(HZEPIO h) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr || IsCallback(*s)) return 0;
    return FlushBuffer(*s);
}
