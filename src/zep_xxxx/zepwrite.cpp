// Writing bytes to a stream.
#include "zep_xxxx/zepio.h"

#include <cstring>

using namespace mivo4::zep;

namespace {

void Store(ZEPIOBUFFDATA &b, uint8_t *data, const uint8_t *in, int32_t n) {
    std::memcpy(data + b.lNextBufChar, in, static_cast<size_t>(n));
    b.lNextBufChar += n;
    b.lEndBufRead = std::max(b.lEndBufRead, b.lNextBufChar - 1);
    b.iBufWritten = 1;
}

// A memory stream grows once per write, by as many whole steps as the bytes
// need: the block ends up exactly as large as growing one step each time the
// write position passed the writable end would make it, without copying the
// block once per step.
int32_t WriteMemory(ZEPIODATA &s, const uint8_t *in, int32_t count) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    int64_t end = int64_t{b.lNextBufChar} + count;  // one past the last byte written
    if (end > b.lEndBufWrite) {
        int64_t step = GrowthStep(s);
        int64_t steps = (end - b.lEndBufWrite + step - 1) / step;
        if (!GrowMemory(s, b.lEndBufWrite + steps * step)) {
            s.iErrorFlag = -1;
            return -1;
        }
    }
    uint8_t *data = LockBuffer(s);
    if (data == nullptr) {
        s.iErrorFlag = -1;
        return -1;
    }
    Store(b, data, in, count);
    return count;
}

// A file stream fills its buffer and writes it out each time it is full,
// carrying on from buffer index 0.
int32_t WriteFile(ZEPIODATA &s, const uint8_t *in, int32_t count) {
    ZEPIOBUFFDATA &b = s.ZepIOBuff;
    int32_t done = 0;
    while (done < count) {
        if (b.lNextBufChar > b.lEndBufWrite && FlushBuffer(s) == -1) {
            s.iErrorFlag = -1;
            return -1;
        }
        uint8_t *data = LockBuffer(s);
        if (data == nullptr) {
            s.iErrorFlag = -1;
            return -1;
        }
        int32_t n = std::min(count - done, b.lEndBufWrite - b.lNextBufChar + 1);
        Store(b, data, in + done, n);
        done += n;
        if (b.lNextBufChar > b.lEndBufWrite && FlushBuffer(s) == -1) {
            s.iErrorFlag = -1;
            return -1;
        }
    }
    return done;
}

}  // namespace

// Returns the count written, -1 on error, and 0 for no stream or a stream
// already in error: once a fill, flush, seek or write has failed, nothing more
// is written until the stream is opened again. A negative count writes nothing.
int32_t zepWrite(HZEPIO h, const void *buffer, int32_t count) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr || count < 0) return 0;
    if (buffer == nullptr && count > 0) return -1;
    if (IsCallback(*s)) return CallHost(*s, ZEP_CB_WRITE, reinterpret_cast<intptr_t>(buffer), count);
    if (s->iErrorFlag == -1) return 0;
    if (count == 0) return 0;
    const auto *in = static_cast<const uint8_t *>(buffer);
    return IsMemory(*s) ? WriteMemory(*s, in, count) : WriteFile(*s, in, count);
}
