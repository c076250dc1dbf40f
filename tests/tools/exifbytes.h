// EXIF segments for the tests, built byte by byte: the data of an APP1
// marker ("Exif\0\0", a TIFF header of either byte order, IFD0 with the
// entries asked for).
#pragma once

#include <cstdint>
#include <vector>

namespace toolstest {

struct ExifEntry {
    uint16_t tag = 0x0112, type = 3;  // Orientation, SHORT
    uint32_t count = 1, value = 1;    // a SHORT value sits in the entry's first two bytes
};

inline std::vector<uint8_t> exifSegment(bool bigEndian, const std::vector<ExifEntry> &entries) {
    std::vector<uint8_t> d = {'E', 'x', 'i', 'f', 0, 0};
    auto put16 = [&](uint16_t v) {
        if (bigEndian) d.insert(d.end(), {uint8_t(v >> 8), uint8_t(v)});
        else d.insert(d.end(), {uint8_t(v), uint8_t(v >> 8)});
    };
    auto put32 = [&](uint32_t v) {
        if (bigEndian) put16(uint16_t(v >> 16)), put16(uint16_t(v));
        else put16(uint16_t(v)), put16(uint16_t(v >> 16));
    };
    d.insert(d.end(), bigEndian ? std::initializer_list<uint8_t>{'M', 'M'} : std::initializer_list<uint8_t>{'I', 'I'});
    put16(42);
    put32(8);  // IFD0 right after the header
    put16(static_cast<uint16_t>(entries.size()));
    for (const ExifEntry &e : entries) {
        put16(e.tag);
        put16(e.type);
        put32(e.count);
        if (e.type == 3) put16(uint16_t(e.value)), put16(0);
        else put32(e.value);
    }
    put32(0);  // no next directory
    return d;
}

inline std::vector<uint8_t> exifOrientationSegment(bool bigEndian, int orientation) {
    return exifSegment(bigEndian, {{0x010F, 2, 4, 0x00434241}, {0x0112, 3, 1, uint32_t(orientation)}});
}

}  // namespace toolstest
