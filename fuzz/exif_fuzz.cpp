// Feeds arbitrary bytes to the host's EXIF reader as the data of a JPEG APP1
// segment: it answers an orientation from 0 to 8 and reads nothing outside
// the bytes (libFuzzer hands them over in a block of their exact size).
#include <cstddef>
#include <cstdint>

#include "exif.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int orientation = mivo4::host::exifOrientation(data, size);
    if (orientation < 0 || orientation > 8) __builtin_trap();
    return 0;
}
