// The one EXIF field the host uses: the orientation of a JPEG's picture, read
// from the APP1 "Exif" segment's first directory (IFD0, tag 0x0112).
#pragma once

#include <cstddef>
#include <cstdint>

namespace mivo4::host {

// The orientation (1 to 8) an APP1 segment's data states: data starts after
// the marker's length, with "Exif\0\0" and a TIFF header of either byte
// order. 0 when the segment is not EXIF, states no orientation, or states one
// outside 1 to 8. Reads nothing outside data, whatever its bytes say.
int exifOrientation(const uint8_t *data, size_t size);

}  // namespace mivo4::host
