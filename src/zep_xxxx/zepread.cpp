// Reading bytes from a stream.
#include "zep_xxxx/zepio.h"

#include <cstring>

using namespace mivo4::zep;

// Returns the count read (short or 0 at the end of the stream), -1 on error,
// 0 for no stream. A negative count reads nothing.
int32_t zepRead(HZEPIO h, void *buffer, int32_t count) {
    ZEPIODATA *s = LockStream(h);
    if (s == nullptr || count < 0) return 0;
    if (buffer == nullptr && count > 0) return -1;
    if (IsCallback(*s)) return CallHost(*s, ZEP_CB_READ, reinterpret_cast<intptr_t>(buffer), count);
    if (s->isDocFile != 0) return docRead(h, buffer, count);

    ZEPIOBUFFDATA &b = s->ZepIOBuff;
    auto *out = static_cast<uint8_t *>(buffer);
    int32_t done = 0;
    while (done < count) {
        if (b.lNextBufChar > b.lEndBufRead) {
            int32_t filled = FillBuffer(*s);
            if (filled == 0) break;
            if (filled < 0) {
                s->iErrorFlag = -1;
                return -1;
            }
            continue;
        }
        const uint8_t *data = LockBuffer(*s);
        if (data == nullptr) return -1;
        int32_t n = std::min(count - done, b.lEndBufRead - b.lNextBufChar + 1);
        std::memcpy(out + done, data + b.lNextBufChar, static_cast<size_t>(n));
        b.lNextBufChar += n;
        done += n;
    }
    return done;
}
