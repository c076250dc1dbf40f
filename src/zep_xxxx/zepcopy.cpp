// Copying one named file to another through two streams.
#include "zep_xxxx/zepio.h"

#include <climits>

using namespace mivo4::zep;

// Returns total written minus total read: 0 when everything was copied.
// A source that cannot be opened reads as empty (reads from handle 0 return 0),
// so the target is then created empty and the result is 0.
int32_t zepCopy(const char *source, const char *target) {
    HZEPIO in = zepOpen(source, nullptr, ZEP_OPEN_READ);
    HZEPIO out = zepOpen(target, nullptr, ZEP_OPEN_CREATE | ZEP_OPEN_WRITE);
    uint8_t chunk[kCopyChunk];
    int64_t read = 0;
    int64_t written = 0;
    for (;;) {
        int32_t got = zepRead(in, chunk, kCopyChunk);
        if (got < 1) break;
        read += got;
        // Only bytes really written count: a failed write's -1 is not a size.
        written += std::max(zepWrite(out, chunk, got), 0);
    }
    zepClose(in);
    zepClose(out);
    int64_t difference = written - read;
    return static_cast<int32_t>(std::clamp<int64_t>(difference, INT32_MIN, INT32_MAX));
}
