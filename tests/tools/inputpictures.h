// Pictures for the input tests, written with the field's own libraries:
// TIFF files of several pages and stated orientations, JPEG files carrying
// an EXIF segment.
#pragma once

#include <cstdio>
// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>
#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

#include "toolfixture.h"

namespace toolstest {

// One page of a TIFF file: its pixels as a TiffSpec, and its orientation tag
// (0: none written).
struct TiffPage {
    TiffSpec picture;
    uint16_t orientation = 0;
};

// Writes the pages in order, one directory each, strips of one row (tiled
// pages as TiffSpec says).
inline bool writeTiffPages(const std::string &path, const std::vector<TiffPage> &pages) {
    TIFF *t = TIFFOpen(path.c_str(), "w");
    if (t == nullptr) return false;
    bool ok = true;
    for (const TiffPage &p : pages) {
        if (pages.size() > 1) {
            TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
            TIFFSetField(t, TIFFTAG_PAGENUMBER, static_cast<uint16_t>(&p - pages.data()), static_cast<uint16_t>(pages.size()));
        }
        if (p.orientation != 0) TIFFSetField(t, TIFFTAG_ORIENTATION, p.orientation);
        ok = ok && writeTiffImage(t, p.picture);
        ok = ok && TIFFWriteDirectory(t) != 0;
    }
    TIFFClose(t);
    return ok;
}

// A JPEG of 8-bit samples (components 1 or 3, rows top first), quality 100,
// with app1 (when not empty) written as an APP1 segment after the JFIF one,
// and the JFIF density (unit 0: only an aspect ratio, 1: per inch, 2: per cm).
inline bool writeJpegFile(const std::string &path, uint32_t w, uint32_t h, int components,
                          const std::vector<uint8_t> &pixels, const std::vector<uint8_t> &app1 = {},
                          int densityUnit = 0, int density = 1) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_stdio_dest(&c, f);
    c.image_width = w;
    c.image_height = h;
    c.input_components = components;
    c.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 100, TRUE);
    c.density_unit = static_cast<UINT8>(densityUnit);
    c.X_density = static_cast<UINT16>(density);
    c.Y_density = static_cast<UINT16>(density);
    jpeg_start_compress(&c, TRUE);
    if (!app1.empty()) jpeg_write_marker(&c, JPEG_APP0 + 1, app1.data(), static_cast<unsigned>(app1.size()));
    while (c.next_scanline < h) {
        JSAMPROW row = const_cast<JSAMPROW>(&pixels[static_cast<size_t>(c.next_scanline) * w * components]);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    return std::fclose(f) == 0;
}

// Packed 1-bit rows of a TiffSpec from a predicate, set bit where on(x, y).
template <class On>
TiffSpec bilevelSpec(uint32_t w, uint32_t h, On on, uint16_t compression = COMPRESSION_CCITTFAX4) {
    TiffSpec s;
    s.width = w;
    s.height = h;
    s.bps = 1;
    s.photometric = PHOTOMETRIC_MINISWHITE;
    s.compression = compression;
    const std::vector<uint8_t> bits = packedBits(w, h, on);
    const size_t stride = (w + 7) / 8;
    for (uint32_t y = 0; y < h; ++y)
        s.rows.emplace_back(bits.begin() + static_cast<std::ptrdiff_t>(y * stride),
                            bits.begin() + static_cast<std::ptrdiff_t>((y + 1) * stride));
    return s;
}

// Samples of a TiffSpec at 8 bits (grey) or 8 x 3 (RGB), value(x, y, c).
template <class Value>
TiffSpec byteSpec(uint32_t w, uint32_t h, uint16_t spp, Value value) {
    TiffSpec s;
    s.width = w;
    s.height = h;
    s.spp = spp;
    s.photometric = spp == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    for (uint32_t y = 0; y < h; ++y) {
        std::vector<uint8_t> r;
        for (uint32_t x = 0; x < w; ++x)
            for (uint32_t c = 0; c < spp; ++c) r.push_back(value(x, y, c));
        s.rows.push_back(r);
    }
    return s;
}

}  // namespace toolstest
