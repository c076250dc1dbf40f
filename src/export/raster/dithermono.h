// One pass from a source bitmap to one bit per pixel, for dithers onto a
// table of greys.
#pragma once

#include <mivo4/memory.h>

#include <cstdint>

namespace mivo4::color {

// Dithers a source bitmap of 1, 4, 8, 24 or 32 bits onto the table Htable of
// n entries and converts it to one bit, in one pass over the source rows,
// giving the bitmap the 24-bit working copy route gives. False, with nothing
// done, when that route must run instead (a table that is not all greys, a
// depth it does not take, the debug level's printing, an empty picture);
// otherwise true, with result the new bitmap, or 0 when it could not be had.
bool ditherSourceToOneBit(ZHANDLE Hdata, uint32_t w, uint32_t h, int16_t src_depth, ZHANDLE Hsrcrgb,
                          ZHANDLE Htable, uint16_t n, ZHANDLE &result);

}  // namespace mivo4::color
