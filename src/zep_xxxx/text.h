// Bounded text copies into the module's fixed-size text fields.
#pragma once

#include <cstddef>
#include <cstring>

namespace mivo4 {

// Copies src into dst of dstSize bytes, cutting it to fit; always terminates
// (for dstSize > 0). A null src gives an empty text.
inline void copyText(char *dst, size_t dstSize, const char *src) {
    if (dst == nullptr || dstSize == 0) return;
    size_t n = src != nullptr ? std::strlen(src) : 0;
    if (n >= dstSize) n = dstSize - 1;
    if (n > 0) std::memmove(dst, src, n);
    dst[n] = '\0';
}

}  // namespace mivo4
