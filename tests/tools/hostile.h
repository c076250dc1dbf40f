// Pictures for the host's fault tests: noise that codes to a large GP4 file,
// and tiny files that claim huge pictures, made here byte by byte or with the
// field's own libraries.
#pragma once

#include <cstdio>
#include <jpeglib.h>

#include <cstdint>
#include <string>
#include <vector>

#include "toolfixture.h"

namespace toolstest {

// A 24-bit PPM of pseudo-random noise: dithered to one bit it codes badly,
// so the GP4 file is large.
inline void writeNoisePpm(const std::string &path, uint32_t w, uint32_t h, uint32_t seed = 1) {
    std::vector<uint8_t> data(static_cast<size_t>(w) * h * 3);
    uint32_t x = seed * 2654435761u + 1;
    for (uint8_t &b : data) {
        x ^= x << 13, x ^= x >> 17, x ^= x << 5;
        b = static_cast<uint8_t>(x);
    }
    writeBytes(path, "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n", data);
}

// A small JPEG written by libjpeg: grey or colour, baseline or progressive.
inline std::vector<uint8_t> smallJpeg(uint32_t w, uint32_t h, bool grey, bool progressive, int quality = 90) {
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &buffer, &size);
    c.image_width = w;
    c.image_height = h;
    c.input_components = grey ? 1 : 3;
    c.in_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    if (progressive) jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    std::vector<uint8_t> row(static_cast<size_t>(w) * c.input_components);
    while (c.next_scanline < h) {
        for (size_t i = 0; i < row.size(); ++i) row[i] = pattern(static_cast<uint32_t>(i), c.next_scanline);
        JSAMPROW p = row.data();
        jpeg_write_scanlines(&c, &p, 1);
    }
    jpeg_finish_compress(&c);
    std::vector<uint8_t> out(buffer, buffer + size);
    jpeg_destroy_compress(&c);
    std::free(buffer);
    return out;
}

// The frame header's height and width rewritten: the file now claims a
// picture of w x h while holding the data of a small one.
inline void claimJpegSize(std::vector<uint8_t> &jpeg, uint16_t w, uint16_t h) {
    for (size_t i = 2; i + 9 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && (jpeg[i + 1] == 0xC0 || jpeg[i + 1] == 0xC1 || jpeg[i + 1] == 0xC2)) {
            jpeg[i + 5] = static_cast<uint8_t>(h >> 8), jpeg[i + 6] = static_cast<uint8_t>(h);
            jpeg[i + 7] = static_cast<uint8_t>(w >> 8), jpeg[i + 8] = static_cast<uint8_t>(w);
            return;
        }
    }
}

inline uint32_t crc32Of(const uint8_t *p, size_t n) {
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1)));
    }
    return ~c;
}

inline void putBe32(std::vector<uint8_t> &v, uint32_t x) {
    for (int s = 24; s >= 0; s -= 8) v.push_back(static_cast<uint8_t>(x >> s));
}

inline void pngChunk(std::vector<uint8_t> &png, const char *type, const std::vector<uint8_t> &data) {
    putBe32(png, static_cast<uint32_t>(data.size()));
    size_t start = png.size();
    png.insert(png.end(), type, type + 4);
    png.insert(png.end(), data.begin(), data.end());
    putBe32(png, crc32Of(png.data() + start, png.size() - start));
}

// A PNG of a few dozen bytes claiming a w x h picture, with one tiny image
// data chunk (a stored zlib block of five zero bytes).
inline std::vector<uint8_t> tinyPngClaiming(uint32_t w, uint32_t h, uint8_t colourType, bool interlaced) {
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> ihdr;
    putBe32(ihdr, w);
    putBe32(ihdr, h);
    ihdr.insert(ihdr.end(), {8, colourType, 0, 0, static_cast<uint8_t>(interlaced ? 1 : 0)});
    pngChunk(png, "IHDR", ihdr);
    pngChunk(png, "IDAT", {0x78, 0x01, 0x01, 0x05, 0x00, 0xFA, 0xFF, 0, 0, 0, 0, 0, 0x00, 0x05, 0x00, 0x01});
    pngChunk(png, "IEND", {});
    return png;
}

// A GP4 header of sixteen 128-byte records with the given raster records.
inline std::string gp4Header(const std::vector<std::string> &raster) {
    std::vector<std::string> records = {"srcdocid: NONE", "dstdocid: NONE", "txtfilid: NONE", "figid: NONE",
                                        "srcgph: NONE",   "doccls: UNCLASS"};
    records.insert(records.end(), raster.begin(), raster.end());
    records.push_back("notes: NONE");
    std::string h;
    for (std::string r : records) {
        r.resize(128, ' ');
        h += r;
    }
    h.resize(2048, ' ');
    return h;
}

}  // namespace toolstest
