// Opening and closing streams, and the two queries that share the open call:
// does a file exist, and delete a file.
#include "zep_xxxx/zepio.h"

#include <climits>
#include <cstring>

using namespace mivo4::zep;

namespace {

constexpr HZEPIO kMissing = 0xFFFFFFFFu;  // the existence test's "no such file"
constexpr HZEPIO kPresent = 1;            // any value but -1 would do; never a FILE address

// Owns a freshly allocated stream record until the open succeeds.
class RecordGuard {
public:
    explicit RecordGuard(HZEPIO h) : h_(h) {}
    RecordGuard(const RecordGuard &) = delete;
    RecordGuard &operator=(const RecordGuard &) = delete;
    ~RecordGuard() {
        if (h_ != 0) GlobalFree(h_);
    }
    HZEPIO release() {
        HZEPIO h = h_;
        h_ = 0;
        return h;
    }

private:
    HZEPIO h_;
};

// The FILE mode for the open flags: bits 1 and 2 are tested separately, "r+"
// winning when both are set, and the create bit overrides both.
const char *FileMode(uint32_t flags) {
    const char *mode = "r";
    if ((flags & ZEP_OPEN_WRITE) != 0) mode = "w+";
    if ((flags & ZEP_OPEN_UPDATE) != 0) mode = "r+";
    if ((flags & ZEP_OPEN_CREATE) != 0) mode = "w+";
    return mode;
}

// Gives a file stream its buffer. On failure a FILE that the open call itself
// opened is closed again; the caller's FILE and the standard streams stay open.
bool AttachFile(ZEPIODATA &s, FILE *file, bool openedHere) {
    ZHANDLE buffer = GlobalAlloc(GHND, kFileBufferSize);
    if (buffer == 0) {
        if (openedHere) std::fclose(file);
        return false;
    }
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    b.hFileBuffer = buffer;
    b.lNextBufChar = 0;
    b.lEndBufRead = -1;
    b.lEndBufWrite = kFileBufferSize - 1;
    b.lBufOffset = 0;
    b.lFileOffset = 0;
    s.hFileHandle = file;
    return true;
}

// Sets up a memory stream over the caller's block. The block must be one of
// ours (GlobalAlloc), and the length the caller gives is never taken beyond
// the block's own size.
bool AttachMemory(ZEPIODATA &s, IOINFO *info, uint32_t flags) {
    if (info == nullptr || info->lplpBuffer == nullptr) return false;
    uint8_t *block = *info->lplpBuffer;
    ZHANDLE handle = GlobalHandle(block);
    if (handle == 0) return false;
    int32_t length = std::clamp<int64_t>(info->lBuffer, 0, std::min<int64_t>(GlobalSize(handle), INT32_MAX));

    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    b.hFileBuffer = handle;
    b.lplpFileBuffer = info->lplpBuffer;
    if ((flags & ZEP_OPEN_CREATE) != 0) {
        b.lEndBufRead = -1;
    } else {
        // A block written by this library ends with the end marker followed by
        // the zeros of its last growth step: drop the zeros, then the marker.
        // The marker is what keeps zero bytes at the end of the data.
        while (length > 0 && block[length - 1] == 0) --length;
        if (length > 0) --length;  // an all-zero block is simply empty
        info->lBuffer = length;
        b.lEndBufRead = length - 1;
    }
    b.lEndBufWrite = length - 1;
    b.dwExpSize = info->dwExpSize;
    b.lNextBufChar = 0;
    b.lBufOffset = 0;
    b.lFileOffset = -1;
    s.hFileHandle = nullptr;
    return true;
}

// The last step of every successful open but a callback one: the length
// that bounds seeks on streams opened for reading.
void FinishOpen(ZEPIODATA &s) {
    s.iErrorFlag = 0;
    s.tWriteLineFormat = ZEP_LINE_LF;
    if (IsCallback(s)) return;
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    if (IsMemory(s)) {
        b.lEndOfFilePos = b.lEndBufRead;
    } else if (!FileLength(s.hFileHandle, b.lEndOfFilePos)) {
        // A pipe or a terminal has no length: seeks are bounded by what the
        // FILE itself allows.
        b.lEndOfFilePos = INT32_MAX;
    }
}

HZEPIO TestExists(const char *name, LPZEPCALLBACK callback) {
    if (callback != nullptr) {
        return static_cast<HZEPIO>(callback(0, ZEP_CB_EXISTS, reinterpret_cast<intptr_t>(name), 0));
    }
    if (name == nullptr) return kMissing;
    FILE *file = std::fopen(name, "r");
    if (file == nullptr) return kMissing;
    std::fclose(file);
    return kPresent;
}

HZEPIO RemoveFile(const char *name, LPZEPCALLBACK callback) {
    if (callback != nullptr) {
        return static_cast<HZEPIO>(callback(0, ZEP_CB_DELETE, reinterpret_cast<intptr_t>(name), 0));
    }
    if (name == nullptr) return 0;
    return std::remove(name) == 0 ? 1u : 0u;
}

}  // namespace

HZEPIO zepOpen(const char *name, IOINFO *info, uint32_t flags) {
    LPZEPCALLBACK callback = info != nullptr ? info->pIOProc : nullptr;
    // Both queries are recognised only as the whole flags value.
    if (flags == ZEP_OPEN_EXISTS) return TestExists(name, callback);
    if (flags == ZEP_OPEN_DELETE) return RemoveFile(name, callback);

    HZEPIO h = GlobalAlloc(GHND, sizeof(ZEPIODATA));
    if (h == 0) return 0;
    RecordGuard guard(h);
    auto *s = static_cast<ZEPIODATA *>(GlobalLock(h));
    s->dwOpenFlags = flags;

    if (flags == ZEP_OPEN_ATTACH) {
        if (info == nullptr) return 0;
        s->iFileReOpen = 1;
        if (callback != nullptr) {
            // An attached callback stream is ready as it is: nothing is set
            // beyond the callback fields (its line ending stays at 0, CR LF).
            s->ZepIOInfo.pIOProc = callback;
            s->ZepIOInfo.hCBOpen = info->hCBOpen;
            return guard.release();
        }
        auto *file = static_cast<FILE *>(info->hFile);
        if (file == nullptr || !AttachFile(*s, file, false)) return 0;
        FinishOpen(*s);
        return guard.release();
    }

    if (callback != nullptr) {
        s->ZepIOInfo.pIOProc = callback;
        int32_t opened = callback(reinterpret_cast<intptr_t>(info->lplpBuffer), ZEP_CB_OPEN,
                                  reinterpret_cast<intptr_t>(name), static_cast<intptr_t>(flags));
        if (opened != 0) {
            s->ZepIOInfo.hCBOpen = static_cast<uint32_t>(opened);
            return guard.release();
        }
        // The host refused: the open goes on as a file or memory stream, but
        // the callback stays in the record, so every later operation still
        // goes to it (with handle 0). Kept so because hosts rely on seeing
        // every operation once they have given a callback.
    }

    if (name == nullptr || name[0] == '\0') {
        if (!AttachMemory(*s, info, flags)) return 0;
        FinishOpen(*s);
        return guard.release();
    }

    s->isDiskFile = 1;
    FILE *file = nullptr;
    bool openedHere = false;
    if (std::strcmp(name, "stdin") == 0) {
        file = stdin;
    } else if (std::strcmp(name, "stdout") == 0) {
        file = stdout;
    } else {
        file = std::fopen(name, FileMode(flags));
        openedHere = true;
    }
    if (file == nullptr || !AttachFile(*s, file, openedHere)) return 0;
    FinishOpen(*s);
    return guard.release();
}

int32_t zepClose(HZEPIO h) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    int32_t result = 0;
    if (IsCallback(*s)) {
        result = CallHost(*s, ZEP_CB_CLOSE, 0, 0);
        // A host that refused the open left us a file of our own to release.
        ReleaseFileSide(*s);
    } else if (IsMemory(*s)) {
        // A written memory block ends with one marker byte, so that a later
        // open can tell the data from the zeros of the growth step. The
        // caller's block stays the caller's.
        if ((s->dwOpenFlags & kOpenWriteBits) != 0) {
            zepSeek(h, 0, 2);
            uint8_t marker = kEndMarker;
            if (zepWrite(h, &marker, 1) < 1) result = -1;
        }
    } else {
        int32_t flushed = FlushBuffer(*s);
        result = ReleaseFileSide(*s);
        if (flushed == -1) result = -1;
    }
    // A stream inside a document owns the allocation tables its opener made.
    GlobalFree(s->hFAT);
    GlobalFree(s->hMiniFAT);
    GlobalFree(s->hIOStruct);
    GlobalFree(h);
    return result;
}

int32_t zepCloseandDelete(HZEPIO h, const char *name) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr) return -1;
    if (IsCallback(*s)) {
        CallHost(*s, ZEP_CB_CLOSE, 0, ZEP_OPEN_DELETE);
        ReleaseFileSide(*s);
        GlobalFree(h);
        return 0;
    }
    // zepOpen never fills ZepIOInfo.lplpBuffer, so in practice this closes and
    // deletes by name; a record that does carry a block gives the block up instead.
    uint8_t **held = s->ZepIOInfo.lplpBuffer;
    bool heldBlock = held != nullptr && *held != nullptr;
    if (heldBlock) {
        zepPtrGlobalFree(*held);
        *held = nullptr;
    }
    zepClose(h);
    if (!heldBlock) zepOpen(name, nullptr, ZEP_OPEN_DELETE);
    return 0;
}
