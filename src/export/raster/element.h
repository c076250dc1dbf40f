// Reading elements safely. A host writes its elements into the element buffer
// that initialisation handed out, or into memory of its own. Inside the
// element buffer the driver knows how many bytes the element can have (up to
// the end of the buffer) and never reads past them; elsewhere the host's
// memory is taken as holding what the element's layout says.
#pragma once

#include <mivo4/raster.h>

#include <cstddef>
#include <cstdint>

namespace mivo4::driver {

// The driver's state record, or null before initialisation.
MoRastData *State();

// Bytes from `data` to the end of the element buffer when `data` lies inside
// it; SIZE_MAX when it lies elsewhere (nothing is known there); 0 for null.
size_t ElementRoom(const void *data);

// Copies `n` bytes at `offset` of the element into `out`. When they are not
// all inside the element's room, `out` is zero-filled instead and the answer
// is false.
bool ElementRead(const void *data, size_t offset, void *out, size_t n);

}  // namespace mivo4::driver
