// Pictures stored turned or mirrored (the TIFF Orientation tag, the JPEG EXIF
// Orientation) made upright before export, as the field's tools do when told
// to orient automatically.
#pragma once

#include <cstdint>
#include <string>

#include "image.h"

namespace mivo4::host {

// Whether an orientation value is one of the eight defined ones.
inline bool knownOrientation(int orientation) { return orientation >= 1 && orientation <= 8; }

// Turns image upright as image.orientation says (1 upright, 2 mirrored, 3 half
// a turn, 4 upside down mirrored, 5 to 8 the same with rows and columns
// swapped), then sets it to 1. Flips are made in place; the four that swap
// width and height need a second block of the picture's size, checked first
// against the memory budget (name is for the message), and the first block
// goes back through release. Any depth: 1, 4, 8 or 24. Throws ReadError.
void orientUpright(Image &image, const std::string &name, const PixelAllocator &alloc, const PixelRelease &release);

}  // namespace mivo4::host
