#include "export/raster/cells.h"

#include "zep_xxxx/truncate.h"

#include <cstdlib>

namespace mivo4::driver {

int64_t BitsFromPrecision(int32_t precision) {
    if (precision == DVR_PRECISION_ONE_BIT) return 1;
    return std::llabs(static_cast<int64_t>(precision));
}

bool KnownDepth(int64_t bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 24 || bits == 32; }

uint64_t PaddedRowBytes(uint64_t pixels, uint64_t bits) { return ((pixels * bits + 7) / 8 + 3) & ~uint64_t{3}; }

int64_t WindowWidth(const MoRastData &s, int64_t cells) {
    const int64_t x1 = TruncateToInt32(s.dtr.wn.p1.x), x2 = TruncateToInt32(s.dtr.wn.p2.x);
    const int64_t width = std::llabs(x2 - x1) + 1;
    return width >= cells ? cells : width;
}

CellGeometry CellArrayGeometry(const MoRastData &s, int32_t sizeX, int32_t sizeY, int32_t precision) {
    CellGeometry g;
    g.bitsPerPixel = BitsFromPrecision(precision);
    if (sizeX <= 0 || sizeY <= 0 || !KnownDepth(g.bitsPerPixel)) return g;
    g.pixelsPerRow = WindowWidth(s, sizeX);
    g.bytesPerRow = PaddedRowBytes(static_cast<uint64_t>(g.pixelsPerRow), static_cast<uint64_t>(g.bitsPerPixel));
    if (g.bitsPerPixel == 24 && g.pixelsPerRow < sizeX)
        g.garbageBytesPerRow = PaddedRowBytes(static_cast<uint64_t>(sizeX), 24) - g.bytesPerRow;
    // Sizes past 32 bits cannot be allocated; they are kept as such so that
    // the allocation is refused, never wrapped.
    const uint64_t rows = static_cast<uint64_t>(sizeY);
    g.bufferSize = g.bytesPerRow > UINT64_MAX / rows ? UINT64_MAX : g.bytesPerRow * rows;
    g.valid = true;
    return g;
}

}  // namespace mivo4::driver
