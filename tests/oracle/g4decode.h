// libtiff as an independent decoder of our Group 4 streams and GP4 files.
#pragma once

#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace oracle {

// A one-bit picture, rows packed most significant bit first, a set bit black
// (the usual bilevel convention), rows (width + 7) / 8 bytes apart, top first.
struct Bilevel {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> bits;
    uint32_t stride() const { return (width + 7) / 8; }
    bool black(uint32_t x, uint32_t y) const {
        return (bits[static_cast<size_t>(y) * stride() + x / 8] >> (7 - x % 8)) & 1;
    }
};

// A reproducible random picture with about blackPercent % black pixels.
inline Bilevel randomBilevel(uint32_t width, uint32_t height, uint32_t seed, int blackPercent = 30) {
    std::mt19937 rng(seed);
    Bilevel p;
    p.width = width;
    p.height = height;
    p.bits.assign(static_cast<size_t>(p.stride()) * height, 0);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            if (static_cast<int>(rng() % 100) < blackPercent)
                p.bits[static_cast<size_t>(y) * p.stride() + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    return p;
}

inline std::string scratchPath(const std::string &stem) {
    const char *dir = std::getenv("MIVO4_TEST_TMP");
    std::filesystem::path base = dir != nullptr ? dir : std::filesystem::temp_directory_path();
    std::filesystem::create_directories(base);
    return (base / (stem + "_" + std::to_string(getpid()) + ".tif")).string();
}

// Decodes a T.6 stream (no EOFB needed) of width x height pixels; empty on failure.
inline std::optional<Bilevel> decodeG4(const std::vector<uint8_t> &stream, uint32_t width,
                                       uint32_t height) {
    TIFFSetWarningHandler(nullptr);
    TIFFSetErrorHandler(nullptr);
    std::string path = scratchPath("g4decode");
    TIFF *out = TIFFOpen(path.c_str(), "w");
    if (out == nullptr) return std::nullopt;
    TIFFSetField(out, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(out, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(out, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(out, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(out, TIFFTAG_ROWSPERSTRIP, height);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(out, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(out, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    std::vector<uint8_t> raw = stream;
    raw.push_back(0);  // room for the decoder to look past the last code
    TIFFWriteRawStrip(out, 0, raw.data(), static_cast<tmsize_t>(raw.size()));
    TIFFClose(out);

    TIFF *in = TIFFOpen(path.c_str(), "r");
    if (in == nullptr) return std::nullopt;
    Bilevel picture;
    picture.width = width;
    picture.height = height;
    picture.bits.assign(static_cast<size_t>(picture.stride()) * height, 0);
    tmsize_t got = TIFFReadEncodedStrip(in, 0, picture.bits.data(),
                                        static_cast<tmsize_t>(picture.bits.size()));
    TIFFClose(in);
    std::filesystem::remove(path);
    if (got != static_cast<tmsize_t>(picture.bits.size())) return std::nullopt;
    return picture;
}

// The parts of a GP4 file: its 2048-byte header and the coded picture.
struct Gp4File {
    std::string header;
    std::vector<uint8_t> data;
};

inline Gp4File splitGp4(const std::vector<uint8_t> &file) {
    Gp4File f;
    size_t n = std::min<size_t>(file.size(), 2048);
    f.header.assign(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(n));
    if (file.size() > 2048) f.data.assign(file.begin() + 2048, file.end());
    return f;
}

// The 128-byte record at index i of a header, blanks at its end removed.
inline std::string headerRecord(const std::string &header, int i) {
    std::string r = header.substr(static_cast<size_t>(i) * 128, 128);
    while (!r.empty() && r.back() == ' ') r.pop_back();
    return r;
}

inline std::vector<uint8_t> readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace oracle
