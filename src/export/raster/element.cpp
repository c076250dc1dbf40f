// Bounds of elements that lie in the element buffer.
#include "export/raster/element.h"

#include <mivo4/memory.h>

#include <cstring>

namespace mivo4::driver {

MoRastData *State() { return static_cast<MoRastData *>(lpEMData); }

size_t ElementRoom(const void *data) {
    if (data == nullptr) return 0;
    const MoRastData *s = State();
    if (s == nullptr || s->lpDvrBuf == nullptr) return SIZE_MAX;
    // Compared as addresses: the element may be anywhere in the host's memory.
    auto at = reinterpret_cast<uintptr_t>(data);
    auto begin = reinterpret_cast<uintptr_t>(s->lpDvrBuf);
    uintptr_t end = begin + s->DvrBufSz;
    if (at < begin || at >= end) return SIZE_MAX;
    return static_cast<size_t>(end - at);
}

bool ElementRead(const void *data, size_t offset, void *out, size_t n) {
    size_t room = ElementRoom(data);
    if (room < offset || room - offset < n) {
        std::memset(out, 0, n);
        return false;
    }
    std::memcpy(out, static_cast<const uint8_t *>(data) + offset, n);
    return true;
}

}  // namespace mivo4::driver
