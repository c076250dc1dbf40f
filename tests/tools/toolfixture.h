// Shared helpers of the host program's tests: scratch directories, plain
// host memory for the readers, picture writers built on the field's libraries.
#pragma once

#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "image.h"

namespace toolstest {

namespace fs = std::filesystem;

// A fresh directory per test, removed afterwards.
class ScratchDir {
public:
    ScratchDir() {
        const char *base = std::getenv("MIVO4_TEST_TMP");
        fs::path root = base != nullptr ? base : fs::temp_directory_path();
        fs::create_directories(root);
        std::string pattern = (root / "toolsXXXXXX").string();
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        if (mkdtemp(name.data()) != nullptr) path_ = name.data();
    }
    ~ScratchDir() {
        std::error_code ec;
        if (!path_.empty()) fs::remove_all(path_, ec);
    }
    std::string operator/(const std::string &name) const { return (path_ / name).string(); }
    const fs::path &path() const { return path_; }
    // The names in the directory, sorted.
    std::vector<std::string> list() const {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(path_)) names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    fs::path path_;
};

// Host memory handed to the readers: zero-filled blocks kept until the end.
class HostMemory {
public:
    mivo4::host::PixelAllocator allocator() {
        return [this](size_t n) {
            blocks_.emplace_back(n + 1, 0);  // never empty, so data() is a real address
            return blocks_.back().data();
        };
    }

private:
    std::vector<std::vector<uint8_t>> blocks_;
};

inline std::vector<uint8_t> readBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string &path, const std::string &header, const std::vector<uint8_t> &data) {
    std::ofstream out(path, std::ios::binary);
    out.write(header.data(), static_cast<std::streamsize>(header.size()));
    out.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size()));
}

// A deterministic pattern value for pixel (x, y) and channel c.
inline uint8_t pattern(uint32_t x, uint32_t y, uint32_t c = 0) {
    return static_cast<uint8_t>((x * 7 + y * 13 + c * 101 + ((x * y) >> 3)) & 0xFF);
}

// Packed 1-bit rows (MSB first), top row first, bit set where on(x, y).
template <class On>
std::vector<uint8_t> packedBits(uint32_t w, uint32_t h, On on) {
    const size_t stride = (w + 7) / 8;
    std::vector<uint8_t> bits(stride * h, 0);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            if (on(x, y)) bits[stride * y + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    return bits;
}

inline bool bitAt(const uint8_t *row, uint32_t x) { return (row[x >> 3] >> (7 - (x & 7))) & 1; }

// A PNG written with libpng: rows top first, each rowBytes long.
struct PngSpec {
    uint32_t width = 0, height = 0;
    int colourType = PNG_COLOR_TYPE_RGB;
    int bitDepth = 8;
    bool interlaced = false;
    std::vector<png_color> palette;
    std::vector<uint8_t> paletteAlpha;
    bool greyTransparent = false;
    uint16_t transparentGrey = 0;
    uint32_t pixelsPerMetre = 0;  // 0: no pHYs
    std::vector<std::vector<uint8_t>> rows;
};

inline bool writePngFile(const std::string &path, const PngSpec &s) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, s.width, s.height, s.bitDepth, s.colourType,
                 s.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!s.palette.empty())
        png_set_PLTE(png, info, s.palette.data(), static_cast<int>(s.palette.size()));
    if (!s.paletteAlpha.empty())
        png_set_tRNS(png, info, s.paletteAlpha.data(), static_cast<int>(s.paletteAlpha.size()), nullptr);
    if (s.greyTransparent) {
        png_color_16 t{};
        t.gray = s.transparentGrey;
        png_set_tRNS(png, info, nullptr, 0, &t);
    }
    if (s.pixelsPerMetre != 0)
        png_set_pHYs(png, info, s.pixelsPerMetre, s.pixelsPerMetre, PNG_RESOLUTION_METER);
    png_write_info(png, info);
    std::vector<png_bytep> rows;
    for (const auto &r : s.rows) rows.push_back(const_cast<png_bytep>(r.data()));
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return std::fclose(f) == 0;
}

// A TIFF written with libtiff, one strip per row unless tiled.
struct TiffSpec {
    uint32_t width = 0, height = 0;
    uint16_t bps = 8, spp = 1, photometric = PHOTOMETRIC_MINISBLACK;
    uint16_t compression = COMPRESSION_NONE;
    std::vector<uint16_t> red, green, blue;  // colour map
    uint16_t extraSample = 0xFFFF;           // EXTRASAMPLE_* when spp is 4
    float resolution = 0;
    uint16_t unit = RESUNIT_INCH;
    bool tiled = false;
    std::vector<std::vector<uint8_t>> rows;  // scanlines, top first
};

// Sets the picture's tags on the current directory of t and writes its
// pixels (the directory itself is written by the caller or at close).
inline bool writeTiffImage(TIFF *t, const TiffSpec &s) {
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, s.width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, s.height);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, s.bps);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, s.spp);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, s.photometric);
    TIFFSetField(t, TIFFTAG_COMPRESSION, s.compression);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (!s.red.empty()) TIFFSetField(t, TIFFTAG_COLORMAP, s.red.data(), s.green.data(), s.blue.data());
    if (s.extraSample != 0xFFFF) {
        uint16_t e = s.extraSample;
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &e);
    }
    if (s.resolution > 0) {
        TIFFSetField(t, TIFFTAG_XRESOLUTION, s.resolution);
        TIFFSetField(t, TIFFTAG_YRESOLUTION, s.resolution);
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, s.unit);
    }
    bool ok = true;
    if (s.tiled) {
        const uint32_t tw = 16, th = 16;
        TIFFSetField(t, TIFFTAG_TILEWIDTH, tw);
        TIFFSetField(t, TIFFTAG_TILELENGTH, th);
        const size_t px = (static_cast<size_t>(s.spp) * s.bps + 7) / 8;
        std::vector<uint8_t> tile(tw * th * px);
        for (uint32_t ty = 0; ty < s.height; ty += th)
            for (uint32_t tx = 0; tx < s.width; tx += tw) {
                std::fill(tile.begin(), tile.end(), 0);
                for (uint32_t y = 0; y < th && ty + y < s.height; ++y)
                    for (uint32_t x = 0; x < tw && tx + x < s.width; ++x)
                        std::memcpy(&tile[(y * tw + x) * px], &s.rows[ty + y][(tx + x) * px], px);
                ok = ok && TIFFWriteTile(t, tile.data(), tx, ty, 0, 0) >= 0;
            }
    } else {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, s.compression == COMPRESSION_CCITTFAX4 ? s.height : 1u);
        for (uint32_t y = 0; y < s.height; ++y)
            ok = ok && TIFFWriteScanline(t, const_cast<uint8_t *>(s.rows[y].data()), y, 0) >= 0;
    }
    return ok;
}

inline bool writeTiffFile(const std::string &path, const TiffSpec &s) {
    TIFF *t = TIFFOpen(path.c_str(), "w");
    if (t == nullptr) return false;
    const bool ok = writeTiffImage(t, s);
    TIFFClose(t);
    return ok;
}

}  // namespace toolstest
