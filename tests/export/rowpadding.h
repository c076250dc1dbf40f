// Bitmap rows (padded to 4 bytes) with every bit past their pixels cleared, as
// readers leave them and as a stretched copy makes them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mivo4::test {

inline void clearRowPadding(uint8_t *rows, uint32_t width, uint32_t height, uint32_t depth) {
    const uint64_t bits = uint64_t{width} * depth;
    const uint64_t stride = ((bits + 7) / 8 + 3) & ~uint64_t{3};
    for (uint32_t y = 0; y < height; ++y) {
        uint8_t *row = rows + y * stride;
        if (bits % 8 != 0) row[bits / 8] &= static_cast<uint8_t>(0xFF00u >> (bits % 8));
        for (uint64_t i = (bits + 7) / 8; i < stride; ++i) row[i] = 0;
    }
}

}  // namespace mivo4::test
