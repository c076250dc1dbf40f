#include "exif.h"

#include <cstring>

namespace mivo4::host {

namespace {

constexpr uint16_t kOrientationTag = 0x0112;
constexpr uint16_t kShort = 3, kLong = 4;

struct TiffBytes {
    const uint8_t *data;
    size_t size;
    bool bigEndian;
    uint16_t u16(size_t at) const {
        return bigEndian ? static_cast<uint16_t>(data[at] << 8 | data[at + 1])
                         : static_cast<uint16_t>(data[at + 1] << 8 | data[at]);
    }
    uint32_t u32(size_t at) const {
        return bigEndian ? uint32_t{u16(at)} << 16 | u16(at + 2) : uint32_t{u16(at + 2)} << 16 | u16(at);
    }
};

}  // namespace

int exifOrientation(const uint8_t *data, size_t size) {
    static const uint8_t kExif[6] = {'E', 'x', 'i', 'f', 0, 0};
    if (data == nullptr || size < sizeof kExif + 8 || std::memcmp(data, kExif, sizeof kExif) != 0) return 0;
    // Offsets inside the EXIF data count from its TIFF header.
    TiffBytes t{data + sizeof kExif, size - sizeof kExif, false};
    if (t.data[0] == 'I' && t.data[1] == 'I') t.bigEndian = false;
    else if (t.data[0] == 'M' && t.data[1] == 'M') t.bigEndian = true;
    else return 0;
    if (t.u16(2) != 42) return 0;
    const uint32_t ifd = t.u32(4);
    if (ifd < 8 || ifd > t.size || t.size - ifd < 2) return 0;
    const uint16_t count = t.u16(ifd);
    // Entries are 12 bytes; a count past the end of the data stops at the end.
    for (size_t i = 0, at = size_t{ifd} + 2; i < count && at + 12 <= t.size; ++i, at += 12) {
        if (t.u16(at) != kOrientationTag) continue;
        const uint16_t type = t.u16(at + 2);
        const uint32_t n = t.u32(at + 4);
        // One value, stored in the entry itself (left-justified in its 4 bytes).
        uint32_t value = 0;
        if (type == kShort && (n == 1 || n == 2)) value = t.u16(at + 8);
        else if (type == kLong && n == 1) value = t.u32(at + 8);
        else return 0;
        return value >= 1 && value <= 8 ? static_cast<int>(value) : 0;
    }
    return 0;
}

}  // namespace mivo4::host
