// Sizes shared by the cell-array element and the begin-image primitive: how
// many pixels a row takes from the device window, the bytes of a padded row,
// and which depths the colour library can take.
#pragma once

#include <mivo4/raster.h>

#include <cstdint>

namespace mivo4::driver {

// Bits per cell from an element's precision: its magnitude, with -32768
// standing for one bit.
int64_t BitsFromPrecision(int32_t precision);

// Depths a bitmap of the colour library can have.
bool KnownDepth(int64_t bits);

// Bytes of a row of `pixels` pixels of `bits` bits, padded to 4 bytes.
uint64_t PaddedRowBytes(uint64_t pixels, uint64_t bits);

// Pixels per row: the device window's width (corners truncated to integers
// first), never more than `cells`.
int64_t WindowWidth(const MoRastData &s, int64_t cells);

struct CellGeometry {
    bool valid = false;         // a positive size and a known depth
    int64_t bitsPerPixel = 0;
    int64_t pixelsPerRow = 0;
    uint64_t bytesPerRow = 0;
    uint64_t garbageBytesPerRow = 0;  // bytes of a source row after the window's pixels
    uint64_t bufferSize = 0;
};

// The geometry of a cell array of sizeX x sizeY cells at `precision`. Only a
// 24-bit cell array narrower than its cells skips the rest of each source row;
// at other depths the rows follow one another at the window's row length.
CellGeometry CellArrayGeometry(const MoRastData &s, int32_t sizeX, int32_t sizeY, int32_t precision);

}  // namespace mivo4::driver
